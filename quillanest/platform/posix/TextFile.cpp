#include "quillanest/platform/TextFile.h"

#include <algorithm>
#include <cstdio>
#include <errno.h>
#include <fcntl.h>
#include <filesystem>
#include <new>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace quillanest {
namespace {

// Closes a descriptor at the end of its scope.
class Descriptor {
 public:
  explicit Descriptor(int descriptor) noexcept : descriptor_(descriptor) {}
  ~Descriptor() {
    if (descriptor_ >= 0) ::close(descriptor_);
  }
  Descriptor(const Descriptor &) = delete;
  Descriptor &operator=(const Descriptor &) = delete;

  [[nodiscard]] int get() const noexcept { return descriptor_; }
  [[nodiscard]] int release() noexcept {
    const int descriptor = descriptor_;
    descriptor_ = -1;
    return descriptor;
  }

 private:
  int descriptor_;
};

// Reads up to `bytes.size()` bytes; the number read, or nothing on an error.
std::optional<std::size_t> read_all(int descriptor, std::span<char> bytes) {
  std::size_t done = 0;
  while (done < bytes.size()) {
    const ssize_t count = ::read(descriptor, bytes.data() + done, bytes.size() - done);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return std::nullopt;
    if (count == 0) break;
    done += static_cast<std::size_t>(count);
  }
  return done;
}

bool write_all(int descriptor, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t count = ::write(descriptor, bytes.data(), bytes.size());
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(count));
  }
  return true;
}

// The path behind symbolic links, so that replacing a file leaves the links to it alone; empty when the system does not
// tell where they lead.
std::string resolved(const std::string &path) {
  namespace fs = std::filesystem;
  constexpr int kMostLinks = 40;
  std::error_code error;
  const fs::path real = fs::canonical(path, error);
  if (!error) return real.string();
  if (error != std::errc::no_such_file_or_directory && error != std::errc::not_a_directory) return {};
  // No such file yet: it is made where a link to it points.
  fs::path file = path;
  for (int i = 0; i < kMostLinks; ++i) {
    const fs::file_type type = fs::symlink_status(file, error).type();
    if (type == fs::file_type::none) return {};
    if (type != fs::file_type::symlink) return file.string();
    const fs::path link = fs::read_symlink(file, error);
    if (error) return {};
    file = file.parent_path() / link;
  }
  return {};
}

enum class Presence { kThere, kMissing, kUnknown };

// Whether the system's answer to a question about a path says that nothing is there, or says nothing.
Presence presence(int result) {
  if (result == 0) return Presence::kThere;
  return errno == ENOENT || errno == ENOTDIR ? Presence::kMissing : Presence::kUnknown;
}

// Whether the path names the open file; unknown when the system does not tell.
Presence presence_at(const std::string &path, int descriptor) {
  struct stat open_file {};
  struct stat named_file {};
  if (fstat(descriptor, &open_file) != 0) return Presence::kUnknown;
  const Presence named = presence(lstat(path.c_str(), &named_file));
  if (named != Presence::kThere) return named;
  const bool same = open_file.st_dev == named_file.st_dev && open_file.st_ino == named_file.st_ino;
  return same ? Presence::kThere : Presence::kMissing;
}

// An ordinary file without another name: one that lies here as the name of a file elsewhere is nobody's to overwrite.
bool is_own_file(int descriptor) {
  struct stat status {};
  return fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode) && status.st_nlink == 1;
}

// Opens the temporary file of a target and holds its lock. A file that another replacement renamed away while this one
// waited for the lock is the target by then, so the opening starts over.
int open_temporary(const std::string &path) {
  for (;;) {
    Descriptor file(open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, 0666));
    if (file.get() < 0) return -1;
    while (flock(file.get(), LOCK_EX) != 0) {
      if (errno != EINTR) return -1;
    }
    const Presence named = presence_at(path, file.get());
    if (named == Presence::kMissing) continue;
    if (named == Presence::kUnknown || !is_own_file(file.get()) || ftruncate(file.get(), 0) != 0) return -1;
    return file.release();
  }
}

std::string folder_of(const std::string &path) {
  const std::size_t slash = path.rfind('/');
  return slash == std::string::npos ? "." : path.substr(0, slash + 1);
}

void sync_folder(const std::string &folder) {
  const Descriptor descriptor(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (descriptor.get() >= 0) (void)fsync(descriptor.get());
}

}  // namespace

void FileText::Free::operator()(char *bytes) const noexcept { ::operator delete(bytes, alignment); }

// Large files lie in large pages where the system has them: making small ones costs more than reading into them.
FileText::FileText(std::size_t size) : size_(size) {
  constexpr std::size_t kSmallPage = 4096;
  constexpr std::size_t kLarge = std::size_t{4} << 20;
  const std::align_val_t alignment{size >= kLarge ? kSmallPage : alignof(std::max_align_t)};
  bytes_ = {static_cast<char *>(::operator new(std::max<std::size_t>(size, 1), alignment)), Free{alignment}};
  if (size >= kLarge) (void)madvise(bytes_.get(), size, MADV_HUGEPAGE);
}

std::optional<FileText> read_file(const std::string &path) {
  int opened = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  while (opened < 0 && errno == EINTR) opened = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  const Descriptor file(opened);
  struct stat status {};
  // Short of descriptors or memory, nobody knows whether the file is there.
  if (file.get() < 0 && (errno == EMFILE || errno == ENFILE || errno == ENOMEM || errno == EIO)) {
    throw std::system_error(errno, std::generic_category());
  }
  if (file.get() < 0) return std::nullopt;
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

FileReplacement::FileReplacement(const std::string &path) : target_(resolved(path)), temporary_(target_ + kSuffix) {
  if (target_.empty()) return;
  struct stat status {};
  const Presence target = presence(stat(target_.c_str(), &status));
  if (target == Presence::kUnknown) return;
  const bool exists = target == Presence::kThere;
  if (exists && (!S_ISREG(status.st_mode) || access(target_.c_str(), W_OK) != 0)) return;
  descriptor_ = open_temporary(temporary_);
  // A file of passwords that only its owner may read stays so, and stays that owner's where the system allows it.
  if (descriptor_ >= 0 && exists) (void)!fchown(descriptor_, status.st_uid, status.st_gid);
  if (descriptor_ >= 0 && exists && fchmod(descriptor_, status.st_mode & 07777) != 0) abandon();
}

FileReplacement::~FileReplacement() { abandon(); }

bool FileReplacement::write(std::string_view bytes) {
  if (!is_open() || failed_) return false;
  failed_ = !write_all(descriptor_, bytes);
  return !failed_;
}

bool FileReplacement::commit() {
  if (!is_open()) return false;
  const std::string folder = folder_of(target_);  // before the rename: nothing may fail behind it
  const bool done = !failed_ && fsync(descriptor_) == 0 && std::rename(temporary_.c_str(), target_.c_str()) == 0;
  if (!done) {
    abandon();
    return false;
  }
  ::close(descriptor_);
  descriptor_ = -1;
  sync_folder(folder);
  return true;
}

void FileReplacement::abandon() noexcept {
  if (!is_open()) return;
  (void)unlink(temporary_.c_str());  // before the lock goes with the descriptor
  ::close(descriptor_);
  descriptor_ = -1;
}

}  // namespace quillanest
