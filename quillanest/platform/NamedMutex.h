// System-wide named mutexes with an owner.
//
// A mutex is recursive and belongs to a thread. Every process of one user that opens the same name gets the same mutex.
// Different texts, including the empty one and those with "/", are different mutexes. No name is ever removed: a mutex
// is a few bytes in a per-user folder of the system's memory file system and stays until the next boot. Programs whose
// builds lay out these bytes differently have different mutexes.
// When the owner dies, thread or process, the next waiter gets the mutex with kWaitAbandoned: a wait always ends.
//
// Handles are numbers, never addresses. A handle that has been closed, also through a copy of it, is detected: the call
// fails and never affects another mutex. Closing does not release: a thread that owns the mutex still owns it after
// closing its handle, and releases it through any other handle of the same name.
// Threads: all functions may run on any thread. Opening a name for the second time in a process makes no system call
// and allocates nothing.
#pragma once

#include <cstdint>
#include <string_view>

namespace quillanest {

using MutexHandle = std::uintptr_t;
inline constexpr MutexHandle kNoMutex = 0;

inline constexpr int kWaitSignalled = 0;
inline constexpr int kWaitAbandoned = 0x80;
inline constexpr int kWaitTimeout = 0x102;
inline constexpr int kWaitFailed = -1;

// --- Without a handle, for a wait and a release in one scope ---------------------------------------------------------

// A mutex mapped into this process. It is never unmapped.
struct MappedMutex;

// The mutex called `name`, as open_mutex() finds or creates it; null if that gives no handle.
[[nodiscard]] MappedMutex *find_mutex(std::string_view name);

// As the functions of the same names below.
[[nodiscard]] int wait_mutex(MappedMutex &mutex, int timeout_ms);
bool release_mutex(MappedMutex &mutex);

// --- With a handle ---------------------------------------------------------------------------------------------------

// A new handle on the mutex called `name`, which is created if it does not exist; not owned by this call.
// kNoMutex if the system refuses, or if what the file of the mutex holds is not a mutex of this build.
[[nodiscard]] MutexHandle open_mutex(std::string_view name);

// Takes the mutex, waiting up to `timeout_ms` milliseconds; negative means without limit. One of the kWait results; the
// caller owns the mutex after kWaitSignalled and kWaitAbandoned.
[[nodiscard]] int wait_mutex(MutexHandle handle, int timeout_ms);

// Undoes one wait of the calling thread. False if the handle is closed or the thread does not own the mutex.
bool release_mutex(MutexHandle handle);

// Closes a handle; a closed one or kNoMutex is ignored.
void close_mutex(MutexHandle handle);

}  // namespace quillanest
