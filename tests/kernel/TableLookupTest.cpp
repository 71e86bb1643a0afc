// Finding records by key, position and text, and the operations on whole tables.
#include <algorithm>
#include <gtest/gtest.h>
#include <random>
#include <string>

#include "tests/kernel/TableFixture.h"

namespace {

// Plain halving over the keys: the position of the key it meets first, or ~(the place for it).
int halved(const std::vector<std::uint32_t> &keys, std::uint32_t key) {
  int low = 0;
  int high = static_cast<int>(keys.size()) - 1;
  while (low <= high) {
    const int middle = low + (high - low) / 2;
    const std::uint32_t found = keys[static_cast<std::size_t>(middle)];
    if (found == key) return middle;
    if (key < found) {
      high = middle - 1;
    } else {
      low = middle + 1;
    }
  }
  return ~low;
}

// Ascending keys of one kind: dense, with holes, with repetitions, in two clusters, at random.
std::vector<std::uint32_t> ascending_keys(std::mt19937 &generator, int kind, std::size_t count) {
  const auto random = [&] { return static_cast<std::uint32_t>(generator()); };
  std::vector<std::uint32_t> keys(count);
  std::uint32_t next = kind == 4 ? 0xFFFFFF00U - static_cast<std::uint32_t>(count) : random() % 3;
  for (std::uint32_t &key : keys) {
    key = next;
    if (kind == 0 || kind == 4) next += 1;
    if (kind == 1) next += 1 + (random() % 8 == 0 ? random() % 100 : 0);
    if (kind == 2) next += random() % 2;
    if (kind == 3) next += random() % 3 + (&key - keys.data() == static_cast<int>(count / 2) ? 4'000'000'000U : 0);
    if (kind == 5) key = random();
  }
  std::sort(keys.begin(), keys.end());
  return keys;
}

}  // namespace

// Catches: a search that is off by one, signed, wrong about the insertion point, or fails for some number of records:
// whichever places are looked at first, the answer is that of halving, also among equal keys. An area that is not
// ascending is searched within its bounds.
TEST(TableLookup, SearchIsThatOfHalving) {
  constexpr int kMost = 3000;
  Accounts accounts(kMost);
  const auto seed = std::random_device{}();
  SCOPED_TRACE(seed);
  std::mt19937 random(seed);
  for (int round = 0; round < 120 && !HasFailure(); ++round) {
    const int kind = round % 7;
    const std::size_t count = round < 20 ? static_cast<std::size_t>(round) : random() % kMost + 1;
    std::vector<std::uint32_t> keys = ascending_keys(random, kind == 6 ? 1 : kind, count);
    if (kind == 6) std::shuffle(keys.begin(), keys.end(), random);
    (void)accounts.table.DeleteAllRecord();  // or an area that was out of order once is halved for good
    accounts.fill(keys, 1);
    std::vector<std::uint32_t> wanted = keys;
    for (const std::uint32_t key : keys) wanted.push_back(key + (random() % 2 == 0 ? 1 : -1U));
    wanted.insert(wanted.end(), {0, 1, ~0U, ~0U - 1, 0x80000000U});
    for (const std::uint32_t key : wanted) {
      int position = -7;
      const int found = accounts.table.FindIDExclusive(key, position);
      if (kind == 6) {
        ASSERT_TRUE(position >= 0 && position <= static_cast<int>(count)) << key;
        if (found == 1) {
          ASSERT_EQ(keys[static_cast<std::size_t>(position)], key);
        }
        continue;
      }
      const int expected = halved(keys, key);
      ASSERT_EQ(found, expected >= 0 ? 1 : 0) << kind << ' ' << count << ' ' << key;
      ASSERT_EQ(position, expected >= 0 ? expected : ~expected) << kind << ' ' << count << ' ' << key;
      ASSERT_EQ(accounts.table.FindRecordIndex(key), std::max(expected, -1)) << key;
      ASSERT_EQ(accounts.table.FindIDExclusive(key), accounts.record(key == 0 ? -1 : expected)) << key;
    }
  }
}

// Catches: bytes after a record that are taken for a part of its key.
TEST(TableLookup, RecordsShorterThanAKey) {
  for (const std::size_t size : {1U, 2U, 3U}) {
    Image image({{10, "Short", 5, {"Key STRING " + std::to_string(size)}}});
    CRtTable table = image.table(10);
    ASSERT_EQ(static_cast<int>(size), table.GetTableSize());
    for (std::size_t i = 0; i < 5; ++i) table.GetDataAddress()[i * size] = static_cast<char>(2 * i + 1);
    table.SetRecordCount(4);
    for (unsigned int key = 1; key < 10; ++key) {
      int position = -7;
      EXPECT_EQ(table.FindIDExclusive(key, position), key % 2 == 1 && key < 9 ? 1 : 0) << size << ' ' << key;
      EXPECT_EQ(position, static_cast<int>(std::min(key / 2, 4U))) << size << ' ' << key;
    }
  }
}

// Catches: a record of key 0 that the search by key alone delivers, or the one with a buffer misses.
TEST(ByDesign, KeyZeroNamesNothing) {
  Accounts accounts({0, 5}, 6);
  std::string buffer(Account::kSize + 1, '?');
  int position = -1;
  EXPECT_EQ(accounts.table.FindIDExclusive(4, buffer.data()), 0);
  EXPECT_EQ(buffer, std::string(Account::kSize + 1, '?'));
  EXPECT_EQ(accounts.table.FindIDExclusive(0), nullptr);
  EXPECT_EQ(accounts.table.FindIDExclusive(0, buffer.data()), 1);
  EXPECT_EQ(account(0) + '?', buffer);
  EXPECT_EQ(accounts.table.FindIDExclusive(0, position), 1);
  EXPECT_EQ(position, 0);
  EXPECT_EQ(accounts.table.GetRecordAddr(0, -1), nullptr);
  EXPECT_EQ(accounts.slot(0), accounts.table.GetRecordAddr(0, 0));
}

// Catches: a stale hint that misleads, or one past the end that is searched like a negative one.
TEST(ByDesign, HintPastEnd) {
  Accounts accounts({3, 5, 9}, 10);
  const struct {
    std::uint32_t key;
    int hint, position;
  } rows[] = {{5, 1, 1},  {5, 0, 1},   {5, 2, 1},  {5, -1, 1}, {5, -2147483647, 1},
              {4, 1, -1}, {4, -1, -1}, {0, 1, -1}, {5, 3, -1}, {5, 2147483647, -1}};
  for (const auto &row : rows) {
    SCOPED_TRACE(std::to_string(row.key) + " at " + std::to_string(row.hint));
    EXPECT_EQ(accounts.record(row.position), accounts.table.GetRecordAddr(row.key, row.hint));
  }
  EXPECT_EQ(accounts.slot(2), accounts.table.GetAt(2));
  EXPECT_EQ(accounts.table.GetAt(3), nullptr);
  EXPECT_EQ(accounts.table.GetAt(-1), nullptr);
}

// Catches: an iteration that reports the end one call late, as fields do, or reads after the last record.
TEST(ByDesign, RecordsEndWithLast) {
  Accounts accounts({3, 5}, 6);
  int position = accounts.table.GetFirstPosition();
  EXPECT_EQ(accounts.slot(0), accounts.table.GetNextPosition(position));
  EXPECT_EQ(position, 1);
  EXPECT_EQ(accounts.slot(1), accounts.table.GetNextPosition(position));
  EXPECT_EQ(position, -1);
  position = 2;
  EXPECT_EQ(accounts.table.GetNextPosition(position), nullptr);
  EXPECT_EQ(position, -1);
  accounts.fill({}, 1);
  EXPECT_EQ(accounts.table.GetFirstPosition(), -1);
}

// Catches: a mark that counts although it is not exactly 1; a record that is not looked at.
TEST(TableLookup, OnlyTheMarkOneIsModified) {
  Accounts accounts({3, 5, 9}, 10);
  for (const std::size_t position : {0U, 2U, 3U}) {
    for (const std::int32_t mark : {1, 2, -1, 0x01000001, 0}) {
      SCOPED_TRACE(std::to_string(mark) + " at " + std::to_string(position));
      put(accounts.slot(position), Account::kModified, mark);
      EXPECT_EQ(mark == 1 && position < 3, accounts.table.IsModified());
    }
  }
  put(accounts.slot(0), Account::kModified, 1);
  std::strcpy(accounts.table.GetFieldFromIndex(5)->FieldName, "Modified");
  EXPECT_FALSE(accounts.table.IsModified()) << "a table without the field";
}

// Catches: records that survive, bytes that do not, a copy of the counters that is left.
TEST(TableLookup, DeleteAllRecordForgetsAndKeepsBytes) {
  Accounts accounts({3, 5, 9}, 10);
  const std::string bytes = accounts.area();
  CRtTable view = accounts.Image::table(10);
  EXPECT_EQ(view.DeleteAllRecord(), 1);
  EXPECT_TRUE(accounts.table.IsEmpty());
  EXPECT_EQ(accounts.next_key(), 1U);
  EXPECT_EQ(accounts.table.FindRecordIndex(5), -1);
  EXPECT_EQ(bytes, accounts.area());
  EXPECT_EQ(view.GetTableInfo()->RecordCount, 0);
}

// Catches: a default on the wrong field, one that is cut, one that touches a field without a default.
TEST(TableLookup, InitRecordDefaultFillsFieldsWithDefaults) {
  const std::string longest = "a default of thirty-two letters.";
  Image image({{10,
                "Defaults",
                1,
                {"ID UINT 4", "Short SHORT 2 70000", "Note STRING 8 note", "Value DOUBLE 8 -1.5",
                 "When TIME 16 2008-3-7", "Text STRING 40 x"}}});
  CRtTable table = image.table(10);
  CRtField text;
  ASSERT_EQ(table.GetFieldFromIndex(text, 5), 1);
  text.SetDefaultValue(longest.c_str());
  ASSERT_TRUE(table.SetField(text));
  std::string expected(78, '?'), record = expected;
  CRtTable().InitRecordDefault(record.data());
  EXPECT_EQ(record, expected) << "a detached table";
  put(expected.data(), 4, std::uint16_t{4464});
  expected.replace(6, 5, std::string("note") + '\0');
  put(expected.data(), 14, -1.5);
  put(expected.data(), 22, SYSTEMTIME{2008, 3, 0, 7, 0, 0x3F3F, 0x3F3F, 0x3F3F});
  expected.replace(38, 33, longest + '\0');
  table.InitRecordDefault(record.data());
  EXPECT_EQ(record, expected);
}

// Catches: a table that is not attached and works on its own copy, or follows a null image.
TEST(TableLookup, DetachedTableAnswersNothing) {
  CRtTable table;
  table.SetRecordCount(3);
  table.SetTableFieldNum(2);
  std::string buffer = account(1);
  CRtField field;
  int at = 0;
  for (const char *address :
       {table.GetDataAddress(), table.FindIDExclusive(1), table.GetAt(0), table.GetRecordAddr(1, -1),
        table.FindRecordbyStringField(0, ""), table.GetNextPosition(at)}) {
    EXPECT_EQ(address, nullptr);
  }
  for (const int result : {table.FindRecordIndex(1), table.GetFirstPosition(), table.FindFieldFromName("", false),
                           table.Insert(buffer.data(), 0), table.Insert(1, 0, 1), table.Update(buffer.data(), 0, 0)}) {
    EXPECT_EQ(result, -1);
  }
  for (const int result : {table.FindIDExclusive(1, buffer.data()), table.GetFieldFromName(field, ""),
                           table.GetFieldFromID(field, 0xFFFFFFFF), table.Delete(1, 0, 0), table.DeleteAllRecord(),
                           table.SetRecordVersionInfo(0, 7, 2), table.GetFieldData(5, 0, buffer.data()),
                           table.GetFieldDataAt(0, 0, buffer.data()), table.SetFieldData(5, 0, buffer.data()),
                           table.SetFieldDataAt(0, 0, buffer.data()), table.SetFieldByText(0, 0, buffer.data()),
                           table.SetColumnValueAt(0, buffer.data(), 0, 1)}) {
    EXPECT_EQ(result, 0);
  }
  EXPECT_FALSE(table.GetNextField(field, at = 0) || table.IsModified() || table.SaveData(0));
  EXPECT_EQ(table.GetRecordCount(), 3);
}
