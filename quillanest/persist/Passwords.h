// Whether a table's passwords can be saved.
#pragma once

#include "quillanest/kernel/TableView.h"
#include "quillanest/settings/PasswordCipher.h"

namespace quillanest {

// False if a PASSWD value is the start of a text that another key enciphered: loaded without that key, it was cut to
// the field, and saving it would replace the whole text by its useless start. Such a table is not saved, so that the
// store keeps the whole text until the key is back.
[[nodiscard]] bool passwords_are_whole(const TableView &view, const PasswordCipher &cipher);

}  // namespace quillanest
