// Scenarios that run on both engines, alone and as main and backup of each other.
#pragma once

#include <gtest/gtest.h>
#include <ostream>
#include <string>
#include <string_view>

struct Backend {
  const char *name, *slots;  // the slots as StoreImage takes them
};
inline void PrintTo(const Backend &backend, std::ostream *out) { *out << backend.name; }

class StoreScenario : public testing::TestWithParam<Backend> {
 protected:
  static std::string_view slots() { return GetParam().slots; }
};

inline const auto kBackends =
    testing::Values(Backend{"File", "F"}, Backend{"Server", "S"}, Backend{"FileWithServerBackup", "FS"},
                    Backend{"ServerWithFileBackup", "SF"});
inline std::string name_of_backend(const testing::TestParamInfo<Backend> &test) { return test.param.name; }
