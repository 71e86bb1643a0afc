// Reading files; FileReplacement.cpp replaces them.
#include "quillanest/platform/TextFile.h"

#include <algorithm>
#include <array>
#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <memory>
#include <new>
#include <sys/mman.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

#include "quillanest/base/Text.h"
#include "quillanest/platform/FileSizeSignal.h"
#include "quillanest/platform/Path.h"
#include "quillanest/platform/posix/Descriptor.h"

namespace quillanest {
namespace {

struct CloseFolder {
  void operator()(DIR *folder) const noexcept { closedir(folder); }
};

}  // namespace

// Large files are read into large pages if the system has them: making small ones costs more than reading into them.
FileText::FileText(std::size_t size) : size_(size) {
  constexpr std::size_t kLarge = std::size_t{4} << 20;
  constexpr std::align_val_t kPage{4096};
  if (size < kLarge) {
    bytes_ = {static_cast<char *>(::operator new(std::max<std::size_t>(size, 1))),
              [](char *bytes) noexcept { ::operator delete(bytes); }};
    return;
  }
  bytes_ = {static_cast<char *>(::operator new(size, kPage)),
            [](char *bytes) noexcept { ::operator delete(bytes, kPage); }};
  (void)madvise(bytes_.get(), size, MADV_HUGEPAGE);
}

void append_to_file(const char *path, std::string_view bytes) noexcept {
  constexpr int kFlags = O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK;
  const Descriptor file(::open(path, kFlags, 0600));
  if (file.get() < 0) return;
  const FileSizeSignalBlock block;
  (void)!::write(file.get(), bytes.data(), bytes.size());
}

std::optional<FileText> read_file(const std::string &path) {
  const Descriptor file = open_file(path, O_RDONLY | O_NONBLOCK);
  struct stat status {};
  if (file.get() < 0) {
    // Sockets and devices without a driver cannot be opened. All other errors do not show whether the file exists.
    constexpr std::array kMissing{ENOENT, ENOTDIR, ENAMETOOLONG, EACCES, ENXIO, ENODEV};
    if (std::find(kMissing.begin(), kMissing.end(), errno) != kMissing.end()) return std::nullopt;
    throw std::system_error(errno, std::generic_category());
  }
  if (fstat(file.get(), &status) != 0) throw std::system_error(errno, std::generic_category());
  if (!S_ISREG(status.st_mode)) return std::nullopt;
  FileText text(static_cast<std::size_t>(status.st_size));
  const std::optional<std::size_t> size = read_all(file.get(), text.chars());
  if (!size) throw std::system_error(EIO, std::generic_category());
  text.shrink(*size);
  return text;
}

std::optional<std::int64_t> file_size(const std::string &path) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0) return std::nullopt;
  return status.st_size;
}

bool is_folder(const std::string &path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

std::string name_in_other_case(const std::string &path) {
  const std::string folder = folder_of(path);
  const std::string name = path.substr(folder.size());
  const std::unique_ptr<DIR, CloseFolder> entries(opendir(folder.empty() ? "." : folder.c_str()));
  if (entries == nullptr) return {};
  while (const dirent *entry = readdir(entries.get())) {
    const std::string_view other = static_cast<const char *>(entry->d_name);
    if (other != name && equal_ignoring_case(other, name)) return std::string(other);
  }
  return {};
}

std::uint64_t file_stamp(const std::string &path) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0) return 0;
  std::uint64_t stamp = 0;
  for (const std::int64_t part :
       {static_cast<std::int64_t>(status.st_dev), static_cast<std::int64_t>(status.st_ino),
        std::int64_t{status.st_size}, std::int64_t{status.st_mtim.tv_sec}, std::int64_t{status.st_mtim.tv_nsec}}) {
    stamp = (stamp ^ static_cast<std::uint64_t>(part)) * 0x9E3779B97F4A7C15U;  // any odd number with many bits
    stamp ^= stamp >> 29;
  }
  return stamp | 1;
}

bool is_private_file(const std::string &path) {
  constexpr mode_t kOthers = S_IRWXG | S_IRWXO;
  struct stat status {};
  return stat(path.c_str(), &status) == 0 && status.st_uid == geteuid() && (status.st_mode & kOthers) == 0;
}

}  // namespace quillanest
