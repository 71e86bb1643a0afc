#include <gtest/gtest.h>
#include <optional>

#include "quillanest/shm/MutexEx.h"
#include "tests/support/Mutexes.h"

namespace {

// What another thread gets that tries to take the mutex; it gives the mutex back.
int tried_by_other(const MutexName &name) {
  return on_other_thread([&] {
    CMutexEx mutex(name.c_str());
    const int result = mutex.Wait(0);
    if (result == 0) mutex.Release();
    return result;
  });
}

TEST(MutexEx, OnlyTheFirstCreateNamesTheMutex) {
  const MutexName name, ignored;
  CMutexEx mutex;
  EXPECT_EQ(mutex.Wait(-1), -1);
  EXPECT_FALSE(mutex.Release());
  ASSERT_TRUE(mutex.Create(name.c_str()));
  EXPECT_TRUE(mutex.Create(ignored.c_str()));
  ASSERT_EQ(mutex.Wait(0), 0);
  EXPECT_EQ(tried_by_other(name), 0x102);
}

TEST(MutexEx, CopiesShareOneHandleThatTheFirstDestructorCloses) {
  const MutexName name, other;
  CMutexEx assigned(other.c_str());
  std::optional<CMutexEx> first(name.c_str());
  CMutexEx copy(*first);
  assigned = copy;
  ASSERT_EQ(assigned.Wait(0), 0);
  EXPECT_EQ(tried_by_other(name), 0x102) << "the assigned object still means its former mutex";
  first.reset();
  const CMutexEx reused(other.c_str());
  for (CMutexEx *stale : {&copy, &assigned}) {
    EXPECT_EQ(stale->Wait(0), -1);
    EXPECT_FALSE(stale->Release());
  }
  EXPECT_EQ(tried_by_other(other), 0);
  EXPECT_EQ(tried_by_other(name), 0x102) << "closing the handle released the mutex";
}

TEST(ByDesign, DeleteMutexDoesNothing) {
  const MutexName name;
  CMutexEx mutex(name.c_str());
  ASSERT_EQ(mutex.Wait(0), 0);
  CMutexEx::DeleteMutex();
  EXPECT_EQ(tried_by_other(name), 0x102);
}

}  // namespace
