// Attempts to connect run on threads of the library, which a silent server keeps.
#include <array>
#include <barrier>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <memory>
#include <thread>
#include <unistd.h>

#include "tests/store/ConnectionFixture.h"
#include "tests/support/Child.h"
#include "tests/support/Recorder.h"
#include "tests/support/SilentServer.h"

namespace {

namespace fs = std::filesystem;

std::ptrdiff_t threads() { return std::distance(fs::directory_iterator("/proc/self/task"), fs::directory_iterator()); }

// Catches: a handler of the program that runs on a thread of the library; a thread that stays without its connection.
TEST(Connection, ThreadsTakeNoSignalsAndEndWithTheirConnections) {
  const std::ptrdiff_t before = threads();
  ConnectionFixture fixture(ServerStore().settings("MainDB") + kNoBackup);
  ASSERT_EQ(fixture.connection.Open(false), 1);
  ASSERT_EQ(threads(), before + 1);
  for (const auto &thread : fs::directory_iterator("/proc/self/task")) {
    if (thread.path().filename() == std::to_string(getpid())) continue;
    std::ifstream status(thread.path() / "status");
    const std::string text((std::istreambuf_iterator<char>(status)), std::istreambuf_iterator<char>());
    // All but the two that the C library keeps for itself, and the two that cannot be blocked.
    EXPECT_NE(text.find("SigBlk:\tfffffffe7ffbfeff"), std::string::npos) << text;
  }
  (void)fixture.connection.Close();
  EXPECT_EQ(threads(), before);
}

// Catches: attempts at a silent server that pile up, in a fork too, or keep other servers from being tried; an event
// for each attempt that is not even made.
TEST(Connection, AttemptsAtASilentServerDoNotPileUp) {
  const std::ptrdiff_t before = threads();
  SilentServer silent;
  ConnectionFixture fixture(server("MainDB", 3, local(silent.port())) + kNoBackup);
  {
    const Recorder events("");
    for (int i = 0; i < 10; ++i) {
      SCOPED_TRACE(i);
      EXPECT_LT(fixture.open(false), i < 3 ? 4 : kAtOnce);
      EXPECT_EQ(fixture.mask, 0);
      EXPECT_STRNE(quillanest::last_failure(), "");
    }
    ASSERT_EQ(events.events.size(), 4U) << events.text();
    EXPECT_EQ(events.events[2], "warning main store.open: the database cannot be opened: the server does not answer");
    EXPECT_NE(events.events[3].find("tried only once a minute"), std::string::npos) << events.events[3];
  }
  EXPECT_EQ(silent.connections(), 3);
  EXPECT_LE(threads(), before + 3);
  // The threads that hang are not a child's: its attempts are its own.
  EXPECT_EQ(in_fork([&] {
              alarm(60);
              (void)fixture.open(false);
              return silent.connections();
            }),
            1);
  // Other servers are tried as before.
  for (const int type : {0, 3, 7}) {
    SCOPED_TRACE(type);
    SilentServer other;
    fixture.configure(server("MainDB", type, local(other.port())) + kNoBackup);
    EXPECT_LT(fixture.open(false), 4);
    EXPECT_EQ(fixture.mask, 0);
    EXPECT_EQ(other.connections(), 1);
  }
}

// Catches: attempts a moment from their end that are taken for hanging ones, so that a save goes nowhere.
TEST(Connection, ManyThreadsConnectAtOnce) {
  const ServerStore store;
  const std::string lines = store.settings("MainDB") + kNoBackup;
  std::array<std::unique_ptr<ConnectionFixture>, 8> fixtures;
  for (auto &fixture : fixtures) fixture = std::make_unique<ConnectionFixture>(lines);
  std::barrier together(static_cast<std::ptrdiff_t>(fixtures.size()));
  std::vector<std::thread> threads;
  for (auto &fixture : fixtures) {
    threads.emplace_back([&] {
      together.arrive_and_wait();
      fixture->open(false);
    });
  }
  for (std::thread &thread : threads) thread.join();
  for (const auto &fixture : fixtures) EXPECT_EQ(fixture->mask, 1);
}

}  // namespace
