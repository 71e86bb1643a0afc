// The checker of schema files on any bytes: it ends, and what it says is in order and fit to be shown.
#include <cstdint>
#include <string>
#include <string_view>

#include "quillanest/Check.h"
#include "tests/model/Support.h"

namespace {

using quillanest::model::MemoryFile;
using quillanest::model::require;

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, std::size_t size) {
  static MemoryFile schema;
  schema.write(std::string(bytes, bytes + size));
  int line = 0;
  for (const quillanest::Finding &found : quillanest::check_schema(schema.path())) {
    require(found.line >= line, "findings come by line");
    line = found.line;
    require(found.column >= 0 && !found.code.empty() && !found.text.empty(), "a finding has a code and a sentence");
    require(found.text.find_first_of(std::string_view("\r\n\0", 3)) == std::string::npos, "a sentence is one line");
  }
  return 0;
}
