// Blocks the signal that ends a program if one of its files would grow beyond the limit of its size.
#pragma once

namespace quillanest {

// While the object lives, a write, a change of a file's size or a reservation of its bytes that exceeds the process's
// limit fails with an error number only, for calls of this thread: the signal that comes with it is blocked, and taken
// away at the end of the scope. One that was pending before stays pending.
//
// Lifetime: objects may be nested; each is destroyed on the thread that made it, in reverse order.
// Threads: the signal mask is the calling thread's alone. Threads that are started during its life keep the signal
// blocked.
class FileSizeSignalBlock {
 public:
  FileSizeSignalBlock() noexcept;
  ~FileSizeSignalBlock();
  FileSizeSignalBlock(const FileSizeSignalBlock &) = delete;
  FileSizeSignalBlock &operator=(const FileSizeSignalBlock &) = delete;

 private:
  bool was_blocked_ = true;
  bool was_pending_ = true;
};

}  // namespace quillanest
