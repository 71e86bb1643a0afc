// Reporting events. Nothing here allocates or throws, so that a report of a shortage does not make one.
//
//   report_error("schema.type", {path, line, column}, "unknown type ", Quoted{keyword});
//
// A code is a literal of its own in every call; a test compares them with docs/events.md.
// Threads: any. The handler is called at once, so no lock of the library may be held.
#pragma once

#include <charconv>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "quillanest/base/Events.h"

namespace quillanest {

// Where something happened.
struct Place {
  std::string_view name = {};  // a file, "database.table", "main" or "backup"
  int line = 0;
  int column = 0;
};

// A text in quotation marks, cut after 60 bytes, with control characters as '?'.
struct Quoted {
  std::string_view text;
};

// A text of limited length that is written piece by piece; what does not fit is left out.
template <std::size_t kSize>
class FixedText {
 public:
  void clear() noexcept { text_[length_ = 0] = '\0'; }
  void add(std::string_view text) noexcept {
    for (const char c : text) {
      if (length_ + 1 >= kSize) break;
      text_[length_++] = c;
    }
    text_[length_] = '\0';
  }
  void add(Quoted quoted) noexcept {
    constexpr std::size_t kMost = 60;
    add("\"");
    for (const char c : quoted.text.substr(0, kMost)) add(std::string_view(c >= 0 && c < ' ' ? "?" : &c, 1));
    add(quoted.text.size() > kMost ? "...\"" : "\"");
  }
  template <std::integral Number>
  void add(Number number) noexcept {
    char digits[24];
    const auto [end, error] = std::to_chars(digits, digits + sizeof digits, number);
    add(std::string_view(digits, static_cast<std::size_t>(end - digits)));
  }
  [[nodiscard]] const char *c_str() const noexcept { return text_; }
  [[nodiscard]] std::string_view view() const noexcept { return {text_, length_}; }

 private:
  char text_[kSize] = {};
  std::size_t length_ = 0;
};

using Sentence = FixedText<501>;

// Who learns of an event: last_failure() of the thread alone, or the handler as well.
enum class To : std::uint8_t { kThread, kHandler };

void report(Severity severity, const char *code, const Place &place, const Sentence &sentence,
            To to = To::kHandler) noexcept;

template <class... Pieces>
void report_as(Severity severity, const char *code, const Place &place, const Pieces &...pieces) noexcept {
  Sentence sentence;
  (sentence.add(pieces), ...);
  report(severity, code, place, sentence);
}
template <class... Pieces>
void report_error(const char *code, const Place &place, const Pieces &...pieces) noexcept {
  report_as(Severity::kError, code, place, pieces...);
}
template <class... Pieces>
void report_warning(const char *code, const Place &place, const Pieces &...pieces) noexcept {
  report_as(Severity::kWarning, code, place, pieces...);
}
template <class... Pieces>
void report_note(const char *code, const Place &place, const Pieces &...pieces) noexcept {
  report_as(Severity::kNote, code, place, pieces...);
}

// An operation whose failure last_failure() gives. The outermost one of a thread forgets the failure before.
class Operation {
 public:
  Operation() noexcept;
  ~Operation();
  Operation(const Operation &) = delete;
  Operation &operator=(const Operation &) = delete;

  // Reports a failure without a reason of its own, for an operation that fails and has reported nothing: false, and as
  // it is for any other result.
  bool explain(bool result, const char *code, const Place &place, std::string_view sentence) noexcept;
};

// Whether the present outermost operation of this thread has reported an error.
[[nodiscard]] bool has_reported_error() noexcept;

}  // namespace quillanest
