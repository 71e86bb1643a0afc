// CMutexEx: one handle of a system-wide named mutex.
//
//   CMutexEx mutex(plant.GetDBName());           // the mutex that edits of this database take
//   const int result = mutex.Wait(1000);         // milliseconds
//   if (result != 0 && result != 0x80) return;   // 0x80: taken from an owner that died
//   edit(plant);
//   mutex.Release();
//
// The mutex belongs to the thread that waited for it, may be taken again by that thread, and is released as often as it
// was taken. Names are used as given: every process of one user that opens the same name gets the same mutex. Closing a
// handle does not release the mutex. When the owner dies, thread or process, the next waiter gets it as abandoned.
// Threads: an object is used by one thread at a time.
#pragma once

#include <cstdint>

#include "quillanest/System.h"

class QUILLANEST_API CMutexEx {
 public:
  // Without a name: no handle. With a name: as Create.
  // Texts convert, as callers of the published form expect.
  CMutexEx(const char *pszName = nullptr);  // NOLINT(google-explicit-constructor)

  // Copies share one handle: the first destructor closes it, and every other copy then fails as without a handle.
  // Assignment does not close the handle that the target had.
  CMutexEx(const CMutexEx &other) = default;
  CMutexEx &operator=(const CMutexEx &other) = default;

  // Closes the handle, if any.
  virtual ~CMutexEx();

  // Creates or opens the mutex called `pszName`, not owned. True if the object has a handle afterwards; one that
  // already has a handle keeps it and ignores the name. False for a null name or if the system refuses.
  bool Create(const char *pszName);

  // Takes the mutex, waiting up to `nTimeout` milliseconds, -1 without limit. 0: taken. 0x80: taken, and the former
  // owner died with it. 0x102: not taken in time. -1: no handle, or the system refuses.
  int Wait(int nTimeout);

  // Gives the mutex back once. False without a handle or if the calling thread does not own it.
  bool Release();

  // Does nothing.
  static void DeleteMutex();

 private:
  std::uintptr_t handle_ = 0;
};
