#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <gtest/gtest.h>
#include <optional>
#include <unistd.h>

#include "quillanest/shm/ShareMemory.h"
#include "tests/support/TestRoot.h"

namespace {

namespace fs = std::filesystem;

// The key that gives an object this effective key.
int key_for(int effective) {
  return static_cast<int>(static_cast<unsigned>(effective) - static_cast<unsigned>(getpid()));
}

std::string text_at(const void *view, std::size_t size) { return {static_cast<const char *>(view), size}; }

bool has_open_file(std::string_view name) {
  for (const auto &entry : fs::directory_iterator("/proc/self/fd")) {
    std::error_code error;
    if (fs::read_symlink(entry, error).string().find(name) != std::string::npos) return true;
  }
  return false;
}

TEST(ShareMemory, SegmentIsNamedByProcessAndKey) {
  struct Row {
    int effective;
    const char *name;
  };
  for (const Row &row : {Row{1567, "memfd:SM_000000001567 "}, Row{-5, "memfd:SM_-000000000005 "},
                         Row{2147483647, "memfd:SM_002147483647 "}, Row{0, "memfd:SM_000000000000 "}}) {
    SCOPED_TRACE(row.name);
    CShareMemory segment(key_for(row.effective));
    ASSERT_NE(segment.Create(100, false, true), nullptr);
    EXPECT_TRUE(has_open_file(row.name));
    segment.Destroy();
    EXPECT_FALSE(has_open_file(row.name));
  }
}

TEST(ShareMemory, RefusesSizesAndTheMissingKey) {
  CShareMemory segment;
  EXPECT_EQ(segment.Attach(), nullptr);
  EXPECT_EQ(segment.Create(0, false, true), nullptr);
  EXPECT_EQ(segment.Create(-1, false, true), nullptr);
  EXPECT_EQ(segment.Attach(), nullptr) << "a refused Create left a segment";
  EXPECT_NE(segment.Create(1, false, true), nullptr) << "the default key is a key";
  CShareMemory keyless(key_for(-1));
  EXPECT_EQ(keyless.Create(100, false, true), nullptr);
  EXPECT_EQ(keyless.Attach(), nullptr);
  EXPECT_TRUE(keyless.SetKey(-1));
  EXPECT_NE(keyless.Attach(), nullptr);
}

TEST(ShareMemory, ContentLivesAsLongAsAView) {
  std::optional<CShareMemory> first(333);
  CShareMemory second(333), third(334);
  void *view = first->Create(100, false, true);
  ASSERT_NE(view, nullptr);
  EXPECT_EQ(third.Attach(), nullptr);
  std::strcpy(static_cast<char *>(view), "content");
  ASSERT_NE(second.Attach(), nullptr);
  first.reset();
  EXPECT_STREQ(static_cast<char *>(second.Attach()), "content");
  EXPECT_STREQ(static_cast<char *>(CShareMemory(333).Create(100, false, false)), "content");
  second.Detach();
  second.Detach();
  EXPECT_EQ(second.Attach(), nullptr);
  EXPECT_EQ(text_at(second.Create(100, false, false), 100), std::string(100, '\0'));
}

TEST(ShareMemory, ExistingSegmentIsOpenedUnlessItIsSmaller) {
  CShareMemory owner(333);
  auto *bytes = static_cast<char *>(owner.Create(100, false, true));
  ASSERT_NE(bytes, nullptr);
  std::memset(bytes, 'x', 100);
  CShareMemory view(333);
  EXPECT_EQ(view.Create(101, false, true), nullptr);
  EXPECT_EQ(text_at(bytes, 100), std::string(100, 'x'));
  EXPECT_NE(view.Create(100, false, false), nullptr);
  EXPECT_EQ(text_at(bytes, 100), std::string(100, 'x'));
  view.Destroy();
  auto *cleared = static_cast<char *>(view.Create(60, false, true));
  ASSERT_NE(cleared, nullptr);
  EXPECT_EQ(text_at(bytes, 100), std::string(60, '\0') + std::string(40, 'x'));
  cleared[99] = 'y';
  EXPECT_EQ(bytes[99], 'y');
}

TEST(ByDesign, CreateOnView) {
  CShareMemory segment(333);
  auto *view = static_cast<char *>(segment.Create(100, false, true));
  ASSERT_NE(view, nullptr);
  std::memset(view, 'x', 100);
  segment.SetKey(key_for(-1));
  for (const int size : {100, 1, 5000, 0, -1}) EXPECT_EQ(segment.Create(size, true, true), view) << size;
  EXPECT_EQ(text_at(view, 100), std::string(100, 'x'));
}

TEST(ShareMemory, KeyCountsFromTheNextMappingOn) {
  CShareMemory other(334);
  void *other_view = other.Create(10, false, true);
  CShareMemory segment(333);
  void *view = segment.Create(10, false, true);
  EXPECT_TRUE(segment.SetKey(334));
  EXPECT_EQ(segment.Attach(), view);
  segment.Detach();
  EXPECT_EQ(segment.Attach(), other_view);
  EXPECT_NE(view, other_view);
}

TEST(ShareMemory, CopiesTakeTheKeyButNoView) {
  CShareMemory original(333);
  void *view = original.Create(10, false, true);
  ASSERT_NE(view, nullptr);
  {
    CShareMemory copied(original), assigned;
    assigned = original;
    EXPECT_EQ(copied.Attach(), view);
    EXPECT_EQ(assigned.Attach(), view);
  }
  CShareMemory mapped(334);
  void *own = mapped.Create(10, false, true);
  mapped = original;
  EXPECT_EQ(mapped.Attach(), own) << "assignment replaced a view";
  mapped.Detach();
  EXPECT_EQ(mapped.Attach(), view);
  original.Destroy();
  mapped.Destroy();
  EXPECT_EQ(mapped.Attach(), nullptr) << "a copy kept the segment";
}

// MAP_FILE_PATH and the working folder for the life of the object.
class BackingFolder {
 public:
  BackingFolder(const char *map_file_path, const std::string &working_folder) : former_(fs::current_path()) {
    fs::current_path(working_folder);
    if (map_file_path != nullptr) setenv("MAP_FILE_PATH", map_file_path, 1);
  }
  ~BackingFolder() {
    unsetenv("MAP_FILE_PATH");
    fs::current_path(former_);
  }
  BackingFolder(const BackingFolder &) = delete;
  BackingFolder &operator=(const BackingFolder &) = delete;

 private:
  fs::path former_;
};

TEST(ShareMemory, FileBackedSegmentKeepsItsBytesInTheNamedFile) {
  const TestRoot root;
  struct Row {
    std::string map_file_path;
    const char *file;
  };
  for (const Row &row :
       {Row{root.path("data/"), "data/SM_000000001567"}, Row{root.path("data/a"), "data/aSM_000000001567"},
        Row{"conf/", "conf/SM_000000001567"}, Row{"unset", "SM_000000001567"}}) {
    SCOPED_TRACE(row.file);
    const BackingFolder folder(row.map_file_path == "unset" ? nullptr : row.map_file_path.c_str(), root.folder());
    CShareMemory segment(key_for(1567));
    void *view = segment.Create(8, true, false);
    ASSERT_NE(view, nullptr);
    std::strcpy(static_cast<char *>(view), "content");
    segment.Destroy();
    EXPECT_EQ(root.read(row.file), std::string("content\0", 8));
    EXPECT_EQ(text_at(segment.Create(12, true, false), 12), std::string("content\0\0\0\0\0", 12));
    segment.Destroy();
    EXPECT_EQ(text_at(segment.Create(4, true, true), 4), std::string(4, '\0'));
    segment.Destroy();
    EXPECT_EQ(root.read(row.file), std::string("\0\0\0\0ent\0\0\0\0\0", 12));
  }
}

TEST(ShareMemory, FileThatCannotBeOpenedGivesAnOrdinarySegment) {
  const TestRoot root;
  fs::create_directory(root.path("data/SM_000000001567"));
  for (const char *path : {"missing/", "data/"}) {
    SCOPED_TRACE(path);
    const BackingFolder folder(path, root.folder());
    CShareMemory segment(key_for(1567));
    EXPECT_EQ(text_at(segment.Create(100, true, false), 100), std::string(100, '\0'));
    EXPECT_TRUE(has_open_file("memfd:SM_000000001567 "));
    EXPECT_FALSE(root.exists("missing"));
  }
}

TEST(ShareMemory, FileBackedSegmentNeedsAWorkingFolder) {
  const TestRoot root;
  fs::create_directory(root.path("gone"));
  const BackingFolder folder(nullptr, root.path("gone"));
  fs::remove(root.path("gone"));
  CShareMemory segment(333);
  EXPECT_EQ(segment.Create(100, true, true), nullptr);
  EXPECT_EQ(segment.Attach(), nullptr);
  EXPECT_NE(segment.Create(100, false, true), nullptr);
}

}  // namespace
