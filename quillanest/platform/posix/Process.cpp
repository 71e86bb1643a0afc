#include "quillanest/platform/Process.h"

#include <array>
#include <errno.h>
#include <pthread.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

namespace quillanest {

int process_id() { return static_cast<int>(getpid()); }

const char *last_system_error() noexcept {
  const char *text = strerrordesc_np(errno);
  return text == nullptr ? "unknown error" : text;
}

std::string host_name() {
  std::array<char, 256> name{};
  if (gethostname(name.data(), name.size() - 1) != 0) return {};
  return name.data();
}

const char *trusted_environment(const char *name) { return secure_getenv(name); }

bool set_environment_default(const char *name, const char *value) { return setenv(name, value, 0) == 0; }

bool at_fork(void (*before)(), void (*in_parent)(), void (*in_child)()) {
  return pthread_atfork(before, in_parent, in_child) == 0;
}

void end_process(int id) {
  if (id <= 0) return;
  (void)kill(id, SIGKILL);
}

}  // namespace quillanest
