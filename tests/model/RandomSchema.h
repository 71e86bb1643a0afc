// Small schemas made from a fuzzer's bytes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "tests/model/Input.h"

namespace quillanest::model {

struct RandomField {
  std::string name;
  std::string keyword;
  std::int32_t type;
  std::size_t width;  // bytes that a value of the type takes; 0 for texts
  std::size_t size;
  std::size_t offset;
  std::string default_text;
};

struct RandomTable {
  unsigned int database;
  unsigned int id;  // of no other table of the schema
  std::string name;
  int capacity;
  std::vector<RandomField> fields;
  std::size_t record_size;

  // The field of that name, null when the table has none.
  [[nodiscard]] const RandomField *find(const char *name) const;
};

struct RandomSchema {
  std::size_t database_count;
  std::vector<RandomTable> tables;

  // The schema file.
  [[nodiscard]] std::string text() const;
};

// The names of the databases, by ID less 1.
inline constexpr const char *kDatabaseNames[] = {"system", "plant", "archive"};

// The tables that a login reads.
inline constexpr unsigned int kUsersTable = 104;
inline constexpr unsigned int kRightsTable = 106;

enum class FieldSizes {
  kFitting,  // a field holds a value of its type, and the first one is the key
  kAny,
};

// One to three databases of one to three tables each; the tables of users and rights may come in addition.
[[nodiscard]] RandomSchema random_schema(Input &input, FieldSizes sizes);

}  // namespace quillanest::model
