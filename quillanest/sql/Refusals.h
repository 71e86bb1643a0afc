// Statements that a store has refused: the first reasons, and how many there were.
//
// Nothing here allocates. Threads: one object belongs to one thread.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "quillanest/base/Report.h"

namespace quillanest {

using Reason = FixedText<240>;

// The first line of a driver's text, since servers repeat values of rows in the lines after it. A part in quotes that
// is also in `values` is a value, and comes out as "...".
[[nodiscard]] Reason reason_of(std::string_view driver_text, std::string_view values = {}) noexcept;

class Refusals {
 public:
  struct Refusal {
    std::int64_t tag = 0;  // what the sender of the statement knows it by
    Reason reason;
  };
  static constexpr std::size_t kKept = 3;

  void clear() noexcept { count_ = 0; }
  void add(std::int64_t tag, const Reason &reason) noexcept {
    if (count_ < kKept) kept_[count_] = {tag, reason};
    ++count_;
  }
  void add(const Refusals &others) noexcept {
    for (const Refusal &other : others.first()) add(other.tag, other.reason);
    count_ += others.count_ - others.first().size();
  }

  [[nodiscard]] std::size_t count() const noexcept { return count_; }
  [[nodiscard]] std::span<const Refusal> first() const noexcept {
    return std::span(kept_).first(count_ < kKept ? count_ : kKept);
  }

 private:
  std::array<Refusal, kKept> kept_;
  std::size_t count_ = 0;
};

}  // namespace quillanest
