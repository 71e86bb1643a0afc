// The text store: one plain text file per table.
//
// A file is a header line of field names and one line per record, values separated by ';'. Nothing is quoted or
// escaped. docs/data-files.md has the grammar. Files are written with CR LF and read with CR LF or LF.
// In the strict mode (key Strict) a load is false, with table and file unchanged, if anything in the file does not fit
// the table, and a save is false, with the former file kept, if a value would not come back from it, or if the table
// was not loaded before.
// No operation takes the database's mutex: writers record each record as it is at that moment, readers write straight
// into the image.
#pragma once

#include <optional>
#include <string>

#include "quillanest/kernel/TableView.h"
#include "quillanest/persist/TableStore.h"
#include "quillanest/settings/PasswordCipher.h"

namespace quillanest {

class CRtdbDataFile final : public TableStore {
 public:
  explicit CRtdbDataFile(CRtdbManager &manager);

  // Writes a table's file. Clears "bModified" of every record and sets empty times to the current time. False if the
  // table has no descriptors in the image, no folder is configured, or the file cannot be written whole; the former
  // file is then kept, and the records are marked modified again. All projects are saved alike.
  bool SaveTable(CRtDataBase &database, CRtTable &table, int project) override;

  // Does what LoadTableFrom does, with the table's own file. False also if no folder is configured. All projects are
  // loaded alike.
  bool LoadTable(CRtDataBase &database, CRtTable &table, int project) override;

  // Replaces a table's records by those of a file. True, with nothing changed, if there is no such file. False, with
  // nothing changed, if the file has no header line or the table has no descriptors in the image. A file that cannot be
  // opened counts as missing; one that cannot be read to its end raises an error.
  bool LoadTableFrom(CRtTable &table, const std::string &path);

  // True unless the directory is empty.
  bool LoadAllCustomized(int project) override;

 private:
  bool write_table(CRtTable &table, const TableView &view, const PasswordCipher &cipher, const std::string &path);
  [[nodiscard]] std::optional<std::string> path_of(CRtDataBase &database, CRtTable &table) const;

  bool use_caption_names_;
  char separator_ = ';';
  std::string extension_;
};

// Merges a partial-update file into existing records. The header's columns are looked up by name (by caption name if
// `use_caption_names`); the first column's text selects the record, the others are stored and mark it modified. True
// also if the file does not exist; false if it has no header line or the table has no descriptors in the image.
bool LoadSomeDataFile(CRtTable &table, const std::string &path, bool use_caption_names, char separator);

}  // namespace quillanest
