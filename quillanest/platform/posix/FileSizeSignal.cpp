#include "quillanest/platform/FileSizeSignal.h"

#include <errno.h>
#include <signal.h>
#include <time.h>

namespace quillanest {
namespace {

sigset_t file_size_signal() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGXFSZ);
  return signals;
}

}  // namespace

FileSizeSignalBlock::FileSizeSignalBlock() noexcept {
  const sigset_t ours = file_size_signal();
  sigset_t before;
  if (pthread_sigmask(SIG_BLOCK, &ours, &before) != 0) return;
  was_blocked_ = sigismember(&before, SIGXFSZ) == 1;
  sigset_t pending;
  was_pending_ = sigpending(&pending) != 0 || sigismember(&pending, SIGXFSZ) == 1;
}

// Keeps the error number, which callers read after a failure in the scope. If the program itself blocks the signal, a
// pending one is taken away too: it would end the program when that block ends.
FileSizeSignalBlock::~FileSizeSignalBlock() {
  const int error = errno;
  const sigset_t ours = file_size_signal();
  const timespec at_once{};
  if (!was_pending_) (void)sigtimedwait(&ours, nullptr, &at_once);
  if (!was_blocked_) (void)pthread_sigmask(SIG_UNBLOCK, &ours, nullptr);
  errno = error;
}

}  // namespace quillanest
