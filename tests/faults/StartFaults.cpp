// Loading the library, starting an image and stopping it, when a call fails.
#include <filesystem>
#include <optional>
#include <string>
#include <unistd.h>

#include "tests/faults/FailEachCall.h"
#include "tests/faults/Primitives.h"
#include "tests/faults/TextFiles.h"
#include "tests/support/Child.h"

namespace {

// Catches: an image that a failed start leaves, or a start that is true without the data.
struct Start {
  Start() {
    root.configure(kText);
    root.write("conf/key", "secret");
    root.write("schema.txt", schema_text({account_table()}, {{20, "Item", 5, {"ID UINT 4", "Name STRING 16"}}}));
    root.write(kAccountFile, "ID;Name;Level;bModified\r\n1;;100;0\r\n2;;101;0\r\n3;;102;0\r\n");
  }
  void ready() { stop(); }
  void run() {
    manager.emplace();
    started = manager->RtdbManagerInit(false, schema.c_str());
    second.emplace();
    attached = second->AttachShareMemory() == 1;
    found = second->FindTable(20, plant, item) == 1;
  }
  std::string verdict(bool clean) {
    CRtTable account;
    std::string wrong;
    const bool whole = manager->GetSystemTable(account, 10) == 1 && manager->GetRtdbStatus() == 2 &&
                       TwoStateImage::shown(account, kAccountFields) == TwoStateImage::content(1, 0);
    if (started && !whole) wrong += "started without data ";
    wrong += faults::reason_missing(started);
    if (clean && !(started && attached && found && *manager->GetHostName() != 0)) wrong += "not started ";
    stop();
    return wrong;
  }
  void stop() {
    (void)plant.DetachShareMemory();
    second.reset();
    manager.reset();
  }

  TestRoot root;
  const std::string schema = root.path("schema.txt");
  std::optional<CRtdbManager> manager;
  std::optional<CRtdbManager> second;
  CRtDataBase plant;
  CRtTable item;
  bool started = false, attached = false, found = false;
};

// Calls `fails_at` with 1, 2 and so on until it says that there was no such call; it is 0 if the failure of that call
// does no harm, 1 if it does and 2 if there are fewer calls.
template <class FailsAt>
void fail_one_after_the_other(long least, FailsAt fails_at) {
  long nth = 1;
  for (int result = 0; result != 2 && nth < 2000; ++nth) {
    result = fails_at(nth);
    EXPECT_TRUE(result == 0 || result == 2) << "call " << nth << " ends with " << result;
  }
  EXPECT_GT(nth, least);
  std::cout << nth - 2 << " failures injected\n";
}

int result_of(long nth, const std::string &complaint, long failures) {
  if (!complaint.empty()) std::cerr << "call " << nth << ": " << complaint << std::endl;
  return !complaint.empty() ? 1 : failures == 0 ? 2 : 0;
}

// Catches: something made by halves that stays so, and an exception that leaves a call which is not expected to fail.
// The first calls of a process make what lasts as long as it does; here a fork that has called nothing yet makes them.
TEST_F(Faults, FirstCalls) {
  Primitives primitives;
  Start start;  // the second one, whose root counts
  const auto first_calls = [&](long nth) {
    std::string complaint;
    long failures = 0;
    try {
      for (const faults::Plan &plan : {faults::Plan{.nth = nth}, faults::Plan{}}) {
        start.ready();
        primitives.ready();
        {
          const faults::Armed armed(plan);
          primitives.run();
          start.run();
        }
        if (plan.nth != 0) failures = faults::failed();
        complaint += start.verdict(plan.nth == 0) + primitives.verdict(plan.nth == 0);
      }
    } catch (const std::exception &error) {
      complaint = error.what();
    }
    return result_of(nth, complaint, failures);
  };
  fail_one_after_the_other(100, [&](long nth) { return in_fork([&] { return first_calls(nth); }); });
}

// Argument: the call that has failed while the library was loaded. Passwords are part of the work.
int work_after_loading(const std::vector<std::string> &arguments) {
  const long failures = faults::failed();
  Primitives primitives;
  primitives.ready();
  primitives.run();
  std::string complaint = primitives.verdict(true);
  SaveText save;
  save.ready();
  save.run();
  return result_of(std::stol(arguments[0]), complaint + save.verdict(true), failures);
}
const RegisterChild kAfterLoading{"work_after_loading", work_after_loading};

// Catches: what is made by halves, or ends the program, when it is short of something while the library is loaded.
TEST_F(Faults, Loading) {
  fail_one_after_the_other(10, [](long nth) {
    setenv(faults::kLoadingFault, std::to_string(nth).c_str(), 1);
    Child child("work_after_loading", {std::to_string(nth)});
    unsetenv(faults::kLoadingFault);
    return child.wait();
  });
}

TEST_F(Faults, Start) { faults::fail_each_call(Start(), kReading + "memfd_create ftruncate mmap gethostname"); }

// Catches: what a stop allocates, opens or leaves: stopping needs nothing that can be refused.
TEST_F(Faults, Stop) {
  for (int i = 0; i < 3; ++i) {
    const faults::Footprint before = faults::Footprint::now();
    {
      Start scenario;
      scenario.run();
      ASSERT_TRUE(scenario.started && scenario.found);
      const faults::Armed armed({.nth = 1, .onward = true});
      scenario.second->DetachShareMemory();
      scenario.stop();
      EXPECT_EQ(faults::calls(faults::kAny), 0);
    }
    const faults::Footprint left = faults::Footprint::now() - before;
    EXPECT_TRUE(i == 0 || left == faults::Footprint()) << left.text();
  }
}

}  // namespace
