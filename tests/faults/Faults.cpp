#include "tests/faults/Faults.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <filesystem>
#include <glob.h>
#include <new>
#include <openssl/evp.h>
#include <pthread.h>
#include <sql.h>
#include <sqlext.h>
#include <sqlite3.h>
#include <stdexcept>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

#include "quillanest/base/Loading.h"

namespace fs = std::filesystem;

namespace faults {
namespace {

constexpr int kShort = -1;

#define CALL(name, ...) CALL_ROW(name, name, true, __VA_ARGS__)
#define CALL_IF(name, when, ...) CALL_ROW(name, name, when, __VA_ARGS__)
#define CALL_AS(name, symbol, ...) CALL_ROW(name, symbol, true, __VA_ARGS__)

enum RowNumber {
  kNew,
#define CALL_ROW(name, ...) k_##name,
#include "tests/faults/Calls.inc"
#undef CALL_ROW
  kRowCount
};

constexpr std::array<Row, kRowCount> kRows{{
    {"new", {ENOMEM}},
#define CALL_ROW(name, symbol, when, result, parameters, arguments, failure, ...) {#name, {__VA_ARGS__}},
#include "tests/faults/Calls.inc"
#undef CALL_ROW
}};

std::atomic<bool> g_armed{false};
Plan g_plan;
std::array<std::atomic<long>, kRowCount + 1> g_calls;  // the last one is of all rows
std::atomic<long> g_failed;
std::atomic<long> g_live_blocks;
std::array<char, 200> g_text;

// Whether the planned error can meet an open() that matters. A file that may not be read counts as missing; what is
// opened for reading and writing lies in memory, where nothing is interrupted.
bool is_possible_for(int flags) {
  const int access = flags & O_ACCMODE;
  return (g_plan.error != EACCES || access != O_RDONLY) && (g_plan.error != EINTR || access != O_RDWR);
}

// Counts a call; the error to fail it with, 0 for none. EFBIG comes with the signal that the system sends.
int injected(int row) noexcept {
  if (!g_armed) return 0;
  const long own = ++g_calls[static_cast<std::size_t>(row)];
  const long any = ++g_calls[kRowCount];
  if (g_plan.nth == 0 || (g_plan.row != kAny && g_plan.row != row)) return 0;
  const long number = g_plan.row == kAny ? any : own;
  if (g_plan.onward ? number < g_plan.nth : number != g_plan.nth) return 0;
  ++g_failed;
  const int error = g_plan.row == kAny ? kRows[static_cast<std::size_t>(row)].errors[0] : g_plan.error;
  if (error == EFBIG) (void)std::raise(SIGXFSZ);
  return error;
}

void say_plan(int signal) {
  g_armed = false;
  (void)!::write(STDERR_FILENO, g_text.data(), std::strlen(g_text.data()));
  (void)std::signal(signal, SIG_DFL);
  (void)std::raise(signal);
}

// The kind of a mutex of this C library has this bit when the mutex is robust.
bool is_robust(const pthread_mutex_t &mutex) { return (mutex.__data.__kind & 0x10) != 0; }

[[gnu::constructor(quillanest::kWhenLoaded - 1)]] void before_loading() {
  const char *const nth = std::getenv(kLoadingFault);
  g_armed = nth != nullptr;
  if (g_armed) g_plan.nth = std::atol(nth);
}

[[gnu::constructor(quillanest::kWhenLoaded + 1)]] void after_loading() { g_armed = false; }

}  // namespace

// The functions that the linker puts in the place of those called.
#define ERRNO(value) (errno = error, value)
#define CODE(value) (code = std::error_code(error, std::generic_category()), value)
#define CALL_ROW(name, symbol, when, result, parameters, arguments, failure, ...) \
  result real_##name parameters __asm__("__real_" #symbol);                       \
  result wrap_##name parameters __asm__("__wrap_" #symbol);                       \
  result wrap_##name parameters {                                                 \
    const int error = (when) ? injected(k_##name) : 0;                            \
    if (error > 0) return static_cast<result>(failure);                           \
    return real_##name arguments;                                                 \
  }
#include "tests/faults/Calls.inc"
#undef CALL_ROW

std::span<const Row> rows() { return kRows; }

std::string Plan::text() const {
  const std::string name = row == kAny ? "any call" : kRows[static_cast<std::size_t>(row)].name;
  return name + " number " + std::to_string(nth) + (onward ? " and all later" : "") + " fails with " +
         std::to_string(error);
}

Armed::Armed(const Plan &plan) {
  g_plan = plan;
  (void)std::snprintf(g_text.data(), g_text.size(), "The program ends when %s.\n", plan.text().c_str());
  for (const int signal : {SIGSEGV, SIGBUS, SIGABRT, SIGXFSZ}) (void)std::signal(signal, say_plan);
  for (auto &count : g_calls) count = 0;
  g_failed = 0;
  g_armed = true;
}

Armed::~Armed() { g_armed = false; }

long calls(int row) { return g_calls[row == kAny ? std::size_t{kRowCount} : static_cast<std::size_t>(row)]; }

long calls(const char *name) {
  for (std::size_t row = 0; row < kRows.size(); ++row) {
    if (std::strcmp(kRows[row].name, name) == 0) return g_calls[row];
  }
  throw std::logic_error(name);
}

long failed() { return g_failed; }
long live_blocks() { return g_live_blocks; }

}  // namespace faults

void *operator new(std::size_t size, std::align_val_t alignment) {
  const auto step = static_cast<std::size_t>(alignment);
  const std::size_t whole = (std::max<std::size_t>(size, 1) + step - 1) / step * step;
  void *block = faults::injected(faults::kNew) != 0 ? nullptr : std::aligned_alloc(step, whole);
  if (block == nullptr) throw std::bad_alloc();
  ++faults::g_live_blocks;
  return block;
}
void *operator new(std::size_t size) { return operator new (size, std::align_val_t{alignof(std::max_align_t)}); }
void operator delete(void *block) noexcept {
  if (block != nullptr) --faults::g_live_blocks;
  std::free(block);
}
void operator delete(void *block, std::size_t) noexcept { operator delete(block); }
void operator delete(void *block, std::align_val_t) noexcept { operator delete(block); }
void operator delete(void *block, std::size_t, std::align_val_t) noexcept { operator delete(block); }
