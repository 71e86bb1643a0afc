#include <cstdlib>
#include <cstring>
#include <deque>
#include <filesystem>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include "quillanest/Quillanest.h"
#include "tests/support/FullDisk.h"
#include "tests/support/TestRoot.h"

namespace {

// The key that gives an object this effective key.
int key_for(int effective) {
  return static_cast<int>(static_cast<unsigned>(effective) - static_cast<unsigned>(getpid()));
}

std::string text_at(const void *view, std::size_t size) { return {static_cast<const char *>(view), size}; }

TEST(ShareMemory, RefusesSizesAndTheMissingKey) {
  CShareMemory segment, keyless(key_for(-1));
  for (const int size : {0, -1}) EXPECT_EQ(segment.Create(size, false, true), nullptr) << size;
  EXPECT_EQ(segment.Attach(), nullptr) << "a refused Create left a segment";
  EXPECT_NE(segment.Create(1, false, true), nullptr) << "the default key is a key";
  EXPECT_EQ(keyless.Create(100, false, true), nullptr);
  EXPECT_EQ(keyless.Attach(), nullptr);
}

// Catches: a larger size was refused; now clearing would run out of the segment.
TEST(ShareMemory, SegmentLivesAsLongAsAViewAndIsOpenedAsItIs) {
  CShareMemory owner(333), view(333);
  void *bytes = std::memset(owner.Create(100, false, true), 'x', 100);
  for (const int size : {100, 101, 1 << 30}) {
    EXPECT_EQ(view.Create(size, size == 101, false), bytes) << size;
    EXPECT_EQ(text_at(bytes, 100), std::string(100, 'x'));
    view.Destroy();
  }
  EXPECT_EQ(view.Create(1 << 30, false, true), bytes);
  EXPECT_EQ(text_at(bytes, 100), std::string(100, '\0'));
  view.Destroy();
  std::memset(bytes, 'x', 100);
  EXPECT_EQ(view.Create(60, false, true), bytes);
  EXPECT_EQ(text_at(bytes, 100), std::string(60, '\0') + std::string(40, 'x'));
  owner.Destroy();
  EXPECT_STREQ(static_cast<char *>(view.Attach()) + 60, std::string(40, 'x').c_str());
  view.Detach();
  EXPECT_EQ(view.Attach(), nullptr);
  EXPECT_EQ(text_at(view.Create(200, false, false), 200), std::string(200, '\0'));
}

TEST(ByDesign, CreateOnView) {
  CShareMemory segment(333);
  void *view = std::memset(segment.Create(100, false, true), 'x', 100);
  segment.SetKey(key_for(-1));
  for (const int size : {100, 1, 5000, 0, -1}) EXPECT_EQ(segment.Create(size, true, true), view) << size;
  EXPECT_EQ(text_at(view, 100), std::string(100, 'x'));
}

TEST(ShareMemory, CopiesTakeTheKeyForTheNextMappingButNoView) {
  CShareMemory original(333), mapped(334);
  void *view = original.Create(10, false, true);
  void *own = mapped.Create(10, false, true);
  EXPECT_EQ(CShareMemory(original).Attach(), view);
  mapped = original;
  EXPECT_EQ(mapped.Attach(), own) << "assignment replaced a view";
  mapped.Detach();
  EXPECT_EQ(mapped.Attach(), view);
  original.Destroy();
  mapped.Destroy();
  EXPECT_EQ(mapped.Attach(), nullptr) << "a copy kept the segment";
}

// Catches: names were found in the child as well: its identifier is a neighbour of the parent's, so are keys, and a
// start in the child could clear a segment of the parent.
TEST(ShareMemory, ForkedChildStartsWithoutTheParentsSegments) {
  const TestRoot root;
  const std::string schema = root.write("schema.txt", schema_text({account_table()}));
  std::deque<CShareMemory> segments;
  std::vector<void *> views;
  for (int key = 1; key <= 500; ++key) {
    views.push_back(std::memset(segments.emplace_back(key).Create(20'000, false, true), 'x', 20'000));
  }
  const int effective = getpid() + 333;
  const pid_t child = fork();
  if (child == 0) {
    CShareMemory same(key_for(effective));
    if (same.Attach() != nullptr) _exit(1);
    if (same.Create(100, false, true) == views[332]) _exit(2);
    _exit(CRtdbManager().RtdbManagerInit(false, schema.c_str()) ? 0 : 3);
  }
  int status = -1;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
  for (const void *view : views) EXPECT_EQ(text_at(view, 20'000), std::string(20'000, 'x'));
}

// Catches: the file was readable by every user, and a link to another one was followed.
TEST(ShareMemory, FileBackedSegmentIsItsOwnersAlone) {
  namespace fs = std::filesystem;
  const TestRoot root;
  CShareMemory segment(key_for(1567));
  setenv("MAP_FILE_PATH", root.path("data/").c_str(), 1);
  EXPECT_NE(segment.Create(8, true, true), nullptr);
  const std::string file = root.path("data/SM_000000001567");
  EXPECT_EQ(fs::status(file).permissions(), fs::perms::owner_read | fs::perms::owner_write);
  segment.Destroy();
  for (const auto make : {symlink, link}) {
    fs::remove(file);
    ASSERT_EQ(make(root.write("data/victim", "four").c_str(), file.c_str()), 0);
    EXPECT_EQ(segment.Create(8, true, true), nullptr);
    EXPECT_EQ(root.read("data/victim"), "four");
  }
  unsetenv("MAP_FILE_PATH");
}

// Catches: a process that made a segment's file shorter through /proc ended the program at its next access.
TEST(ShareMemory, SizeOfASegmentIsFixed) {
  CShareMemory segment(333);
  ASSERT_NE(segment.Create(10'000, false, true), nullptr);
  int found = 0;
  for (const auto &entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    if (std::filesystem::read_symlink(entry.path()).string().find("memfd:SM_") == std::string::npos) continue;
    ++found;
    for (const off_t size : {0, 20'000}) EXPECT_EQ(truncate(entry.path().c_str(), size), -1) << size;
  }
  EXPECT_EQ(found, 1);
}

TEST(ShareMemory, FileBackedSegmentKeepsItsBytesInTheNamedFile) {
  const TestRoot root;
  CShareMemory segment(key_for(1567));
  for (const char *prefix : {"data/a", "conf/"}) {
    SCOPED_TRACE(prefix);
    setenv("MAP_FILE_PATH", root.path(prefix).c_str(), 1);
    std::strcpy(static_cast<char *>(segment.Create(8, true, false)), "content");
    segment.Destroy();
    EXPECT_EQ(text_at(segment.Create(12, true, false), 12), std::string("content\0\0\0\0\0", 12));
    segment.Destroy();
    EXPECT_EQ(root.read(std::string(prefix) + "SM_000000001567"), std::string("content\0\0\0\0\0", 12));
  }
  setenv("MAP_FILE_PATH", root.path("missing/").c_str(), 1);
  EXPECT_EQ(text_at(segment.Create(12, true, false), 12), std::string(12, '\0')) << "not an ordinary segment";
  setenv("MAP_FILE_PATH", root.path("data/full").c_str(), 1);
  {
    const FullDisk full(100);
    EXPECT_EQ(segment.Create(12, true, false), segment.Attach()) << "what the folder held is a view still";
    segment.Destroy();
    EXPECT_EQ(segment.Create(1000, true, false), nullptr) << "what is written to a lost segment is lost";
    EXPECT_EQ(segment.Create(1000, false, false), nullptr) << "the limit holds for memory too";
  }
  unsetenv("MAP_FILE_PATH");
}

}  // namespace
