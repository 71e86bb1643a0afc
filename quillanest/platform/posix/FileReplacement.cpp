// Replacing a file: the temporary file beside it, its lock and its permissions.
#include <array>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <errno.h>
#include <fcntl.h>
#include <filesystem>
#include <sys/file.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <system_error>
#include <thread>
#include <unistd.h>
#include <utility>

#include "quillanest/platform/FileSizeSignal.h"
#include "quillanest/platform/Path.h"
#include "quillanest/platform/TextFile.h"
#include "quillanest/platform/posix/Descriptor.h"

namespace quillanest {
namespace {

bool write_all(int descriptor, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t count = ::write(descriptor, bytes.data(), bytes.size());
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(count));
  }
  return true;
}

// The path after symbolic links, so that replacing a file leaves the links to it alone; empty if the system does not
// report where they lead.
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

// Classifies the result of a call such as stat(): there, missing, or unknown.
Presence presence(int result) {
  if (result == 0) return Presence::kThere;
  return errno == ENOENT || errno == ENOTDIR ? Presence::kMissing : Presence::kUnknown;
}

// Whether the path names the open file; unknown if the system does not report it.
Presence presence_at(const std::string &path, int descriptor) {
  struct stat open_file {};
  struct stat named_file {};
  if (fstat(descriptor, &open_file) != 0) return Presence::kUnknown;
  const Presence named = presence(lstat(path.c_str(), &named_file));
  if (named != Presence::kThere) return named;
  const bool same = open_file.st_dev == named_file.st_dev && open_file.st_ino == named_file.st_ino;
  return same ? Presence::kThere : Presence::kMissing;
}

// The status of an ordinary file of this user without a second name. No other file is written to: it may be one from
// elsewhere, or one that another user reads at the same time.
std::optional<struct stat> status_of_own_file(int descriptor) {
  struct stat status {};
  if (fstat(descriptor, &status) != 0) return std::nullopt;
  if (!S_ISREG(status.st_mode) || status.st_nlink > 1 || status.st_uid != geteuid()) return std::nullopt;
  return status;
}

// Whether users other than its owner may open a file, and so hold its lock.
bool is_open_to_others(const struct stat &status) { return (status.st_mode & (S_IRWXG | S_IRWXO)) != 0; }

// Takes the lock of an own file; false if the system refuses. Only replacements of this user lock a private file, and
// each of them ends; for the lock of any other file the wait ends after kLongestWait.
bool lock(int descriptor) {
  constexpr std::chrono::milliseconds kPause{2};
  const auto deadline = std::chrono::steady_clock::now() + FileReplacement::kLongestWait;
  while (flock(descriptor, LOCK_EX | LOCK_NB) != 0) {
    if (errno == EINTR) continue;
    if (errno != EWOULDBLOCK) return false;
    const std::optional<struct stat> status = status_of_own_file(descriptor);
    const bool is_late = std::chrono::steady_clock::now() >= deadline;
    if (is_late && status && is_open_to_others(*status)) return false;
    std::this_thread::sleep_for(kPause);
  }
  return true;
}

constexpr int kTemporaryFlags = O_WRONLY | O_NOFOLLOW | O_NONBLOCK;
constexpr mode_t kPrivate = S_IRUSR | S_IWUSR;

// Empties a file and gives its owner alone the permissions to read and write, also under a umask that takes them away.
// None if it cannot be emptied.
Descriptor empty_own_file(Descriptor file) {
  (void)fchmod(file.get(), kPrivate);
  return ftruncate(file.get(), 0) == 0 ? std::move(file) : Descriptor(-1);
}

// Opens the temporary file that all replacements of a target share and holds its lock; none if a file that is not this
// user's has the name, or if another user may hold the lock. A file that another replacement renamed while this one
// waited for the lock is the target by now, so the opening starts over.
Descriptor open_shared_temporary(const std::string &path) {
  constexpr int kAttempts = 10'000;  // more than there are replacements; others may rename and remove without end
  for (int i = 0; i < kAttempts; ++i) {
    Descriptor file = open_file(path, kTemporaryFlags | O_CREAT | O_EXCL, kPrivate);
    const bool is_left_over = file.get() < 0 && errno == EEXIST;
    if (is_left_over) file = open_file(path, kTemporaryFlags);
    if (is_left_over && file.get() < 0 && errno == ENOENT) continue;
    if (file.get() < 0 || !status_of_own_file(file.get()) || !lock(file.get())) break;
    const Presence named = presence_at(path, file.get());
    if (named == Presence::kMissing) continue;
    const std::optional<struct stat> status = status_of_own_file(file.get());
    if (named == Presence::kUnknown || !status) break;
    // Others may have opened a left-over that was about to become the target; they could read what is written.
    const bool is_private = !is_left_over || !is_open_to_others(*status);
    if (is_private) return empty_own_file(std::move(file));
    if (unlink(path.c_str()) != 0) break;
  }
  return Descriptor(-1);
}

// Opens a new file and appends the random letters of its name to `path`.
Descriptor open_random_temporary(std::string &path) {
  constexpr int kAttempts = 16;
  constexpr std::string_view kLetters = "abcdefghijklmnopqrstuvwxyz";
  std::array<unsigned char, 6> random{};
  for (int i = 0; i < kAttempts; ++i) {
    const ssize_t size = getrandom(random.data(), random.size(), 0);
    if (size < 0 && errno == EINTR) continue;
    if (size != static_cast<ssize_t>(random.size())) break;
    std::string name = path + '.';
    for (const unsigned char byte : random) name += kLetters[byte % kLetters.size()];
    Descriptor file = open_file(name, kTemporaryFlags | O_CREAT | O_EXCL, kPrivate);
    if (file.get() < 0 && errno == EEXIST) continue;
    if (file.get() >= 0) path = std::move(name);
    return file;
  }
  return Descriptor(-1);
}

// The permissions that new files of this process lack. The system reports them in a file; to ask by umask() is to
// change them for all threads for a moment.
mode_t creation_mask() {
  constexpr std::string_view kKey = "\nUmask:\t";
  std::array<char, 256> bytes{};  // it is the second line, after a name of 16 bytes
  const Descriptor file = open_file("/proc/thread-self/status", O_RDONLY);
  const std::size_t size = file.get() < 0 ? 0 : read_all(file.get(), bytes).value_or(0);
  const std::string_view text(bytes.data(), size);
  const std::size_t at = text.find(kKey);
  mode_t mask = 0;
  if (at != std::string_view::npos) {
    const auto [end, error] = std::from_chars(text.data() + at + kKey.size(), text.data() + text.size(), mask, 8);
    if (error == std::errc()) return mask;
  }
  mask = umask(S_IRWXG | S_IRWXO);
  (void)umask(mask);
  return mask;
}

// Gives a temporary file the owner and the permissions of the target that it is about to become.
bool give_permissions(int descriptor, const std::string &target, NewFile new_file) {
  struct stat status {};
  const Presence former = presence(lstat(target.c_str(), &status));
  if (former == Presence::kMissing) {
    const mode_t mode = new_file == NewFile::kSecret ? kPrivate : 0666 & ~creation_mask();
    return fchmod(descriptor, mode) == 0 || errno == EPERM;  // a file system without permissions
  }
  if (former == Presence::kUnknown || !S_ISREG(status.st_mode)) return false;
  // A file of passwords that only its owner may read stays so, and keeps that owner if the system allows it.
  (void)!fchown(descriptor, status.st_uid, status.st_gid);
  return fchmod(descriptor, status.st_mode & 07777) == 0;
}

bool bring_to_disk(int descriptor) {
  int result = fsync(descriptor);
  while (result != 0 && errno == EINTR) result = fsync(descriptor);
  return result == 0;
}

void sync_folder(const std::string &folder) {
  const Descriptor descriptor = open_file(folder, O_RDONLY | O_DIRECTORY);
  if (descriptor.get() >= 0) (void)bring_to_disk(descriptor.get());
}

}  // namespace

FileReplacement::FileReplacement(const std::string &path, NewFile new_file)
    : target_(resolved(path)), temporary_(target_ + kSuffix), new_file_(new_file) {
  if (target_.empty()) return;
  struct stat status {};
  const Presence target = presence(stat(target_.c_str(), &status));
  if (target == Presence::kUnknown) return;
  // A load treats a file that may not be read as missing; a save must not take that for its content.
  const bool exists = target == Presence::kThere;
  if (exists && !S_ISREG(status.st_mode)) return;
  if (exists && faccessat(AT_FDCWD, target_.c_str(), R_OK | W_OK, AT_EACCESS) != 0) return;
  native_ = open_shared_temporary(temporary_).release();
  if (!is_open()) native_ = open_random_temporary(temporary_).release();
}

FileReplacement::~FileReplacement() { abandon(); }

bool FileReplacement::write(std::string_view bytes) {
  if (!is_open() || failed_) return false;
  const FileSizeSignalBlock block;
  failed_ = !write_all(descriptor(), bytes);
  return !failed_;
}

bool FileReplacement::commit() {
  if (!is_open()) return false;
  std::string folder = folder_of(target_);  // before the rename: nothing may fail after it
  if (folder.empty()) folder.push_back('.');
  // The file is private, and others cannot take its lock, until the moment before it becomes the target.
  const bool done = !failed_ && bring_to_disk(descriptor()) && give_permissions(descriptor(), target_, new_file_) &&
                    presence_at(temporary_, descriptor()) == Presence::kThere &&
                    std::rename(temporary_.c_str(), target_.c_str()) == 0;
  if (!done) {
    abandon();
    return false;
  }
  ::close(descriptor());
  native_ = -1;
  sync_folder(folder);
  return true;
}

void FileReplacement::abandon() noexcept {
  if (!is_open()) return;
  // Before closing releases the lock. A file that another process has put there since stays.
  if (presence_at(temporary_, descriptor()) != Presence::kMissing) (void)unlink(temporary_.c_str());
  ::close(descriptor());
  native_ = -1;
}

}  // namespace quillanest
