// Runs a scenario once for every call that can fail, with that call failing, and asks the scenario what it left.
//
// A scenario has ready(), which prepares the run; run(), the work under faults, which allocates nothing of its own; and
// verdict(clean), what is wrong with the results and with what the work left, empty if nothing is. `clean` says that
// no call failed. The second run, on what the first one left, shows whether a failure has a lasting effect.
#pragma once

#include <chrono>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iostream>
#include <limits>
#include <sstream>
#include <string>
#include <thread>

#include "quillanest/base/Events.h"
#include "quillanest/shm/Utility.h"
#include "tests/faults/Faults.h"

namespace faults {

// What must not pile up: descriptors, mappings of files, blocks of memory.
struct Footprint {
  long descriptors = 0;
  long mappings = 0;
  long blocks = 0;

  static Footprint now() {
    Footprint found;
    {
      for ([[maybe_unused]] const auto &entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        ++found.descriptors;
      }
      std::ifstream maps("/proc/self/maps");
      for (std::string line; std::getline(maps, line);) {
        found.mappings += line.find("/memfd:") != std::string::npos || line.find("/quillanest-") != std::string::npos;
      }
    }
    found.blocks = live_blocks();
    return found;
  }
  Footprint operator-(const Footprint &other) const {
    return {descriptors - other.descriptors, mappings - other.mappings, blocks - other.blocks};
  }
  bool operator==(const Footprint &) const = default;
  [[nodiscard]] std::string text() const {
    return std::to_string(descriptors) + " descriptors, " + std::to_string(mappings) + " mappings, " +
           std::to_string(blocks) + " blocks";
  }
};

// What is wrong with a failure that gives no reason.
inline std::string reason_missing(bool succeeded) {
  return succeeded || *quillanest::last_failure() != '\0' ? "" : "no reason ";
}

struct Limits {
  long calls = 400;  // of one row that are made to fail, spread over all its calls
  long any = 400;    // of all rows together
  bool only_odbc = false;
};

template <class Scenario>
class FailingRuns {
 public:
  FailingRuns(Scenario &scenario, Limits limits) : scenario_(scenario), limits_(limits) {}

  // `rows`: what the scenario must have called, so that a row whose wrapping is lost does not go unnoticed.
  void run(const std::string &rows) {
    put_threads_away();
    for (int i = 0; i < 4; ++i) {  // what is made on first use is there afterwards
      const Footprint before = Footprint::now();
      ASSERT_EQ(attempt({}, true) + attempt({}, true), "");
      growth_ = Footprint::now() - before;
    }
    std::istringstream names(rows);
    for (std::string name; names >> name;) EXPECT_GT(calls(name.c_str()), 0) << name;
    for (int row = kAny; row < static_cast<int>(faults::rows().size()); ++row) fail_row(row);
    std::cout << failures_ << " failures injected\n";
  }

 private:
  void fail_row(int row) {
    if (row == kAny) return fail_calls({}), fail_calls({.onward = true});
    const std::string name = faults::rows()[static_cast<std::size_t>(row)].name;
    if (limits_.only_odbc && name.find("SQL") == std::string::npos && name.find("thread") == std::string::npos) return;
    for (const int error : faults::rows()[static_cast<std::size_t>(row)].errors) {
      if (error == 0) break;
      fail_calls({row, error, 0, false});
      if (error != EINTR) fail_calls({row, error, 0, true});  // an interrupted call is repeated until it is not
    }
  }

  void fail_calls(Plan plan) {
    (void)attempt({}, true);
    const long count = calls(plan.row);
    const long most = plan.row == kAny ? limits_.any : limits_.calls;
    const long step = std::max(1L, count / most);
    for (plan.nth = 1; plan.nth <= count; plan.nth += step) fail(plan);
  }

  void fail(const Plan &plan) {
    const Footprint before = Footprint::now();
    std::string complaint = attempt(plan, plan.error == EINTR);
    if (failed_ == 0) return;  // this time there were fewer calls
    ++failures_;
    const std::string after = attempt({}, true);
    if (!after.empty()) complaint += " AFTERWARDS " + after;
    if (complaint.empty()) complaint = growth_since(before);  // a complaint takes blocks itself
    if (complaint.empty() || ++complaints_ > 25) return;
    ADD_FAILURE() << plan.text() << ": " << complaint;
  }

  std::string attempt(const Plan &plan, bool clean) {
    scenario_.ready();
    std::string complaint;
    try {
      const Armed armed(plan);
      scenario_.run();
    } catch (const std::exception &error) {
      complaint = std::string("an exception leaves the library: ") + error.what() + ". ";
    }
    failed_ = failed();
    return complaint + scenario_.verdict(clean);
  }

  static void put_threads_away() { (void)KillThreadEx(reinterpret_cast<void *>(1)); }  // those that have ended

  // Threads that the library leaves may take a moment to end.
  std::string growth_since(const Footprint &before) const {
    Footprint growth;
    for (int i = 0; i < 200; ++i) {
      put_threads_away();
      growth = Footprint::now() - before;
      // Less than usual is what a thread gave back that was still on its way out when the measuring began.
      const bool grown = growth.descriptors > growth_.descriptors || growth.mappings > growth_.mappings ||
                         growth.blocks > growth_.blocks;
      if (!grown) return {};
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return "grown by " + growth.text() + " instead of " + growth_.text();
  }

  Scenario &scenario_;
  Limits limits_;
  Footprint growth_;
  long failed_ = 0;
  long failures_ = 0;
  long complaints_ = 0;
};

template <class Scenario>
void fail_each_call(Scenario &&scenario, const std::string &rows, Limits limits = {}) {
  FailingRuns<std::remove_reference_t<Scenario>>(scenario, limits).run(rows);
}

}  // namespace faults

class Faults : public testing::Test {
 protected:
  // In memory: thousands of saves would wait for a disk. A handler takes the events, which must be whole.
  void SetUp() override {
    setenv("TMPDIR", "/dev/shm", 1);
    quillanest::set_event_handler(
        [](const quillanest::Event &event, void *broken) {
          if (*event.code == '\0' || *event.text == '\0') *static_cast<bool *>(broken) = true;
        },
        &broken_);
  }
  void TearDown() override {
    quillanest::set_event_handler(nullptr, nullptr);
    EXPECT_FALSE(broken_) << "an event without its code or sentence";
  }

 private:
  bool broken_ = false;
};
