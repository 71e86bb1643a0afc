// Lookups, walks and values, compared with the model.
#include <cstring>
#include <memory>
#include <string>
#include <string_view>

#include "quillanest/base/Text.h"
#include "tests/model/ModelRun.h"

namespace quillanest::model {

void ModelRun::find(const TableModel &model, const CRtTable &table) {
  const std::uint32_t key = key_near(model);
  const int position = model.position_of(key);
  const int hint = any_position();
  const bool found = position >= 0;
  const char *record = found ? table.GetAt(position) : nullptr;
  int place = -7;
  require(table.FindRecordIndex(key) == position, "a record is found where the model has it");
  require(table.FindIDExclusive(key, place) == (found ? 1 : 0) && place == model.place_of(key), "a key has its place");
  require(table.FindIDExclusive(key) == record, "a record is found by its key");
  std::string buffer(model.table().record_size, '?');
  require(table.FindIDExclusive(key, buffer.data()) == (found ? 1 : 0), "a record is copied when it is there");
  require(buffer == (found ? model.record_at(position) : std::string(buffer.size(), '?')), "a copy is the record");
  const bool hint_counts = hint < model.count() && (hint >= 0 || key != 0);
  require(table.GetRecordAddr(key, hint) == (hint_counts ? record : nullptr), "a hint changes nothing but the time");
  CRtDataBase &database = databases_[model.table().database - 1];
  require((database.GetTableRecord(model.table().id, key) != nullptr) == found, "a database finds what its table has");
  require(database.GetTableRecordCount(model.table().id) == model.count(), "a database counts its tables' records");
}

void ModelRun::walk(const TableModel &model, const CRtTable &table) {
  int position = table.GetFirstPosition();
  require((position == -1) == (model.count() == 0) && table.IsEmpty() == (model.count() == 0),
          "an empty table is empty");
  for (int i = 0; i < model.count(); ++i) {
    require(table.GetNextPosition(position) == table.GetAt(i), "a walk meets every record");
    require(position == (i + 1 == model.count() ? -1 : i + 1), "a walk ends with the last record");
  }
  require(table.GetNextPosition(position) == nullptr && position == -1, "a walk that has ended stays so");
}

// A field's text runs on into what follows it, at most to the end of the segment.
void ModelRun::find_text(const TableModel &model, const CRtTable &table) {
  const std::size_t index = input_.choice(model.table().fields.size());
  const std::string text = input_.text(24);
  const std::string wanted(text.c_str());
  CRtDataBase &database = databases_[model.table().database - 1];
  const char *end = database.GetStartAddress() + database.GetDBSize();
  const char *expected = nullptr;
  for (int i = 0; i < model.count() && expected == nullptr; ++i) {
    const char *start = database.GetTableRecordAt(model.table().id, i) + model.table().fields[index].offset;
    const std::string_view stored(start, strnlen(start, static_cast<std::size_t>(end - start)));
    if (equal_ignoring_case(stored, wanted)) expected = start - model.table().fields[index].offset;
  }
  const char *found = table.FindRecordbyStringField(static_cast<int>(index), wanted.c_str());
  require((found == nullptr) == (expected == nullptr), "a text is found when it is there");
  require(found == nullptr || std::memcmp(found, expected, model.table().record_size) == 0, "the first match counts");
}

void ModelRun::read_value(const TableModel &model, CRtTable &table) {
  const std::size_t index = input_.choice(model.table().fields.size());
  const RandomField &field = model.table().fields[index];
  const std::uint32_t key = key_near(model);
  const int position = model.position_of(key);
  CRtDataBase &database = databases_[model.table().database - 1];
  const auto buffer = std::make_unique<char[]>(static_cast<std::size_t>(database.GetDBSize()) + 1);
  const int slot = static_cast<int>(index);
  const int result = input_.flag() ? table.GetFieldData(key, slot, buffer.get())
                                   : database.GetTableFieldData(model.table().id, slot, key, buffer.get());
  require(result == (position >= 0 ? 1 : 0), "a value is read when its record is there");
  if (position < 0) return;
  const std::string_view bytes = std::string_view(model.record_at(position)).substr(field.offset);
  if (field.width > 0) {
    require(bytes.substr(0, field.size) == std::string_view(buffer.get(), field.size), "a value is the record's bytes");
  } else if (const std::size_t end = bytes.find('\0'); end != std::string_view::npos) {
    require(bytes.substr(0, end) == buffer.get(), "a text ends with its terminator");
  }
}

void ModelRun::look_up(const TableModel &model, CRtTable &table) {
  const std::size_t index = input_.choice(model.table().fields.size() + 1);
  const int slot = static_cast<int>(index);
  const bool is_there = index < model.table().fields.size();
  CRtField field;
  require(table.GetFieldFromIndex(field, slot) == (is_there ? 1 : 0), "a field is found by its slot");
  require((table.GetFieldFromIndex(slot) != nullptr) == is_there, "a field has an address");
  require(table.GetFieldFromID(field, static_cast<unsigned int>(slot + 1)) == (is_there ? 1 : 0), "and by its ID");
  if (!is_there) return;
  const RandomField &expected = model.table().fields[index];
  require(table.FindFieldFromName(expected.name.c_str(), false) == slot, "and by its name");
  require(table.FindFieldFromName(("C" + expected.name).c_str(), true) == slot, "and by its caption");
  require(field.GetFieldOffset() == static_cast<int>(expected.offset), "a field lies where its neighbours end");
  require(field.GetFieldSize() == static_cast<int>(expected.size), "a field has its size");
  require(field.GetFieldType() == expected.type, "a field has its type");
  const char *default_text = field.GetDefaultValue();  // one of full width has no terminator
  require(expected.default_text == std::string_view(default_text, strnlen(default_text, RTDB_DEFAULT_SIZE)),
          "a field has its default text");
}

}  // namespace quillanest::model
