// The relational store: one store table per table of the image, named "<database>_<table>".
//
// A full save replaces a table's base rows; a project save replaces the rows of the modified records of one project. A
// table is saved in one transaction per slot, so a save that is interrupted leaves the former rows. Loads replace the
// table's records by the base rows and merge the rows of a project over them. docs/relational-store.md has the columns,
// the value forms and the statements.
// The destructor closes the connections. No operation takes the database's mutex, except for the insertion of records
// that a project adds. Errors: a load raises _com_error if a FLOAT or DOUBLE column, or the ID of a project row, does
// not convert.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "quillanest/kernel/VersionFields.h"
#include "quillanest/persist/DbConnection.h"
#include "quillanest/persist/TableStore.h"
#include "quillanest/settings/PasswordCipher.h"

namespace quillanest {

class ModifiedMarks;

// The descriptors of a table's fields, copied when a load or save begins: what other threads then write to the
// descriptors in the image does not change them.
using FieldList = std::vector<_field_attr>;
[[nodiscard]] FieldList fields_of(const TableView &view);

class CRtdbMedia final : public TableStore {
 public:
  explicit CRtdbMedia(CRtdbManager &manager);

  // By design [ClosedStoreSaves]: a save with no slot open runs its statements nowhere, clears the marks of the records
  // that it would have written, and is true.
  // False if the table has no descriptors in the image, a DELETE is rejected, or the changes could not be kept. If they
  // could not be kept, the store has the former rows and the records are marked modified again.
  // By design [RejectedDeleteEnds]: a rejected DELETE ends the save, and each database keeps what it has run by then:
  // the records before it, and a DELETE that only the backup rejected. A project save without modified records sends
  // nothing and is true.
  bool SaveTable(CRtDataBase &database, CRtTable &table, int project) override;
  bool SaveDataBase(CRtDataBase &database, int project) override;

  // False if there is no slot, the query fails, or there are more rows than the table holds.
  bool LoadTable(CRtDataBase &database, CRtTable &table, int project) override;
  bool LoadDataBase(CRtDataBase &database, int project) override;
  // False if a table failed or the directory is empty.
  bool LoadAllCustomized(int project) override;

  // Applies the rows of a query by key: existing records are overwritten except for their passwords, others are
  // inserted. False if the query fails.
  bool MergeProjectRows(CRtTable &table, const char *query);

  // Inserts one record, which starts at the first byte of `record`. True if the store reports exactly one row. Empty
  // times of the record are set to the current time.
  bool InsertRecord(const std::string &store_table, std::span<std::byte> record, const FieldList &fields);

  // Deletes the rows that a condition selects. False if a slot rejects the statement.
  bool DeleteRows(const std::string &store_table, const std::string &condition);

  // Opens the slots for a database, as every operation on a database does first, and returns the mask of open slots.
  int open_for(CRtDataBase &database, bool first_only);

  // The slots; an operation opens them.
  [[nodiscard]] const CDbConnection &connection() const noexcept { return connection_; }

 private:
  enum class Folder : std::uint8_t { kSystem, kBaseline };
  struct Source;
  struct Insert;

  void leave_database() override;
  int open(Folder folder, bool first_only);
  static bool has_changes(const Source &source);
  bool save_all_rows(const Source &source, ModifiedMarks &marks);
  bool save_project_rows(const Source &source, int project, ModifiedMarks &marks);
  template <class Save>
  bool keep(const Source &source, Save save);
  void insert_record(const Source &source, std::int32_t position, ModifiedMarks &marks);
  bool load_rows(CRtTable &table, const TableView &view, const std::string &store_table, int project);
  void store_rows(CRtTable &table, const TableView &view, int count);
  Insert insert_statement(const std::string &store_table, std::span<std::byte> record, const FieldList &fields);
  [[nodiscard]] bool stays_in_quotes(std::string_view text);
  void append_value(Insert &insert, const _field_attr &field, std::span<std::byte> value);

  CDbConnection connection_;
  PasswordCipher cipher_;
};

}  // namespace quillanest
