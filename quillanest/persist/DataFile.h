// The text store: one plain text file per table.
//
// A file is a header line of field names and one line per record, values separated by ';'. Nothing is quoted or
// escaped. docs/data-files.md has the grammar. Files are written with CR LF and read with CR LF or LF.
// Lifetime: an object is built for one call and reads the configuration in its constructor; the manager must outlive
// it. Threads: one object belongs to one thread. No operation takes the database's mutex: writers record each record as
// it is at that moment, readers write straight into the image.
#pragma once

#include <optional>
#include <string>

class CRtDataBase;
class CRtTable;
class CRtdbManager;

namespace quillanest {

class CRtdbDataFile {
 public:
  explicit CRtdbDataFile(CRtdbManager *manager);
  virtual ~CRtdbDataFile();
  CRtdbDataFile(const CRtdbDataFile &) = delete;
  CRtdbDataFile &operator=(const CRtdbDataFile &) = delete;

  // Writes a table's file; the database must be mapped and the table bound to it. Clears "bModified" of every record
  // and stamps empty times with the present. False when the table has no descriptors in the image, no folder is
  // configured, or the file cannot be written whole; the former file is then kept, and the records are marked modified
  // again.
  bool SaveTable(CRtDataBase *database, CRtTable *table, int projectID);

  // Replaces a table's records by those of the file at `path`, or of the table's own file for a null path. True, with
  // nothing changed, when there is no such file. False when the file has no header line (nothing is changed), the table
  // no descriptors in the image, or no folder is configured. A file that cannot be opened counts as none; one that
  // cannot be read to its end raises an error that the published operations turn into false.
  bool LoadTable(CRtDataBase *database, CRtTable *table, const char *path, int projectID);

  // Every table of a database; the results are combined by "and", and a failure does not end the walk.
  bool SaveDataBase(CRtDataBase *database, int projectID);
  bool LoadDataBase(CRtDataBase *database, int projectID);

  // Every database of the directory; true unless it is empty.
  bool SaveAll(CRtdbManager *manager, int projectID);
  // The system database, through the manager's own view on it.
  bool LoadSystem(CRtdbManager *manager);
  // Every database but the system database; true unless the directory is empty.
  bool LoadAllCustomized(CRtdbManager *manager, int projectID);

 private:
  [[nodiscard]] std::optional<std::string> path_of(CRtDataBase &database, CRtTable &table) const;

  bool use_caption_names_;
  char separator_ = ';';
  char extension_[6] = {};
  CRtdbManager *manager_;
};

// Merges a partial-update file into existing records. The header's columns are looked up by name (by caption name when
// `use_caption_names`); the first column's text selects the record, the others are stored and mark it modified. True
// also when the file does not exist; false when it has no header line or the table no descriptors in the image.
// `database` is not used.
bool LoadSomeDataFile(CRtDataBase *database, CRtTable *table, const char *path, bool use_caption_names, char separator);

}  // namespace quillanest
