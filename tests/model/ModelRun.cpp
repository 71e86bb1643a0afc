#include "tests/model/ModelRun.h"

#include <iterator>
#include <string>

namespace quillanest::model {

ModelRun::ModelRun(const ImageSurroundings &surroundings, Input input)
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

void ModelRun::run() {
  constexpr int kMostCalls = 200;
  for (int calls = 0; calls < kMostCalls && !input_.empty(); ++calls) call();
  for (Followed &followed : tables_) check(followed);
  if (saved_) surroundings_.remove_data();
}

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

// A handle of the table, by one of the ways to get one; all of them must do.
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

// A save stamps times and clears marks, a commit does more; the model goes on from what they leave.
void ModelRun::save_and_load(Followed &followed, CRtTable &table) {
  const unsigned int database = followed.model.table().database;
  saved_ = true;
  input_.make_one_of(
      [&] { (void)table.CommitProject(); },
      [&] {
        surroundings_.data.write(input_.text(255));
        (void)manager_.LoadTableData(database, followed.model.table().id, surroundings_.data.path());
      },
      [&] {
        surroundings_.data.write(input_.text(255));
        (void)manager_.LoadSomeData(database, followed.model.table().id, surroundings_.data.path(), input_.flag(), ';');
      },
      [&] {
        if (table.SaveData(project())) {
          require(!table.IsModified(), "a save clears the marks");
          require(manager_.LoadTableData(database, followed.model.table().id, nullptr), "what was saved can be loaded");
        }
      });
  require(table.GetRecordCount() <= followed.model.table().capacity, "a table has room for its records");
  followed.is_followed = followed.model.adopt(table);
  adopt_next(followed.model.table(), table);
}

// A text that fills its field has its terminator on the byte after it: after the last record that is the first byte
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
  input_.make_one_of(
      [&] {
        model.clear();
        require(table.DeleteAllRecord() == 1, "an attached table can be emptied");
      },
      [&] {
        if (model.next_key() != 0)
          require(table.GetIDExclusive() == model.hand_out_key(), "keys are handed out in turn");
      },
      [&] {
        const int position = any_position();
        const int number = project();
        const int action = static_cast<int>(input_.choice(6));
        const bool stamped = model.stamp_at(position, number, action);
        require(table.SetRecordVersionInfo(position, number, action) == (stamped ? 1 : 0), "a record can be stamped");
      },
      [&] {
        CRtdbManager second;
        CRtDataBase database;
        require(second.AttachShareMemory() == 1, "another manager attaches");
        require(second.GetDataBaseFromID(database, model.table().database) == 1, "and finds databases");
      },
      times<2>([&] { save_and_load(followed, table); }), times<2>([&] { look_up(model, table); }));
}

void ModelRun::call() {
  Followed &followed = tables_[input_.choice(tables_.size())];
  TableModel &model = followed.model;
  CRtTable table = view(model);
  // A table whose keys are out of order is emptied before it takes part again.
  if (!followed.is_followed) {
    require(table.DeleteAllRecord() == 1, "an attached table can be emptied");
    model.clear();
    followed.is_followed = true;
  }
  input_.make_one_of(
      times<3>([&] { insert(model, table); }), [&] { insert_key(model, table); }, [&] { insert_many(model, table); },
      [&] { update(model, table); }, times<2>([&] { remove(model, table); }), [&] { write_value(model, table); },
      [&] { write_column(model, table); }, [&] { store_text(model, table); }, [&] { find(model, table); },
      [&] { walk(model, table); }, [&] { find_text(model, table); }, [&] { read_value(model, table); },
      times<2>([&] { whole_table(followed, table); }));
  check(followed);
}

void run_with_model(const ImageSurroundings &surroundings, Input input) { ModelRun(surroundings, input).run(); }

}  // namespace quillanest::model
