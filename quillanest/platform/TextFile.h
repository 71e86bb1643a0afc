// Whole files: reading one into memory, replacing one so that a crash cannot destroy it.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace quillanest {

// The bytes of one file, writable in place.
class FileText {
 public:
  FileText() = default;
  explicit FileText(std::size_t size);

  [[nodiscard]] std::span<char> chars() noexcept { return {bytes_.get(), size_}; }
  [[nodiscard]] std::string_view view() const noexcept { return {bytes_.get(), size_}; }
  void shrink(std::size_t size) noexcept { size_ = size < size_ ? size : size_; }

 private:
  using Free = void (*)(char *bytes) noexcept;  // small and large files may lie in different memory

  std::unique_ptr<char, Free> bytes_{nullptr, nullptr};
  std::size_t size_ = 0;
};

// The whole regular file; nothing if it does not exist, is not a regular file (a folder, a pipe) or may not be read.
// Any other failure to open it or to read it to its end, and a file that does not fit into memory, raise
// std::system_error or std::bad_alloc: such a file must not be mistaken for a missing one.
[[nodiscard]] std::optional<FileText> read_file(const std::string &path);

// The text without the byte order mark that some editors put before texts in UTF-8.
template <class Text>
[[nodiscard]] Text without_byte_order_mark(Text text) {
  constexpr std::string_view kMark = "\xEF\xBB\xBF";
  const bool marked = std::string_view(text.data(), text.size()).starts_with(kMark);
  return marked ? Text(text.data() + kMark.size(), text.size() - kMark.size()) : text;
}

// Appends bytes at once to a file, which is made for its owner alone if it does not exist. No link is followed, nothing
// is allocated, and a failure is silent.
void append_to_file(const char *path, std::string_view bytes) noexcept;

// The size of the file in bytes; nothing if the path names none.
[[nodiscard]] std::optional<std::int64_t> file_size(const std::string &path);

// The name of a file in the same folder that differs from a path's only in the case of ASCII letters; empty if there is
// none, or the folder cannot be looked at.
[[nodiscard]] std::string name_in_other_case(const std::string &path);

// A number that changes when a file is changed or replaced; 0 if there is no such file.
[[nodiscard]] std::uint64_t file_stamp(const std::string &path);

// Whether a file exists, belongs to the user of the process and grants other users nothing.
[[nodiscard]] bool is_private_file(const std::string &path);

// True if the path names an existing folder.
[[nodiscard]] bool is_folder(const std::string &path);

// Who may read a file that did not exist before its first content.
enum class NewFile {
  kByUmask,  // as the umask of the process says
  kSecret    // its owner alone
};

// A new content for a file, written beside it and renamed over it by commit(): until then, and after any failure, the
// former file is unchanged.
//
// Lifetime: an object that is destroyed without a commit removes what it wrote. A process that is killed in between
// leaves one file, the target's name with kSuffix, which the next replacement of the same target takes over. Only its
// owner may open it until it becomes the target. If that name is taken (by a file of another user or with a second
// name, a link, a folder), or if a left-over that others may open stays locked for kLongestWait, the new content gets a
// name with six random letters more instead. Such a file stays for good if the process is killed. Threads and
// processes: replacements of one target wait for one another. One object belongs to one thread.
class FileReplacement {
 public:
  static constexpr const char *kSuffix = ".saving";
  static constexpr std::chrono::seconds kLongestWait{10};

  // Begins a new content for `path`. is_open() says whether the system allows it: not for a folder, for a file that may
  // not be read or not be written, or in a folder where no file can be made. An existing file keeps its permissions,
  // group and, if the system allows it, owner.
  explicit FileReplacement(const std::string &path, NewFile new_file = NewFile::kByUmask);
  ~FileReplacement();
  FileReplacement(const FileReplacement &) = delete;
  FileReplacement &operator=(const FileReplacement &) = delete;

  [[nodiscard]] bool is_open() const noexcept { return native_ >= 0; }

  // Appends bytes. False if the system could not write all of them; a later commit() is then false too.
  bool write(std::string_view bytes);

  // Puts the new content in place and on the disk. False if anything failed; the former file is then kept.
  [[nodiscard]] bool commit();

 private:
  void abandon() noexcept;
  [[nodiscard]] int descriptor() const noexcept { return static_cast<int>(native_); }

  std::string target_;
  std::string temporary_;
  NewFile new_file_;
  std::intptr_t native_ = -1;  // the open file as the system names it; negative: none
  bool failed_ = false;
};

}  // namespace quillanest
