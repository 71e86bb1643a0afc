// A data file of any bytes is loaded and saved; what that save wrote is loaded and saved once more.
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <string>
#include <string_view>

#include "quillanest/shm/FieldType.h"
#include "tests/model/Support.h"

namespace {

using quillanest::model::LastingImage;
using quillanest::model::records_of;
using quillanest::model::require;

constexpr unsigned int kSystem = 1;
constexpr unsigned int kPlain = 10;
constexpr unsigned int kOdd = 11;
constexpr const char *kLenient = "DataInFile=1\nRtdbDataPath=data/\n";
constexpr const char *kStrict = "DataInFile=1\nRtdbDataPath=data/\nStrict=1\nPasswdKeyFile=key\n";
constexpr const char *kPlainFile = "data/system_Plain.txt";

// Every type in its own size, and sizes that are not those of their types.
const std::vector<TableSpec> kTables{
    {kPlain,
     "Plain",
     8,
     {"ID UINT 4", "Char CHAR 1", "Uchar UCHAR 1", "Short SHORT 2", "Ushort USHORT 2", "Int INT 4", "Uint UINT 4",
      "Long LONG 4", "Ulong ULONG 4", "Float FLOAT 4", "Double DOUBLE 8", "Name STRING 12", "Pass PASSWD 16",
      "Since TIME 16", "bModified INT 4", "iProjectID INT 4", "iEditStatus INT 4"}},
    {kOdd,
     "Odd",
     5,
     {"ID USHORT 2", "Flag CHAR 0", "Text STRING 3", "Short INT 2", "Empty STRING 0", "Pass PASSWD 5", "When TIME 7",
      "Half DOUBLE 3", "bModified SHORT 2", "Tail STRING 6"}}};

// Calls visit(field, value) for every field of every record, the value being the bytes of that field.
template <class Visit>
void for_each_value(const CRtTable &table, const std::string &records, Visit visit) {
  const auto record_size = static_cast<std::size_t>(table.GetTableSize());
  CRtField field;
  for (std::size_t start = 0; start < records.size(); start += record_size) {
    for (int i = 0; table.GetFieldFromIndex(field, i) == 1; ++i) {
      const std::size_t offset = start + static_cast<std::size_t>(field.GetFieldOffset());
      visit(field, std::string_view(records).substr(offset, static_cast<std::size_t>(field.GetFieldSize())));
    }
  }
}

// Whether the format promises that a save and a load bring this value back as it is shown.
bool comes_back(const CRtField &field, std::string_view value) {
  if (field.GetIndexInTable() == 0) return value_at<std::uint32_t>(value.data(), 0) != 0;
  if (!quillanest::is_text_type(field.GetFieldType())) return true;
  const std::size_t end = value.find('\0');
  return end != std::string_view::npos && value.substr(0, end).find("%%") == std::string_view::npos;
}

// The part of a value that comes back byte for byte.
std::string_view kept_part(const CRtField &field, std::string_view value) {
  switch (field.GetFieldType()) {
    case quillanest::kFloat:
    case quillanest::kDouble:
      return {};  // six decimals
    case quillanest::kString:
    case quillanest::kPasswd:
      return value.substr(0, value.find('\0'));
    default:
      return value;
  }
}

// Times lose the day of the week and the milliseconds.
std::string all_kept_parts(const CRtTable &table, const std::string &records) {
  std::string kept;
  for_each_value(table, records, [&](const CRtField &field, std::string_view value) {
    if (field.GetFieldType() == quillanest::kTime) {
      auto time = value_at<SYSTEMTIME>(value.data(), 0);
      time.wDayOfWeek = 0;
      time.wMilliseconds = 0;
      kept.append(reinterpret_cast<const char *>(&time), sizeof time);
    } else {
      kept.append(kept_part(field, value)).append(1, '\0');
    }
  });
  return kept;
}

struct Findings {
  bool comes_back = true;
  bool has_text_form = false;
};

Findings look_at(const CRtTable &table, const std::string &records) {
  Findings found;
  for_each_value(table, records, [&](const CRtField &field, std::string_view value) {
    found.comes_back = found.comes_back && comes_back(field, value);
    const bool is_password = field.GetFieldType() == quillanest::kPasswd;
    found.has_text_form = found.has_text_form || (is_password && value.starts_with("qnp1."));
  });
  return found;
}

void load_own_file(LastingImage &image, CRtTable &table) {
  const int count = table.GetRecordCount();
  LastingImage::clear(table, 'Z');
  require(image.manager.LoadTableData(kSystem, kPlain, nullptr), "a table's own file can be loaded");
  require(table.GetRecordCount() == count, "a saved file has all records");
}

void check_plain(LastingImage &image) {
  CRtTable table = image.table(kPlain);
  LastingImage::clear(table, 0);
  (void)image.manager.LoadTableData(kSystem, kPlain, image.file.path());
  const int count = table.GetRecordCount();
  require(count >= 0 && count <= table.GetRecordMaxCount(), "a load stops at the capacity");
  if (count == 0) return;
  const Findings found = look_at(table, records_of(table));
  const bool saved = table.SaveData(0);
  require(saved || found.has_text_form, "only a password that was cut prevents a save");
  require(!saved || !table.IsModified(), "a save clears the marks");
  if (!saved || !found.comes_back) return;

  const std::string records = records_of(table);
  const std::string file = image.root.read(kPlainFile);
  load_own_file(image, table);
  require(all_kept_parts(table, records_of(table)) == all_kept_parts(table, records), "records come back");
  const std::uint32_t last = value_at<std::uint32_t>(table.GetAt(count - 1), 0);
  require(table.GetTableInfo()->IDExclusive == last + 1, "the next key follows the last one");
  require(table.SaveData(0), "what was loaded from a saved file can be saved");
  require(image.root.read(kPlainFile) == file, "the second file is the first");
}

void check_odd(LastingImage &image) {
  CRtTable table = image.table(kOdd);
  LastingImage::clear(table, 0);
  (void)image.manager.LoadTableData(kSystem, kOdd, image.file.path());
  require(table.GetRecordCount() <= table.GetRecordMaxCount(), "a load stops at the capacity");
  if (table.GetRecordCount() == 0 || !table.SaveData(0)) return;
  require(image.manager.LoadTableData(kSystem, kOdd, nullptr), "a table's own file can be loaded");
}

// In the strict mode a load that is false has changed nothing, and what one that is true has loaded comes back exactly.
void check_strict(LastingImage &image) {
  image.root.configure(kStrict);
  CRtTable table = image.table(kPlain);
  LastingImage::clear(table, 'Z');
  const auto area = [&] {
    return bytes_at(table.GetDataAddress(), static_cast<std::size_t>(table.GetTableSize() * table.GetRecordMaxCount()));
  };
  const std::string before = area();
  const int count = table.GetRecordCount();
  if (!image.manager.LoadTableData(kSystem, kPlain, image.file.path())) {
    require(area() == before && table.GetRecordCount() == count, "a load that is false changes nothing");
    require(*quillanest::last_failure() != '\0', "a load that is false has a reason");
  } else if (table.SaveData(0)) {
    const std::string records = records_of(table);
    LastingImage::clear(table, 'Z');
    require(image.manager.LoadTableData(kSystem, kPlain, nullptr), "a strict save can be loaded strictly");
    require(records_of(table) == records, "what a strict save has written comes back exactly");
  } else {
    // A carriage return in a text can be read and not be written.
    require(std::string_view(quillanest::last_failure()).ends_with("[text.not_exact]"), quillanest::last_failure());
  }
  image.root.configure(kLenient);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, std::size_t size) {
  static LastingImage image(kTables);
  static const bool has_key = [] {
    const std::string key = image.root.write("key", "a key");
    std::filesystem::permissions(key, std::filesystem::perms::owner_read);
    return true;
  }();
  require(has_key, "there is a key file");
  image.file.write({reinterpret_cast<const char *>(bytes), size});
  check_plain(image);
  check_odd(image);
  check_strict(image);
  require(image.is_guard_whole(), "another database stays as it is");
  return 0;
}
