#include <atomic>
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <thread>
#include <tuple>
#include <unistd.h>

#include "quillanest/platform/FileSizeSignal.h"
#include "quillanest/platform/TextFile.h"
#include "tests/support/FullDisk.h"
#include "tests/support/TestRoot.h"

namespace {

namespace fs = std::filesystem;
using quillanest::FileReplacement;
using quillanest::NewFile;
using quillanest::read_file;

using Names = std::vector<std::string>;

bool replace(const std::string &path, std::string_view content, NewFile new_file = NewFile::kByUmask) {
  FileReplacement file(path, new_file);
  return file.write(content) && file.commit();
}

fs::perms permissions(const std::string &path) { return fs::status(path).permissions(); }

// Another user where there may be one: only root can give a file away.
const uid_t kOther = geteuid() == 0 ? 65534 : geteuid();

TEST(TextFile, ReadsWholeRegularFilesOnly) {
  const TestRoot root;
  for (const std::string &content : {std::string(), std::string("a\r\n\0b\n", 6), std::string(300'000, 'x')}) {
    EXPECT_EQ(read_file(root.write("file", content)).value().view(), content);
  }
  ASSERT_EQ(mkfifo(root.path("pipe").c_str(), 0600), 0);
  for (const std::string &name : {std::string("missing"), std::string("conf"), std::string("pipe"),
                                  std::string("file/below"), std::string(300, 'n')}) {
    EXPECT_FALSE(read_file(root.path(name)).has_value()) << name;
  }
  fs::create_symlink("circle", root.path("circle"));  // the system cannot say whether there is a file
  EXPECT_THROW((void)read_file(root.path("circle")), std::system_error);
}

TEST(FileReplacement, FormerFileStandsUntilTheCommit) {
  const TestRoot root;
  const std::string path = root.write("data/file", "old");
  {
    FileReplacement given_up(path);
    ASSERT_TRUE(given_up.write("something longer"));
  }
  EXPECT_EQ(root.files("data"), Names{"file"});
  const std::string left_over = root.write("data/file.saving", "what a killed process left, longer");
  const int reader = open(left_over.c_str(), O_RDONLY);
  FileReplacement file(path);
  EXPECT_EQ(permissions(left_over), fs::perms{0600});
  ASSERT_TRUE(file.write("n") && file.write("ew"));
  EXPECT_EQ(root.read("data/file"), "old");
  EXPECT_TRUE(file.commit());
  EXPECT_EQ(root.read("data/file"), "new");
  EXPECT_GT(lseek(reader, 0, SEEK_END), 3) << "who had it open reads the new content";
  close(reader);
  EXPECT_TRUE(replace(root.path("data/first"), ""));
  EXPECT_EQ(root.files("data"), (Names{"file", "first"}));
}

// Catches: a save on a full disk that loses the former file: no file of this process grows beyond 4096 bytes.
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
  ASSERT_EQ(chown(path.c_str(), kOther, static_cast<gid_t>(-1)), 0);
  fs::create_symlink("../data/file", root.path("conf/link"));
  for (const unsigned mode : {0600u, 0640u, 0666u}) {
    fs::permissions(path, fs::perms{mode});
    EXPECT_TRUE(replace(root.path("conf/link"), std::to_string(mode)));
    EXPECT_EQ(permissions(path), fs::perms{mode});
    struct stat status {};
    EXPECT_EQ(stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_uid, kOther);
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

TEST(FileReplacement, NewFilesFollowTheUmaskAndSecretsDoNot) {
  const TestRoot root;
  const mode_t former = umask(0);
  for (const auto &[mask, kind, mode] :
       {std::tuple(022u, NewFile::kByUmask, 0644u), std::tuple(0u, NewFile::kByUmask, 0666u),
        std::tuple(0177u, NewFile::kByUmask, 0600u), std::tuple(0u, NewFile::kSecret, 0600u),
        std::tuple(0777u, NewFile::kSecret, 0600u)}) {
    umask(mask);
    EXPECT_TRUE(replace(root.path("data/file"), "new", kind));
    EXPECT_EQ(permissions(root.path("data/file")), fs::perms{mode}) << mask;
    EXPECT_EQ(umask(former), mask);
    fs::remove(root.path("data/file"));
  }
}

TEST(FileReplacement, RefusesWhatItCannotReplace) {
  const TestRoot root;
  root.write("data/kept", "old");
  for (const char *name : {"data", "data/", "missing/file", "data/kept/below"}) {
    FileReplacement file(root.path(name));
    EXPECT_FALSE(file.is_open() || file.write("x") || file.commit()) << name;
  }
  // A load takes a file that may not be read for a missing one, and the save after it replaced the content.
  for (const char *folder : {".", "data"}) fs::permissions(root.path(folder), fs::perms{0777});
  ASSERT_EQ(chown(root.path("data/kept").c_str(), kOther, static_cast<gid_t>(-1)), 0);
  const uid_t own = geteuid();
  ASSERT_EQ(seteuid(kOther), 0);
  for (const unsigned mode : {0200u, 0400u, 0600u}) {
    fs::permissions(root.path("data/kept"), fs::perms{mode});
    EXPECT_EQ(FileReplacement(root.path("data/kept")).is_open(), mode == 0600u) << mode;
  }
  ASSERT_EQ(seteuid(own), 0);
  EXPECT_EQ(root.read("data/kept"), "old");
  EXPECT_EQ(root.files("data"), Names{"kept"});
}

// Catches: a save that fails, or gives content or permissions away, for what others put in the place of the temporary
// file.
TEST(FileReplacement, PassesByATemporaryFileThatIsNotItsOwn) {
  const TestRoot root;
  const std::string victim = root.write("data/victim", "untouched");
  fs::create_directory(root.path("data/folder.saving"));
  fs::create_symlink("victim", root.path("data/link.saving"));
  fs::create_hard_link(victim, root.path("data/second.saving"));
  ASSERT_EQ(mkfifo(root.path("data/pipe.saving").c_str(), 0666), 0);
  Names names = {"folder", "link", "second", "pipe"};
  const std::string planted = root.write("data/planted.saving", "planted");
  ASSERT_EQ(chown(planted.c_str(), kOther, static_cast<gid_t>(-1)), 0);
  fs::permissions(planted, fs::perms{0666});
  if (kOther != geteuid()) names.emplace_back("planted");
  const Names before = root.files("data");
  for (const std::string &name : names) {
    EXPECT_TRUE(replace(root.path("data/" + name), name)) << name;
    EXPECT_EQ(root.read("data/" + name), name);
    struct stat status {};
    EXPECT_EQ(stat(root.path("data/" + name).c_str(), &status), 0);
    EXPECT_EQ(status.st_uid, geteuid()) << name;
    { FileReplacement given_up(root.path("data/" + name)); }
    fs::remove(root.path("data/" + name));
  }
  EXPECT_EQ(root.files("data"), before);
  EXPECT_EQ(root.read("data/victim") + root.read("data/planted.saving"), "untouchedplanted");
  EXPECT_EQ(permissions(planted), fs::perms{0666});
}

// Catches: a process that held the lock of a left-over file blocked all saves for as long as it pleased. A replacement
// under way is waited for to its end: otherwise its older content would come last.
TEST(FileReplacement, LockedLeftOverCostsTheLongestWaitOnly) {
  const TestRoot root;
  FileReplacement slow(root.path("data/slow"));
  ASSERT_TRUE(slow.write("old"));
  std::thread later([&] { EXPECT_TRUE(replace(root.path("data/slow"), "new")); });
  const int reader = open(root.write("data/file.saving", "left").c_str(), O_RDONLY);
  ASSERT_EQ(flock(reader, LOCK_EX), 0);
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_TRUE(replace(root.path("data/file"), "new"));
  EXPECT_LT(std::chrono::steady_clock::now() - begin, FileReplacement::kLongestWait * 3);
  close(reader);
  EXPECT_EQ(root.read("data/file") + root.read("data/file.saving"), "newleft");
  std::this_thread::sleep_for(std::chrono::milliseconds(200));
  EXPECT_TRUE(slow.commit());
  later.join();
  EXPECT_EQ(root.read("data/slow"), "new");
  std::filesystem::remove(root.path("data/slow"));
  EXPECT_EQ(root.files("data"), (Names{"file", "file.saving"}));
  EXPECT_TRUE(replace(root.path("data/file"), "newer"));
  EXPECT_EQ(root.files("data"), Names{"file"});
}

// Catches: the signal of a file that is too long ended the program, at once or where the program let its signals in
// again.
TEST(FileSizeSignal, IsTakenAwayUnlessItCameBefore) {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGXFSZ);
  const auto signals_pending = [&](bool before) {
    if (before) (void)std::raise(SIGXFSZ);
    {
      const quillanest::FileSizeSignalBlock outer;
      { const quillanest::FileSizeSignalBlock inner; }
      (void)std::raise(SIGXFSZ);
    }
    const timespec at_once{};
    return sigtimedwait(&signals, nullptr, &at_once) == SIGXFSZ;
  };
  EXPECT_FALSE(signals_pending(false));
  ASSERT_EQ(pthread_sigmask(SIG_BLOCK, &signals, nullptr), 0);
  EXPECT_FALSE(signals_pending(false));
  EXPECT_TRUE(signals_pending(true));
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
