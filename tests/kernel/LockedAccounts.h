// The Account table in a database whose mutex no other test uses.
#pragma once

#include "tests/kernel/TableFixture.h"
#include "tests/support/Mutexes.h"

struct LockedAccounts : Accounts {
  explicit LockedAccounts(int capacity = 5) : Accounts(capacity) {
    manager.GetSystemDB()->SetDBName(name.c_str());
    mutex.Create(name.c_str());
  }
  // Whether another thread can have the mutex.
  [[nodiscard]] bool is_mutex_free() const {
    return on_other_thread([&] {
      CMutexEx other(name.c_str());
      return other.Wait(0) == 0 && other.Release();
    });
  }

  MutexName name;
  CMutexEx mutex;
};
