#include <array>
#include <cstddef>
#include <cstring>
#include <filesystem>
#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <pthread.h>
#include <signal.h>
#include <stdexcept>
#include <string>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>
#include <utility>
#include <vector>

#include "quillanest/shm/MutexEx.h"
#include "quillanest/shm/Utility.h"
#include "tests/support/Child.h"
#include "tests/support/Mutexes.h"
#include "tests/support/TestRoot.h"

namespace {

namespace fs = std::filesystem;

// Year, month, day of the week, day, hour, minute, second, milliseconds.
using Members = std::array<std::uint16_t, 8>;
constexpr Members kBefore{11, 22, 33, 44, 55, 66, 77, 88};

void expect_time_read(const char *text, const Members &expected) {
  SYSTEMTIME time;
  std::memcpy(&time, &kBefore, sizeof time);
  ReadTime(text, &time);
  Members members;
  std::memcpy(&members, &time, sizeof time);
  EXPECT_EQ(members, expected) << testing::PrintToString(text);
}

TEST(Utility, ReadTimeTakesSixNumbers) {
  constexpr Members kWhole{2008, 3, 0, 7, 9, 5, 0, 0};
  for (const char *text : {"2008-3-7 9:5:0", " 2008-\t3- 7\n9: 5:\v0 rest", "+2008-+3-+7+9:+5:+0",
                           "2008-03-07 09:05:00.5", "2008-3-7   9:5:0x"}) {
    expect_time_read(text, kWhole);
  }
  expect_time_read("2008-13-40 25:61:99", {2008, 13, 0, 40, 25, 61, 99, 0});
  expect_time_read("65535-65535-65535 65535:65535:65535", {65535, 65535, 0, 65535, 65535, 65535, 65535, 0});
}

TEST(ByDesign, TimeScanOverlap) {
  struct Row {
    const char *text;
    Members members;
  };
  constexpr Row kRows[] = {
      {"", kBefore},
      {"x2008-3-7 9:5:0", kBefore},
      {"- 5", kBefore},
      {"2008", {2008, 0, 33, 44, 55, 66, 77, 88}},
      {"2008 -3-7", {2008, 0, 33, 44, 55, 66, 77, 88}},
      {"2008/3/7", {2008, 0, 33, 44, 55, 66, 77, 88}},
      {"70000", {4464, 1, 33, 44, 55, 66, 77, 88}},
      {"-1", {65535, 65535, 33, 44, 55, 66, 77, 88}},
      {"2008-3", {2008, 3, 0, 44, 55, 66, 77, 88}},
      {"2008--3", {2008, 65533, 65535, 44, 55, 66, 77, 88}},
      {"2008-3-7", {2008, 3, 0, 7, 0, 66, 77, 88}},
      {"2008-3-7x9:5:0", {2008, 3, 0, 7, 0, 66, 77, 88}},
      {"2008-3-79:5:0", {2008, 3, 0, 79, 0, 66, 77, 88}},
      {"2008-3-200000", {2008, 3, 0, 3392, 3, 66, 77, 88}},
      {"2008-3-7 9", {2008, 3, 0, 7, 9, 0, 77, 88}},
      {"2008-3-7 9 :5:0", {2008, 3, 0, 7, 9, 0, 77, 88}},
      {"2008-3-7-9:5", {2008, 3, 0, 7, 65527, 5, 0, 88}},
      {"2008-3-7 9:5:", {2008, 3, 0, 7, 9, 5, 0, 88}},
      {"2008-3-7 9:5:-1", {2008, 3, 0, 7, 9, 5, 65535, 65535}},
      {"2008-3-7 9:5:70000", {2008, 3, 0, 7, 9, 5, 4464, 1}},
      {"-1--2--3 -4:-5:6", {65535, 65534, 65535, 65533, 65532, 65531, 6, 0}},
  };
  for (const Row &row : kRows) expect_time_read(row.text, row.members);
}

TEST(Utility, GetLocalTimeIsThePresentInWholeSeconds) {
  const time_t before = time(nullptr);
  SYSTEMTIME now{1, 1, 9, 1, 1, 1, 1, 1};
  GetLocalTime(now);
  tm parts{now.wSecond, now.wMinute, now.wHour, now.wDay, now.wMonth - 1, now.wYear - 1900, -1, -1, -1, 0, nullptr};
  const time_t read = mktime(&parts);
  EXPECT_TRUE(before <= read && read <= time(nullptr)) << read;
  EXPECT_EQ(now.wDayOfWeek, parts.tm_wday);
  EXPECT_EQ(now.wMilliseconds, 0);
}

// What SetDefaultField leaves in a run of '~'.
std::string default_bytes(int type, const char *text) {
  std::array<char, 20> room;
  room.fill('~');
  SetDefaultField(type, room.data(), text);
  return {room.data(), room.size()};
}

struct DefaultRow {
  int type;
  const char *text;
  std::string bytes;  // at the start; the rest is untouched
};

void expect_defaults(const std::vector<DefaultRow> &rows) {
  for (const DefaultRow &row : rows) {
    EXPECT_EQ(default_bytes(row.type, row.text), row.bytes + std::string(20 - row.bytes.size(), '~'))
        << row.type << " " << row.text;
  }
}

TEST(Utility, SetDefaultFieldStoresTheTypesOwnWidth) {
  using namespace std::string_literals;
  expect_defaults({{3, "70000", "\x70\x11"s},
                   {4, "-1", "\xFF\xFF"s},
                   {5, "-2", "\xFE\xFF\xFF\xFF"s},
                   {6, "4000000000", "\x00\x28\x6B\xEE"s},
                   {9, " 12ab", "\x0C\0\0\0"s},
                   {10, "junk", "\0\0\0\0"s},
                   {11, "1.5", "\0\0\xC0\x3F"s},
                   {12, "-2.25", "\0\0\0\0\0\0\x02\xC0"s},
                   {14, "2008-3-7 9:5:0", "\xD8\x07\x03\0\0\0\x07\0\x09\0\x05\0\0\0\0\0"s},
                   {14, "2008", "\xD8\x07\0\0"s},
                   {13, "pump", "pump\0"s},
                   {15, "pw", "pw\0"s}});
  for (int type = 1; type <= 15; ++type) expect_defaults({{type, "", ""}});
  for (const int type : {7, 8, 0, 16, -1, 1 << 20}) expect_defaults({{type, "5", ""}});
}

TEST(ByDesign, DefaultRunsOn) {
  expect_defaults(
      {{1, "A", std::string("A\0", 2)}, {1, "ABC", std::string("ABC\0", 4)}, {2, "12", std::string("12\0", 3)}});
}

TEST(Utility, ClearFileRoundsTheSizeDown) {
  const TestRoot root;
  struct Row {
    std::size_t before;
    std::size_t after;
  };
  for (const Row &row : {Row{0, 0}, Row{3, 0}, Row{4, 4}, Row{10, 8}, Row{4097, 4096}}) {
    SCOPED_TRACE(row.before);
    const std::string path = root.write("file", std::string(row.before, 'x'));
    EXPECT_EQ(GetFileSize(path.c_str()), static_cast<int>(row.before));
    ClearFile(path.c_str());
    EXPECT_EQ(root.read("file"), std::string(row.after, '\0'));
  }
}

TEST(ByDesign, ExtraWord) {
  const TestRoot root;
  struct Row {
    int size;
    std::size_t after;
  };
  for (const char *former : {"", "former content, which is lost"}) {
    for (const Row &row : {Row{0, 4}, Row{3, 4}, Row{4, 8}, Row{7, 8}, Row{100, 104}}) {
      SCOPED_TRACE(row.size);
      const std::string path = root.write("file", former);
      ChangeFileSize(path.c_str(), row.size);
      EXPECT_EQ(root.read("file"), std::string(row.after, '\0'));
    }
  }
  ChangeFileSize(root.path("made").c_str(), 1);
  EXPECT_EQ(root.read("made"), std::string(4, '\0'));
  ChangeFileSize(root.path("made").c_str(), -1);
  EXPECT_EQ(fs::file_size(root.path("made")), 4294967296u) << "a negative size is a large unsigned one";
}

TEST(Utility, FileFunctionsLeaveFoldersAndMissingFilesAlone) {
  const TestRoot root;
  for (const char *name : {"missing", "missing/file"}) {
    SCOPED_TRACE(name);
    const std::string path = root.path(name);
    ClearFile(path.c_str());
    EXPECT_EQ(GetFileSize(path.c_str()), -1);
    EXPECT_FALSE(root.exists(name));
  }
  ChangeFileSize(root.path("missing/file").c_str(), 4);
  EXPECT_FALSE(root.exists("missing"));
  const std::string folder = root.path("data");
  root.write("data/file", "kept");
  ClearFile(folder.c_str());
  ChangeFileSize(folder.c_str(), 4);
  EXPECT_EQ(root.read("data/file"), "kept");
  EXPECT_GE(GetFileSize(folder.c_str()), 0);
}

int run_pauser(const std::vector<std::string> &) {
  say("ready");
  wait_for_the_end();
}
const RegisterChild kPauser{"pauser", run_pauser};

TEST(Utility, KillProcessEndsTheProcess) {
  Child victim("pauser"), bystander("pauser");
  ASSERT_EQ(victim.hear() + bystander.hear(), "readyready");
  KillProcess(victim.id());
  EXPECT_EQ(victim.hear(), "") << "still there";
  EXPECT_EQ(victim.wait(), -1);
  EXPECT_EQ(kill(bystander.id(), 0), 0);
}

// The system takes identifiers of 0 and below for groups of processes. So that a fault hits nobody, this process dies
// at the first attempt to send a signal anywhere.
int kill_nobody(const std::vector<std::string> &) {
  std::array<sock_filter, 4> rules{{{BPF_LD | BPF_W | BPF_ABS, 0, 0, offsetof(seccomp_data, nr)},
                                    {BPF_JMP | BPF_JEQ | BPF_K, 0, 1, SYS_kill},
                                    {BPF_RET | BPF_K, 0, 0, SECCOMP_RET_KILL_PROCESS},
                                    {BPF_RET | BPF_K, 0, 0, SECCOMP_RET_ALLOW}}};
  const sock_fprog filter{static_cast<unsigned short>(rules.size()), rules.data()};
  if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0) return 2;
  if (prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) != 0) return 3;
  for (const int id : {0, -1, -2, -getppid(), -2147483647 - 1}) KillProcess(id);
  return 0;
}
const RegisterChild kKillNobody{"kill_nobody", kill_nobody};

TEST(Utility, KillProcessOfZeroAndBelowEndsNothing) { EXPECT_EQ(Child("kill_nobody").wait(), 0); }

// What a test and its threads share; it outlives the threads.
struct Routine {
  explicit Routine(std::string mutex_name = {}) : mutex(std::move(mutex_name)) {
    if (::pipe(pipe) != 0) throw std::runtime_error("no pipe");
  }
  ~Routine() {
    for (const int end : pipe) close(end);
  }
  Routine(const Routine &) = delete;
  Routine &operator=(const Routine &) = delete;

  int pipe[2];
  std::string mutex;
};

unsigned long hold_mutex_for_ever(void *argument) {
  const auto &routine = *static_cast<Routine *>(argument);
  CMutexEx mutex(routine.mutex.c_str());
  const char result = mutex.Wait(-1) == 0 ? 'y' : 'n';
  if (write(routine.pipe[1], &result, 1) == 1) wait_for_the_end();
  return 0;
}

unsigned long end_by_itself(void *argument) {
  return write(static_cast<Routine *>(argument)->pipe[1], "y", 1) == 1 ? 0 : 1;
}

char hear_from(const Routine &routine) {
  char result = 0;
  return read(routine.pipe[0], &result, 1) == 1 ? result : '?';
}

TEST(Utility, KilledThreadIsGoneAndItsNamedMutexAbandoned) {
  const MutexName name;
  Routine routine(name.text());
  void *handle = CreateThreadEx(hold_mutex_for_ever, &routine);
  ASSERT_NE(handle, nullptr);
  ASSERT_EQ(hear_from(routine), 'y');
  CMutexEx mutex(name.c_str());
  EXPECT_EQ(mutex.Wait(0), 0x102);
  EXPECT_TRUE(KillThreadEx(handle));
  EXPECT_EQ(mutex.Wait(20'000), 0x80);
  EXPECT_TRUE(mutex.Release());
  EXPECT_TRUE(KillThreadEx(handle));
}

pthread_key_t thread_key;

unsigned long keep_a_value_for_ever(void *argument) {
  const bool kept = pthread_setspecific(thread_key, argument) == 0;
  if (write(static_cast<Routine *>(argument)->pipe[1], kept ? "y" : "n", 1) == 1) wait_for_the_end();
  return 0;
}

unsigned long say_whether_afresh(void *argument) {
  const bool afresh = pthread_getspecific(thread_key) == nullptr;
  return write(static_cast<Routine *>(argument)->pipe[1], afresh ? "y" : "n", 1) == 1 ? 0 : 1;
}

// What a killed thread kept for itself must not turn up in the next thread, which may get its stack.
TEST(Utility, ThreadAfterAKilledOneStartsAfresh) {
  Routine routine;
  ASSERT_EQ(pthread_key_create(&thread_key, nullptr), 0);
  void *handle = CreateThreadEx(keep_a_value_for_ever, &routine);
  ASSERT_EQ(hear_from(routine), 'y');
  EXPECT_TRUE(KillThreadEx(handle));
  EXPECT_NE(CreateThreadEx(say_whether_afresh, &routine), nullptr);
  EXPECT_EQ(hear_from(routine), 'y');
  EXPECT_EQ(pthread_key_delete(thread_key), 0);
}

TEST(Utility, KillThreadExOfAnInvalidHandleHitsNobody) {
  const MutexName name;
  Routine routine(name.text());
  EXPECT_EQ(CreateThreadEx(nullptr, nullptr), nullptr);
  std::vector<void *> handles{nullptr, reinterpret_cast<void *>(1), reinterpret_cast<void *>(~std::uintptr_t{0})};
  for (int i = 0; i < 100; ++i) {
    handles.push_back(CreateThreadEx(end_by_itself, &routine));
    ASSERT_EQ(hear_from(routine), 'y');
  }
  void *bystander = CreateThreadEx(hold_mutex_for_ever, &routine);
  ASSERT_EQ(hear_from(routine), 'y');
  for (void *handle : handles) EXPECT_TRUE(KillThreadEx(handle));
  CMutexEx mutex(name.c_str());
  EXPECT_EQ(mutex.Wait(0), 0x102) << "the thread behind another handle was ended";
  EXPECT_TRUE(KillThreadEx(bystander));
}

}  // namespace
