// A whole image: a schema made from the input, and calls on its tables, databases and managers.
#include <cstddef>
#include <cstdint>

#include "fuzz/ImageRun.h"

namespace quillanest::fuzz {

void ImageSurroundings::remove_data() const {
  for (const std::string &name : root.files("data")) (void)std::remove(root.path("data/" + name).c_str());
}

}  // namespace quillanest::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, std::size_t size) {
  static const quillanest::fuzz::ImageSurroundings surroundings;
  quillanest::fuzz::Input input(bytes, size);
  if (input.flag()) {
    quillanest::fuzz::run_hostile(surroundings, input);
  } else {
    quillanest::fuzz::run_with_model(surroundings, input);
  }
  for (const int key : {kManagerKey, 1, 2, 3}) {
    quillanest::fuzz::require(CShareMemory(key).Attach() == nullptr, "nothing is left of an image");
  }
  return 0;
}
