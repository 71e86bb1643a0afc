// What a load met that does not fit the table, or a save that would not come back.
#pragma once

#include <string_view>

#include "quillanest/base/Report.h"

namespace quillanest {

// The first three are reported, then how many there were. Warnings, or errors in the strict mode.
// Lifetime: the place that is given must outlive the object.
class Misfits {
 public:
  Misfits(std::string_view place, bool is_strict) noexcept
      : place_(place), severity_(is_strict ? Severity::kError : Severity::kWarning) {}

  template <class... Pieces>
  void report_misfit(const char *code, int line, const Pieces &...pieces) noexcept {
    if (++count_ <= kReported) report_as(severity_, code, {place_, line}, pieces...);
  }

  [[nodiscard]] std::string_view place() const noexcept { return place_; }

  // Reports the count, once all is looked at. False if there was a misfit and the mode is strict.
  [[nodiscard]] bool allow_all() const noexcept {
    if (count_ > kReported) report_as(severity_, "misfits.count", {place_}, count_, " misfits in all");
    return count_ == 0 || severity_ != Severity::kError;
  }

 private:
  static constexpr int kReported = 3;

  std::string_view place_;
  Severity severity_;
  int count_ = 0;
};

}  // namespace quillanest
