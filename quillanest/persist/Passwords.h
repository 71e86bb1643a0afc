// Whether a table's passwords can be saved.
#pragma once

#include "quillanest/kernel/TableView.h"
#include "quillanest/settings/PasswordCipher.h"

namespace quillanest {

// False if a PASSWD value is the start of a text that another key enciphered: loaded without that key, it was cut to
// the field, and saving it would put the useless start in the place of the whole. Such a table is not saved, so that
// the store keeps what it has until the key is back.
[[nodiscard]] bool passwords_are_whole(const TableView &view, const PasswordCipher &cipher);

}  // namespace quillanest
