// Texts in the relational store, with everything in them that could end a literal, a statement or a row.
#include <array>
#include <gtest/gtest.h>

#include "tests/store/Backends.h"
#include "tests/store/StoreFixture.h"

namespace {

using StoreTexts = StoreScenario;
INSTANTIATE_TEST_SUITE_P(Backends, StoreTexts, kBackends, name_of_backend);

const TableSpec kMixed{
    31, "Mixed", 400, {"ID UINT 4", "Mark CHAR 1", "Name STRING 64", "Note STRING 64", "Sign UCHAR 1", "Level INT 4"}};
constexpr const char *kMixedColumns =
    "ID bigint, Mark integer, Name varchar(64), Note varchar(64), Sign integer, Level integer CHECK (Level < 1000)";

struct MixedRow {
  char mark = '1';
  std::string name, note, stored = {};  // `stored` is Name and Note in the store; empty: no row
};
void add(CRtTable &mixed, std::uint32_t key, const MixedRow &row, char sign, int level) {
  char *record = mixed.GetAt(mixed.Insert(key, 0, 0));
  record[4] = row.mark;
  std::strcpy(record + 5, row.name.c_str());
  std::strcpy(record + 69, row.note.c_str());
  record[133] = sign;
  poke(record, 134, level);
}

// Rows that the stores refuse, then those that they take.
std::vector<MixedRow> mixed_rows() {
  std::vector<MixedRow> rows;
  for (const char mark : {'\'', '"', '#', '?', '{', ';', '\\', '\xC3'}) rows.push_back({mark, "x", "x"});
  for (const char *name : {"'", "a'''b", "a' || 'b", "x','n',1,7);DELETE FROM plant_Mixed;--", "refused",
                           "x','n',1,7) ON CONFLICT DO NOTHING;--", "x','n',1,7),(1,1,'x','n',1,7)--"}) {
    rows.push_back({.name = name, .note = ""});
  }
  rows.push_back({.name = "x','n',1,7);", .note = "DELETE FROM plant_Mixed;--'"});
  rows.push_back({.name = "it''s", .note = "''", .stored = "it's|'"});
  rows.push_back(
      {.name = "\\", .note = ",1,1);DELETE FROM plant_Mixed;--", .stored = "\\|,1,1);DELETE FROM plant_Mixed;--"});
  rows.push_back({.name = "C:\\'' \\''", .note = "\\\\", .stored = "C:\\' \\'|\\\\"});
  rows.push_back({.name = "\xC3",  // no text to a server
                  .note = "?;DELETE FROM plant_Mixed;--'' {",
                  .stored = "\xC3|?;DELETE FROM plant_Mixed;--' {"});
  rows.push_back({.name = "{fn now()} ? $1", .note = "/* \" ;", .stored = "{fn now()} ? $1|/* \" ;"});
  return rows;
}

// Catches: a value that ends its literal early and is carried out, or costs the rows that travel with it.
TEST_P(StoreTexts, ValuesCostTheirOwnRowsOnly) {
  const std::vector<MixedRow> rows = mixed_rows();
  StoreImage image(slots(), {kMixed, {32, "Marked", 9, {"ID UINT 4", "Mark CHAR 1"}}});
  CRtTable mixed = image.table(31, kMixedColumns);
  std::vector<std::string> expected(image.stores.size());
  for (std::uint32_t key = 1; key <= 300; ++key) {
    const MixedRow &row = key % 4 < 2 ? rows[(key / 4 + key % 2) % rows.size()] : rows.back();
    add(mixed, key, row, '2', row.name == "refused" ? 1000 : 7);
    for (std::size_t i = 0; i < expected.size() && !row.stored.empty(); ++i) {
      const bool is_taken = row.name[0] != '\xC3' || (i == 0 && slots()[0] == 'F');
      if (is_taken) expected[i] += std::to_string(key) + "|1|" + row.stored + "|2|7\n";
    }
  }
  EXPECT_TRUE(mixed.SaveData(0));
  for (std::size_t i = 0; i < expected.size(); ++i) {
    EXPECT_EQ(image.stores[i]->run("SELECT * FROM plant_Mixed ORDER BY ID"), expected[i]) << i;
  }
  CRtTable marked = image.table(32, "ID bigint, Mark varchar(999)");
  for (const char mark : std::string_view("1'2'3")) marked.GetAt(marked.Insert(0U, 0, 0))[4] = mark;
  EXPECT_TRUE(marked.SaveData(0));
  EXPECT_EQ(image.rows("SELECT * FROM plant_Marked ORDER BY ID"), "1|1\n3|2\n5|3\n");
}

// Catches: a text that is cut at the room for many rows at a time; an empty one in another slot's words.
TEST_P(StoreTexts, LongAndEmptyTextsComeBack) {
  StoreImage image(slots(), {{21, "Note", 3, {"ID UINT 4", "Text STRING 5000"}}});
  CRtTable note = image.table(21, "ID bigint, Text text");
  for (int i = 0; i < 3; ++i) std::memset(note.GetAt(note.Insert(0U, 0, 0)) + 4, 'x', i == 1 ? 4000 : 0);
  EXPECT_TRUE(note.SaveData(0));
  const bool blank = slots()[0] == 'F';
  EXPECT_EQ(image.rows("SELECT length(Text) FROM plant_Note ORDER BY ID"), blank ? "1\n4000\n1\n" : "0\n4000\n0\n");
  note.DeleteAllRecord();
  (void)image.manager->LoadAllCustomizedDB(0);
  ASSERT_EQ(note.GetRecordCount(), 3);
  EXPECT_STREQ(note.GetAt(0) + 4, blank ? " " : "");
  EXPECT_EQ(std::string(note.GetAt(1) + 4), std::string(4000, 'x'));
}

// Catches: a backslash at the end of one text that begins a statement in the next one, on a server that reads escapes;
// the database beside it, which does not, being sent what ends its texts early.
TEST(ServerDatabase, BackslashesOfAServerThatReadsEscapes) {
  for (const auto &[slots, rows] :
       {std::pair("S", "1|plain\n3|C:\\\n4|''\n5|a\tb\n"),
        std::pair("SF", "main: 1|plain\n3|C:\\\n5|a\tb\nbackup: 1|plain\n3|C:\\\\\n5|a\\tb\n")}) {
    SCOPED_TRACE(slots);
    StoreImage image(slots, {kMixed});
    CRtTable mixed = image.table(31, kMixedColumns);
    const std::string role = std::string("ALTER ROLE ") + PostgresServer::kUser;
    image.stores[0]->run(role + " SET standard_conforming_strings = off; " + role + " SET escape_string_warning = off");
    for (const char *name : {"plain", "\\", "C:\\\\", "\\'''", "a\\tb"}) {
      add(mixed, 0, {.name = name, .note = ",1,1);DELETE FROM plant_Mixed;--"}, '1', 0);
    }
    EXPECT_TRUE(mixed.SaveData(0));
    image.stores[0]->run(role + " RESET ALL");
    EXPECT_EQ(image.rows("SELECT ID, Name FROM plant_Mixed ORDER BY ID"), rows);
  }
}

// Catches: a quote that the library doubles, as values are passed on without.
TEST(ByDesign, QuotesNotEscaped) {
  StoreImage image;
  (void)image.add({.key = 1, .name = "O'Brien", .level = 1});
  (void)image.add({.key = 2, .name = "twice''", .level = 2});
  EXPECT_TRUE(image.item.SaveData(0));
  EXPECT_EQ(image.stored(), row_text({{.key = 2, .name = "twice'", .level = 2}}));
}

}  // namespace
