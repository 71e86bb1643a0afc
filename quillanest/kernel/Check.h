// Checking a schema file without building anything.
//
//   for (const quillanest::Finding &found : quillanest::check_schema("plant.schema")) {
//     std::printf("plant.schema:%d:%d: %s [%s]\n", found.line, found.column, found.text.c_str(), found.code.c_str());
//   }
//
// The lines are read by the parser that a start uses. A start stops at the first line that it refuses; a check goes on
// and looks at the whole file, because what a start meets first is often not the cause.
#pragma once

#include <string>
#include <vector>

#include "quillanest/System.h"
#include "quillanest/base/Events.h"

namespace quillanest {

struct Finding {
  // kError: a start refuses the file, or takes it and loses or garbles data with it. kWarning: probably not what was
  // meant. kNote: worth knowing.
  Severity severity = Severity::kNote;
  int line = 0;      // from 1; 0 for the whole file
  int column = 0;    // in bytes, from 1; 0 for the whole line
  std::string code;  // "schema.type": stable, all are in docs/events.md
  std::string text;  // one sentence without a line end
};

// Everything that is wrong with a schema file, by line and column; empty if nothing is. A path that is null or empty,
// or leads to no file that can be read, is one finding. With Strict=1 a start refuses a file with a finding of kError.
// Raises std::bad_alloc, and std::system_error if the file cannot be read to its end. Any thread may call it.
[[nodiscard]] QUILLANEST_API std::vector<Finding> check_schema(const char *path);

}  // namespace quillanest
