// Descriptors with absurd values: whatever a client writes into the image, no operation crashes or leaves the segment.
#include <cstdlib>
#include <gtest/gtest.h>
#include <random>
#include <string>
#include <sys/mman.h>
#include <unistd.h>
#include <utility>
#include <vector>

#include "tests/kernel/TableFixture.h"

namespace {

constexpr std::int32_t kMost = 2147483647;
constexpr std::int32_t kLeast = -kMost - 1;
constexpr std::int32_t kAbsurd[] = {kLeast, -128, -1, 0, 1, 2, 3, 4095, 0x10000, kMost};

// A system database of one page, whose last table's area ends with the segment: 96 + 3 * 104 + 18 * 128 + 1384.
const std::vector<TableSpec> kTables{
    account_table(3),
    {11, "Short", 2, {"ID UCHAR 1", "Empty STRING 0", "Flag CHAR 1", "Pass PASSWD 0", "Late TIME 0"}},
    {12, "Last", 9, {"ID UINT 4", "Text STRING 8", "bModified INT 4", "When TIME 16", "Tail PASSWD 104"}}};

// Saves flush to the disk, which takes its time; this root lies in memory.
struct RootInMemory {
  RootInMemory() { setenv("TMPDIR", "/dev/shm", 1); }
};

struct Hostile : RootInMemory, Image {
  Hostile() : Image(kTables, {{7, "Guard", 9, {"ID UINT 4", "Text STRING 400"}}}), buffer(3 * kPage, '\x7F') {
    database = manager.GetSystemDB();
    start = database->GetStartAddress();
    for (const unsigned int id : {10U, 11U, 12U}) {
      CRtTable table = Image::table(id);
      for (unsigned int key = 1; key < 4; ++key) table.Insert(key, 0, 0);
    }
    // Texts without a terminator, up to the last byte of the segment.
    CRtTable last = Image::table(12);
    char *tail = last.GetDataAddress() + 4;
    std::memset(tail, 'T', static_cast<std::size_t>(start + kPage - tail));
    for (std::uint32_t i = 0; i < 9; ++i) put(last.GetDataAddress(), i * 136, i + 1);
    last.SetRecordCount(9);
    clean = bytes_at(start, kPage);
    CShareMemory memory(kManagerKey);
    head = static_cast<char *>(memory.Attach());
    clean_head = bytes_at(head, 1296);
    std::memset(plant.GetTableDataAddress(7U), 'G', 9 * 404);
    guard = bytes_at(plant.GetStartAddress(), 96 + 104 + 2 * 128 + 9 * 404);
  }

  void restore() const {
    std::memcpy(start, clean.data(), kPage);
    std::memcpy(head, clean_head.data(), clean_head.size());
  }
  [[nodiscard]] bool is_guard_whole() const { return guard == bytes_at(plant.GetStartAddress(), guard.size()); }

  void call_table(CRtTable table);
  void call_database(CRtDataBase &from);
  void call_manager();

  static constexpr std::size_t kPage = 4096;
  CRtDataBase *database;
  char *start, *head;
  std::string clean, clean_head, guard;
  std::string buffer;
};

void Hostile::call_table(CRtTable table) {
  CRtField field;
  char *bytes = buffer.data();
  for (const int at : {kLeast, -1, 0, 2, 9, kMost}) {
    int position = at;
    const auto key = static_cast<unsigned int>(at);
    table.FindRecordIndex(key);
    table.FindIDExclusive(key);
    table.FindIDExclusive(key, position);
    table.FindIDExclusive(key, bytes);
    table.GetAt(at);
    table.GetRecordAddr(2, at);
    table.GetNextPosition(position = at);
    table.FindRecordbyStringField(at, "T");
    table.GetFieldFromIndex(at);
    table.GetFieldFromID(key);
    table.GetNextField(field, position = at);
    table.SetRecordVersionInfo(at, 7, 3);
    for (const int index : {kLeast, -1, 0, 1, 4, kMost}) {
      table.GetFieldData(2, index, bytes);
      table.GetFieldDataAt(at, index, bytes);
      table.SetFieldData(2, index, bytes + 2 * kPage);
      table.SetFieldDataAt(at, index, bytes + 2 * kPage);
      table.SetColumnValueAt(index, bytes, at, -1);
      table.SetColumnValueAt(index, bytes, 0, at);
      char text[] = "12345678901234567890";
      table.SetFieldByText(at, index, text);
    }
  }
  for (const char *name : {"id", "TEXT", "bmodified", ""}) {
    table.GetFieldFromName(name);
    table.GetFieldFromCName(field, name);
    table.FindFieldFromName(name, true);
  }
  table.IsModified();
  table.InitRecordDefault(bytes);
  for (const std::uint32_t key : {0U, 2U, 77U}) {
    put(bytes, 0, key);
    table.Update(bytes, 1, 7);
    table.Insert(bytes, 7);
    table.Insert(key, 0, 1);
    table.Delete(key, 1, 7);
    table.Delete(key, 0, 0);
  }
  for (int type = 0; type < 16; ++type) CRtField::GetDisplayText(type, start + kPage - 1, bytes);
  table.GetTableName();
  table.SetTableName("New");
  table.SetTableCName("a caption of forty letters, neither more");
  table.GetIDExclusive();
  table.SetField(field);
  table.DeleteAllRecord();
}

void Hostile::call_database(CRtDataBase &from) {
  CRtTable table;
  char *bytes = buffer.data();
  from.GetDBTableFromName(table, "absent");
  from.GetDBTableFromCName(table, "absent");
  from.GetTableAddress();
  from.GetFieldAddress();
  from.GetTableDataAddress("absent");
  from.GetDBName();
  from.GetDBCName();
  for (const int at : {kLeast, -1, 0, 1, 2, 3, kMost}) {
    const unsigned int id = static_cast<unsigned int>(at) + 10;
    int position = at;
    from.GetTableDataAddressAt(at);
    from.GetTableDataAddress(id);
    from.GetTableRecordCount(id);
    from.GetTableRecordAt(id, 1);
    from.GetTableRecord(id, 2);
    from.GetTableFieldData(id, 1, 2, bytes);
    from.SetTableFieldData(id, 1, 2, bytes + 2 * kPage);
    from.SetTableRecord(id, bytes, 7);
    from.GetNextTable(table, position);
    if (from.GetDBTableFromIndex(table, at) == 1) call_table(table);
  }
  from.IsModified();
  from.SaveData(0);
  from.CommitProject();
  from.DeleteAllRecord();
}

void Hostile::call_manager() {
  CRtDataBase found;
  CRtTable table;
  for (const int at : {kLeast, -1, 0, 1, 9, 10, kMost}) {
    int next = at;
    found.DetachShareMemory();
    manager.GetNext(found, next);
    manager.GetDataBaseFromID(found, static_cast<unsigned int>(at));
    manager.LoadTableData(1, static_cast<unsigned int>(at), "absent");
    manager.LoadSomeData(1, static_cast<unsigned int>(at), "absent", false, ';');
  }
  int position = 0;
  manager.GetDataBaseFromName(found, "absent");
  manager.GetDataBaseFromCName(found, "absent");
  manager.FindTable(99, found, table);
  found.DetachShareMemory();
  _db_attr attr{};
  manager.UpdateDBInfo(1, &attr);
  manager.UpdateDBInfo("absent", &attr);
  manager.GetFirstDataBasePostion(position);
  manager.GetSystemTable(table, 12U);
  manager.IsSysTableModified();
  manager.SaveDataTo(true);
  manager.LoadSystemDB();
  manager.LoadAllCustomizedDB(0);
  manager.CommitProject();
  manager.UserLogout();
  manager.AttachShareMemory();
}

}  // namespace

// An offset, size, count or index of the image that is used without a check.
TEST(HostileImage, AbsurdNumbersOfDatabaseAndTables) {
  Hostile image;
  ASSERT_EQ(4096, image.database->GetDBSize());
  std::vector<std::size_t> numbers;
  for (std::size_t at = 72; at < 96; at += 4) numbers.push_back(at);
  for (const std::size_t slot : {96U, 200U, 304U}) {
    for (std::size_t at = slot + 72; at < slot + 104; at += 4) numbers.push_back(at);
  }
  for (const std::size_t at : numbers) {
    for (const std::int32_t value : kAbsurd) {
      SCOPED_TRACE(std::to_string(value) + " at " + std::to_string(at));
      image.restore();
      put(image.start, at, value);
      image.call_database(*image.database);
      CRtDataBase bound;
      bound = value_at<_db_attr>(image.start, 0);
      if (bound.AttachShareMemory() == 1) image.call_database(bound);
      ASSERT_TRUE(image.is_guard_whole());
    }
  }
}

// A field that lies outside its record or the segment, or has a size or type that nobody defined.
TEST(HostileImage, AbsurdNumbersOfFields) {
  Hostile image;
  for (std::size_t slot = 408; slot < 408 + 18 * 128; slot += 128) {
    for (std::size_t at = slot + 76; at < slot + 96; at += 4) {
      for (const std::int32_t value : kAbsurd) {
        SCOPED_TRACE(std::to_string(value) + " at " + std::to_string(at));
        image.restore();
        put(image.start, at, value);
        for (const unsigned int id : {10U, 11U, 12U}) {
          CRtTable table;
          if (image.manager.GetSystemTable(table, id) == 1) image.call_table(table);
        }
        image.database->SaveData(0);
        ASSERT_TRUE(image.is_guard_whole());
      }
    }
  }
}

// A directory that is followed out of the manager segment.
TEST(HostileImage, AbsurdNumbersOfTheDirectory) {
  Hostile image;
  for (const std::size_t at : {0U, 4U, 8U, 236U, 240U, 296U + 64, 296U + 72, 296U + 80, 296U + 84, 296U + 88, 1256U}) {
    for (const std::int32_t value : kAbsurd) {
      SCOPED_TRACE(std::to_string(value) + " at " + std::to_string(at));
      image.restore();
      put(image.head, at, value);
      image.call_manager();
      image.manager.GetSystemDB()->DetachShareMemory();
      image.restore();
      ASSERT_EQ(1, image.manager.AttachShareMemory());
      ASSERT_EQ(image.start, image.manager.GetSystemDB()->GetStartAddress());
    }
  }
}

// Two wrong numbers that pass the checks together.
TEST(HostileImage, RandomDescriptors) {
  const unsigned int seed = std::random_device{}();
  SCOPED_TRACE(seed);
  std::mt19937 random(seed);
  Hostile image;
  for (int round = 0; round < 300; ++round) {
    SCOPED_TRACE(round);
    image.restore();
    for (int change = 0; change < 6; ++change) {
      const std::size_t at = 64 + random() % ((408 + 18 * 128 - 64) / 4) * 4;
      put(image.start, at, static_cast<std::int32_t>(random() % 3 == 0 ? random() : random() % 6000));
    }
    image.call_database(*image.database);
    ASSERT_TRUE(image.is_guard_whole());
  }
}

// Holes of one page each, with a page behind each that nobody may touch; the next small mappings land in them.
class Walls {
 public:
  Walls() {
    constexpr std::size_t kPages = 32;
    char *first = block(kPages);
    // Fills the holes elsewhere, until the system turns to these.
    for (std::size_t page = 0; page < kPages; page += 2) munmap(first + page * Hostile::kPage, Hostile::kPage);
    for (int tries = 0; tries < 10000; ++tries) {
      const char *at = block(1);
      if (at < first || at >= first + kPages * Hostile::kPage) continue;
      munmap(blocks_.back().first, Hostile::kPage);
      break;
    }
  }
  ~Walls() {
    for (const auto &[start, pages] : blocks_) munmap(start, pages * Hostile::kPage);
  }
  Walls(const Walls &) = delete;
  Walls &operator=(const Walls &) = delete;

 private:
  char *block(std::size_t pages) {
    void *start = mmap(nullptr, pages * Hostile::kPage, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    blocks_.emplace_back(start, pages);
    return static_cast<char *>(start);
  }
  std::vector<std::pair<void *, std::size_t>> blocks_;
};

// A text that is read beyond the segment's end, where nothing can be read.
TEST(HostileImage, UnterminatedTextEndsWithTheSegment) {
  const Walls walls;
  Hostile image;
  char *end = image.start + Hostile::kPage;
  int channel[2];
  ASSERT_EQ(0, pipe(channel));
  EXPECT_EQ(-1, write(channel[1], end, 1)) << "the byte behind the segment can be read";
  close(channel[0]);
  close(channel[1]);
  CRtTable table = image.table(12);
  std::string text(300, '?');
  EXPECT_EQ(1, table.GetFieldDataAt(8, 4, text.data()));
  EXPECT_EQ(std::string(104, 'T'), text.c_str());
  EXPECT_EQ(1, table.GetFieldData(9, 4, text.data()));
  EXPECT_EQ(nullptr, table.FindRecordbyStringField(4, std::string(105, 't').c_str()));
  for (const int type : {12, 15, 13}) CRtField::GetDisplayText(type, end - 3, text.data());
  EXPECT_STREQ("TTT", text.c_str());
  CRtField::GetDisplayText(14, end - 3, text.data());
  EXPECT_EQ(1, table.SetFieldDataAt(8, 4, std::string(200, 'U').c_str()));
  EXPECT_EQ('U', end[-1]);
  EXPECT_TRUE(table.SaveData(0));
}

// Texts and buffers that clients give may lie in a segment, too; texts there need no terminator.
TEST(HostileImage, ArgumentsEndWithTheSegment) {
  const Walls walls;
  Hostile image;
  char *end = image.start + Hostile::kPage;
  std::memset(end - 104, 'T', 104);
  CRtTable table = image.table(12);
  CRtTable &last = table;
  CRtDataBase &database = *image.database;
  CRtField field;
  SYSTEMTIME time{};
  std::string text(300, '?');
  char *tail = end - 5;
  ReadTime(tail, &time);
  ReadTime("1-2-3 4:5:6", reinterpret_cast<SYSTEMTIME *>(end - 4));
  std::memset(end - 104, 'T', 104);
  SetDefaultField(13, text.data(), tail);
  EXPECT_STREQ(text.c_str(), "TTTTT");
  SetDefaultField(13, end - 3, "longer than the room");
  SetDefaultField(14, end - 3, "2001-2-3");
  std::memset(end - 104, 'T', 104);
  EXPECT_TRUE(CMutexEx(tail).Create(nullptr));
  EXPECT_EQ(GetFileSize(tail), -1);
  field.SetFieldName(tail);
  EXPECT_STREQ(field.GetFieldName(), "TTTTT");
  field.SetDefaultValue(end - 40);
  EXPECT_STREQ(field.GetDefaultValue(), "");
  EXPECT_EQ(last.FindRecordbyStringField(4, end - 104), last.GetAt(8));
  EXPECT_EQ(last.FindFieldFromName(tail, false), -1);
  EXPECT_EQ(database.GetTableDataAddress(tail), nullptr);
  EXPECT_EQ(image.manager.GetDataBaseFromName(image.plant, tail), 0);
  EXPECT_EQ(image.manager.UserLogin(tail, tail), 0);
  EXPECT_EQ(last.SetFieldDataAt(0, 3, end - 3), 1);
  EXPECT_EQ(last.SetColumnValueAt(3, end - 3, 0, 3), 1);
  EXPECT_EQ(last.GetFieldDataAt(0, 3, end - 3), 1);
  EXPECT_EQ(last.GetFieldDataAt(0, 4, end - 3), 1);
  EXPECT_EQ(last.Update(end - 135, 0, 0), -1);
  EXPECT_EQ(last.FindIDExclusive(1, end - 135), 0);
  EXPECT_FALSE(last.InsertRecordToDb(end - 135));
  EXPECT_FALSE(last.UpdateRecordToDb(end - 135));
  EXPECT_EQ(image.manager.UpdateDBInfo(1U, reinterpret_cast<_db_attr *>(end - 92)), 0);
  CRtField::GetDisplayText(13, text.data(), end - 3);
  last.InitRecordDefault(end - 3);
  last.SetRecordCount(1);
  EXPECT_EQ(last.Insert(end - 135, 0), -1);
  EXPECT_EQ(last.GetRecordCount(), 1);
}
