// Loads and saves of a relational table in the strict mode: what is true has happened as a whole, in every database
// that the configuration names, and comes back as it was.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "quillanest/kernel/RtTable.h"
#include "quillanest/persist/DbConnection.h"
#include "quillanest/persist/Exact.h"
#include "quillanest/persist/ModifiedMarks.h"
#include "quillanest/persist/RtdbMedia.h"

namespace quillanest {

// Lifetime: refers to what it is made with, for one load or save. The slots must have been opened, both of them.
// Errors: operations return false with their reasons reported, and then nothing has changed, in the image or in a
// store. Only if the backup fails in its commit does the main database keep the new rows.
class StrictStore {
 public:
  StrictStore(CDbConnection &connection, const PasswordCipher &cipher, const TableView &view, std::string store_table);

  // Saves every record, or with a project those of its records that are marked as modified. Base records replace all
  // base rows but those of records that carry a project's edits; the latter replace their rows of that project.
  bool save(int project);

  // Replaces the table's records by the base rows and merges the rows of a project over them. False also if the main
  // database and the backup are both open and differ.
  bool load(CRtTable &table, int project);

 private:
  // Records to save, by project: 0 for base rows.
  using Batches = std::map<std::int32_t, std::vector<std::int32_t>>;

  bool all_slots_are_open();
  template <class Work>
  bool each_slot(Work work);
  RowSet select(int slot, const std::string &condition, std::size_t most_rows);
  [[nodiscard]] std::string rows_of_project(std::int32_t project) const;

  Batches choose(RecordCopy &records, int project, ModifiedMarks &marks);
  bool write(int slot, RecordCopy &records, const Batches &batches, bool whole);
  void delete_former(Connection &store, RecordCopy &records, const Batches &batches, bool whole);
  bool begin_inserts(int slot);
  bool comes_back(int slot, RecordCopy &records, const Batches &batches);
  void warn_of_edits(RecordCopy &base, RecordCopy &records, const Batches &batches);
  bool is_stored(RecordCopy &found, RecordCopy &records, const std::vector<std::int32_t> &positions);

  std::optional<RecordCopy> read(int slot, std::int32_t project, std::size_t most_rows);
  std::optional<RecordCopy> read_all(std::int32_t project, std::size_t most_rows);
  bool is_same(RecordCopy &main, RecordCopy &backup);
  bool merge(CRtTable &table, RecordCopy &base, RecordCopy &rows);

  [[nodiscard]] std::int32_t project_of(std::span<std::byte> record) const noexcept;

  CDbConnection &connection_;
  const PasswordCipher &cipher_;
  const TableView view_;
  const std::string name_;
  const FieldList fields_;
  const VersionFields versions_;
};

}  // namespace quillanest
