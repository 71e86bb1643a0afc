// Finding records by key, position and text, and the operations on whole tables.
#include <gtest/gtest.h>
#include <map>
#include <random>
#include <string>

#include "tests/kernel/TableFixture.h"

namespace {

constexpr std::uint32_t kHigh = 0x80000000;

}  // namespace

// A search that is off by one, signed, or wrong about the insertion point.
TEST(TableLookup, FindsKeysAndInsertionPoints) {
  const struct {
    std::vector<std::uint32_t> keys;
    std::uint32_t key;
    int found, position;
  } rows[] = {{{3, 5, 9}, 3, 1, 0},           {{3, 5, 9}, 5, 1, 1},  {{3, 5, 9}, 9, 1, 2},
              {{3, 5, 9}, 4, 0, 1},           {{3, 5, 9}, 10, 0, 3}, {{3, 5, 9}, 1, 0, 0},
              {{3, 5, 9}, 0, 0, 0},           {{}, 5, 0, 0},         {{5, kHigh}, kHigh, 1, 1},
              {{5, kHigh}, 0x7FFFFFFF, 0, 1}, {{5, kHigh}, 5, 1, 0}, {{5, kHigh}, 0xFFFFFFFF, 0, 2}};
  Accounts accounts;
  for (const auto &row : rows) {
    SCOPED_TRACE(row.key);
    accounts.fill(row.keys, 1);
    int position = 77;
    EXPECT_EQ(row.found, accounts.table.FindIDExclusive(row.key, position));
    EXPECT_EQ(row.position, position);
    EXPECT_EQ(row.found == 1 ? row.position : -1, accounts.table.FindRecordIndex(row.key));
    char *record = row.found == 1 ? accounts.slot(static_cast<std::size_t>(row.position)) : nullptr;
    EXPECT_EQ(record, accounts.table.FindIDExclusive(row.key));
    std::string buffer(kAccountSize + 1, '?');
    EXPECT_EQ(row.found, accounts.table.FindIDExclusive(row.key, buffer.data()));
    EXPECT_EQ(row.found == 1 ? account(row.key, static_cast<std::int32_t>(row.key)) + '?'
                             : std::string(kAccountSize + 1, '?'),
              buffer);
  }
}

// A search that fails for some number of records.
TEST(TableLookup, SearchAgreesWithAMap) {
  const unsigned int seed = std::random_device{}();
  SCOPED_TRACE(seed);
  std::mt19937 random(seed);
  Accounts accounts(70);
  for (std::size_t count = 0; count <= 70; ++count) {
    SCOPED_TRACE(count);
    std::map<std::uint32_t, int> model;
    while (model.size() < count) model[static_cast<std::uint32_t>(random() >> (random() % 3 * 12))];
    std::vector<std::uint32_t> keys;
    for (auto &[key, position] : model) {
      position = static_cast<int>(keys.size());
      keys.push_back(key);
    }
    accounts.fill(keys, 1);
    std::vector<std::uint32_t> sought = keys;
    for (const std::uint32_t key : keys) sought.insert(sought.end(), {key - 1, key + 1});
    for (const std::uint32_t key : sought) {
      int position = 0;
      const int found = accounts.table.FindIDExclusive(key, position);
      const auto at = model.lower_bound(key);
      ASSERT_EQ(at != model.end() && at->first == key, found == 1) << key;
      ASSERT_EQ(at == model.end() ? static_cast<int>(count) : at->second, position) << key;
    }
  }
}

// A record of key 0 that the search by key alone delivers, or the one with a buffer misses.
TEST(ByDesign, KeyZeroNamesNothing) {
  Accounts accounts({0, 5}, 6);
  std::string buffer(kAccountSize, '?');
  int position = -1;
  EXPECT_EQ(nullptr, accounts.table.FindIDExclusive(0));
  EXPECT_EQ(1, accounts.table.FindIDExclusive(0, buffer.data()));
  EXPECT_EQ(account(0), buffer);
  EXPECT_EQ(1, accounts.table.FindIDExclusive(0, position));
  EXPECT_EQ(0, position);
  EXPECT_EQ(nullptr, accounts.table.GetRecordAddr(0, -1));
  EXPECT_EQ(accounts.slot(0), accounts.table.GetRecordAddr(0, 0));
}

// A stale hint that misleads.
TEST(TableLookup, HintsAreChecked) {
  Accounts accounts({3, 5, 9}, 10);
  const struct {
    std::uint32_t key;
    int hint, position;
  } rows[] = {{5, 1, 1}, {5, 0, 1}, {5, 2, 1}, {5, -1, 1}, {5, -2147483647, 1}, {4, 1, -1}, {4, -1, -1}, {0, 1, -1}};
  for (const auto &row : rows) {
    SCOPED_TRACE(std::to_string(row.key) + " at " + std::to_string(row.hint));
    char *record = row.position < 0 ? nullptr : accounts.slot(static_cast<std::size_t>(row.position));
    EXPECT_EQ(record, accounts.table.GetRecordAddr(row.key, row.hint));
  }
}

// A hint past the end that is searched like a negative one.
TEST(ByDesign, HintPastEnd) {
  Accounts accounts({3, 5, 9}, 10);
  EXPECT_EQ(nullptr, accounts.table.GetRecordAddr(5, 3));
  EXPECT_EQ(nullptr, accounts.table.GetRecordAddr(5, 2147483647));
  EXPECT_EQ(accounts.slot(2), accounts.table.GetAt(2));
  EXPECT_EQ(nullptr, accounts.table.GetAt(3));
  EXPECT_EQ(nullptr, accounts.table.GetAt(-1));
  accounts.fill({}, 1);
  EXPECT_EQ(nullptr, accounts.table.GetRecordAddr(3, 0));
}

// An iteration that reports the end one call late, as fields do, or reads behind the last record.
TEST(ByDesign, RecordsEndWithLast) {
  Accounts accounts({3, 5}, 6);
  int position = accounts.table.GetFirstPosition();
  EXPECT_EQ(0, position);
  EXPECT_EQ(accounts.slot(0), accounts.table.GetNextPosition(position));
  EXPECT_EQ(1, position);
  EXPECT_EQ(accounts.slot(1), accounts.table.GetNextPosition(position));
  EXPECT_EQ(-1, position);
  position = 2;
  EXPECT_EQ(nullptr, accounts.table.GetNextPosition(position));
  EXPECT_EQ(-1, position);
  accounts.fill({}, 1);
  EXPECT_EQ(-1, accounts.table.GetFirstPosition());
  EXPECT_TRUE(accounts.table.IsEmpty());
}

// A comparison that minds case, takes a beginning for the whole, stops at the field's end, or starts at the wrong end.
TEST(TableLookup, FindsRecordsByText) {
  Accounts accounts({3, 5, 9, 10}, 11);
  const std::string names[] = {"Pump", "pump", "Valve", "FullName"};
  for (std::size_t i = 0; i < 4; ++i) std::memcpy(accounts.slot(i) + kName, names[i].data(), names[i].size());
  std::memcpy(accounts.slot(3) + kLevel, "Q\0\0", 4);  // the text of full width runs on into it
  const struct {
    int field;
    const char *text;
    int position;
  } rows[] = {{1, "PUMP", 0},      {1, "vALVE", 2},     {1, "Pum", -1},   {1, "Pumps", -1}, {1, "", -1},
              {1, "FullName", -1}, {1, "fullnameq", 3}, {-1, "Pump", -1}, {2, "q", 3},      {2, "\x05", 1}};
  for (const auto &row : rows) {
    SCOPED_TRACE(std::to_string(row.field) + " " + row.text);
    char *record = row.position < 0 ? nullptr : accounts.slot(static_cast<std::size_t>(row.position));
    EXPECT_EQ(record, accounts.table.FindRecordbyStringField(row.field, row.text));
  }
}

// A mark that counts although it is not exactly 1; a record that is not looked at.
TEST(TableLookup, OnlyTheMarkOneIsModified) {
  Accounts accounts({3, 5, 9}, 10);
  for (const std::size_t position : {0U, 2U}) {
    for (const std::int32_t mark : {0, 1, 2, -1, 257, 0x01000001}) {
      SCOPED_TRACE(mark);
      put(accounts.slot(position), kModified, mark);
      EXPECT_EQ(mark == 1, accounts.table.IsModified());
    }
    put(accounts.slot(position), kModified, 0);
  }
  put(accounts.slot(3), kModified, 1);  // not a record in use
  EXPECT_FALSE(accounts.table.IsModified());

  put(accounts.slot(0), kModified, 1);
  std::strcpy(accounts.table.GetFieldFromIndex(5)->FieldName, "Modified");
  EXPECT_FALSE(accounts.table.IsModified()) << "a table without the field";
}

// Records that survive, bytes that do not, a copy of the counters that stays behind.
TEST(TableLookup, DeleteAllRecordForgetsAndKeepsBytes) {
  Accounts accounts({3, 5, 9}, 10);
  const std::string bytes = bytes_at(accounts.slot(0), 5 * kAccountSize);
  CRtTable view = accounts.Image::table(10);
  EXPECT_EQ(1, view.DeleteAllRecord());
  EXPECT_EQ(0, accounts.table.GetRecordCount());
  EXPECT_EQ(1U, accounts.next_key());
  EXPECT_EQ(-1, accounts.table.FindRecordIndex(5));
  EXPECT_EQ(bytes, bytes_at(accounts.slot(0), 5 * kAccountSize));
  EXPECT_EQ(0, value_at<std::int32_t>(&view, 96));
  EXPECT_EQ(1, value_at<std::int32_t>(&view, 100));
}

// A default on the wrong field, one that is cut, one that touches a field without a default.
TEST(TableLookup, InitRecordDefaultFillsFieldsWithDefaults) {
  const std::string longest = "a default of thirty-two letters.";
  Image image({{10,
                "Defaults",
                1,
                {"ID UINT 4", "Short SHORT 2 70000", "Note STRING 8 note", "Value DOUBLE 8 -1.5",
                 "When TIME 16 2008-3-7", "Text STRING 40 x"}}});
  CRtTable table = image.table(10);
  CRtField text;
  ASSERT_EQ(1, table.GetFieldFromIndex(text, 5));
  text.SetDefaultValue(longest.c_str());
  ASSERT_TRUE(table.SetField(text));
  std::string expected(78, '?'), record = expected;
  put(expected.data(), 4, std::uint16_t{4464});
  expected.replace(6, 5, std::string("note") + '\0');
  put(expected.data(), 14, -1.5);
  put(expected.data(), 22, SYSTEMTIME{2008, 3, 0, 7, 0, 0x3F3F, 0x3F3F, 0x3F3F});
  expected.replace(38, 33, longest + '\0');
  table.InitRecordDefault(record.data());
  EXPECT_EQ(expected, record);

  std::string untouched(78, '?');
  CRtTable().InitRecordDefault(untouched.data());
  EXPECT_EQ(std::string(78, '?'), untouched);
}

// A table that is not attached and works on its own copy, or follows a null image.
TEST(TableLookup, DetachedTableAnswersNothing) {
  CRtTable table;
  table.SetTableSize(52);
  table.SetRecordCount(3);
  table.SetRecordMaxCount(9);
  table.SetTableFieldNum(2);
  std::string buffer = account(1);
  CRtField field;
  int position = 1;
  EXPECT_EQ(0, table.FindIDExclusive(1, position));
  EXPECT_EQ(-1, position);
  for (const void *address :
       {static_cast<void *>(table.GetDataAddress()), static_cast<void *>(table.GetFieldAddress()),
        static_cast<void *>(table.FindIDExclusive(1)), static_cast<void *>(table.GetAt(0)),
        static_cast<void *>(table.GetRecordAddr(1, -1)), static_cast<void *>(table.FindRecordbyStringField(0, "")),
        static_cast<void *>(table.GetNextPosition(position = 0)), static_cast<void *>(table.GetFieldFromName("")),
        static_cast<void *>(table.GetFieldFromID(0xFFFFFFFF)), static_cast<void *>(table.GetFieldFromIndex(0))}) {
    EXPECT_EQ(nullptr, address);
  }
  for (const int result : {table.FindRecordIndex(1), table.GetFirstPosition(), table.FindFieldFromName("", false),
                           table.Insert(buffer.data(), 0), table.Insert(1, 0, 1), table.Update(buffer.data(), 0, 0)}) {
    EXPECT_EQ(-1, result);
  }
  for (const int result : {table.FindIDExclusive(1, buffer.data()), table.GetFieldFromName(field, ""),
                           table.GetFieldFromID(field, 0xFFFFFFFF), table.Delete(1, 0, 0), table.DeleteAllRecord(),
                           table.SetRecordVersionInfo(0, 7, 2)}) {
    EXPECT_EQ(0, result);
  }
  EXPECT_FALSE(table.GetNextField(field, position = 0) || table.IsModified() || table.SaveData(0));
  EXPECT_EQ(3, table.GetRecordCount());
}
