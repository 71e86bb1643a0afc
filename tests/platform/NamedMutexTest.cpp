#include <atomic>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <latch>
#include <set>

#include "quillanest/platform/NamedMutex.h"
#include "quillanest/platform/posix/MutexFolder.h"
#include "tests/support/Child.h"
#include "tests/support/Mutexes.h"
#include "tests/support/TestRoot.h"

namespace {

using namespace quillanest;

constexpr int kLong = 20'000;  // milliseconds; only a fault waits that long

// A handle that is closed at the end of its scope.
struct Opened {
  explicit Opened(std::string_view name) : handle(open_mutex(name)) {}
  ~Opened() { close_mutex(handle); }
  Opened(const Opened &) = delete;
  Opened &operator=(const Opened &) = delete;
  operator MutexHandle() const { return handle; }

  MutexHandle handle;
};

// What another thread gets that tries to take the mutex; it gives the mutex back.
int tried_by_other(MutexHandle handle, int timeout_ms = 0) {
  return on_other_thread([=] {
    const int result = wait_mutex(handle, timeout_ms);
    return release_mutex(handle) ? result & ~0x80 : result;
  });
}

const RegisterChild kHolder{"hold_mutex", [](const std::vector<std::string> &arguments) -> int {
                              const MutexHandle handle = open_mutex(arguments[0]);
                              for (int take = 0; take < 2; ++take) (void)wait_mutex(handle, -1);
                              say("held");
                              wait_for_the_end();
                            }};

TEST(NamedMutex, OnlyTheOwnerTakesItAgainAndReleasesItAsOften) {
  const MutexName name;
  const Opened mutex(name.text()), same(name.text());
  EXPECT_FALSE(release_mutex(mutex));
  for (int timeout : {-1, 0, 50}) EXPECT_EQ(wait_mutex(mutex, timeout), 0) << timeout;
  EXPECT_FALSE(on_other_thread([&] { return release_mutex(mutex); }));
  close_mutex(Opened(name.text()));  // releases nothing
  for (const MutexHandle handle : {same.handle, mutex.handle, same.handle}) {
    for (int timeout : {0, 20}) EXPECT_EQ(tried_by_other(same, timeout), 0x102) << timeout;
    EXPECT_TRUE(release_mutex(handle));
  }
  EXPECT_EQ(tried_by_other(same), 0);
  EXPECT_FALSE(release_mutex(mutex));
}

TEST(NamedMutex, ClosedHandleFailsAndNeverMeansAnotherMutex) {
  const MutexName name, other;
  const MutexHandle closed = open_mutex(name.text());
  close_mutex(closed);
  for (int round = 0; round < 5'000; ++round) {
    const Opened reused(other.text());
    ASSERT_EQ(wait_mutex(reused, 0), 0);
    for (const MutexHandle invalid : {closed, MutexHandle{0}, MutexHandle{1}, ~MutexHandle{0}}) {
      ASSERT_EQ(wait_mutex(invalid, 0), -1) << invalid << " in round " << round;
      ASSERT_FALSE(release_mutex(invalid)) << invalid << " in round " << round;
      close_mutex(invalid);
    }
    ASSERT_TRUE(release_mutex(reused)) << "a second close of the old handle closed the new one, round " << round;
  }
}

// Catches: a name that means another mutex. The names are fixed, so other runs may hold them for a moment; the order of
// taking them excludes that two runs wait for each other.
TEST(NamedMutex, DifferentTextsAreDifferentMutexes) {
  const std::string stem(299, 'x');
  const std::vector<std::string> names{"",  "qt a", "qt A",     "qt/a",     "qt%2fa",   "qt%20a",      "../qt a",
                                       "/", ".",    stem + "y", stem + "z", stem + "/", "qt \xC4\xFF", "qt \xC4\xFE"};
  for (std::size_t i = 0; i < names.size(); ++i) {
    const Opened held(names[i]);
    ASSERT_EQ(wait_mutex(held, kLong) & ~0x80, 0) << names[i];
    for (std::size_t j = i + 1; j < names.size(); ++j) {
      ASSERT_EQ(tried_by_other(Opened(names[j]), kLong), 0) << names[i] << " and " << names[j];
    }
    EXPECT_EQ(tried_by_other(Opened(names[i])), 0x102) << names[i];
    EXPECT_TRUE(release_mutex(held));
  }
}

TEST(NamedMutex, DeathOfTheOwnerAbandonsItForThoseWhoWait) {
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
  for (const int result : {0x80, 0}) {  // the new owner took it once, not as often as the dead one
    EXPECT_EQ(wait_mutex(mutex, kLong), result);
    EXPECT_EQ(tried_by_other(mutex), 0x102);
    EXPECT_TRUE(release_mutex(mutex));
    EXPECT_FALSE(release_mutex(mutex));
    EXPECT_EQ(tried_by_other(mutex), 0);
  }
}

// What this process maps of the mutex's file.
std::string path_of(const MutexName &name) {
  std::ifstream maps("/proc/self/maps");
  std::string line;
  while (std::getline(maps, line) && line.find("/n" + name.text() + '.') == std::string::npos) {
  }
  return line.substr(line.find('/'));
}

const RegisterChild kOpener{"open_mutex", [](const std::vector<std::string> &arguments) -> int {
                              const MutexHandle handle = open_mutex(arguments[0]);
                              say(handle == kNoMutex ? "refused" : std::to_string(wait_mutex(handle, 0)));
                              return 0;
                            }};

// Catches: a file of another layout was made anew while its mutex was held. One that was never finished is made anew.
TEST(NamedMutex, FileThatIsNoMutexOfThisBuildIsLeftAlone) {
  const struct {
    std::string start;
    std::size_t size;
    const char *answer;
  } rows[] = {
      {"", 0, "0"},
      {"half", 4, "0"},
      {std::string(8, '\0'), 100, "0"},
      {std::string(8, '\x30'), 100, "refused"},
      {std::string(7, '\0') + 'x', 100, "refused"},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(testing::PrintToString(row.start));
    const MutexName name;
    const Opened held(name.text());
    EXPECT_EQ(wait_mutex(held, 0), 0);
    EXPECT_EQ(Child("open_mutex", {name.text()}).hear(), "258");
    const std::string path = path_of(name);
    std::ofstream(path, std::ios::in | std::ios::out) << row.start;
    if (row.size < 100) std::filesystem::resize_file(path, row.size);
    EXPECT_EQ(Child("open_mutex", {name.text()}).hear(), row.answer);
    EXPECT_EQ(release_mutex(held), row.answer == std::string("refused"));
  }
}

// Catches: processes of one user that lock in different folders while another user makes and removes the plain one.
TEST(MutexFolder, AllAgreeWhateverHappensToThePlainName) {
  constexpr int kThreads = 6;
  const TestRoot root;
  for (int round = 0; round < 100; ++round) {
    const std::string plain = root.path(std::to_string(round));
    std::mutex mutex;
    std::set<std::string> folders;
    std::atomic<int> running = kThreads;
    std::latch begin(kThreads + 1);
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
      threads.emplace_back([&] {
        begin.arrive_and_wait();
        for (int look = 0; look < 5; ++look) {
          const std::string folder = mutex_folder(plain);
          const std::lock_guard lock(mutex);
          folders.insert(folder);
        }
        --running;
      });
    }
    threads.emplace_back([&] {  // a file counts as another user's folder does
      begin.arrive_and_wait();
      while (running > 0) {
        std::ofstream(plain, std::ios::app).close();
        (void)unlink(plain.c_str());
      }
    });
    for (std::thread &thread : threads) thread.join();
    ASSERT_EQ(folders.size(), 1U) << testing::PrintToString(folders);
  }
}

// Catches: a closed handle whose slot is not used again, so that a program that edits long enough has none left.
TEST(NamedMutex, HandlesAreUsedAgain) {
  constexpr int kMoreThanThereAre = 4'300'000;
  for (int i = 0; i < kMoreThanThereAre; ++i) {
    const quillanest::MutexHandle handle = quillanest::open_mutex("qn handles");
    ASSERT_NE(handle, quillanest::kNoMutex) << i;
    quillanest::close_mutex(handle);
  }
}

}  // namespace
