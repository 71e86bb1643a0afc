// A run of the image targets with arguments that make sense, each call compared with a model of the tables.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "tests/model/ImageRun.h"
#include "tests/model/RandomSchema.h"
#include "tests/model/TableModel.h"

namespace quillanest::model {

class ModelRun {
 public:
  ModelRun(const ImageSurroundings &surroundings, Input input);
  void run();

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
  // A position from a little before the first record to a little after the last one.
  int any_position() { return static_cast<int>(input_.choice(70)) - 2; }
  int project() { return input_.flag() ? 0 : input_.number<std::int8_t>(); }
  std::string value_of(const RandomField &field);

  const ImageSurroundings &surroundings_;
  Input input_;
  RandomSchema schema_;
  CRtdbManager manager_;
  std::array<CRtDataBase, std::size(kDatabaseNames)> databases_;
  std::vector<std::unique_ptr<SegmentEnd>> ends_;
  CRtDataBase found_;  // of the tables that FindTable finds
  std::vector<Followed> tables_;
  bool saved_ = false;
};

}  // namespace quillanest::model
