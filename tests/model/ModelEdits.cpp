// Edits of records and values, in the table and in the model.
#include <algorithm>
#include <cstring>
#include <memory>
#include <string>

#include "tests/model/ModelRun.h"

namespace quillanest::model {

void ModelRun::insert(TableModel &model, CRtTable &table) {
  const std::uint32_t key = key_near(model);
  std::string record = input_.bytes(model.table().record_size);
  std::memcpy(record.data(), &key, sizeof key);
  std::string expected = record;
  const int number = project();
  const int position = table.Insert(record.data(), number);
  require(position == model.insert(expected, number), "an insert goes where the model's goes");
  require(record == expected, "an insert changes the key in the buffer and nothing else");
}

void ModelRun::insert_key(TableModel &model, CRtTable &table) {
  const std::uint32_t key = key_near(model);
  const bool fill = input_.flag();
  std::string record(model.table().record_size, '\0');
  std::memcpy(record.data(), &key, sizeof key);
  if (fill) table.InitRecordDefault(record.data());
  const int number = project();
  const int position = table.Insert(key, number, fill ? 1 : 0);
  require(position == model.insert(record, number), "an insert by key goes where the model's goes");
}

void ModelRun::insert_many(TableModel &model, CRtTable &table) {
  constexpr std::size_t kMostInserts = 64;
  std::uint32_t key = key_near(model);
  const std::uint32_t distance = input_.flag() ? 1 : input_.number<std::uint16_t>();
  for (std::size_t count = input_.choice(kMostInserts); count > 0; --count, key += distance) {
    std::string record(model.table().record_size, '\0');
    std::memcpy(record.data(), &key, sizeof key);
    require(table.Insert(key, 0, 0) == model.insert(record, 0), "an insert by key goes where the model's goes");
  }
}

void ModelRun::update(TableModel &model, CRtTable &table) {
  const std::uint32_t key = key_near(model);
  std::string record = input_.bytes(model.table().record_size);
  std::memcpy(record.data(), &key, sizeof key);
  if (input_.choice(4) == 0) {
    const int expected = model.update(record, 0) >= 0 ? 1 : 0;
    require(databases_[model.table().database - 1].SetTableRecord(model.table().id, record.data(), 0) == expected,
            "a database updates what its table has");
    return;
  }
  const int hint = any_position();
  const int number = project();
  require(table.Update(record.data(), hint, number) == model.update(record, number), "an update hits the key's record");
}

void ModelRun::remove(TableModel &model, CRtTable &table) {
  const std::uint32_t key = input_.choice(4) == 0 ? 0 : key_near(model);
  const int hint = any_position();
  const int number = project();
  require(table.Delete(key, hint, number) == model.remove(key, hint, number), "a delete hits what the model's hits");
}

// Bytes that a field takes as they are: all of them for a number, a text with its terminator for a text.
std::string ModelRun::value_of(const RandomField &field) {
  if (field.width > 0) return input_.bytes(field.size);
  const std::string text = input_.text(field.size - 1);
  return std::string(text.c_str()) + '\0';
}

void ModelRun::write_value(TableModel &model, CRtTable &table) {
  if (model.table().fields.size() < 2) return;
  const std::size_t index = 1 + input_.choice(model.table().fields.size() - 1);
  const RandomField &field = model.table().fields[index];
  const std::string value = value_of(field);
  const std::unique_ptr<char[]> copy = exact_copy(value);
  const int slot = static_cast<int>(index);
  const std::uint32_t key = key_near(model);
  int position = model.position_of(key);
  int result = 0;
  if (input_.flag()) {
    result = table.SetFieldData(key, slot, copy.get());
  } else {
    position = any_position();
    if (position < 0 || position >= model.count()) position = -1;
    result = table.SetFieldDataAt(position, slot, copy.get());
  }
  require(result == (position >= 0 ? 1 : 0), "a value is written when its record is there");
  if (position >= 0) model.write(position, field.offset, value);
}

void ModelRun::write_column(TableModel &model, CRtTable &table) {
  if (model.table().fields.size() < 2) return;
  const std::size_t index = 1 + input_.choice(model.table().fields.size() - 1);
  const RandomField &field = model.table().fields[index];
  const std::string value = input_.bytes(field.size);
  const int first = any_position();
  const int given_end = input_.flag() ? -1 : any_position() + static_cast<int>(input_.choice(2)) * 1000;
  const int end = given_end < 0 ? model.count() - 1 : given_end;
  const bool is_written = first < end && first >= 0 && first < model.count();
  const int result = table.SetColumnValueAt(static_cast<int>(index), value.data(), first, given_end);
  require(result == (first >= end || is_written ? 1 : 0), "a column is written from a record on");
  for (int i = first; is_written && i < std::min(end, model.count()); ++i) model.write(i, field.offset, value);
}

// What the text becomes is another target's business; here it must stay in its field.
void ModelRun::store_text(TableModel &model, CRtTable &table) {
  if (model.table().fields.size() < 2) return;
  const std::size_t index = 1 + input_.choice(model.table().fields.size() - 1);
  const RandomField &field = model.table().fields[index];
  const int position = any_position();
  const bool is_there = position >= 0 && position < model.count();
  const std::unique_ptr<char[]> text = exact_copy(input_.text(24));
  const int result = table.SetFieldByText(position, static_cast<int>(index), text.get());
  require(result == (is_there ? 1 : 0), "a text is stored when its record is there");
  if (!is_there) return;
  const char *stored = table.GetAt(position) + field.offset;
  model.write(position, field.offset, {stored, field.width > 0 ? field.width : field.size});
}

}  // namespace quillanest::model
