// An image whose descriptors other threads change while calls run on it.
#include <cstddef>
#include <cstdint>

#include "fuzz/ImageRun.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, std::size_t size) {
  quillanest::fuzz::run_image({bytes, size}, quillanest::fuzz::run_contended);
  return 0;
}
