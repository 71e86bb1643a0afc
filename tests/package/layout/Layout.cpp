// Compares the generated structures, as the C and the C++ compiler lay them out, with the image of layout.schema.
//
// Prints nothing and returns 0 if they agree. Schema and configuration lie in the folder that QUILLANEST_ROOT names.
#include <cstdio>
#include <cstring>

#include "Members.h"
#include "quillanest/Quillanest.h"

// The library has a SYSTEMTIME of its own.
namespace records {
#include "Plant.h"
#include "system.h"
}  // namespace records

#define NAMED(name) records::name
#define MEMBER_SIZE(type, member) sizeof(type::member)
#include "Members.inc"

namespace {

int g_differences = 0;

void expect(const char *name, const char *what, long long structure, long long image) {
  if (structure == image) return;
  std::fprintf(stderr, "layout test: %s of %s is %lld, %lld in the image\n", what, name, structure, image);
  ++g_differences;
}

void compare(CRtTable &table, const Member &member) {
  if (member.index < 0)
    return expect(member.name, "the size", static_cast<long long>(member.size), table.GetTableSize());
  CRtField field;
  const bool found = table.GetFieldFromIndex(field, member.index) != 0;
  expect(member.name, "the slot", found, true);
  if (!found) return;
  expect(member.name, "the name", std::strcmp(std::strrchr(member.name, '.') + 1, field.GetFieldName()), 0);
  expect(member.name, "the offset", static_cast<long long>(member.offset), field.GetFieldOffset());
  expect(member.name, "the size", static_cast<long long>(member.size), field.GetFieldSize());
}

void compare_all(CRtdbManager &manager, const Members &members) {
  for (std::size_t i = 0; i < members.count; ++i) {
    const Member &member = members.members[i];
    CRtDataBase database;
    CRtTable table;
    const bool found = manager.GetDataBaseFromID(database, member.database) != 0 && database.AttachShareMemory() != 0 &&
                       database.GetDBTableFromID(table, member.table) != 0;
    expect(member.name, "the table", found, true);
    if (found) compare(table, member);
  }
}

}  // namespace

int main() {
  CRtdbManager manager;
  expect("layout.schema", "the start", manager.RtdbManagerInit(false, "layout.schema"), true);
  compare_all(manager, members_in_c());
  compare_all(manager, kMembers);
  return g_differences == 0 ? 0 : 1;
}
