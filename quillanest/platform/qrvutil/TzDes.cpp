#include "quillanest/platform/qrvutil/TzDes.h"

#include <algorithm>
#include <memory>
#include <openssl/evp.h>
#include <stdexcept>
#include <vector>

#include "quillanest/platform/InstallRoot.h"
#include "quillanest/platform/Profile.h"
#include "quillanest/platform/TextFile.h"

namespace quillanest {
namespace {

using Bytes = std::vector<unsigned char>;
using Key = std::array<unsigned char, 64>;

constexpr std::string_view kPrefix = "qnp1.";
constexpr std::string_view kDigits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";
constexpr std::size_t kTagSize = 16;
// Stands in front of every password, so that an empty one is enciphered like any other.
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

// Nothing for a text that to_base64url would not have made.
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

struct CipherFree {
  void operator()(EVP_CIPHER *cipher) const { EVP_CIPHER_free(cipher); }
  void operator()(EVP_CIPHER_CTX *context) const { EVP_CIPHER_CTX_free(context); }
};

// An empty text in place of an enciphered one would open the account, and a text that could not be deciphered would be
// enciphered once more by the next save, so there is no result at all.
[[noreturn]] void raise_cipher_failure() { throw std::runtime_error("passwords cannot be enciphered"); }

// AES-SIV over one message; `tag` is written when enciphering and checked when deciphering. Nothing when the message
// does not authenticate, or cannot be enciphered; raises when the library lacks what it needs for either.
enum class Direction { kDecipher = 0, kEncipher = 1 };

std::optional<Bytes> aes_siv(const Key &key, const Bytes &message, std::array<unsigned char, kTagSize> &tag,
                             Direction direction) {
  const std::unique_ptr<EVP_CIPHER, CipherFree> cipher(EVP_CIPHER_fetch(nullptr, "AES-256-SIV", nullptr));
  const std::unique_ptr<EVP_CIPHER_CTX, CipherFree> context(EVP_CIPHER_CTX_new());
  if (cipher == nullptr || context == nullptr) raise_cipher_failure();
  const bool enciphering = direction == Direction::kEncipher;
  if (EVP_CipherInit_ex(context.get(), cipher.get(), nullptr, key.data(), nullptr, enciphering ? 1 : 0) != 1) {
    raise_cipher_failure();
  }
  if (!enciphering && EVP_CIPHER_CTX_ctrl(context.get(), EVP_CTRL_AEAD_SET_TAG, kTagSize, tag.data()) != 1) {
    raise_cipher_failure();
  }
  Bytes result(message.size());
  int size = 0;
  int rest = 0;
  std::array<unsigned char, kTagSize> end{};
  if (EVP_CipherUpdate(context.get(), result.data(), &size, message.data(), static_cast<int>(message.size())) != 1 ||
      EVP_CipherFinal_ex(context.get(), end.data(), &rest) != 1) {
    return std::nullopt;
  }
  if (enciphering && EVP_CIPHER_CTX_ctrl(context.get(), EVP_CTRL_AEAD_GET_TAG, kTagSize, tag.data()) != 1) {
    return std::nullopt;
  }
  return result;
}

Key digest_of(std::string_view secret) {
  Key key{};
  unsigned int size = 0;
  if (EVP_Digest(secret.data(), secret.size(), key.data(), &size, EVP_sha512(), nullptr) != 1) raise_cipher_failure();
  return key;
}

// Everybody has this key.
const Key &built_in_key() {
  static const Key key = digest_of("Quillanest passwords are hidden, not protected, by this key");
  return key;
}

std::optional<std::string> open_with(const Key &key, const Bytes &sealed) {
  std::array<unsigned char, kTagSize> tag{};
  std::copy_n(sealed.begin(), kTagSize, tag.begin());
  const Bytes message(sealed.begin() + kTagSize, sealed.end());
  const std::optional<Bytes> clear = aes_siv(key, message, tag, Direction::kDecipher);
  if (!clear || clear->empty() || clear->front() != kMark) return std::nullopt;
  return std::string(clear->begin() + 1, clear->end());
}

}  // namespace

PasswordCipher PasswordCipher::from_configuration(const std::string &configuration_file) {
  PasswordCipher cipher;
  const std::string named = profile_text(configuration_file, kConfigurationSection, "PasswdKeyFile");
  if (named.empty()) return cipher;
  const std::optional<FileText> secret = read_file(resolve_in_root(configuration_file, named));
  if (secret && !secret->view().empty()) cipher.configured_ = digest_of(secret->view());
  return cipher;
}

std::optional<std::string> PasswordCipher::open(std::string_view text) const {
  const std::optional<Bytes> sealed = from_base64url(text.substr(kPrefix.size()));
  if (!sealed || sealed->size() <= kTagSize) return std::nullopt;
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
  Bytes message{kMark};
  message.insert(message.end(), clear.begin(), clear.end());
  std::array<unsigned char, kTagSize> tag{};
  const std::optional<Bytes> enciphered =
      aes_siv(configured_ ? *configured_ : built_in_key(), message, tag, Direction::kEncipher);
  if (!enciphered) raise_cipher_failure();
  Bytes sealed(tag.begin(), tag.end());
  sealed.insert(sealed.end(), enciphered->begin(), enciphered->end());
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
