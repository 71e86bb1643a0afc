// A mutex is a robust, recursive, process-shared pthread mutex in a small file of a per-user folder in the memory file
// system. The file is initialised once under a file lock; after that the robust list of the operating system's kernel
// handles owners that die, thread or process. File locks could not be the mutex itself: they belong to a process, so
// they neither exclude two of its threads nor notice the death of one.
//
// Mappings are cached by name for the life of the process, so opening a name again is a look-up without a lock.
#include "quillanest/platform/NamedMutex.h"

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <errno.h>
#include <fcntl.h>
#include <memory>
#include <mutex>
#include <new>
#include <pthread.h>
#include <string>
#include <sys/mman.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include "quillanest/base/HandleTable.h"
#include "quillanest/base/Loading.h"
#include "quillanest/base/Neutral.h"
#include "quillanest/platform/FileSizeSignal.h"
#include "quillanest/platform/posix/MutexFile.h"

namespace quillanest {

namespace {

// The length and both ends of a name: the whole of a short one, and enough to distinguish those of databases. Every
// edit looks its mutex up, so names are compared as numbers.
struct NameEnds {
  explicit NameEnds(std::string_view name) : size(name.size()) {
    if (size >= sizeof first) {
      std::memcpy(&first, name.data(), sizeof first);
      std::memcpy(&last, name.data() + size - sizeof last, sizeof last);
    } else if (size >= sizeof(std::uint32_t)) {
      std::memcpy(&first, name.data(), sizeof(std::uint32_t));
      std::memcpy(&last, name.data() + size - sizeof(std::uint32_t), sizeof(std::uint32_t));
    } else {
      for (const char c : name) first = first << 8 | static_cast<unsigned char>(c);
    }
  }
  bool operator==(const NameEnds &) const = default;

  [[nodiscard]] bool is_whole_name() const { return size <= sizeof first + sizeof last; }

  std::size_t size;
  std::uint64_t first = 0;
  std::uint64_t last = 0;
};

}  // namespace

struct MappedMutex {
  // The text may change while it is read: everything comes from the one copy of it.
  explicit MappedMutex(std::string_view text) : name(text), ends(name) {}

  std::string name;
  NameEnds ends;
  pthread_mutex_t *mutex = nullptr;
  MappedMutex *next = nullptr;  // of the same bucket
};

namespace {

// What a mutex file holds. The magic number goes in last: a file without it was never finished and is made anew.
struct MutexContent {
  std::atomic<std::uint64_t> magic;
  pthread_mutex_t mutex;
};
static_assert(std::atomic<std::uint64_t>::is_always_lock_free);

// Changes with the layout of the file. It is in the file's name too, so that programs of two builds never share a mutex
// they read differently.
constexpr unsigned int kLayout = 0x3100 + sizeof(MutexContent);
constexpr std::uint64_t kMagic = 0x514E4D5554580000 + kLayout;

bool initialise(pthread_mutex_t &mutex) {
  pthread_mutexattr_t attributes;
  if (pthread_mutexattr_init(&attributes) != 0) return false;
  const bool done = pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE) == 0 &&
                    pthread_mutexattr_setpshared(&attributes, PTHREAD_PROCESS_SHARED) == 0 &&
                    pthread_mutexattr_setrobust(&attributes, PTHREAD_MUTEX_ROBUST) == 0 &&
                    pthread_mutex_init(&mutex, &attributes) == 0;
  pthread_mutexattr_destroy(&attributes);
  return done;
}

bool reserve(int descriptor) {
  const FileSizeSignalBlock block;
  int result = EINTR;
  while (result == EINTR) result = posix_fallocate(descriptor, 0, static_cast<off_t>(sizeof(MutexContent)));
  return result == 0;
}

// Maps the mutex in an open file whose lock the caller holds, and initialises it if that was never finished. A file
// with another magic number is left alone: it may be in use.
pthread_mutex_t *map_file(int descriptor) {
  struct stat status {};
  if (fstat(descriptor, &status) != 0 || !S_ISREG(status.st_mode) || status.st_uid != geteuid()) return nullptr;
  // A umask must not keep its owner from opening the file the next time.
  if ((status.st_mode & 07777) != 0600 && fchmod(descriptor, 0600) != 0) return nullptr;
  const bool is_whole = static_cast<std::size_t>(status.st_size) >= sizeof(MutexContent);
  if (!is_whole && !reserve(descriptor)) return nullptr;
  void *address = mmap(nullptr, sizeof(MutexContent), PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0);
  if (address == MAP_FAILED) return nullptr;
  auto *content = static_cast<MutexContent *>(address);
  const std::uint64_t magic = is_whole ? content->magic.load(std::memory_order_acquire) : 0;
  if (magic == kMagic) return &content->mutex;
  if (magic != 0 || !initialise(content->mutex)) {
    munmap(address, sizeof(MutexContent));
    return nullptr;
  }
  content->magic.store(kMagic, std::memory_order_release);
  return &content->mutex;
}

// The mutex called `name`, mapped for the life of the process; null if the system refuses.
pthread_mutex_t *map_mutex(std::string_view name) {
  const MutexFile file(name, kLayout);
  return file.descriptor() < 0 ? nullptr : map_file(file.descriptor());
}

class MutexTable {
 public:
  // A fork copies a whole table: no other thread is adding to it at that time. The mutexes keep their owners.
  MutexTable() {
    const int result = pthread_atfork([] { instance().growing_.lock(); }, [] { instance().growing_.unlock(); },
                                      [] { instance().growing_.unlock(); });
    if (result != 0) throw std::bad_alloc();
  }

  static MutexTable &instance() {
    static MutexTable &table = *std::make_unique<MutexTable>().release();  // never destroyed: static objects use it
    return table;
  }

  // The mutex of that name, mapped on first use; null if the system refuses.
  MappedMutex *find_or_map(std::string_view name) {
    const NameEnds ends(name);
    MappedMutex *found = find_in(buckets_[bucket_of(ends)], name, ends);
    return found != nullptr ? found : map_new(name);
  }

  HandleTable<MappedMutex> handles;

 private:
  static constexpr std::size_t kBuckets = 256;

  // A function of its own, because find_or_map() runs in every edit and the guard of a larger frame takes time.
  [[gnu::noinline]] MappedMutex *map_new(std::string_view name) {
    const std::lock_guard lock(growing_);
    auto mapped = std::make_unique<MappedMutex>(name);
    std::atomic<MappedMutex *> &own_bucket = buckets_[bucket_of(mapped->ends)];
    if (MappedMutex *found = find_in(own_bucket, mapped->name, mapped->ends)) return found;
    mapped->mutex = map_mutex(mapped->name);  // last of what can fail, because the mapping is never undone
    if (mapped->mutex == nullptr) return nullptr;
    mapped->next = own_bucket.load(std::memory_order_relaxed);
    own_bucket.store(mapped.get(), std::memory_order_release);
    return mapped.release();
  }

  static std::size_t bucket_of(const NameEnds &ends) {
    constexpr std::uint64_t kSpread = 0x9E3779B97F4A7C15;
    return ((ends.first * kSpread ^ ends.last ^ ends.size) * kSpread) >> 56;
  }

  static MappedMutex *find_in(const std::atomic<MappedMutex *> &bucket, std::string_view name, const NameEnds &ends) {
    const auto is_other = [&](const MappedMutex &mapped) {
      return mapped.ends != ends || (!ends.is_whole_name() && mapped.name != name);
    };
    MappedMutex *mapped = bucket.load(std::memory_order_acquire);
    while (mapped != nullptr && is_other(*mapped)) mapped = mapped->next;
    return mapped;
  }

  std::array<std::atomic<MappedMutex *>, kBuckets> buckets_{};
  std::mutex growing_;
};

timespec deadline_after(int milliseconds) {
  timespec time{};
  clock_gettime(CLOCK_MONOTONIC, &time);
  time.tv_sec += milliseconds / 1000;
  time.tv_nsec += (milliseconds % 1000) * 1'000'000L;
  if (time.tv_nsec >= 1'000'000'000) {
    time.tv_sec += 1;
    time.tv_nsec -= 1'000'000'000;
  }
  return time;
}

// A function of its own for the same reason as map_new(): lock() runs in every edit.
[[gnu::noinline]] int lock_until(pthread_mutex_t &mutex, int timeout_ms) {
  const timespec deadline = deadline_after(timeout_ms);
  return pthread_mutex_clocklock(&mutex, CLOCK_MONOTONIC, &deadline);
}

int lock(pthread_mutex_t &mutex, int timeout_ms) {
  if (timeout_ms < 0) return pthread_mutex_lock(&mutex);
  return timeout_ms == 0 ? pthread_mutex_trylock(&mutex) : lock_until(mutex, timeout_ms);
}

[[gnu::constructor(kWhenLoaded)]] void make_table() {
  (void)neutral_on_failure(false, [] { return MutexTable::instance().handles.find(kNoMutex) == nullptr; });
}

}  // namespace

MappedMutex *find_mutex(std::string_view name) {
  return neutral_on_failure(static_cast<MappedMutex *>(nullptr),
                            [&] { return MutexTable::instance().find_or_map(name); });
}

int wait_mutex(MappedMutex &mutex, int timeout_ms) {
  switch (lock(*mutex.mutex, timeout_ms)) {
    case 0:
      return kWaitSignalled;
    case EOWNERDEAD:
      // The mutex guards the image, in which every record is whole; nothing has to be repaired first.
      return pthread_mutex_consistent(mutex.mutex) == 0 ? kWaitAbandoned : kWaitFailed;
    case ETIMEDOUT:
    case EBUSY:
      return kWaitTimeout;
    default:
      return kWaitFailed;
  }
}

bool release_mutex(MappedMutex &mutex) { return pthread_mutex_unlock(mutex.mutex) == 0; }

MutexHandle open_mutex(std::string_view name) {
  return neutral_on_failure(MutexHandle{kNoMutex}, [&] {
    MutexTable &table = MutexTable::instance();
    MappedMutex *mapped = table.find_or_map(name);
    return mapped == nullptr ? kNoMutex : table.handles.open(mapped);
  });
}

int wait_mutex(MutexHandle handle, int timeout_ms) {
  MappedMutex *mapped = handle == kNoMutex ? nullptr : MutexTable::instance().handles.find(handle);
  return mapped == nullptr ? kWaitFailed : wait_mutex(*mapped, timeout_ms);
}

bool release_mutex(MutexHandle handle) {
  MappedMutex *mapped = handle == kNoMutex ? nullptr : MutexTable::instance().handles.find(handle);
  return mapped != nullptr && release_mutex(*mapped);
}

void close_mutex(MutexHandle handle) {
  if (handle != kNoMutex) (void)MutexTable::instance().handles.close(handle);
}

}  // namespace quillanest
