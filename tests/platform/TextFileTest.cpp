#include <atomic>
#include <filesystem>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

#include "quillanest/platform/TextFile.h"
#include "tests/support/FullDisk.h"
#include "tests/support/TestRoot.h"

namespace {

namespace fs = std::filesystem;
using quillanest::FileReplacement;
using quillanest::read_file;

using Names = std::vector<std::string>;

bool replace(const std::string &path, std::string_view content) {
  FileReplacement file(path);
  return file.write(content) && file.commit();
}

TEST(TextFile, ReadsWholeRegularFilesOnly) {
  const TestRoot root;
  for (const std::string &content : {std::string(), std::string("a\r\n\0b\n", 6), std::string(300'000, 'x')}) {
    EXPECT_EQ(read_file(root.write("file", content)).value().view(), content);
  }
  ASSERT_EQ(mkfifo(root.path("pipe").c_str(), 0600), 0);
  for (const char *name : {"missing", "conf", "pipe", "file/below"}) {
    EXPECT_FALSE(read_file(root.path(name)).has_value()) << name;
  }
}

TEST(FileReplacement, FormerFileStandsUntilTheCommit) {
  const TestRoot root;
  const std::string path = root.write("data/file", "old");
  {
    FileReplacement given_up(path);
    ASSERT_TRUE(given_up.write("something longer"));
  }
  EXPECT_EQ(root.files("data"), Names{"file"});
  root.write("data/file.saving", "what a killed process left, longer");
  FileReplacement file(path);
  ASSERT_TRUE(file.write("n") && file.write("ew"));
  EXPECT_EQ(root.read("data/file"), "old");
  EXPECT_TRUE(file.commit());
  EXPECT_EQ(root.read("data/file"), "new");
  EXPECT_TRUE(replace(root.path("data/first"), ""));
  EXPECT_EQ(root.files("data"), (Names{"file", "first"}));
}

// No file of this process grows beyond 4096 bytes; a write past them fails as on a full disk.
TEST(FileReplacement, FormerFileStandsAfterAFailedWrite) {
  const TestRoot root;
  const std::string path = root.write("data/file", "old");
  {
    const FullDisk full(4096);
    {
      FileReplacement file(path);
      ASSERT_TRUE(file.write("begin"));
      EXPECT_FALSE(file.write(std::string(10'000, 'x')));
      EXPECT_FALSE(file.write("")) << "a later write hides the failure";
      EXPECT_FALSE(file.commit());
    }
    EXPECT_FALSE(replace(root.path("data/other"), std::string(4097, 'x')));
    EXPECT_TRUE(replace(root.path("data/fits"), std::string(4096, 'x')));
  }
  EXPECT_EQ(root.read("data/file"), "old");
  EXPECT_EQ(root.files("data"), (Names{"file", "fits"}));
}

TEST(FileReplacement, KeepsOwnerPermissionsAndLinks) {
  const TestRoot root;
  const std::string path = root.write("data/file", "old");
  const uid_t owner = geteuid() == 0 ? 65534 : geteuid();  // only root can give a file away
  ASSERT_EQ(chown(path.c_str(), owner, static_cast<gid_t>(-1)), 0);
  fs::create_symlink("../data/file", root.path("conf/link"));
  for (const unsigned mode : {0600u, 0640u, 0666u}) {
    fs::permissions(path, fs::perms{mode});
    EXPECT_TRUE(replace(root.path("conf/link"), std::to_string(mode)));
    EXPECT_EQ(fs::status(path).permissions(), fs::perms{mode});
    struct stat status {};
    EXPECT_EQ(stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_uid, owner);
    EXPECT_EQ(root.read("data/file"), std::to_string(mode));
    EXPECT_TRUE(fs::is_symlink(root.path("conf/link")));
  }
  EXPECT_EQ(root.files("data"), Names{"file"});
  fs::create_symlink("link", root.path("conf/second"));
  fs::remove(path);
  EXPECT_TRUE(replace(root.path("conf/second"), "made")) << "a link to a file that is not there yet";
  EXPECT_EQ(root.read("data/file"), "made");
  EXPECT_TRUE(fs::is_symlink(root.path("conf/second")) && fs::is_symlink(root.path("conf/link")));
}

TEST(FileReplacement, RefusesWhatItCannotReplace) {
  const TestRoot root;
  root.write("data/kept", "old");
  root.write("data/victim", "untouched");
  fs::create_directory(root.path("data/kept.saving"));
  fs::create_symlink(root.path("data/victim"), root.path("data/linked.saving"));
  for (const char *name : {"data", "data/", "missing/file", "data/kept", "data/kept/below", "data/linked"}) {
    FileReplacement file(root.path(name));
    EXPECT_FALSE(file.is_open() || file.write("x") || file.commit()) << name;
  }
  EXPECT_EQ(root.read("data/kept"), "old");
  EXPECT_EQ(root.read("data/victim"), "untouched");
  EXPECT_EQ(root.files("data"), (Names{"kept", "kept.saving", "linked.saving", "victim"}));
}

TEST(FileReplacement, ConcurrentReplacementsWaitForOneAnother) {
  const TestRoot root;
  const std::string path = root.write("data/file", std::string(1000, 'o'));
  std::atomic<int> failures = 0;
  const auto write_often = [&](char c) {
    for (int round = 0; round < 40; ++round) {
      FileReplacement file(path);
      for (int piece = 0; piece < 10; ++piece) (void)file.write(std::string(100, c));
      if (round % 4 != 3 && !file.commit()) ++failures;  // every fourth is given up
      const std::string content = root.read("data/file");
      if (content != std::string(1000, content[0])) ++failures;
    }
  };
  std::thread other(write_often, 'b');
  write_often('a');
  other.join();
  EXPECT_EQ(failures, 0);
  EXPECT_EQ(root.files("data"), Names{"file"});
}

}  // namespace
