// The border between code that may throw and the published operations, which do not.
#pragma once

#include <new>
#include <stdexcept>
#include <string_view>
#include <system_error>

#include "quillanest/base/Report.h"

namespace quillanest {

// A service that the library depends on has failed, and the caller can do nothing about it.
class ServiceFailure : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The result of work(), or `neutral` if it runs out of memory or of another resource of the system, or if a service
// fails; the reason is reported. Every other exception passes: clients are meant to see an error of the data-access
// layer, and anything else is a fault of the library that a neutral result would hide.
template <class Result, class Work>
[[nodiscard]] Result neutral_on_failure(Result neutral, Work work) {
  try {
    return work();
  } catch (const std::bad_alloc &) {
    report_error("system.memory", {}, "the system is out of memory");
  } catch (const std::length_error &) {
    report_error("system.memory", {}, "a text would be longer than memory can hold");
  } catch (const std::system_error &error) {
    report_error("system.resource", {}, "the system refuses: ", std::string_view(error.what()));
  } catch (const ServiceFailure &failure) {
    report_error("system.service", {}, std::string_view(failure.what()));
  }
  return neutral;
}

}  // namespace quillanest
