// A thread is ended by a signal whose handler leaves the thread with a bare system call: no unwinding, no destructors.
// The C library's own cancellation would unwind, and end the whole program where it meets a function that must not
// throw.
#include "quillanest/platform/Thread.h"

#include <memory>
#include <mutex>
#include <pthread.h>
#include <signal.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include "quillanest/platform/HandleTable.h"

namespace quillanest {
namespace {

struct RunningThread {
  ThreadRoutine routine = nullptr;
  void *argument = nullptr;
  pthread_t thread{};
  ThreadHandle handle = kNoThread;
};

struct ThreadTable {
  static ThreadTable &instance() {
    static ThreadTable &table = *std::make_unique<ThreadTable>().release();  // never destroyed: threads may outlive it
    return table;
  }

  // Held while a thread leaves by itself and while it is ended, so that the two never meet.
  std::mutex leaving;
  HandleTable<RunningThread> handles;
};

int ending_signal() { return SIGRTMAX - 3; }

void leave_thread(int) { (void)syscall(SYS_exit, 1); }

bool install_handler() {
  struct sigaction action {};
  action.sa_handler = leave_thread;
  sigemptyset(&action.sa_mask);
  return sigaction(ending_signal(), &action, nullptr) == 0;
}

void *run(void *pointer) {
  auto *running = static_cast<RunningThread *>(pointer);
  {
    const std::lock_guard started(ThreadTable::instance().leaving);  // the starter has filled in the handle by then
  }
  (void)running->routine(running->argument);
  ThreadTable &table = ThreadTable::instance();
  const std::lock_guard lock(table.leaving);
  // Whoever closes the handle owns the thread's remains.
  if (const std::unique_ptr<RunningThread> own(table.handles.close(running->handle)); own != nullptr) {
    pthread_detach(own->thread);
  }
  return nullptr;
}

}  // namespace

ThreadHandle start_thread(ThreadRoutine routine, void *argument) {
  if (routine == nullptr) return kNoThread;
  ThreadTable &table = ThreadTable::instance();
  auto running = std::make_unique<RunningThread>();
  running->routine = routine;
  running->argument = argument;
  const std::lock_guard lock(table.leaving);
  const ThreadHandle handle = table.handles.open(running.get());
  running->handle = handle;
  if (handle == kNoThread) return kNoThread;
  if (pthread_create(&running->thread, nullptr, run, running.get()) != 0) {
    (void)table.handles.close(handle);
    return kNoThread;
  }
  (void)running.release();  // owned by the handle now
  return handle;
}

void end_thread(ThreadHandle handle) {
  static const bool handler_installed = install_handler();
  ThreadTable &table = ThreadTable::instance();
  std::unique_ptr<RunningThread> own;  // freed when the thread is gone
  {
    const std::lock_guard lock(table.leaving);
    const RunningThread *running = table.handles.find(handle);
    if (!handler_installed || running == nullptr || pthread_equal(running->thread, pthread_self()) != 0) return;
    if (pthread_kill(running->thread, ending_signal()) != 0) return;
    own.reset(table.handles.close(handle));
  }
  timespec deadline{};
  clock_gettime(CLOCK_REALTIME, &deadline);
  deadline.tv_sec += 1;
  if (pthread_timedjoin_np(own->thread, nullptr, &deadline) == 0) return;
  pthread_detach(own->thread);
  (void)own.release();  // the thread still refers to it
}

}  // namespace quillanest
