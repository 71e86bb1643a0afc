// What another user of the machine tries against a program of this one. Runs as root: both users are numbers without an
// account, of this run alone.
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <grp.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

#include "quillanest/Quillanest.h"
#include "tests/support/Child.h"
#include "tests/support/TestRoot.h"

namespace {

namespace fs = std::filesystem;

const uid_t kVictim = 20'000 + static_cast<uid_t>(getpid()) % 20'000;
const uid_t kOther = kVictim + 20'000;

// A process of a user, which says and hears nothing but that it pauses and may go on.
class Process {
 public:
  using Pause = std::function<void()>;

  // Runs `work` up to its first pause, or to its end.
  Process(uid_t user, const std::function<int(const Pause &)> &work) {
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM, 0, ends) != 0) throw std::runtime_error("no sockets");
    char c = 0;
    id_ = fork();
    if (id_ == 0) {
      alarm(60);
      close(ends[0]);
      if (setgroups(0, nullptr) != 0 || setresgid(user, user, user) != 0 || setresuid(user, user, user) != 0) _exit(99);
      _exit(work([&] {
        if (write(ends[1], &c, 1) != 1 || read(ends[1], &c, 1) != 0) _exit(98);
      }));
    }
    close(ends[1]);
    socket_ = ends[0];
    (void)!read(socket_, &c, 1);
  }
  ~Process() { (void)finish(); }
  Process(const Process &) = delete;
  Process &operator=(const Process &) = delete;

  // Lets the work come to its end; its result, or minus the signal that ended it.
  int finish() {
    if (socket_ < 0) return status_;
    close(std::exchange(socket_, -1));
    waitpid(id_, &status_, 0);
    return status_ = WIFEXITED(status_) ? WEXITSTATUS(status_) : -WTERMSIG(status_);
  }

 private:
  pid_t id_ = -1;
  int status_ = -1;
  int socket_ = -1;
};

int as_user(uid_t user, const std::function<int()> &work) {
  return Process(user, [&](const Process::Pause &) { return work(); }).finish();
}

// An installation that every user may read, with folders that every user may write to, and no folder of mutexes.
class OtherUser : public testing::Test {
 protected:
  OtherUser() {
    fs::permissions(root.folder(), fs::perms(0755));
    fs::permissions(root.path("data"), fs::perms(01777));
    setenv("MAP_FILE_PATH", root.path("data/").c_str(), 1);
    umask(022);
  }
  ~OtherUser() override {
    unsetenv("MAP_FILE_PATH");
    remove_mutexes();
  }

  void remove_mutexes() const {
    for (const auto &entry : fs::directory_iterator("/dev/shm")) {
      if (entry.path().string().starts_with(kMutexes)) fs::remove_all(entry);
    }
  }

  // A file below the root, of a user.
  std::string plant(uid_t user, const std::string &below, std::string_view content, mode_t mode) const {
    const std::string path = root.write(below, content);
    if (chown(path.c_str(), user, user) != 0 || chmod(path.c_str(), mode) != 0) throw std::runtime_error(path);
    return path;
  }

  // Of the victim: starts, takes a user's password and saves; 0 when the save is true, 1 when it is false.
  [[nodiscard]] int save() const {
    CRtdbManager manager;
    CRtTable table;
    char record[20] = {1};
    std::strcpy(record + 4, "secret");
    if (!manager.RtdbManagerInit(false, schema.c_str()) || manager.GetSystemTable(table, 10) != 1) return 2;
    (void)table.DeleteAllRecord();
    return table.Insert(record, 0) == 0 ? !table.SaveData(0) : 3;
  }

  const TestRoot root;
  const std::string schema = root.write("schema.txt", schema_text({{10, "users", 2, {"ID UINT 4", "Pass PASSWD 16"}}}));
  const std::string kMutexes = "/dev/shm/quillanest-" + std::to_string(kVictim);
  const std::string kUsers = "data/system_users.txt";
  const std::string kSaved = "ID;Pass\r\n1;qnp1.LpcLD8Udx1NP_MEyoQXi4m82aF_E4OQ\r\n";
};

// Catches: a temporary file of another user that becomes the file of passwords, or blocks every save.
TEST_F(OtherUser, TemporaryFileIsNeitherAdoptedNorWaitedFor) {
  const struct {
    uid_t owner;
    mode_t mode;
    bool has_target;
  } rows[] = {{kOther, 0666, false}, {kOther, 0666, true}, {kVictim, 0644, true}};
  for (const auto &row : rows) {
    SCOPED_TRACE(testing::Message() << row.owner << ", target " << row.has_target);
    fs::remove(root.path(kUsers));
    if (row.has_target) plant(kVictim, kUsers, "ID;Pass\r\n", 0600);
    const std::string path = plant(row.owner, kUsers + ".saving", "", row.mode);
    Process other(kOther, [&](const Process::Pause &pause) {
      const int file = open(path.c_str(), O_RDONLY);
      if (file < 0 || flock(file, LOCK_EX) != 0) return 2;
      pause();
      char c = 0;
      return read(file, &c, 1) == 0 ? 0 : 1;
    });
    EXPECT_EQ(as_user(kVictim, [&] { return save(); }), 0);
    EXPECT_EQ(root.read(kUsers), kSaved);
    struct stat status {};
    ASSERT_EQ(stat(root.path(kUsers).c_str(), &status), 0);
    EXPECT_EQ(status.st_uid, kVictim);
    EXPECT_EQ(status.st_mode & 0022, 0U);
    EXPECT_EQ(other.finish(), 0) << "the other one reads the passwords";
    fs::remove(path);
  }
}

// Catches: a data file that may be written but not read and counts as missing, so that the save destroys it.
TEST_F(OtherUser, FileThatCannotBeReadIsKept) {
  for (const auto &[owner, mode] : {std::pair(kVictim, 0200U), std::pair(kOther, 0222U)}) {
    plant(owner, kUsers, "ID;Pass\r\n7;other\r\n", mode);
    EXPECT_EQ(as_user(kVictim, [&] { return save(); }), 1) << owner;
    EXPECT_EQ(root.read(kUsers), "ID;Pass\r\n7;other\r\n") << owner;
  }
}

// Catches: a segment in the file of another user, who can read it, and end the program by cutting it.
TEST_F(OtherUser, SegmentLiesInNoFileOfAnother) {
  const std::string below = "data/SM_000000055555";
  const auto create = [](const Process::Pause &) {
    umask(0);
    return CShareMemory(55'555 - getpid()).Create(8192, true, true) == nullptr ? 1 : 0;
  };
  for (const mode_t mode : {0666U, 0600U}) {
    plant(kOther, below, "four", mode);
    EXPECT_EQ(Process(kVictim, create).finish(), 1) << mode;
    EXPECT_TRUE(root.read(below) == "four") << mode;
  }
  fs::remove(root.path(below));
  const std::string mine = plant(kVictim, "data/mine", "four", 0600);
  EXPECT_EQ(as_user(kOther, [&] { return symlink(mine.c_str(), root.path(below).c_str()); }), 0);
  EXPECT_EQ(Process(kVictim, create).finish(), 1) << "link";
  EXPECT_TRUE(root.read("data/mine") == "four");
  fs::remove(root.path(below));
  EXPECT_EQ(Process(kVictim, create).finish(), 0);
  EXPECT_EQ(fs::status(root.path(below)).permissions(), fs::perms(0600));
}

// Catches: another user who keeps every program of the victim from starting by taking the name of the folder first.
TEST_F(OtherUser, TakenFolderOfMutexesStopsNoProgram) {
  const std::pair<const char *, std::function<int()>> rows[] = {
      {"folder", [&] { return mkdir(kMutexes.c_str(), 0777); }},
      {"closed folder", [&] { return mkdir(kMutexes.c_str(), 0); }},
      {"link", [&] { return symlink(root.path("data").c_str(), kMutexes.c_str()); }},
  };
  const auto take = [&](const Process::Pause &pause) {
    CMutexEx mutex("abuse");
    const int result = mutex.Wait(0);
    pause();
    return result == 0x102 ? 2 : result != 0 ? 3 : save();
  };
  for (const auto &[what, attack] : rows) {
    SCOPED_TRACE(what);
    EXPECT_EQ(as_user(kOther, attack), 0);
    EXPECT_EQ(as_user(kOther, [&] { return mkdir((kMutexes + ".aaaaaa").c_str(), 0777); }), 0);
    Process holder(kVictim, take);
    EXPECT_EQ(Process(kVictim, take).finish(), 2);
    fs::remove(kMutexes);
    EXPECT_EQ(Process(kVictim, take).finish(), 2) << "two folders";
    EXPECT_EQ(holder.finish(), 0);
    remove_mutexes();
  }
}

// Catches: a first start under such a umask that locks the user out of the folder, or of a mutex, for good.
TEST_F(OtherUser, UmaskLocksNoUserOut) {
  for (const mode_t mask : {0177U, 0777U}) {
    for (const mode_t own : {mask, mode_t{022}}) {
      EXPECT_EQ(as_user(kVictim,
                        [&] {
                          umask(own);
                          const int saved = save();
                          return (CMutexEx("abuse").Wait(0) & ~0x80) == 0 ? saved : 4;
                        }),
                0)
          << std::oct << mask << ", " << own;
      fs::remove(root.path(kUsers));
    }
    fs::remove_all(kMutexes);
  }
}

const RegisterChild kRaised{"raised", [](const std::vector<std::string> &arguments) -> int {
                              fs::current_path(arguments[0]);
                              const bool maps = CShareMemory(1).Create(100, true, true) != nullptr;
                              say(CRtdbManager().GetSysIniFile() + std::string(maps ? "" : " no segment"));
                              _exit(0);
                            }};

// Catches: a program with more rights than its user that obeys his environment, and so runs his code with them.
TEST_F(OtherUser, RaisedRightsAreNotLedByTheEnvironment) {
  fs::create_directory(root.path("cwd"));
  ASSERT_EQ(setresuid(kOther, 0, 0), 0);
  Child raised("raised", {root.path("cwd")});
  ASSERT_EQ(setresuid(0, 0, 0), 0);
  const std::string answer = raised.hear();
  EXPECT_TRUE(answer.ends_with("/conf/fix_Rtdb.ini") && !answer.starts_with(root.folder())) << answer;
  EXPECT_EQ(root.files("data").size() + 1, root.files("cwd").size());
}

}  // namespace
