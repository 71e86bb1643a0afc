// Passwords and their text forms: what is enciphered comes back, and what was tampered with opens nothing.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>

#include "quillanest/settings/PasswordCipher.h"
#include "quillanest/shm/FieldType.h"
#include "tests/model/Input.h"
#include "tests/model/Support.h"

namespace {

using quillanest::PasswordCipher;
using quillanest::TzDes;
using quillanest::model::exact_copy;
using quillanest::model::Input;
using quillanest::model::require;

// What SimpleEncrypt and SimpleDecrypt call, with the built-in key and with one of a file.
struct Ciphers : quillanest::model::RootsInMemory {
  TestRoot root;
  PasswordCipher built_in = PasswordCipher::from_configuration(root.path("conf/fix_Rtdb.ini"));
  PasswordCipher with_file = make_with_file();

 private:
  [[nodiscard]] PasswordCipher make_with_file() const {
    root.write("conf/key", "a secret");
    root.configure("PasswdKeyFile=conf/key\n");
    PasswordCipher cipher = PasswordCipher::from_configuration(root.path("conf/fix_Rtdb.ini"));
    root.configure("");
    return cipher;
  }
};

bool is_safe(std::string_view text) {
  return std::all_of(text.begin(), text.end(), [](char c) {
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '.' || c == '-' ||
           c == '_';
  });
}

void check_clear(const PasswordCipher &cipher, const std::string &clear) {
  const std::string text = cipher.encrypt(clear);
  require(cipher.encrypt(clear) == text, "a password has one text form");
  require(cipher.decrypt(text) == clear, "a password comes back");
  if (cipher.is_foreign(clear)) {
    require(text == clear, "a foreign text passes through");
    return;
  }
  require(PasswordCipher::is_text_form(text) && is_safe(text), "a text form has safe characters only");
  require(!cipher.is_foreign(text), "a cipher opens what it wrote");
}

void check_tampered(const PasswordCipher &cipher, const std::string &clear, std::size_t place, char change) {
  std::string text = cipher.encrypt(clear);
  if (change == 0 || cipher.is_foreign(text)) return;
  char &changed = text[place % text.size()];
  changed = static_cast<char>(changed ^ change);
  require(cipher.decrypt(text) == text, "a text that was tampered with stays as it is");
}

void check_text(const Ciphers &ciphers, const std::string &text) {
  const std::string clear = ciphers.built_in.decrypt(text);
  if (clear != text) require(ciphers.built_in.encrypt(clear) == text, "only the one text form is opened");
  const std::string hidden = ciphers.built_in.encrypt(text);
  require(ciphers.with_file.decrypt(hidden) == text || ciphers.built_in.is_foreign(text),
          "what was enciphered without a key file stays readable");
}

// What the published conversion shows is the text form.
void check_display(const std::string &password) {
  constexpr std::size_t kMore = 40;
  const std::unique_ptr<char[]> value = exact_copy(password);
  const std::size_t length = std::strlen(value.get());
  const auto shown = std::make_unique<char[]>(length * 4 / 3 + kMore);
  CRtField::GetDisplayText(quillanest::kPasswd, value.get(), shown.get());
  require(TzDes::SimpleEncrypt(value.get()) == shown.get(), "a password is shown enciphered");
  require(TzDes::SimpleDecrypt(shown.get()) == value.get(), "a shown password can be read back");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, std::size_t size) {
  static const Ciphers ciphers;
  Input input(bytes, size);
  const std::size_t place = input.choice(256);
  const char change = input.number<char>();
  const std::string text = input.rest();
  check_clear(ciphers.built_in, text);
  check_clear(ciphers.with_file, text);
  check_tampered(ciphers.built_in, text, place, change);
  check_tampered(ciphers.with_file, text, place, change);
  check_text(ciphers, text);
  check_display(text);
  return 0;
}
