#include "tests/model/RandomSchema.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "tests/support/SchemaText.h"

namespace quillanest::model {
namespace {

struct TypeOfField {
  const char *keyword;
  std::int32_t code;
  std::size_t width;
};
constexpr TypeOfField kTypes[] = {{"CHAR", 1, 1},   {"UCHAR", 2, 1},   {"SHORT", 3, 2},   {"USHORT", 4, 2},
                                  {"INT", 5, 4},    {"UINT", 6, 4},    {"LONG", 9, 4},    {"ULONG", 10, 4},
                                  {"FLOAT", 11, 4}, {"DOUBLE", 12, 8}, {"STRING", 13, 0}, {"TIME", 14, 16},
                                  {"PASSWD", 15, 0}};
constexpr TypeOfField kInteger = kTypes[4];
constexpr TypeOfField kKey = kTypes[5];

constexpr const char *kDefaults[] = {"", "1", "-7.5", "2024-3-7 9:5:0", "abcdefghijklmnopqrstuvwxyz 12345", "Z"};

void add_field(RandomTable &table, std::string name, const TypeOfField &type, std::size_t size,
               std::string default_text) {
  table.fields.push_back(
      {std::move(name), type.keyword, type.code, type.width, size, table.record_size, std::move(default_text)});
  table.record_size += size;
}

void add_random_field(RandomTable &table, Input &input, FieldSizes sizes) {
  constexpr std::size_t kLargest = 20;
  const TypeOfField &type = kTypes[input.choice(std::size(kTypes))];
  const std::size_t any = input.choice(kLargest + 1);
  const std::size_t least = std::max<std::size_t>(type.width, 1);
  // Sizes that fit are mostly those of the types.
  const std::size_t fitting = type.width == 0 || any > kLargest / 2 ? std::max(any, least) : least;
  std::string name(1, 'f');
  name += std::to_string(table.fields.size());
  add_field(table, std::move(name), type, sizes == FieldSizes::kFitting ? fitting : any, input.pick(kDefaults));
}

RandomTable random_table(Input &input, FieldSizes sizes, unsigned int database, unsigned int id) {
  constexpr std::size_t kMostFields = 6;
  constexpr std::size_t kMostRecords = 20;
  constexpr std::size_t kManyRecords = 64;  // enough for the searches of large tables
  std::size_t capacity = input.choice(kMostRecords + 4);
  if (capacity > kMostRecords) capacity = sizes == FieldSizes::kFitting ? kManyRecords : kMostRecords;
  RandomTable table{database, id, "t" + std::to_string(id), static_cast<int>(capacity), {}, 0};
  if (sizes == FieldSizes::kFitting || input.choice(4) != 0) add_field(table, "ID", kKey, 4, "");
  for (std::size_t count = input.choice(kMostFields); count > 0; --count) add_random_field(table, input, sizes);
  const std::size_t versions = input.choice(8);
  const std::size_t size = sizes == FieldSizes::kFitting ? 4 : input.choice(8);
  if ((versions & 1) != 0) add_field(table, "bModified", kInteger, size, "");
  if ((versions & 2) != 0) add_field(table, "iProjectID", kInteger, size, "");
  if ((versions & 4) != 0) add_field(table, "iEditStatus", kInteger, size, "");
  return table;
}

// The layout that a login expects.
void add_user_tables(RandomSchema &schema) {
  const TypeOfField &text = kTypes[10];
  const TypeOfField &password = kTypes[12];
  RandomTable users{1, kUsersTable, "users", 4, {}, 0};
  add_field(users, "ID", kKey, 4, "");
  add_field(users, "name", text, 16, "");
  add_field(users, "password", password, 44, "");
  add_field(users, "rightsID", kKey, 4, "");
  add_field(users, "phone", text, 24, "");
  RandomTable rights{1, kRightsTable, "rights", 3, {}, 0};
  add_field(rights, "ID", kKey, 4, "");
  add_field(rights, "role", text, 16, "");
  for (const char *name : {"rights0", "rights1", "rights2", "rights3"}) add_field(rights, name, kKey, 4, "");
  schema.tables.push_back(std::move(users));
  schema.tables.push_back(std::move(rights));
}

}  // namespace

const RandomField *RandomTable::find(const char *wanted) const {
  for (const RandomField &field : fields) {
    if (field.name == wanted) return &field;
  }
  return nullptr;
}

RandomSchema random_schema(Input &input, FieldSizes sizes) {
  constexpr std::size_t kMostTables = 3;
  RandomSchema schema{1 + input.choice(std::size(kDatabaseNames)), {}};
  for (unsigned int database = 1; database <= schema.database_count; ++database) {
    const std::size_t count = 1 + input.choice(kMostTables);
    for (unsigned int slot = 0; slot < count; ++slot) {
      schema.tables.push_back(random_table(input, sizes, database, database * 10 + slot));
    }
  }
  if (input.choice(4) == 1) add_user_tables(schema);
  return schema;
}

std::string RandomSchema::text() const {
  std::vector<DatabaseSpec> databases;
  for (std::size_t i = 0; i < database_count; ++i) databases.push_back({kDatabaseNames[i]});
  for (const RandomTable &table : tables) {
    TableSpec described{static_cast<int>(table.id), table.name, table.capacity, {}};
    for (const RandomField &field : table.fields) {
      described.fields.push_back(field.name + ' ' + field.keyword + ' ' + std::to_string(field.size) + ' ' +
                                 field.default_text);
    }
    databases[table.database - 1].tables.push_back(std::move(described));
  }
  return schema_of(databases);
}

}  // namespace quillanest::model
