// The keys and values of one record line of a schema file.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

#include "quillanest/shm/NumberText.h"

namespace quillanest {

// Takes the keys and values of one record line from left to right. A blank in a key matches any run of white space.
class RecordLine {
 public:
  explicit RecordLine(std::string_view line) : rest_(line), size_(line.size()) {}

  // The run of non-blank characters after `key`.
  [[nodiscard]] std::string_view text(std::string_view key) {
    take_key(key);
    skip_blanks(rest_);
    const std::size_t size = std::min(rest_.find_first_of(" \t\n\v\f\r"), rest_.size());
    require(size > 0);
    const std::string_view value = rest_.substr(0, size);
    rest_.remove_prefix(size);
    return value;
  }

  // The decimal number after `key`.
  [[nodiscard]] std::uint32_t number(std::string_view key) {
    take_key(key);
    const std::optional<std::uint32_t> value = scan_int(rest_);
    require(value.has_value());
    return value.value_or(0);
  }

  // The signed decimal number after `key`.
  [[nodiscard]] int integer(std::string_view key) { return static_cast<int>(number(key)); }

  // The first key that is missing or has no value; empty if there is none. And its column, from 1.
  [[nodiscard]] std::string_view missing() const noexcept { return missing_; }
  [[nodiscard]] int column() const noexcept { return column_; }

  // The column, from 1, of the value that was taken last.
  [[nodiscard]] int last_column() const noexcept { return last_column_; }

 private:
  void take_key(std::string_view key) {
    if (key.starts_with(' ')) {
      skip_blanks(rest_);
      key.remove_prefix(1);
    }
    last_key_ = key;
    last_column_ = column_here();
    require(rest_.starts_with(key));
    rest_.remove_prefix(std::min(key.size(), rest_.size()));
  }

  // Notes the first of the things that must be there and is not.
  void require(bool is_there) noexcept {
    if (is_there || !missing_.empty()) return;
    missing_ = last_key_;
    column_ = last_column_;
  }

  [[nodiscard]] int column_here() const noexcept { return static_cast<int>(size_ - rest_.size()) + 1; }

  std::string_view rest_;
  std::size_t size_;
  std::string_view last_key_;
  std::string_view missing_;
  int last_column_ = 1;
  int column_ = 0;
};

}  // namespace quillanest
