#include "quillanest/shm/MutexEx.h"

#include "quillanest/platform/NamedMutex.h"
#include "quillanest/shm/TextAt.h"

CMutexEx::CMutexEx(const char *pszName) {
  if (pszName != nullptr) handle_ = quillanest::open_mutex(quillanest::text_at(pszName));
}

CMutexEx::~CMutexEx() { quillanest::close_mutex(handle_); }

bool CMutexEx::Create(const char *pszName) {
  if (handle_ == quillanest::kNoMutex && pszName != nullptr) {
    handle_ = quillanest::open_mutex(quillanest::text_at(pszName));
  }
  return handle_ != quillanest::kNoMutex;
}

int CMutexEx::Wait(int nTimeout) { return quillanest::wait_mutex(handle_, nTimeout); }

bool CMutexEx::Release() { return quillanest::release_mutex(handle_); }

// By design [DeleteMutexDoesNothing]: a mutex has no owner object that could delete it.
void CMutexEx::DeleteMutex() {}
