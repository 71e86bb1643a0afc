// Lines of a text as a reader with a fixed line buffer delivers them.
//
// A line longer than the buffer comes in pieces, each of which counts as a line. A piece ends at a zero byte; the rest
// of the line is dropped. Line ends are LF or CR LF and are delivered as LF, as the last character of the piece.
// Lifetime: pieces point into the text, which is changed in place (a CR before the LF goes).
#pragma once

#include <cstddef>
#include <span>
#include <string_view>

namespace quillanest {

class LineReader {
 public:
  // `limit`: characters of a piece at most, the line end included; at least 1.
  LineReader(std::span<char> text, std::size_t limit);

  // Whether the text holds a zero byte.
  [[nodiscard]] bool has_zeros() const noexcept { return has_zeros_; }

  // Fetches the next piece into `piece`. False, with `piece` untouched, at the end of the text.
  bool next(std::string_view &piece);

  // True once a fetch has met the end: after one that failed, and after one whose piece ended without a line end.
  [[nodiscard]] bool at_end() const noexcept { return at_end_; }

 private:
  [[nodiscard]] std::string_view take_line();

  std::span<char> rest_;
  std::size_t limit_;
  bool has_zeros_;
  bool at_end_ = false;
};

}  // namespace quillanest
