// The reversible text form of passwords, used wherever a PASSWD value leaves the image.
//
// The form is a fixed prefix and base64url text: no ';', '%', quotes, blanks or line ends. It is AES-SIV (RFC 5297), so
// it is deterministic and authenticated. The key comes from the file that key PasswdKeyFile of section "Quillanest"
// names (any content; absolute, or relative to the installation root). Without such a file a built-in key is used,
// which hides passwords from a glance but does not protect them: every copy of the library has it.
// Threads: all functions may run on any thread.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "quillanest/base/Crypto.h"

namespace quillanest {

// The state of the key file that a configuration file names.
enum class PasswordKey : std::uint8_t {
  kUsable,
  kNotNamed,
  kMissing,  // or empty, or it may not be read
  kOpen      // usable, but another user's, or with rights for other users
};
[[nodiscard]] PasswordKey key_of_passwords(const std::string &configuration_file);

// Enciphers and deciphers with the keys it was built with. Build one for a whole load or save.
class PasswordCipher {
 public:
  // The keys that the configuration file names now.
  [[nodiscard]] static PasswordCipher from_configuration(const std::string &configuration_file);

  // True for a text with the prefix of a text form.
  [[nodiscard]] static bool is_text_form(std::string_view text);

  // True for a text form that these keys do not open.
  [[nodiscard]] bool is_foreign(std::string_view text) const;

  // The text form of a clear password. A foreign text is returned unchanged, so that saving does not bury what another
  // key enciphered. Throws ServiceFailure if the cipher is unavailable.
  [[nodiscard]] std::string encrypt(std::string_view clear) const;

  // The clear password of a text form. A text without the prefix is taken for a clear password that someone typed; a
  // text with the prefix that does not authenticate is returned unchanged. Throws ServiceFailure if the cipher is
  // unavailable.
  [[nodiscard]] std::string decrypt(std::string_view text) const;

 private:
  PasswordCipher() = default;
  [[nodiscard]] std::optional<std::string> open(std::string_view text) const;

  std::optional<SivKey> configured_;
};

// The same with the keys of the installation's configuration, read anew at every call.
class TzDes {
 public:
  [[nodiscard]] static std::string SimpleEncrypt(const char *clear);
  [[nodiscard]] static std::string SimpleDecrypt(const char *text);
};

}  // namespace quillanest
