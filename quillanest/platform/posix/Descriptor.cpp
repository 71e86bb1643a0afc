#include "quillanest/platform/posix/Descriptor.h"

#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

namespace quillanest {

Descriptor::~Descriptor() {
  if (descriptor_ >= 0) ::close(descriptor_);
}

Descriptor open_file(const std::string &path, int flags, unsigned int mode) {
  int opened = open(path.c_str(), flags | O_CLOEXEC, mode);
  while (opened < 0 && errno == EINTR) opened = open(path.c_str(), flags | O_CLOEXEC, mode);
  return Descriptor(opened);
}

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

}  // namespace quillanest
