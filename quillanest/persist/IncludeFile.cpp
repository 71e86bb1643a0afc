#include "quillanest/persist/IncludeFile.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string_view>

#include "quillanest/base/MessageBox.h"
#include "quillanest/base/Neutral.h"
#include "quillanest/base/Report.h"
#include "quillanest/kernel/DatabaseView.h"
#include "quillanest/kernel/RtdbManager.h"
#include "quillanest/platform/Path.h"
#include "quillanest/platform/Process.h"
#include "quillanest/platform/TextFile.h"
#include "quillanest/shm/Bytes.h"
#include "quillanest/shm/FieldType.h"
#include "quillanest/shm/TextAt.h"

using quillanest::DatabaseView;

namespace quillanest {
namespace {

// Comments in code page 936.
constexpr std::string_view kTableIDs =
    "//\xB8\xF7\xB1\xED"
    "ID\n";
constexpr std::string_view kTableSlots =
    "//\xB8\xF7\xB1\xED\xD4\xDA\xCA\xFD\xBE\xDD\xBF\xE2\xD6\xD0\xB5\xC4\xCB\xF7\xD2\xFD\n";
constexpr std::string_view kFieldSlots =
    "\n//\xB6\xA8\xD2\xE5\xB8\xF7\xD7\xD6\xB6\xCE\xD4\xDA\xB1\xED\xD6\xD0\xCB\xF7\xD2\xFD(";

constexpr std::size_t kDatabaseNameWidth = 35;
constexpr std::size_t kTableMacroWidth = 50;
constexpr std::size_t kFieldMacroWidth = 60;
constexpr std::size_t kMemberWidth = 50;

// The text with blanks for line ends: a text that was set at run time may hold some, and they would start new lines.
std::string one_line(std::string_view text) {
  std::string line(text);
  std::replace_if(
      line.begin(), line.end(), [](char c) { return c == '\n' || c == '\r'; }, ' ');
  return line;
}

std::string name_of(const _table_attr &table) { return one_line(block_text(table, offsetof(_table_attr, TableName))); }
std::string caption_of(const _table_attr &table) {
  return one_line(block_text(table, offsetof(_table_attr, TableCName)));
}
// A CRtField is its descriptor and nothing else.
std::string name_of(const CRtField &field) { return one_line(block_text(field, offsetof(_field_attr, FieldName))); }
std::string caption_of(const CRtField &field) { return one_line(block_text(field, offsetof(_field_attr, FieldCName))); }

// IDs appear as signed numbers.
std::string number(unsigned int id) { return std::to_string(static_cast<int>(id)); }

std::string joined(std::initializer_list<std::string_view> parts) {
  std::string text;
  for (const std::string_view part : parts) text += part;
  return text;
}

// Pads a text with blanks to a width; a longer text is unchanged.
std::string padded(std::string text, std::size_t width) {
  if (text.size() < width) text.append(width - text.size(), ' ');
  return text;
}

std::string identifier_line(std::string macro, std::size_t width, int value, std::string_view caption) {
  return joined({padded(std::move(macro), width), "\t", std::to_string(value), "\t//", caption, "\n"});
}

// By design [TimeIsScalar]: a TIME is never an array, however large.
std::string member_line(const CRtField &field) {
  const int element = field.GetFieldTypeSize();
  const std::int64_t count = element == 0 ? 1 : std::int64_t{field.GetFieldSize()} / element;
  std::string declaration = joined({"\t", field.GetTypeStr(), "  \t\t", name_of(field)});
  if (kind_of(field.GetFieldType()) != Kind::kTime && count > 1)
    declaration += joined({"[", std::to_string(count), "]"});
  declaration += ';';
  return joined({padded(std::move(declaration), kMemberWidth), "//", caption_of(field), "\n"});
}

template <class Visit>
void for_each_slot(CRtDataBase &database, Visit visit) {
  CRtTable table;
  for (int position = database.GetFirstTablePostion(); database.GetNextTable(table, position);) visit(table);
}

template <class Visit>
void for_each_field(const CRtTable &table, Visit visit) {
  CRtField field;
  for (int position = table.GetFirstFieldPostion(); table.GetNextField(field, position);) visit(field);
}

std::string name_of(CRtDataBase &database) {
  // The name is the first member of the descriptor; without a terminator it extends into the next members.
  return one_line(text_in({as_bytes(database.GetDBName()), sizeof(_db_attr)}));
}

std::string with_carriage_returns(std::string_view text) {
  std::string lines;
  lines.reserve(text.size() + text.size() / 16);
  for (const char c : text) {
    if (c == '\n') lines += '\r';
    lines += c;
  }
  return lines;
}

}  // namespace

std::string include_file_text(CRtDataBase &database) {
  const std::string name = name_of(database);
  std::string text = joined({"#ifndef __", name, "_h__\n#define __", name, "_h__\n\n#include \"gSystemDef.h\"\n"});
  text += joined({"#define DB_ID_OF_", padded(name, kDatabaseNameWidth), number(database.GetDBID()), "\n"});

  const auto table_line = [&](CRtTable &table, std::string_view suffix, int value) {
    const _table_attr &attr = *table.GetTableInfo();
    text += identifier_line(joined({"#define ", name, "_TAB_", name_of(attr), suffix}), kTableMacroWidth, value,
                            caption_of(attr));
  };
  text += kTableIDs;
  for_each_slot(database, [&](CRtTable &table) { table_line(table, "_ID", static_cast<int>(table.GetTableID())); });
  text += kTableSlots;
  for_each_slot(database, [&](CRtTable &table) { table_line(table, "_INDEX", table.GetIndexInDB()); });

  for_each_slot(database, [&](CRtTable &table) {
    const _table_attr &attr = *table.GetTableInfo();
    text += joined({kFieldSlots, caption_of(attr), ")\n"});
    for_each_field(table, [&](const CRtField &field) {
      text += identifier_line(joined({"#define ", name, "_TAB_", name_of(attr), "_FIELD_", name_of(field), "_INDEX"}),
                              kFieldMacroWidth, field.GetIndexInTable(), caption_of(field));
    });
  });
  text += "\n\n";

  for_each_slot(database, [&](CRtTable &table) {
    const _table_attr &attr = *table.GetTableInfo();
    text += "\ntypedef struct \n{\n";
    for_each_field(table, [&](const CRtField &field) { text += member_line(field); });
    text += joined({"}", name, "_", name_of(attr), ";\t\t//", caption_of(attr), "\n"});
  });
  text += joined({"\n\n#endif   //__", name, "_h__\n"});
  return with_carriage_returns(text);
}

}  // namespace quillanest

int CRtDataBase::BuildIncludeFile(const char *directory) {
  const quillanest::Operation operation;
  if (directory == nullptr || quillanest::text_at(directory).empty()) {
    quillanest::report_error("header.folder", {}, "no folder is named");
    return 0;
  }
  return quillanest::neutral_on_failure(0, [&] {
    const std::string name = quillanest::name_of(*this);
    const std::string path = quillanest::path_in(quillanest::text_at(directory), name + ".h");
    quillanest::FileReplacement file(quillanest::is_file_name(name) ? path : std::string());
    if (!file.is_open()) {
      quillanest::report_error("header.create", {path},
                               "the header cannot be written: ", std::string_view(quillanest::last_system_error()));
      quillanest::show_message(("Fail to create file " + path).c_str());
      return 0;
    }
    // By design [HeaderWriteUnchecked]: a failure from here on is not reported; the former header is kept.
    (void)file.write(quillanest::include_file_text(*this));
    (void)file.commit();
    return 1;
  });
}

// By design [HeadersDetach]: the manager is detached afterwards, also one that was attached before.
bool CRtdbManager::BuildIncludeFile(const char *directory) {
  if (segment_.Attach() == nullptr) return false;
  if (!DatabaseView::is_mapped(system_) &&
      (GetDataBaseFromName(system_, "system") == 0 || system_.AttachShareMemory() == 0)) {
    return false;
  }
  int position = -1;
  const bool walks = GetFirstDataBasePostion(position) != 0;
  CRtDataBase database;
  while (walks && GetNext(database, position) != 0) {
    if (database.AttachShareMemory() == 0) continue;
    (void)database.BuildIncludeFile(directory);
    (void)database.DetachShareMemory();
  }
  DetachShareMemory();
  return walks;
}
