// The text of a data file on its way to the disk.
#pragma once

#include <cstddef>
#include <memory>
#include <string_view>

#include "quillanest/kernel/ValueText.h"
#include "quillanest/platform/TextFile.h"

namespace quillanest {

inline constexpr std::string_view kLineEnd = "\r\n";

// Collects text and passes it to the file in large pieces.
class FileOutput {
 public:
  explicit FileOutput(FileReplacement &file) : file_(file), bytes_(std::make_unique_for_overwrite<char[]>(kSize)) {}

  void append(std::string_view text) {
    if (text.size() > kSize - used_) flush();
    if (text.size() > kSize) {
      (void)file_.write(text);
      return;
    }
    text.copy(bytes_.get() + used_, text.size());
    used_ += text.size();
  }

  // Appends a text value.
  // By design [TextIsFormat]: "%%" in a value is written as one "%"; every other "%" is written unchanged.
  void append_value(std::string_view text) {
    for (std::size_t at = text.find("%%"); at != std::string_view::npos; at = text.find("%%")) {
      append(text.substr(0, at + 1));
      text.remove_prefix(at + 2);
    }
    append(text);
  }

  // Room for the text of a number; use() then keeps the bytes that were written there.
  char *number_room() {
    if (kSize - used_ < kNumberTextMax) flush();
    return bytes_.get() + used_;
  }
  void use(std::size_t size) { used_ += size; }

  void flush() {
    (void)file_.write({bytes_.get(), used_});
    used_ = 0;
  }

 private:
  static constexpr std::size_t kSize = std::size_t{1} << 18;

  FileReplacement &file_;
  std::unique_ptr<char[]> bytes_;
  std::size_t used_ = 0;
};

}  // namespace quillanest
