// The image target's run with a model.
#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "fuzz/ImageRun.h"
#include "fuzz/RandomSchema.h"
#include "fuzz/TableModel.h"
#include "quillanest/base/Text.h"
#include "quillanest/shm/FieldType.h"

namespace quillanest::fuzz {
namespace {

class ModelRun {
 public:
  ModelRun(const ImageSurroundings &surroundings, Input input)
      : surroundings_(surroundings), input_(input), schema_(random_schema(input_, FieldSizes::kFitting)) {
    surroundings_.schema.write(schema_.text());
    require(manager_.RtdbManagerInit(false, surroundings_.schema.path()), "a sound schema starts");
    for (std::size_t i = 0; i < schema_.database_count; ++i) {
      require(manager_.GetDataBaseFromName(databases_[i], kDatabaseNames[i]) == 1, "a database is found by its name");
      require(databases_[i].AttachShareMemory() == 1, "a database can be mapped");
      ends_.push_back(std::make_unique<SegmentEnd>(databases_[i].GetStartAddress(),
                                                   static_cast<std::size_t>(databases_[i].GetDBSize())));
    }
    for (const RandomTable &table : schema_.tables) tables_.push_back({TableModel(table), true});
  }

  void run() {
    constexpr int kMostCalls = 200;
    for (int calls = 0; calls < kMostCalls && !input_.empty(); ++calls) call();
    for (Followed &followed : tables_) check(followed);
    if (saved_) surroundings_.remove_data();
  }

 private:
  struct Followed {
    TableModel model;
    bool is_followed;  // false once the table's keys are out of order
  };

  void call();
  void check(Followed &followed);
  CRtTable view(const TableModel &model);

  void insert(TableModel &model, CRtTable &table);
  void insert_key(TableModel &model, CRtTable &table);
  void insert_many(TableModel &model, CRtTable &table);
  void update(TableModel &model, CRtTable &table);
  void remove(TableModel &model, CRtTable &table);
  void find(const TableModel &model, const CRtTable &table);
  void walk(const TableModel &model, const CRtTable &table);
  void find_text(const TableModel &model, const CRtTable &table);
  void read_value(const TableModel &model, CRtTable &table);
  void write_value(TableModel &model, CRtTable &table);
  void write_column(TableModel &model, CRtTable &table);
  void store_text(TableModel &model, CRtTable &table);
  void look_up(const TableModel &model, CRtTable &table);
  void whole_table(Followed &followed, CRtTable &table);
  void save_and_load(Followed &followed, CRtTable &table);
  void adopt_next(const RandomTable &loaded, CRtTable &table);

  std::uint32_t key_near(const TableModel &model);
  // A position from a little in front of a table to a little behind it.
  int any_position() { return static_cast<int>(input_.choice(70)) - 2; }
  int project() { return input_.flag() ? 0 : input_.number<std::int8_t>(); }
  std::string value_of(const RandomField &field);

  const ImageSurroundings &surroundings_;
  Input input_;
  RandomSchema schema_;
  CRtdbManager manager_;
  std::array<CRtDataBase, std::size(kDatabaseNames)> databases_;
  std::vector<std::unique_ptr<SegmentEnd>> ends_;
  CRtDataBase found_;  // behind the views of FindTable
  std::vector<Followed> tables_;
  bool saved_ = false;
};

std::uint32_t ModelRun::key_near(const TableModel &model) {
  switch (input_.choice(4)) {
    case 0:
      return model.count() == 0
                 ? 1
                 : model.key_at(static_cast<int>(input_.choice(static_cast<std::size_t>(model.count()))));
    case 1:
      return input_.number<std::uint32_t>();
    default:
      return input_.number<std::uint8_t>();
  }
}

// A view on the table, by one of the ways to get one; all of them must do.
CRtTable ModelRun::view(const TableModel &model) {
  CRtTable table;
  const RandomTable &wanted = model.table();
  CRtDataBase &database = databases_[wanted.database - 1];
  const std::size_t way = input_.choice(6);
  bool found = false;
  if (way == 0) {
    (void)found_.DetachShareMemory();
    found = manager_.FindTable(wanted.id, found_, table) == 1;
  } else if (way == 1 && wanted.database == 1) {
    found = manager_.GetSystemTable(table, wanted.name.c_str()) == 1;
  } else if (way == 2) {
    found = database.GetDBTableFromCName(table, ("c" + wanted.name).c_str()) == 1;
  } else {
    found = database.GetDBTableFromID(table, wanted.id) == 1;
  }
  require(found && table.GetTableID() == wanted.id, "a table is found");
  return table;
}

void ModelRun::check(Followed &followed) {
  if (!followed.is_followed) return;
  CRtTable table = view(followed.model);
  require(followed.model.matches(table), "a table holds the records of its model");
  require(table.GetTableInfo()->IDExclusive == followed.model.next_key(), "the next key is the model's");
  require(table.IsModified() == followed.model.is_modified(), "a table is modified when a record is");
}

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

// Bytes that a field takes as they are: all of them for a number, a text with its terminator for a text.
std::string ModelRun::value_of(const RandomField &field) {
  if (field.width > 0) return input_.bytes(field.size);
  const std::string text = input_.text(field.size - 1);
  return std::string(text.c_str()) + '\0';
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

// A save stamps times and clears marks, a commit does more; the model goes on from what they leave.
void ModelRun::save_and_load(Followed &followed, CRtTable &table) {
  const unsigned int database = followed.model.table().database;
  saved_ = true;
  switch (input_.choice(4)) {
    case 0:
      (void)table.CommitProject();
      break;
    case 1:
      surroundings_.data.write(input_.text(255));
      (void)manager_.LoadTableData(database, followed.model.table().id, surroundings_.data.path());
      break;
    case 2:
      surroundings_.data.write(input_.text(255));
      (void)manager_.LoadSomeData(database, followed.model.table().id, surroundings_.data.path(), input_.flag(), ';');
      break;
    default:
      if (table.SaveData(project())) {
        require(!table.IsModified(), "a save clears the marks");
        require(manager_.LoadTableData(database, followed.model.table().id, nullptr), "what was saved can be loaded");
      }
  }
  require(table.GetRecordCount() <= followed.model.table().capacity, "a table has room for its records");
  followed.is_followed = followed.model.adopt(table);
  adopt_next(followed.model.table(), table);
}

// A text that fills its field has its terminator on the byte behind it: behind the last record that is the first byte
// of the next table.
void ModelRun::adopt_next(const RandomTable &loaded, CRtTable &table) {
  const char *end = table.GetDataAddress() + static_cast<std::size_t>(loaded.capacity) * loaded.record_size;
  for (Followed &followed : tables_) {
    CRtTable next;
    if (!followed.is_followed || followed.model.table().database != loaded.database) continue;
    require(databases_[loaded.database - 1].GetDBTableFromID(next, followed.model.table().id) == 1, "a table is found");
    if (next.GetDataAddress() == end) followed.is_followed = followed.model.adopt(next);
  }
}

void ModelRun::whole_table(Followed &followed, CRtTable &table) {
  TableModel &model = followed.model;
  switch (input_.choice(8)) {
    case 0:
      model.clear();
      require(table.DeleteAllRecord() == 1, "an attached table can be emptied");
      break;
    case 1:
      if (model.next_key() != 0) require(table.GetIDExclusive() == model.hand_out_key(), "keys are handed out in turn");
      break;
    case 2: {
      const int position = any_position();
      const int number = project();
      const int action = static_cast<int>(input_.choice(6));
      const bool stamped = model.stamp_at(position, number, action);
      require(table.SetRecordVersionInfo(position, number, action) == (stamped ? 1 : 0), "a record can be stamped");
      break;
    }
    case 3: {
      CRtdbManager second;
      CRtDataBase database;
      require(second.AttachShareMemory() == 1, "another manager attaches");
      require(second.GetDataBaseFromID(database, model.table().database) == 1, "and finds databases");
      break;
    }
    case 4:
    case 5:
      save_and_load(followed, table);
      break;
    default:
      look_up(model, table);
  }
}

void ModelRun::call() {
  Followed &followed = tables_[input_.choice(tables_.size())];
  const std::size_t operation = input_.choice(17);
  // A table whose keys are out of order is emptied before it takes part again.
  CRtTable table = view(followed.model);
  if (!followed.is_followed) {
    require(table.DeleteAllRecord() == 1, "an attached table can be emptied");
    followed.model.clear();
    followed.is_followed = true;
  }
  constexpr void (ModelRun::*kEdits[])(TableModel &, CRtTable &) = {
      &ModelRun::insert,      &ModelRun::insert,       &ModelRun::insert,    &ModelRun::insert_key,
      &ModelRun::insert_many, &ModelRun::update,       &ModelRun::remove,    &ModelRun::remove,
      &ModelRun::write_value, &ModelRun::write_column, &ModelRun::store_text};
  constexpr void (ModelRun::*kReads[])(const TableModel &, const CRtTable &) = {&ModelRun::find, &ModelRun::walk,
                                                                                &ModelRun::find_text};
  if (operation < std::size(kEdits)) {
    (this->*kEdits[operation])(followed.model, table);
  } else if (operation < std::size(kEdits) + std::size(kReads)) {
    (this->*kReads[operation - std::size(kEdits)])(followed.model, table);
  } else if (operation == std::size(kEdits) + std::size(kReads)) {
    read_value(followed.model, table);
  } else {
    whole_table(followed, table);
  }
  check(followed);
}

}  // namespace

void run_with_model(const ImageSurroundings &surroundings, Input input) { ModelRun(surroundings, input).run(); }

}  // namespace quillanest::fuzz
