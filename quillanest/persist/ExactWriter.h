// Writing a data file whose values come back exactly.
#pragma once

#include <string>

#include "quillanest/persist/ModifiedMarks.h"
#include "quillanest/platform/TextFile.h"
#include "quillanest/settings/PasswordCipher.h"

namespace quillanest {

// How a data file is written.
struct FileForm {
  char separator;
  bool use_caption_names;
};

// Writes a table's header and records; the marks of the records are remembered and cleared. False, with the reasons
// reported, if a value would not come back: the new content must not be kept then.
[[nodiscard]] bool write_exactly(CRtTable &table, const TableView &view, FileReplacement &file,
                                 const PasswordCipher &cipher, const FileForm &form, const std::string &path,
                                 ModifiedMarks &marks);

}  // namespace quillanest
