// A partial-update file of any bytes changes columns of existing records, and marks every record that it changes.
#include <cstdint>
#include <string>
#include <string_view>

#include "tests/model/Input.h"
#include "tests/model/Support.h"

namespace {

using quillanest::model::Input;
using quillanest::model::LastingImage;
using quillanest::model::records_of;
using quillanest::model::require;

constexpr unsigned int kSystem = 1;
constexpr unsigned int kAlarm = 10;
constexpr unsigned int kOdd = 11;
constexpr char kSeparators[] = {';', ',', '\t', '\0', '\n', 'a'};

const std::vector<TableSpec> kTables{
    {kAlarm,
     "Alarm",
     6,
     {"ID UINT 4", "Code STRING 8", "Priority USHORT 2", "Flag CHAR 1", "Value DOUBLE 8", "Raised TIME 16",
      "Pass PASSWD 12", "bModified INT 4"}},
    {kOdd, "Odd", 4, {"Code STRING 4", "Short INT 1", "Flag CHAR 0", "When TIME 3", "Pass PASSWD 0", "Tail STRING 5"}}};

// Records with these codes and nothing else.
template <class Codes>
void fill(CRtTable &table, std::size_t code_offset, const Codes &codes) {
  LastingImage::clear(table, 0);
  std::uint32_t key = 0;
  for (const std::string_view code : codes) {
    char *record = table.GetDataAddress() + key * static_cast<std::size_t>(table.GetTableSize());
    if (code_offset > 0) put(record, 0, key + 1);
    code.copy(record + code_offset, code.size());
    ++key;
  }
  table.SetRecordCount(static_cast<int>(key));
  table.SetIDExclusive(key + 1);
}

void check_alarms(LastingImage &image, bool by_caption, char separator, bool is_empty) {
  constexpr std::string_view kCodes[] = {"PS214", "qt241", "A", "", "full8chr"};
  CRtTable table = image.table(kAlarm);
  CRtField modified;
  require(table.GetFieldFromName(modified, "bModified") == 1, "the table has marks");
  const auto mark = static_cast<std::size_t>(modified.GetFieldOffset());
  fill(table, 4, kCodes);
  const std::string before = records_of(table);
  const bool merged = image.manager.LoadSomeData(kSystem, kAlarm, image.file.path(), by_caption, separator);
  require(!is_empty || !merged, "an empty file is refused");
  require(table.GetRecordCount() == std::ssize(kCodes), "no record comes or goes");
  require(table.GetTableInfo()->IDExclusive == std::size(kCodes) + 1, "the next key stays");
  const auto record_size = static_cast<std::size_t>(table.GetTableSize());
  const std::string after = records_of(table);
  require(merged || before == after, "a refused file changes nothing");
  for (std::size_t start = 0; start < after.size(); start += record_size) {
    const bool changed = after.compare(start, record_size, before, start, record_size) != 0;
    require(!changed || value_at<std::int32_t>(after.data(), start + mark) == 1, "a changed record is marked");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, std::size_t size) {
  static LastingImage image(kTables);
  Input input(bytes, size);
  const bool by_caption = input.flag();
  const char separator = input.pick(kSeparators);
  const std::string text = input.rest();
  image.file.write(text);
  check_alarms(image, by_caption, separator, text.empty());

  constexpr std::string_view kOddCodes[] = {"A", "abcd", ""};
  CRtTable odd = image.table(kOdd);
  fill(odd, 0, kOddCodes);
  (void)image.manager.LoadSomeData(kSystem, kOdd, image.file.path(), by_caption, separator);
  require(odd.GetRecordCount() == std::ssize(kOddCodes), "no record comes or goes");
  require(image.is_guard_whole(), "another database stays as it is");
  return 0;
}
