#include <array>
#include <atomic>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>

#include "quillanest/platform/NamedMutex.h"
#include "tests/support/Child.h"
#include "tests/support/Mutexes.h"
#include "tests/support/TestRoot.h"

namespace {

using namespace quillanest;

constexpr int kLong = 20'000;  // milliseconds; only a fault waits that long

// A handle that is closed at the end of its scope.
class Opened {
 public:
  explicit Opened(std::string_view name) : handle_(open_mutex(name)) {}
  ~Opened() { close_mutex(handle_); }
  Opened(const Opened &) = delete;
  Opened &operator=(const Opened &) = delete;
  operator MutexHandle() const { return handle_; }

 private:
  MutexHandle handle_;
};

// What another thread gets that tries to take the mutex; it gives the mutex back.
int tried_by_other(MutexHandle handle, int timeout_ms = 0) {
  return on_other_thread([=] {
    const int result = wait_mutex(handle, timeout_ms);
    if (result == kWaitSignalled || result == kWaitAbandoned) release_mutex(handle);
    return result;
  });
}

int hold_mutex(const std::vector<std::string> &arguments) {
  const MutexHandle handle = open_mutex(arguments[0]);
  (void)wait_mutex(handle, -1);
  (void)wait_mutex(handle, -1);
  say("held");
  wait_for_the_end();
}
const RegisterChild kHolder{"hold_mutex", hold_mutex};

constexpr int kSteps = 20'000;

// Counts up in a mapped file with separate loads and stores, which lose counts unless the mutex excludes the others.
bool count_up(const std::string &name, const std::string &path) {
  const int descriptor = open(path.c_str(), O_RDWR);
  void *address = mmap(nullptr, sizeof(int), PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0);
  const MutexHandle handle = open_mutex(name);
  if (address == MAP_FAILED || handle == kNoMutex) return false;
  std::atomic<int> &counter = *static_cast<std::atomic<int> *>(address);
  for (int i = 0; i < kSteps; ++i) {
    if (wait_mutex(handle, -1) != kWaitSignalled) return false;
    counter.store(counter.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
    if (!release_mutex(handle)) return false;
  }
  return true;
}
const RegisterChild kCounter{
    "count_up", [](const std::vector<std::string> &arguments) { return count_up(arguments[0], arguments[1]) ? 0 : 1; }};

TEST(NamedMutex, OwnerTakesItAgainAndReleasesItAsOften) {
  const MutexName name;
  const Opened mutex(name.text());
  const Opened same(name.text());
  for (int timeout : {-1, 0, 50}) EXPECT_EQ(wait_mutex(mutex, timeout), 0) << timeout;
  EXPECT_TRUE(release_mutex(same));
  EXPECT_TRUE(release_mutex(mutex));
  for (int timeout : {0, 1, 50}) EXPECT_EQ(tried_by_other(same, timeout), 0x102) << timeout;
  EXPECT_TRUE(release_mutex(mutex));
  EXPECT_EQ(tried_by_other(same), 0);
  EXPECT_FALSE(release_mutex(mutex));
}

TEST(NamedMutex, OnlyTheOwningThreadReleases) {
  const MutexName name;
  const Opened mutex(name.text());
  EXPECT_FALSE(release_mutex(mutex));
  ASSERT_EQ(wait_mutex(mutex, 0), 0);
  EXPECT_FALSE(on_other_thread([&] { return release_mutex(mutex); }));
  EXPECT_EQ(tried_by_other(mutex), 0x102);
  EXPECT_TRUE(release_mutex(mutex));
}

TEST(NamedMutex, ClosedHandleFailsAndNeverMeansAnotherMutex) {
  const MutexName name, other;
  const MutexHandle closed = open_mutex(name.text());
  close_mutex(closed);
  for (int round = 0; round < 5'000; ++round) {
    const Opened reused(other.text());
    ASSERT_NE(reused, closed);
    ASSERT_EQ(wait_mutex(closed, 0), -1) << round;
    ASSERT_FALSE(release_mutex(closed)) << round;
    close_mutex(closed);
    ASSERT_EQ(wait_mutex(reused, 0), 0) << "a second close of the old handle closed the new one, round " << round;
    ASSERT_TRUE(release_mutex(reused));
  }
  for (const MutexHandle invalid : std::array<MutexHandle, 4>{0, 1, 0x7FFFFFFF, ~MutexHandle{0}}) {
    EXPECT_EQ(wait_mutex(invalid, 0), -1) << invalid;
    EXPECT_FALSE(release_mutex(invalid)) << invalid;
    close_mutex(invalid);
  }
}

TEST(NamedMutex, ClosingDoesNotRelease) {
  const MutexName name;
  {
    const Opened mutex(name.text());
    ASSERT_EQ(wait_mutex(mutex, 0), 0);
  }
  const Opened again(name.text());
  EXPECT_EQ(tried_by_other(again), 0x102);
  EXPECT_TRUE(release_mutex(again));
  EXPECT_EQ(tried_by_other(again), 0);
}

// The names are fixed, so other runs of this test may hold them for a moment; the order of taking them excludes that
// two runs wait for each other.
TEST(NamedMutex, DifferentTextsAreDifferentMutexes) {
  const std::string stem(299, 'x');
  const std::vector<std::string> names{
      "",      "qt a", "qt A",     "qt/a",     "qt%2fa",   "qt%20a",     "../qt a",         "/",
      "/qt a", ".",    stem + "y", stem + "z", stem + "/", stem + "y/y", "qt \xC4\xE3\xFF", "qt \xC4\xE3\xFE"};
  for (std::size_t i = 0; i < names.size(); ++i) {
    const Opened held(names[i]);
    ASSERT_EQ(wait_mutex(held, kLong) & ~0x80, 0) << names[i];
    for (std::size_t j = i + 1; j < names.size(); ++j) {
      ASSERT_EQ(tried_by_other(Opened(names[j]), kLong) & ~0x80, 0) << names[i] << " and " << names[j];
    }
    EXPECT_EQ(tried_by_other(Opened(names[i])), 0x102) << names[i];
    EXPECT_TRUE(release_mutex(held));
  }
}

// Afterwards the mutex is in normal use: the new owner took it once, not as often as the dead one.
void expect_abandoned_then_normal(MutexHandle mutex) {
  EXPECT_EQ(wait_mutex(mutex, kLong), 0x80);
  EXPECT_EQ(tried_by_other(mutex), 0x102);
  EXPECT_TRUE(release_mutex(mutex));
  EXPECT_FALSE(release_mutex(mutex));
  EXPECT_EQ(tried_by_other(mutex), 0);
  EXPECT_EQ(wait_mutex(mutex, 0), 0);
  EXPECT_TRUE(release_mutex(mutex));
}

TEST(NamedMutex, DeathOfTheOwningThreadAbandonsIt) {
  const MutexName name;
  const Opened mutex(name.text());
  ASSERT_EQ(on_other_thread([&] { return wait_mutex(mutex, 0) | wait_mutex(mutex, 0); }), 0);
  expect_abandoned_then_normal(mutex);
}

TEST(NamedMutex, DeathOfTheOwningProcessAbandonsItForThoseWhoWait) {
  const MutexName name;
  const Opened mutex(name.text());
  Child holder("hold_mutex", {name.text()});
  ASSERT_EQ(holder.hear(), "held");
  EXPECT_EQ(wait_mutex(mutex, 0), 0x102);
  std::vector<int> waited;
  std::thread waiter([&] {
    for (int timeout : {kLong, 0}) waited.push_back(wait_mutex(mutex, timeout));  // and ends, an owner of two takes
  });
  holder.kill();
  waiter.join();
  EXPECT_EQ(waited, (std::vector<int>{0x80, 0}));
  expect_abandoned_then_normal(mutex);
}

TEST(NamedMutex, ProcessesExcludeEachOther) {
  const MutexName name;
  const TestRoot root;
  const std::string path = root.write("counter", std::string(sizeof(int), '\0'));
  Child first("count_up", {name.text(), path});
  Child second("count_up", {name.text(), path});
  EXPECT_TRUE(count_up(name.text(), path));
  EXPECT_EQ(first.wait(), 0);
  EXPECT_EQ(second.wait(), 0);
  EXPECT_EQ(root.read("counter"), std::string("\x60\xEA\0\0", 4));  // 60000
}

}  // namespace
