// What a table must hold after a series of edits, kept in a map.
//
// It follows the documented rules of the edits and knows nothing of segments. Only tables whose first field is the key
// of 4 bytes and whose version fields are whole can be followed.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>

#include "quillanest/kernel/RtTable.h"
#include "tests/model/RandomSchema.h"

namespace quillanest::model {

class TableModel {
 public:
  // `table` must outlive the model.
  explicit TableModel(const RandomTable &table) : table_(&table) {}

  // Each changes the model as the operation of the same purpose changes a table, and returns what it must return.
  int insert(std::string &record, int project);
  int update(const std::string &record, int project);
  int remove(std::uint32_t key, int hint, int project);
  bool stamp_at(int position, int project, int action);
  unsigned int hand_out_key() { return next_key_++; }
  void clear();

  // Overwrites bytes of the record at a position.
  void write(int position, std::size_t offset, std::string_view bytes);

  [[nodiscard]] const RandomTable &table() const noexcept { return *table_; }
  [[nodiscard]] int count() const noexcept { return static_cast<int>(records_.size()); }
  [[nodiscard]] std::uint32_t next_key() const noexcept { return next_key_; }
  // The position of a key, or -1; where it is or would be; the key and the record at a position in use.
  [[nodiscard]] int position_of(std::uint32_t key) const;
  [[nodiscard]] int place_of(std::uint32_t key) const;
  [[nodiscard]] std::uint32_t key_at(int position) const;
  [[nodiscard]] const std::string &record_at(int position) const;
  // The key of a record.
  [[nodiscard]] static std::uint32_t key_of(const std::string &record);
  [[nodiscard]] bool is_modified() const;

  // Whether the table holds what the model says.
  [[nodiscard]] bool matches(const CRtTable &table) const;
  // Takes the table's records over. False when their keys do not ascend from 1 or the next key is not after them: a
  // table like that cannot be followed.
  bool adopt(CRtTable &table);

 private:
  void stamp(std::string &record, int project, int action) const;
  void set_number(std::string &record, const char *field, std::int32_t value) const;

  const RandomTable *table_;
  std::map<std::uint32_t, std::string> records_;
  std::uint32_t next_key_ = 1;
};

}  // namespace quillanest::model
