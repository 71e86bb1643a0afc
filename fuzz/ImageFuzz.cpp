// A whole image: a schema made from the input, and calls on its tables, databases and managers.
#include <cstddef>
#include <cstdint>

#include "fuzz/ImageRun.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, std::size_t size) {
  quillanest::fuzz::Input input(bytes, size);
  const bool hostile = input.flag();
  quillanest::fuzz::run_image(input, hostile ? quillanest::fuzz::run_hostile : quillanest::fuzz::run_with_model);
  return 0;
}
