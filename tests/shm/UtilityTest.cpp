#include <array>
#include <atomic>
#include <bit>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <pthread.h>
#include <signal.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include "quillanest/shm/MutexEx.h"
#include "quillanest/shm/Utility.h"
#include "tests/support/Child.h"
#include "tests/support/FullDisk.h"
#include "tests/support/Mutexes.h"
#include "tests/support/TestRoot.h"

namespace {

// Year, month, day of the week, day, hour, minute, second, milliseconds.
using Members = std::array<std::uint16_t, 8>;
constexpr Members kBefore{11, 22, 33, 44, 55, 66, 77, 88};

TEST(ByDesign, TimeScanOverlap) {
  const struct {
    const char *text;
    Members members;
  } rows[] = {
      {" 2008-\t3- 7\n9: 5:\v0 rest", {2008, 3, 0, 7, 9, 5, 0, 0}},
      {"+2008-+3-+7+9:+5:+0", {2008, 3, 0, 7, 9, 5, 0, 0}},
      {"2008-03-07 09:05:00.5", {2008, 3, 0, 7, 9, 5, 0, 0}},
      {"65535-65535-65535 65535:65535:65535", {65535, 65535, 0, 65535, 65535, 65535, 65535, 0}},
      {"", kBefore},
      {"x2008-3-7 9:5:0", kBefore},
      {"- 5", kBefore},
      {"2008", {2008, 0, 33, 44, 55, 66, 77, 88}},
      {"70000", {4464, 1, 33, 44, 55, 66, 77, 88}},
      {"-1", {65535, 65535, 33, 44, 55, 66, 77, 88}},
      {"2008-3", {2008, 3, 0, 44, 55, 66, 77, 88}},
      {"2008--3", {2008, 65533, 65535, 44, 55, 66, 77, 88}},
      {"2008-3-7x9:5:0", {2008, 3, 0, 7, 0, 66, 77, 88}},
      {"2008-3-200000", {2008, 3, 0, 3392, 3, 66, 77, 88}},
      {"2008-03-0: 09:05:00", {2008, 3, 0, 0, 0, 66, 77, 88}},
      {"2008-3-7 9 :5:0", {2008, 3, 0, 7, 9, 0, 77, 88}},
      {"2008-3-7-9:5", {2008, 3, 0, 7, 65527, 5, 0, 88}},
      {"2008-3-7 9:5:-1", {2008, 3, 0, 7, 9, 5, 65535, 65535}},
      {"-1--2--3 -4:-5:6", {65535, 65534, 65535, 65533, 65532, 65531, 6, 0}},
  };
  for (const auto &row : rows) {
    auto time = std::bit_cast<SYSTEMTIME>(kBefore);
    ReadTime(row.text, &time);
    EXPECT_EQ(std::bit_cast<Members>(time), row.members) << testing::PrintToString(row.text);
  }
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

// Catches: a time zone that a program has left, because the system remembers the one it read first.
TEST(Utility, GetLocalTimeFollowsTheTimeZone) {
  std::array<int, 2> hours{};
  for (std::size_t i = 0; i < hours.size(); ++i) {
    setenv("TZ", i == 0 ? "UTC0" : "FIVE-5", 1);
    SYSTEMTIME now{};
    GetLocalTime(now);
    hours.at(i) = now.wHour;
  }
  unsetenv("TZ");
  const int apart = (hours[1] - hours[0] + 24) % 24;
  EXPECT_TRUE(apart == 5 || apart == 6) << apart;  // 6 if an hour has ended in between
}

struct DefaultRow {
  int type;
  const char *text;
  std::string bytes;  // at the start; the rest is untouched
};

void expect_defaults(std::initializer_list<DefaultRow> rows) {
  for (const DefaultRow &row : rows) {
    std::string room(20, '~');
    SetDefaultField(row.type, room.data(), row.text);
    EXPECT_EQ(room, row.bytes + std::string(20 - row.bytes.size(), '~')) << row.type << " " << row.text;
  }
}

TEST(Utility, SetDefaultFieldStoresTheTypesOwnWidth) {
  using namespace std::string_literals;
  expect_defaults({{3, "70000", "\x70\x11"s},
                   {10, "junk", "\0\0\0\0"s},
                   {12, "-2.25", "\0\0\0\0\0\0\x02\xC0"s},
                   {14, "2008-3-7 9:5:0", "\xD8\x07\x03\0\0\0\x07\0\x09\0\x05\0\0\0\0\0"s},
                   {14, "2008", "\xD8\x07\0\0"s},
                   {13, "pump", "pump\0"s},
                   {15, "pw", "pw\0"s}});
  for (int type = 1; type <= 15; ++type) expect_defaults({{type, "", ""}});
  for (const int type : {7, 8, 0, 16, -1, 1 << 20}) expect_defaults({{type, "5", ""}});
}

TEST(ByDesign, DefaultRunsOn) {
  using namespace std::string_literals;
  expect_defaults({{1, "A", "A\0"s}, {1, "ABC", "ABC\0"s}, {2, "12", "12\0"s}});
}

TEST(Utility, ClearFileRoundsTheSizeDown) {
  const TestRoot root;
  for (const auto &[before, after] : {std::pair(3u, 0u), std::pair(10u, 8u), std::pair(4100u, 4100u)}) {
    const std::string path = root.write("file", std::string(before, 'x'));
    EXPECT_EQ(GetFileSize(path.c_str()), static_cast<int>(before));
    ClearFile(path.c_str());
    EXPECT_EQ(root.read("file"), std::string(after, '\0'));
  }
  EXPECT_EQ(GetFileSize(root.path("missing").c_str()), -1);
  const FullDisk full(100);
  ChangeFileSize(root.path("file").c_str(), 1000);
  EXPECT_EQ(root.read("file"), "");
}

TEST(ByDesign, ExtraWord) {
  const TestRoot root;
  const std::string path = root.path("file");
  for (const auto &[size, after] : {std::pair(0, 4u), std::pair(3, 4u), std::pair(100, 104u), std::pair(7, 8u)}) {
    ChangeFileSize(path.c_str(), size);
    EXPECT_EQ(root.read("file"), std::string(after, '\0'));
    root.write("file", "former content, which is lost");
  }
  ChangeFileSize(path.c_str(), -1);
  EXPECT_EQ(std::filesystem::file_size(path), 4294967296u) << "a negative size is a large unsigned one";
}

// The system takes identifiers of 0 and below for groups of processes; this one is a group of its own.
const RegisterChild kPauser{"pauser", [](const std::vector<std::string> &) -> int {
                              setpgid(0, 0);
                              KillProcess(0);
                              KillProcess(-getpid());
                              say("ready");
                              wait_for_the_end();
                            }};

TEST(Utility, KillProcessEndsThatProcessOnly) {
  Child victim("pauser"), bystander("pauser");
  ASSERT_EQ(victim.hear() + bystander.hear(), "readyready");
  KillProcess(victim.id());
  EXPECT_EQ(victim.hear(), "") << "still there";
  EXPECT_EQ(victim.wait(), -1);
  EXPECT_EQ(kill(bystander.id(), 0), 0);
}

std::atomic<char> said = '\0';  // by a thread
pthread_key_t thread_key;

char hear() {
  said.wait('\0');
  return said.exchange('\0');
}

void say_of_thread(bool right) {
  said = right ? 'y' : 'n';
  said.notify_one();
}

unsigned long hold_mutex(void *name) {
  CMutexEx mutex(static_cast<const char *>(name));
  const bool afresh = pthread_getspecific(thread_key) == nullptr && pthread_setspecific(thread_key, name) == 0;
  say_of_thread((mutex.Wait(-1) & ~0x80) == 0 && afresh);
  wait_for_the_end();
}

unsigned long end_by_itself(void *) {
  say_of_thread(true);
  return 0;
}

// Catches: what a killed thread kept for itself and the next thread, which may get its stack, finds.
TEST(Utility, KillThreadExAbandonsMutexesAndHitsNobodyThroughAStaleHandle) {
  const MutexName name;
  std::string text = name.text();
  ASSERT_EQ(pthread_key_create(&thread_key, nullptr), 0);
  EXPECT_EQ(CreateThreadEx(nullptr, nullptr), nullptr);
  std::vector<void *> stale{nullptr, reinterpret_cast<void *>(1), reinterpret_cast<void *>(~std::uintptr_t{0})};
  for (int i = 0; i < 100; ++i) {
    stale.push_back(CreateThreadEx(end_by_itself, nullptr));
    ASSERT_EQ(hear(), 'y');
  }
  CMutexEx mutex(name.c_str());
  for (int round = 0; round < 3; ++round) {
    void *handle = CreateThreadEx(hold_mutex, text.data());
    ASSERT_EQ(hear(), 'y');
    for (void *other : stale) EXPECT_TRUE(KillThreadEx(other));
    EXPECT_EQ(mutex.Wait(0), 0x102) << "the thread of another handle was ended";
    EXPECT_TRUE(KillThreadEx(handle));
    EXPECT_EQ(mutex.Wait(20'000), 0x80);
    EXPECT_TRUE(mutex.Release());
    stale.push_back(handle);
  }
}

unsigned long runs_on(void *) {
  for (;;) pause();
}

// Catches: a thread that was ended before it had begun took the lock of all threads along.
TEST(Utility, ThreadEndedBeforeItHasBegun) {
  for (int i = 0; i < 100; ++i) EXPECT_TRUE(KillThreadEx(CreateThreadEx(runs_on, nullptr)));
}

struct StartsAnother {
  ~StartsAnother() { CreateThreadEx(end_by_itself, nullptr); }
};

unsigned long starts_another_at_its_end(void *) {
  thread_local const StartsAnother at_the_end;
  (void)&at_the_end;
  return 0;
}

unsigned long leaves_through_exit(void *) {
  say_of_thread(true);
  pthread_exit(nullptr);
}

std::ptrdiff_t mappings() {
  std::ifstream maps("/proc/self/maps");
  return std::count(std::istreambuf_iterator<char>(maps), {}, '\n');
}

// Catches: a thread that waits for itself in its own destructors, which run when it counts as ended already.
TEST(Utility, CreateThreadExAtTheEndOfAThread) {
  for (int i = 0; i < 20; ++i) {
    ASSERT_NE(CreateThreadEx(starts_another_at_its_end, nullptr), nullptr);
    ASSERT_EQ(hear(), 'y');
  }
}

// Catches: what a routine leaves open in pthread_exit is its stack.
TEST(Utility, ThreadsThatExitAreCleanedUp) {
  std::ptrdiff_t before = 0;
  void *handle = nullptr;
  for (int i = 0; i < 100; ++i) {
    handle = CreateThreadEx(leaves_through_exit, nullptr);
    ASSERT_EQ(hear(), 'y');
    if (i == 20) before = mappings();
  }
  EXPECT_LE(mappings(), before + 20);
  EXPECT_TRUE(KillThreadEx(handle));
}

// Catches: a child waited for ever for a lock that a thread of the parent, just ending, had held at the fork.
TEST(Utility, ForkedChildHasThreadsOfItsOwn) {
  void *of_parent = CreateThreadEx(runs_on, nullptr);
  for (int i = 0; i < 600; ++i) {
    ASSERT_NE(CreateThreadEx([](void *) { return 0UL; }, nullptr), nullptr);
    if (i % 3 != 0) continue;
    const pid_t child = fork();
    if (child == 0) {
      alarm(20);
      void *own = CreateThreadEx(runs_on, nullptr);
      _exit(KillThreadEx(of_parent) && own != nullptr && KillThreadEx(own) ? 0 : 1);
    }
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_EQ(status, 0) << "after " << i << " threads";
  }
  EXPECT_TRUE(KillThreadEx(of_parent));
}

}  // namespace
