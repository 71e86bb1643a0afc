// Threads for client programs: start one, end one from outside.
//
// Handles are numbers with a generation: the handle of a thread that has ended by itself is stale, so nothing has to be
// closed and a late end_thread() does nothing. In a forked child every handle of the parent is stale, except that of
// the thread that forked.
#pragma once

#include <cstdint>
#include <functional>
#include <thread>

namespace quillanest {

using ThreadRoutine = unsigned long (*)(void *);
using ThreadHandle = std::uintptr_t;
inline constexpr ThreadHandle kNoThread = 0;

// Runs routine(argument) on a new thread; one that throws ends the program. kNoThread if the system refuses.
[[nodiscard]] ThreadHandle start_thread(ThreadRoutine routine, void *argument);

// Ends the thread at once: no destructor runs, and no lock that it holds in memory is released (named mutexes are, as
// abandoned ones). Returns when the thread has ended, or after one second if the system keeps it in a call that cannot
// be interrupted. Stale handles and the calling thread's own are ignored.
void end_thread(ThreadHandle handle);

// A thread for the library's own use, which runs routine() and receives none of the program's signals. Raises
// std::system_error if the system refuses.
[[nodiscard]] std::thread start_quiet_thread(std::function<void()> routine);

}  // namespace quillanest
