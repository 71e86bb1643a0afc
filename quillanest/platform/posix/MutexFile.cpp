#include "quillanest/platform/posix/MutexFile.h"

#include <errno.h>
#include <fcntl.h>
#include <string>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "quillanest/base/Crypto.h"
#include "quillanest/platform/posix/MutexFolder.h"

namespace quillanest {
namespace {

std::string hexadecimal(const std::string &bytes) {
  constexpr std::string_view kDigits = "0123456789abcdef";
  std::string text;
  for (const char c : bytes) {
    const auto byte = static_cast<unsigned char>(c);
    text += kDigits[byte >> 4];
    text += kDigits[byte & 15];
  }
  return text;
}

// A file name that no other text has: letters, digits and '_' as they are, every other byte as "%xx"; long texts by
// their digest. The first character keeps the two kinds apart, and the layout comes last.
std::string file_name_of(std::string_view name, unsigned int layout) {
  constexpr std::size_t kLongest = 200;
  std::string file(1, 'n');
  for (const char c : name) {
    const bool plain = (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_';
    if (!plain) file += '%';
    file += plain ? std::string(1, c) : hexadecimal(std::string(1, c));
  }
  if (file.size() > kLongest) {
    const Bytes digest = sha256(name);
    file = 'd' + hexadecimal({digest.begin(), digest.end()});
  }
  return file + '.' + std::to_string(layout);
}

}  // namespace

MutexFile::MutexFile(std::string_view name, unsigned int layout) {
  const std::string folder = mutex_folder("/dev/shm/quillanest-" + std::to_string(geteuid()));
  const std::string path = folder + '/' + file_name_of(name, layout);
  const auto open_file = [&] { return open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600); };
  descriptor_ = open_file();
  // Another process may just have made it, under a umask that takes its owner's permissions away.
  if (descriptor_ < 0 && errno == EACCES && chmod(path.c_str(), 0600) == 0) descriptor_ = open_file();
  if (descriptor_ < 0) return;
  int locked = flock(descriptor_, LOCK_EX);
  while (locked != 0 && errno == EINTR) locked = flock(descriptor_, LOCK_EX);
  if (locked != 0) close();
}

MutexFile::~MutexFile() { close(); }

// A mapping keeps the open file, and with it the lock, alive after the descriptor is closed: the lock is released
// explicitly.
void MutexFile::close() noexcept {
  if (descriptor_ < 0) return;
  (void)flock(descriptor_, LOCK_UN);
  ::close(descriptor_);
  descriptor_ = -1;
}

}  // namespace quillanest
