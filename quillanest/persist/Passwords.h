// Whether a table's passwords can be loaded and saved.
#pragma once

#include <string>
#include <string_view>

#include "quillanest/kernel/TableView.h"
#include "quillanest/settings/PasswordCipher.h"

namespace quillanest {

// False if a PASSWD value is the start of a text that another key enciphered: loaded without that key, it was cut to
// the field, and saving it would replace the whole text by its useless start. Such a table is not saved, so that the
// store keeps the whole text until the key is back.
[[nodiscard]] bool passwords_are_whole(const TableView &view, const PasswordCipher &cipher);

// Reports a key file that is named and cannot be used, if the table has a PASSWD field. In the strict mode that, and
// passwords without a key file, are errors, and the result is false.
[[nodiscard]] bool allow_passwords(const TableView &view, const std::string &configuration_file, std::string_view place,
                                   bool is_strict);

}  // namespace quillanest
