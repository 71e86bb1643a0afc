// A whole image: a schema made from the input, and calls on its tables, databases and managers.
#include <cstddef>
#include <cstdint>

#include "tests/model/ImageRun.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, std::size_t size) {
  quillanest::model::Input input(bytes, size);
  const bool hostile = input.flag();
  quillanest::model::run_image(input, hostile ? quillanest::model::run_hostile : quillanest::model::run_with_model);
  return 0;
}
