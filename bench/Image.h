// The image that the measurements of tables and texts work on, and the keys that its tables are filled with.
//
// One process has one image, so all tables lie in it from the start; each is filled when it is first asked for.
// Lifetime: tables and key lists stay valid as long as the image. Threads: all of it belongs to one thread.
#pragma once

#include <array>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "quillanest/Quillanest.h"

namespace bench {

// Ends the program with a message when a measurement would not measure what it says.
void expect(bool holds, const std::string &what);

void write_file(const std::filesystem::path &path, const std::string &text);

// 100 packed bytes: ID UINT, five INT, three DOUBLE, STRING 32, TIME, bModified INT.
inline constexpr std::size_t kRecordSize = 100;
inline constexpr std::size_t kValueOffset = 24;  // the DOUBLE that scans add up
inline constexpr double kValueStep = 0.25;       // the value of key 1, twice that of key 2
using Record = std::array<char, kRecordSize>;

[[nodiscard]] Record record_of(std::uint32_t key);
void set_key(Record &record, std::uint32_t key);

enum class Keys {
  kDense,   // 1, 2, 3 ...
  kSparse,  // random, all over the 32 bits
  kEven     // 2, 4, 6 ...
};

// Tables that are edited are others than those that are searched.
enum class Use { kSearched, kEdited };

struct TableId {
  Keys keys;
  Use use;
  int size;  // records, outside of edits
  auto operator<=>(const TableId &) const = default;
};

// Slots that every table has beyond its records.
inline constexpr int kSpareSlots = 1000;

// The table of the text files: 8 fields in 64 bytes.
inline constexpr unsigned int kTextDatabase = 3;
inline constexpr unsigned int kTextTable = 1;
inline constexpr int kTextRecords = 1'000'000;
inline constexpr std::size_t kTextRecordSize = 64;

class Image {
 public:
  // Builds the image in `folder`, which becomes the installation root.
  explicit Image(const std::filesystem::path &folder);

  // Switches the strict mode, which counts from the next load or save on.
  void configure(bool strict);

  // The table, filled with records of its keys.
  CRtTable &table(TableId id);
  // Its keys in ascending order.
  const std::vector<std::uint32_t> &keys(TableId id);

  CRtdbManager &manager() { return manager_; }
  // The table of the text files, which stays empty, because it is not loaded.
  CRtTable &text_table() { return text_table_; }
  // The file of that table.
  [[nodiscard]] std::filesystem::path text_file() const { return folder_ / "data/texts_samples.txt"; }
  [[nodiscard]] const std::filesystem::path &folder() const { return folder_; }

 private:
  std::filesystem::path folder_;
  CRtdbManager manager_;
  CRtDataBase tables_database_;
  CRtDataBase text_database_;
  CRtTable text_table_;
  std::map<TableId, CRtTable> tables_;
  std::map<TableId, std::vector<std::uint32_t>> keys_;
};

}  // namespace bench
