// A context of our own keeps OpenSSL's at-exit handler away from what is used here. The handler exists if the program
// used OpenSSL before this library was loaded; otherwise it is left out, from which drivers of stores profit.
#include "quillanest/base/Crypto.h"

#include <algorithm>
#include <memory>
#include <openssl/crypto.h>
#include <openssl/evp.h>

#include "quillanest/base/Loading.h"
#include "quillanest/base/Neutral.h"

namespace quillanest {
namespace {

struct Free {
  void operator()(OSSL_LIB_CTX *library) const { OSSL_LIB_CTX_free(library); }
  void operator()(EVP_CIPHER *cipher) const { EVP_CIPHER_free(cipher); }
  void operator()(EVP_CIPHER_CTX *context) const { EVP_CIPHER_CTX_free(context); }
  void operator()(EVP_MD *digest) const { EVP_MD_free(digest); }
};

template <class Thing>
using Owned = std::unique_ptr<Thing, Free>;

// Raises instead of returning a text: an empty one in place of an enciphered one would open the account, and the next
// save would encipher once more what could not be deciphered.
[[noreturn]] void raise_failure() { throw ServiceFailure("OpenSSL lacks memory or a cipher"); }

struct Algorithms {
  Algorithms()
      : library(OSSL_LIB_CTX_new()),
        siv(EVP_CIPHER_fetch(library.get(), "AES-256-SIV", nullptr)),
        sha256(EVP_MD_fetch(library.get(), "SHA2-256", nullptr)),
        sha512(EVP_MD_fetch(library.get(), "SHA2-512", nullptr)) {
    if (library == nullptr || siv == nullptr || sha256 == nullptr || sha512 == nullptr) raise_failure();
  }

  static const Algorithms &instance() {
    static const Algorithms &made =
        *std::make_unique<Algorithms>().release();  // never destroyed: static objects use it
    return made;
  }

  Owned<OSSL_LIB_CTX> library;
  Owned<EVP_CIPHER> siv;
  Owned<EVP_MD> sha256;
  Owned<EVP_MD> sha512;
};

template <class Digest>
void digest_into(Digest &digest, std::string_view text, const EVP_MD *algorithm) {
  unsigned int size = 0;
  if (EVP_Digest(text.data(), text.size(), digest.data(), &size, algorithm, nullptr) != 1 || size != digest.size()) {
    raise_failure();
  }
}

enum class Direction { kDecipher = 0, kEncipher = 1 };

Owned<EVP_CIPHER_CTX> siv_with(const SivKey &key, Direction direction) {
  Owned<EVP_CIPHER_CTX> context(EVP_CIPHER_CTX_new());
  const EVP_CIPHER *cipher = Algorithms::instance().siv.get();
  if (context == nullptr ||
      EVP_CipherInit_ex(context.get(), cipher, nullptr, key.data(), nullptr, static_cast<int>(direction)) != 1) {
    raise_failure();
  }
  return context;
}

std::optional<Bytes> transform(EVP_CIPHER_CTX *context, const Bytes &message) {
  Bytes result(message.size());
  int size = 0;
  int rest = 0;
  std::array<unsigned char, kSivTagSize> end{};
  if (EVP_CipherUpdate(context, result.data(), &size, message.data(), static_cast<int>(message.size())) != 1 ||
      EVP_CipherFinal_ex(context, end.data(), &rest) != 1) {
    return std::nullopt;
  }
  return result;
}

// The first use makes the cipher fetch its parts, which OpenSSL keeps from then on.
[[gnu::constructor(kWhenLoaded)]] void get_ready() {
  (void)OPENSSL_init_crypto(OPENSSL_INIT_NO_ATEXIT, nullptr);
  (void)neutral_on_failure(false, [] {
    SivTag tag{};
    return !siv_encipher(sha512({}), sha256({}), tag).empty();
  });
}

}  // namespace

Bytes sha256(std::string_view text) {
  Bytes digest(32);
  digest_into(digest, text, Algorithms::instance().sha256.get());
  return digest;
}

SivKey sha512(std::string_view text) {
  SivKey digest{};
  digest_into(digest, text, Algorithms::instance().sha512.get());
  return digest;
}

Bytes siv_encipher(const SivKey &key, const Bytes &message, SivTag &tag) {
  const Owned<EVP_CIPHER_CTX> context = siv_with(key, Direction::kEncipher);
  std::optional<Bytes> enciphered = transform(context.get(), message);
  if (!enciphered || EVP_CIPHER_CTX_ctrl(context.get(), EVP_CTRL_AEAD_GET_TAG, kSivTagSize, tag.data()) != 1) {
    raise_failure();
  }
  return *std::move(enciphered);
}

std::optional<Bytes> siv_decipher(const SivKey &key, const Bytes &message, const SivTag &tag) {
  const Owned<EVP_CIPHER_CTX> context = siv_with(key, Direction::kDecipher);
  SivTag expected = tag;
  if (EVP_CIPHER_CTX_ctrl(context.get(), EVP_CTRL_AEAD_SET_TAG, kSivTagSize, expected.data()) != 1) raise_failure();
  return transform(context.get(), message);
}

}  // namespace quillanest
