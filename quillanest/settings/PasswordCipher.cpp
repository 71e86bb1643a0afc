#include "quillanest/settings/PasswordCipher.h"

#include <algorithm>

#include "quillanest/base/Crypto.h"
#include "quillanest/platform/InstallRoot.h"
#include "quillanest/platform/TextFile.h"
#include "quillanest/settings/Configuration.h"

namespace quillanest {
namespace {

constexpr std::string_view kPrefix = "qnp1.";
constexpr std::string_view kDigits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";
// Put before every password, so that an empty one is enciphered like any other.
constexpr unsigned char kMark = 'p';

std::string to_base64url(const Bytes &bytes) {
  std::string text;
  unsigned int buffer = 0;
  int bits = 0;
  for (const unsigned char byte : bytes) {
    buffer = (buffer << 8 | byte) & 0xFFFF;
    for (bits += 8; bits >= 6; bits -= 6) text += kDigits[buffer >> (bits - 6) & 63];
  }
  if (bits > 0) text += kDigits[buffer << (6 - bits) & 63];
  return text;
}

// Returns nothing for a text that to_base64url would not have made.
std::optional<Bytes> from_base64url(std::string_view text) {
  Bytes bytes;
  unsigned int buffer = 0;
  int bits = 0;
  for (const char c : text) {
    const std::size_t digit = kDigits.find(c);
    if (digit == std::string_view::npos) return std::nullopt;
    buffer = (buffer << 6 | static_cast<unsigned int>(digit)) & 0xFFFF;
    bits += 6;
    if (bits < 8) continue;
    bits -= 8;
    bytes.push_back(static_cast<unsigned char>(buffer >> bits));
  }
  if (to_base64url(bytes) != text) return std::nullopt;
  return bytes;
}

// Every copy of the library has this key.
SivKey built_in_key() { return sha512("Quillanest passwords are hidden, not protected, by this key"); }

std::optional<std::string> open_with(const SivKey &key, const Bytes &sealed) {
  SivTag tag{};
  std::copy_n(sealed.begin(), kSivTagSize, tag.begin());
  const Bytes message(sealed.begin() + kSivTagSize, sealed.end());
  const std::optional<Bytes> clear = siv_decipher(key, message, tag);
  if (!clear || clear->empty() || clear->front() != kMark) return std::nullopt;
  return std::string(clear->begin() + 1, clear->end());
}

}  // namespace

PasswordKey key_of_passwords(const std::string &configuration_file) {
  const std::string named = profile_text(configuration_file, kConfigurationSection, "PasswdKeyFile");
  if (named.empty()) return PasswordKey::kNotNamed;
  const std::string path = resolve_in_root(configuration_file, named);
  const std::optional<FileText> secret = read_file(path);
  if (!secret || secret->view().empty()) return PasswordKey::kMissing;
  return is_private_file(path) ? PasswordKey::kUsable : PasswordKey::kOpen;
}

PasswordCipher PasswordCipher::from_configuration(const std::string &configuration_file) {
  PasswordCipher cipher;
  const std::string named = profile_text(configuration_file, kConfigurationSection, "PasswdKeyFile");
  if (named.empty()) return cipher;
  const std::optional<FileText> secret = read_file(resolve_in_root(configuration_file, named));
  if (secret && !secret->view().empty()) cipher.configured_ = sha512(secret->view());
  return cipher;
}

std::optional<std::string> PasswordCipher::open(std::string_view text) const {
  const std::optional<Bytes> sealed = from_base64url(text.substr(kPrefix.size()));
  if (!sealed || sealed->size() <= kSivTagSize) return std::nullopt;
  if (configured_) {
    if (std::optional<std::string> clear = open_with(*configured_, *sealed)) return clear;
  }
  // What was saved before a key file was named stays readable.
  return open_with(built_in_key(), *sealed);
}

bool PasswordCipher::is_text_form(std::string_view text) { return text.starts_with(kPrefix); }

bool PasswordCipher::is_foreign(std::string_view text) const { return is_text_form(text) && !open(text); }

std::string PasswordCipher::encrypt(std::string_view clear) const {
  if (is_foreign(clear)) return std::string(clear);
  Bytes message(clear.size() + 1, kMark);
  std::copy(clear.begin(), clear.end(), message.begin() + 1);
  SivTag tag{};
  const Bytes enciphered = siv_encipher(configured_ ? *configured_ : built_in_key(), message, tag);
  Bytes sealed(tag.size() + enciphered.size());
  std::copy(enciphered.begin(), enciphered.end(), std::copy(tag.begin(), tag.end(), sealed.begin()));
  return std::string(kPrefix) + to_base64url(sealed);
}

std::string PasswordCipher::decrypt(std::string_view text) const {
  if (!is_text_form(text)) return std::string(text);
  return open(text).value_or(std::string(text));
}

std::string TzDes::SimpleEncrypt(const char *clear) {
  return PasswordCipher::from_configuration(install_root() + std::string(kConfigurationFile)).encrypt(clear);
}

std::string TzDes::SimpleDecrypt(const char *text) {
  return PasswordCipher::from_configuration(install_root() + std::string(kConfigurationFile)).decrypt(text);
}

}  // namespace quillanest
