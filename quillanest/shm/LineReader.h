// The lines of a text, as a reader with a fixed line buffer returns them.
//
// A line longer than the buffer comes in pieces, each of which counts as a line. A piece ends at a zero byte; the rest
// of the line is dropped. Line ends are LF or CR LF; the piece that reaches one ends with LF.
// Lifetime: pieces point into the text, which is changed in place (a CR before the LF is removed).
#pragma once

#include <cstddef>
#include <span>
#include <string_view>

namespace quillanest {

class LineReader {
 public:
  // `limit` is the length of a piece at most, in characters with the line end; at least 1.
  LineReader(std::span<char> text, std::size_t limit);

  // Whether the text holds a zero byte.
  [[nodiscard]] bool has_zeros() const noexcept { return has_zeros_; }

  // Fetches the next piece into `piece`. False, with `piece` untouched, at the end of the text.
  bool next(std::string_view &piece);

  // True once a fetch has reached the end: one that failed, or one whose piece has no line end.
  [[nodiscard]] bool at_end() const noexcept { return at_end_; }

 private:
  [[nodiscard]] std::string_view take_line();

  std::span<char> rest_;
  std::size_t limit_;
  bool has_zeros_;
  bool at_end_ = false;
};

}  // namespace quillanest
