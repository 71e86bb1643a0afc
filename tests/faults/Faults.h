// Faults on demand: any call of the library to the system, to SQLite, to ODBC, to OpenSSL or for memory fails on its
// N-th occurrence. Calls.inc lists them; the linker's --wrap puts them between this test program's copy of the library
// and the real ones.
#pragma once

#include <span>
#include <string>

namespace faults {

// Row 0 is operator new; kAny counts the calls of all rows together.
inline constexpr int kAny = -1;

struct Row {
  const char *name;
  int errors[8];  // as many as are not 0
};
std::span<const Row> rows();

// What is to fail: call number `nth` of a row, from 1 on, or that one and all after it. 0 fails nothing.
struct Plan {
  int row = kAny;
  int error = 0;  // of a single row; with kAny every row fails with its first one
  long nth = 0;
  bool onward = false;

  [[nodiscard]] std::string text() const;
};

// The environment variable that has the call of that number fail, in a program that is started with it, among those
// that the library makes when it is loaded.
inline constexpr const char *kLoadingFault = "QUILLANEST_LOADING_FAULT";

// Faults as planned while the object lives, in all threads. A program that ends meanwhile says under which plan.
class Armed {
 public:
  explicit Armed(const Plan &plan);
  ~Armed();
  Armed(const Armed &) = delete;
  Armed &operator=(const Armed &) = delete;
};

// Of the present or last Armed, or of the loading: the calls of a row, and how many were made to fail.
long calls(int row);
long calls(const char *name);
long failed();

// Blocks of operator new that are alive.
long live_blocks();

}  // namespace faults
