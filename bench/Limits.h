// What the kernel is measured against: the same work on the same packed bytes, written by hand for one record size.
#pragma once

#include <cstdint>
#include <pthread.h>
#include <string>
#include <unordered_map>

#include "bench/Image.h"

namespace bench {

// The position of a key, or the place where it belongs.
struct Place {
  bool found;
  std::int32_t position;
};

// Searches. They are called and never inlined, because a call is part of what the kernel's callers pay for.
//
// By halving, plainly.
[[nodiscard]] Place search_by_halving(const char *records, std::int32_t count, std::uint32_t key);
// By halving that the processor need not guess at: the next step is computed, not jumped to. Of several equal keys it
// finds the last one.
[[nodiscard]] Place search_without_branches(const char *records, std::int32_t count, std::uint32_t key);
// Where the key lies when no key is missing before it, if its neighbours have other keys, else by halving: the answer
// is that of halving on every ascending area.
[[nodiscard]] Place search_by_distance(const char *records, std::int32_t count, std::uint32_t key);
// The same without a look at the neighbours: right only if no key occurs twice.
[[nodiscard]] Place search_by_bare_distance(const char *records, std::int32_t count, std::uint32_t key);
// Where the key lies when the keys are spread evenly: a guess, a second one at the same slope from the key found there,
// a walk from where that leads, and halving when it gets long or when a neighbour has the key, too.
[[nodiscard]] Place search_by_slope(const char *records, std::int32_t count, std::uint32_t key);

// A mutex of the kind that the kernel's edits take, mapped and ready.
class SharedMutex {
 public:
  SharedMutex();
  ~SharedMutex();
  SharedMutex(const SharedMutex &) = delete;
  SharedMutex &operator=(const SharedMutex &) = delete;

  [[nodiscard]] pthread_mutex_t *get() const { return mutex_; }

 private:
  pthread_mutex_t *mutex_;
};

// One that is looked up by the name of its database for every edit, as programs find it that know no more of it.
class NamedSharedMutex {
 public:
  explicit NamedSharedMutex(const std::string &name = "bench") : name_(name) { mutexes_.try_emplace(name_); }

  [[nodiscard]] pthread_mutex_t *get() const { return mutexes_.find(name_)->second.get(); }

 private:
  std::string name_;
  std::unordered_map<std::string, SharedMutex> mutexes_;
};

class HeldSharedMutex {
 public:
  template <class Mutex>
  explicit HeldSharedMutex(const Mutex &mutex) : mutex_(mutex.get()) {
    pthread_mutex_lock(mutex_);
  }
  ~HeldSharedMutex() { pthread_mutex_unlock(mutex_); }
  HeldSharedMutex(const HeldSharedMutex &) = delete;
  HeldSharedMutex &operator=(const HeldSharedMutex &) = delete;

 private:
  pthread_mutex_t *mutex_;
};

}  // namespace bench
