// Start-up with a schema file of any bytes: refused, or an image whose descriptors fit together.
#include <csignal>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <sys/resource.h>

#include "quillanest/persist/IncludeFile.h"
#include "tests/model/Support.h"

namespace {

using quillanest::model::MemoryFile;
using quillanest::model::require;

constexpr std::string_view kManagerKeyText = "333";
constexpr int kMostTables = 64;
constexpr int kMostFields = 64;

struct Surroundings : quillanest::model::RootsInMemory {
  Surroundings() {
    // Larger segments are refused by the system, which costs less than laying them out.
    constexpr rlim_t kLargestSegment = 1 << 22;
    const rlimit limit{kLargestSegment, kLargestSegment};
    (void)std::signal(SIGXFSZ, SIG_IGN);
    require(setrlimit(RLIMIT_FSIZE, &limit) == 0, "the system limits files");
  }
  TestRoot root;
  MemoryFile schema;
};

// The fields of one table lie one after the other in a record. Returns the record's size.
int check_fields(const CRtTable &table) {
  CRtField field;
  int offset = 0;
  for (int i = 0; i < table.GetTableFieldNum() && i < kMostFields; ++i) {
    require(table.GetFieldFromIndex(field, i) == 1, "a field slot can be read");
    require(field.GetFieldOffset() == offset, "a field lies after the one before it");
    require(field.GetFieldSize() >= 0, "a field has a size");
    require(table.FindFieldFromName(field.GetFieldName(), false) <= i, "a field is found by its name");
    offset += field.GetFieldSize();
  }
  return offset;
}

void check_table(CRtTable &table, int &field_offset, std::int64_t &data_offset) {
  const _table_attr attr = *table.GetTableInfo();
  require(attr.FieldOffset == field_offset, "a table's fields lie after those of the table before it");
  require(attr.DataOffset == data_offset, "a table's records lie after those of the table before it");
  require(attr.RecordCount == 0 && attr.IDExclusive == 1, "a table without a data file is empty");
  field_offset += attr.TableFieldNum * static_cast<int>(sizeof(_field_attr));
  data_offset += std::int64_t{attr.TableSize} * attr.RecordMaxCount;
  if (attr.IndexInDB < 0) return;  // a slot that no line filled is not attached
  require(table.GetDataAddress() != nullptr, "a table that was filled is attached");
  const int record_size = check_fields(table);
  require(attr.TableFieldNum > kMostFields || record_size == attr.TableSize, "fields make up the record");
}

void check_database(CRtDataBase &database) {
  require(database.AttachShareMemory() == 1, "a database of the directory can be mapped");
  const auto attr = value_at<_db_attr>(database.GetStartAddress(), 0);
  int field_offset =
      static_cast<int>(sizeof(_db_attr) + static_cast<std::size_t>(attr.DBTableNum) * sizeof(_table_attr));
  std::int64_t data_offset = attr.DataOffset;
  require(attr.TableOffset == sizeof(_db_attr) && attr.FieldOffset == field_offset, "descriptors follow one another");
  require(attr.DataOffset == field_offset + attr.DBFieldNum * static_cast<int>(sizeof(_field_attr)),
          "records follow the descriptors");
  CRtTable table;
  int position = database.GetFirstTablePostion();
  for (int i = 0; i < kMostTables && database.GetNextTable(table, position); ++i) {
    require(table.GetIndexInDB() == i || table.GetIndexInDB() == -1, "a table knows its slot");
    check_table(table, field_offset, data_offset);
  }
  require(data_offset <= attr.DBSize, "the records lie in the segment");
  require(attr.DBTableNum > kMostTables || data_offset == attr.DBSize, "the segment ends with the last record");
  require(!quillanest::include_file_text(database).empty(), "a header can be written");
}

void check_image(CRtdbManager &manager) {
  require(manager.GetRtdbStatus() == RTDB_STATUS_LOADED, "a started image is loaded");
  require(manager.GetSystemDB()->IsInShareMemory() == 1, "the system database is mapped");
  require(manager.GetSystemDB()->GetDBID() == 1, "the system database has ID 1");
  CRtDataBase database;
  int position = -1;
  require(manager.GetFirstDataBasePostion(position) == 1, "a started image has databases");
  std::map<unsigned int, int> databases_of_id;
  while (manager.GetNext(database, position) == 1) ++databases_of_id[database.GetDBID()];
  require(manager.GetFirstDataBasePostion(position) == 1, "the directory can be walked again");
  while (manager.GetNext(database, position) == 1) {
    // Databases of one ID share a segment, and the directory keeps the layouts of all of them.
    if (databases_of_id[database.GetDBID()] > 1) continue;
    check_database(database);
    (void)database.DetachShareMemory();
  }
}

// The checker finds an error in a file that a start refuses, unless the start failed for something else.
void check_agreement(const char *path, std::string_view failure) {
  for (const quillanest::Finding &found : quillanest::check_schema(path)) {
    if (found.severity == quillanest::Severity::kError) return;
  }
  const bool is_other = failure.find("[layout.segment]") != std::string_view::npos ||
                        failure.find("[start.segment]") != std::string_view::npos ||
                        failure.find("[text.") != std::string_view::npos ||
                        failure.find("[system.") != std::string_view::npos;
  require(is_other, failure.data());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, std::size_t size) {
  static const Surroundings surroundings;
  const std::string text(bytes, bytes + size);
  surroundings.schema.write(text);
  {
    CRtdbManager manager;
    const bool started = manager.RtdbManagerInit(false, surroundings.schema.path());
    // A database whose ID is the manager's key lies in the manager's segment; docs/caveats.md says so.
    if (started && text.find(kManagerKeyText) == std::string::npos) check_image(manager);
    if (!started) check_agreement(surroundings.schema.path(), quillanest::last_failure());
    if (!started) (void)manager.RtdbManagerInit(false, surroundings.schema.path());
  }
  require(CShareMemory(kManagerKey).Attach() == nullptr, "nothing is left of an image when its manager is gone");
  require(CShareMemory(1).Attach() == nullptr, "nothing is left of the system database when its manager is gone");
  return 0;
}
