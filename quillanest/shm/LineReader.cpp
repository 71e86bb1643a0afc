#include "quillanest/shm/LineReader.h"

#include <algorithm>
#include <cstring>

namespace quillanest {

LineReader::LineReader(std::span<char> text, std::size_t limit)
    : rest_(text), limit_(limit), has_zeros_(!text.empty() && std::memchr(text.data(), 0, text.size()) != nullptr) {}

std::string_view LineReader::take_line() {
  // Searches no further than a piece reaches, with a CR before its line end.
  const std::size_t reach = std::min(rest_.size(), limit_ + 1);
  const auto *found = static_cast<char *>(std::memchr(rest_.data(), '\n', reach));
  if (found == nullptr) {
    if (rest_.size() > limit_) {
      const std::string_view piece(rest_.data(), limit_);
      rest_ = rest_.subspan(limit_);
      return piece;
    }
    // A text of exactly the limit fills the buffer, so the end is not reached yet.
    at_end_ = rest_.size() < limit_;
    const std::string_view piece(rest_.data(), rest_.size());
    rest_ = {};
    return piece;
  }
  auto end = static_cast<std::size_t>(found - rest_.data());
  const std::size_t next = end + 1;
  const bool crlf = end > 0 && rest_[end - 1] == '\r';
  if (crlf) --end;
  if (end + 1 > limit_) {
    const std::string_view piece(rest_.data(), limit_);
    rest_ = rest_.subspan(limit_);
    return piece;
  }
  rest_[end] = '\n';
  const std::string_view piece(rest_.data(), end + 1);
  rest_ = rest_.subspan(next);
  return piece;
}

bool LineReader::next(std::string_view &piece) {
  if (rest_.empty()) {
    at_end_ = true;
    return false;
  }
  piece = take_line();
  if (has_zeros_) piece = piece.substr(0, piece.find('\0'));
  return true;
}

}  // namespace quillanest
