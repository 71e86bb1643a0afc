// A run of the image targets with any arguments and damaged descriptors.
//
// A caller answers for the room in its own buffers, so each is as large as a segment, and calls that touch TableSize
// bytes of one get a place in a segment while a descriptor may say that these are more. Names of databases and the
// paths of the manager are put right before each call: names become names of mutexes, which stay, and paths say what
// is saved where.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <stop_token>
#include <string>
#include <vector>

#include "tests/model/ImageRun.h"
#include "tests/model/RandomSchema.h"

namespace quillanest::model {

class HostileRun {
 public:
  // Starts the image of the schema file of the surroundings, or joins it.
  HostileRun(const ImageSurroundings &surroundings, const RandomSchema &schema, Input input);
  void run();

  // From now on others disturb: fills the tables, prefers arguments that mean something and takes the input repeatedly.
  void expect_contention();
  // Changes descriptors, as the input says again and again, and puts them back each time, until it is to stop.
  void disturb(const std::stop_token &stop);

 private:
  // A database, mapped for the whole run, and what its segment was at the start.
  struct Mapped {
    CRtDataBase database;
    char *start = nullptr;
    std::size_t size = 0;
    std::size_t table_count = 0;
    std::size_t descriptors_end = 0;
    std::string names;
    std::string after_names;  // the rest of the descriptors
    std::unique_ptr<SegmentEnd> end;
  };

  void mend();
  void remember_names();
  void write_over();
  void write_number();
  void change_descriptor();
  void call();

  // HostileTable.cpp
  void call_table(CRtTable &table);
  void find_records(CRtTable &table);
  void edit_records(CRtTable &table);
  void use_values(CRtTable &table);
  void find_fields(CRtTable &table);
  void set_descriptor(CRtTable &table);
  void use_whole_table(CRtTable &table);

  // HostileDatabase.cpp
  void call_database(CRtDataBase &database);
  void find_tables(CRtDataBase &database);
  void set_database(CRtDataBase &database);
  void set_number(CRtDataBase &database);
  void use_whole_database(CRtDataBase &database);
  void call_manager(CRtdbManager &manager);
  void find_databases(CRtdbManager &manager);
  void use_identity(CRtdbManager &manager);
  void change_directory(CRtdbManager &manager);
  void load_and_save(CRtdbManager &manager);
  void attach(CRtdbManager &manager);

  Mapped &any_mapped() { return mapped_[input_.choice(mapped_.size())]; }
  // An address anywhere in a segment.
  char *any_address();
  // A text of the caller's, one in a segment, or null.
  const char *any_text();
  // A text that the callee may change.
  char *any_changeable_text();
  // A buffer of the caller's or a place in a segment; rarely null.
  char *any_buffer();
  // A buffer for a record of the table.
  char *any_record(const CRtTable &table);
  unsigned int any_id();
  // A position or index, mostly one that there is beside other threads.
  int any_place() { return contended_ && input_.flag() ? static_cast<int>(input_.choice(4)) : input_.wild(); }
  CRtField any_field();
  // Whether a save takes a time that is worth it: damaged counts make many records of long texts.
  bool is_cheap(CRtDataBase &database);
  bool all_are_cheap();

  const ImageSurroundings &surroundings_;
  Input input_;
  bool contended_ = false;
  CRtdbManager builder_;
  CRtdbManager second_;
  std::vector<Mapped> mapped_;
  CShareMemory manager_segment_;
  char *head_ = nullptr;
  std::unique_ptr<SegmentEnd> manager_end_;
  std::string manager_bytes_;
  std::unique_ptr<char[]> buffer_;
  std::deque<std::unique_ptr<char[]>> texts_;
};

// Names that a database may be given, one of which runs on into the caption, and captions.
inline constexpr const char *kNewNames[] = {
    "system", "plant", "archive", "SYSTEM", "", "abcdefghijklmnopqrstuvwx", "a name of 25 characters.."};
inline constexpr const char *kNewCaptions[] = {"Csystem", "caption", "", "a caption of thirty-nine characters 789",
                                               "a caption of forty-one characters 789012"};

}  // namespace quillanest::model
