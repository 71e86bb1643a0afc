// An image whose descriptors other threads change while calls run on it.
#include <cstddef>
#include <cstdint>

#include "tests/model/ImageRun.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, std::size_t size) {
  quillanest::model::run_image({bytes, size}, quillanest::model::run_contended);
  return 0;
}
