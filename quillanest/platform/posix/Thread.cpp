// A thread is ended by a signal whose handler leaves the thread with a bare system call: no unwinding, no destructors.
// The C library's own cancellation would unwind, and end the whole program at a function that must not throw.
//
// Threads run on stacks that are made here and freed with them. The C library reuses its own stacks for later threads,
// together with the thread-specific values of a thread that could not clear them.
#include "quillanest/platform/Thread.h"

#include <memory>
#include <mutex>
#include <new>
#include <pthread.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>
#include <utility>

#include "quillanest/base/HandleTable.h"
#include "quillanest/base/Loading.h"
#include "quillanest/base/Neutral.h"

namespace quillanest {
namespace {

// A stack of the system's usual size, with a page below it that nothing may touch.
class Stack {
 public:
  Stack() {
    pthread_attr_t usual;
    if (pthread_attr_init(&usual) != 0) return;
    pthread_attr_getstacksize(&usual, &size_);
    pthread_attr_destroy(&usual);
    guard_ = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    void *start = mmap(nullptr, guard_ + size_, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_STACK, -1, 0);
    if (start == MAP_FAILED) return;
    start_ = static_cast<char *>(start);
    if (mprotect(start_ + guard_, size_, PROT_READ | PROT_WRITE) != 0) close();
  }
  ~Stack() { close(); }
  Stack(const Stack &) = delete;
  Stack &operator=(const Stack &) = delete;

  // True if the attributes name this stack now.
  bool put_into(pthread_attr_t &attributes) const {
    return start_ != nullptr && pthread_attr_setstack(&attributes, start_ + guard_, size_) == 0;
  }

 private:
  void close() {
    if (start_ != nullptr) munmap(start_, guard_ + size_);
    start_ = nullptr;
  }

  char *start_ = nullptr;
  std::size_t guard_ = 0;
  std::size_t size_ = 0;
};

struct RunningThread {
  ThreadRoutine routine = nullptr;
  void *argument = nullptr;
  pthread_t thread{};
  ThreadHandle handle = kNoThread;
  unsigned int forks = 0;  // of the table when it was started
  RunningThread *next_finished = nullptr;
  Stack stack;
};

// A forked child has only the thread that forked. The entries of the others are the parent's: their handles are stale,
// and their memory is never freed.
struct ThreadTable {
  ThreadTable() {
    const int result = pthread_atfork([] { instance().leaving.lock(); }, [] { instance().leaving.unlock(); },
                                      [] { instance().count_fork(); });
    if (result != 0) throw std::bad_alloc();
  }

  static ThreadTable &instance() {
    static ThreadTable &table = *std::make_unique<ThreadTable>().release();  // never destroyed: threads may outlive it
    return table;
  }

  // Held while a thread leaves by itself and while another ends it: one of the two closes the handle and frees the
  // memory.
  std::mutex leaving;
  HandleTable<RunningThread> handles;
  // Threads that left by themselves; a thread cannot free the stack it runs on.
  RunningThread *finished = nullptr;
  unsigned int forks = 0;  // between this process and the first one
  pthread_t forker{};      // the thread that made this process; unused in the first one
  bool handler_installed = false;

  [[nodiscard]] bool is_of_parent(const RunningThread &running) const {
    return running.forks != forks && pthread_equal(running.thread, forker) == 0;
  }

 private:
  // Runs in the child, whose only thread holds the mutex from before the fork.
  void count_fork() {
    ++forks;
    forker = pthread_self();
    leaving.unlock();
  }
};

// Joins the threads that have left by themselves, and frees their stacks. One that has not ended yet, such as the
// caller in a destructor of its own thread-local objects, stays for the next call.
void reap_finished() {
  ThreadTable &table = ThreadTable::instance();
  const std::lock_guard lock(table.leaving);
  for (RunningThread **link = &table.finished; *link != nullptr;) {
    RunningThread *running = *link;
    if (table.is_of_parent(*running) || pthread_tryjoin_np(running->thread, nullptr) != 0) {
      link = &running->next_finished;
      continue;
    }
    *link = running->next_finished;
    const std::unique_ptr<RunningThread> own(running);
  }
}

int ending_signal() { return SIGRTMAX - 3; }

void leave_thread(int) { (void)syscall(SYS_exit, 1); }

bool install_handler() {
  struct sigaction action {};
  action.sa_handler = leave_thread;
  sigemptyset(&action.sa_mask);
  return sigaction(ending_signal(), &action, nullptr) == 0;
}

// Changes whether the ending signal reaches the calling thread, and returns the mask from before.
sigset_t mask_ending_signal(int how) {
  sigset_t signals;
  sigset_t before;
  sigemptyset(&signals);
  sigaddset(&signals, ending_signal());
  pthread_sigmask(how, &signals, &before);
  return before;
}

// The signal is unblocked only while the routine runs: a thread that ended with the table's mutex held would hold it
// for ever. The destructor also runs for a routine that leaves through pthread_exit.
class Run {
 public:
  explicit Run(RunningThread &running) : running_(running) {
    {
      const std::lock_guard started(ThreadTable::instance().leaving);  // the starter has filled in the handle by then
    }
    (void)mask_ending_signal(SIG_UNBLOCK);
  }
  ~Run() {
    (void)mask_ending_signal(SIG_BLOCK);
    ThreadTable &table = ThreadTable::instance();
    const std::lock_guard lock(table.leaving);
    if (table.handles.close(running_.handle) == nullptr) return;
    running_.next_finished = std::exchange(table.finished, &running_);
  }
  Run(const Run &) = delete;
  Run &operator=(const Run &) = delete;

 private:
  RunningThread &running_;
};

void *run(void *pointer) {
  auto *running = static_cast<RunningThread *>(pointer);
  const Run until_the_end(*running);
  (void)running->routine(running->argument);
  return nullptr;
}

// Starts the thread on its own stack, with the ending signal blocked.
bool create(RunningThread &running) {
  pthread_attr_t attributes;
  if (pthread_attr_init(&attributes) != 0) return false;
  const sigset_t before = mask_ending_signal(SIG_BLOCK);
  const bool created =
      running.stack.put_into(attributes) && pthread_create(&running.thread, &attributes, run, &running) == 0;
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  pthread_attr_destroy(&attributes);
  return created;
}

ThreadHandle start(ThreadRoutine routine, void *argument) {
  reap_finished();
  ThreadTable &table = ThreadTable::instance();
  auto running = std::make_unique<RunningThread>();
  running->routine = routine;
  running->argument = argument;
  const std::lock_guard lock(table.leaving);
  const ThreadHandle handle = table.handles.open(running.get());
  running->handle = handle;
  running->forks = table.forks;
  if (handle == kNoThread) return kNoThread;
  if (!create(*running)) {
    (void)table.handles.close(handle);
    return kNoThread;
  }
  (void)running.release();  // owned by the handle now
  return handle;
}

[[gnu::constructor(kWhenLoaded)]] void make_table() {
  (void)neutral_on_failure(false, [] { return ThreadTable::instance().finished == nullptr; });
}

}  // namespace

ThreadHandle start_thread(ThreadRoutine routine, void *argument) {
  if (routine == nullptr) return kNoThread;
  return neutral_on_failure(kNoThread, [&] { return start(routine, argument); });
}

void end_thread(ThreadHandle handle) {
  if (handle == kNoThread) return;
  reap_finished();
  ThreadTable &table = ThreadTable::instance();
  std::unique_ptr<RunningThread> own;  // freed when the thread is gone
  {
    const std::lock_guard lock(table.leaving);
    const RunningThread *running = table.handles.find(handle);
    if (running == nullptr || table.is_of_parent(*running)) return;
    if (pthread_equal(running->thread, pthread_self()) != 0) return;
    if (!table.handler_installed) table.handler_installed = install_handler();
    if (!table.handler_installed) return;
    if (pthread_kill(running->thread, ending_signal()) != 0) return;
    own.reset(table.handles.close(handle));
  }
  timespec deadline{};
  clock_gettime(CLOCK_REALTIME, &deadline);
  deadline.tv_sec += 1;
  if (pthread_timedjoin_np(own->thread, nullptr, &deadline) == 0) return;
  pthread_detach(own->thread);
  (void)own.release();  // the thread still refers to it and runs on its stack
}

std::thread start_quiet_thread(std::function<void()> routine) {
  // A new thread inherits the mask of the one that starts it.
  struct SignalsBlocked {
    SignalsBlocked() {
      sigset_t all;
      sigfillset(&all);
      pthread_sigmask(SIG_SETMASK, &all, &before);
    }
    ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &before, nullptr); }
    SignalsBlocked(const SignalsBlocked &) = delete;
    SignalsBlocked &operator=(const SignalsBlocked &) = delete;
    sigset_t before{};
  };
  const SignalsBlocked blocked;
  return std::thread(std::move(routine));
}

}  // namespace quillanest
