// The relational store: one store table per table of the image, named "<database>_<table>".
//
// A full save replaces a table's base rows; a project save replaces the rows of the modified records of one project. A
// table is saved in one transaction per slot, so a save that is interrupted leaves the former rows. Loads replace the
// table's records by the base rows and merge the rows of a project over them. docs/relational-store.md has the columns,
// the value forms and the statements.
// Lifetime: an object is built for one public call and closes its connections at the end.
// Threads: one object belongs to one thread; no operation takes the database's mutex, except for the insertion of
// records that a project adds.
// Errors: a FLOAT or DOUBLE column, or the ID of a project row, that does not convert raises _com_error out of a load.
#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <vector>

#include "quillanest/kernel/VersionFields.h"
#include "quillanest/persist/DbConnection.h"
#include "quillanest/settings/PasswordCipher.h"

namespace quillanest {

class ModifiedMarks;

// Descriptors of a table's fields as they were when a load or save began. What another thread writes over the
// descriptors in the image meanwhile does not reach it.
using FieldList = std::vector<_field_attr>;
[[nodiscard]] FieldList fields_of(const TableView &view);

class CRtdbMedia : public CDbConnection {
 public:
  explicit CRtdbMedia(CRtdbManager *manager);

  // The folder of the system database or of the baseline before the name of a file database.
  std::optional<std::string> GetDataSource(int slot) override;

  // By design [ClosedStoreSaves]: a save with no slot open runs its statements nowhere, clears the marks of the records
  // that it would have written, and is true.
  // False when the table has no descriptors in the image, a DELETE is rejected, or the changes could not be kept. With
  // changes that could not be kept the former rows stand and the records are marked modified again.
  // By design [RejectedDeleteEnds]: a rejected DELETE ends the save, and each database keeps what it has run by then:
  // the records in front, and a DELETE that only the backup rejected. A project save without modified records sends
  // nothing and is true.
  bool SaveTable(CRtDataBase &database, CRtTable &table, int project);
  bool SaveDataBase(CRtDataBase &database, int project);
  // Every mapped database, each with connections of its own; true unless the directory is empty.
  bool SaveAll(CRtdbManager &manager, int project);

  // False when there is no slot, the query fails, or there are more rows than the table holds.
  bool LoadTable(CRtDataBase &database, CRtTable &table, int project);
  bool LoadDataBase(CRtDataBase &database, int project);
  // Every database but the system database; false when a table failed or the directory is empty.
  bool LoadAllCustomized(CRtdbManager &manager, int project);
  bool LoadSystem(CRtdbManager &manager);

  // Applies the rows of a query by key: known records are overwritten but for their passwords, others inserted. False
  // when the query fails.
  bool MergeProjectRows(CRtTable &table, const char *query);

  // Inserts one record; `record` is the bytes it lies in, from its first one on. True when the store reports exactly
  // one row. Empty times of the record are stamped with the present.
  bool InsertRecord(const std::string &store_table, std::span<std::byte> record, const FieldList &fields);

 private:
  struct Source;
  struct Insert;

  void open_for(CRtDataBase &database, bool first_only);
  static bool has_changes(const Source &source);
  bool save_all_rows(const Source &source, ModifiedMarks &marks);
  bool save_project_rows(const Source &source, int project, ModifiedMarks &marks);
  template <class Save>
  bool keep(const Source &source, Save save);
  void insert_record(const Source &source, std::int32_t position, ModifiedMarks &marks);
  void store_rows(const TableView &view, int count);
  Insert insert_statement(const std::string &store_table, std::span<std::byte> record, const FieldList &fields);
  [[nodiscard]] bool stays_in_quotes(std::string_view text);
  void append_value(Insert &insert, const _field_attr &field, std::span<std::byte> value);

  CRtdbManager *manager_;
  PasswordCipher cipher_;
  bool bSystemDB = false;
};

}  // namespace quillanest
