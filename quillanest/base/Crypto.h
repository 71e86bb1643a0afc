// Digests, and the cipher of passwords.
//
// Lifetime: what the functions need is made when the library is loaded and never freed, so they also work in the
// destructors of static objects, after OpenSSL has cleaned up. If memory was short at that time, it is made on first
// use.
// Threads: all functions may run on any thread.
#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <string_view>
#include <vector>

namespace quillanest {

using Bytes = std::vector<unsigned char>;

inline constexpr std::size_t kSivTagSize = 16;
using SivKey = std::array<unsigned char, 64>;
using SivTag = std::array<unsigned char, kSivTagSize>;

// The digest of a text, 32 or 64 bytes. Raises ServiceFailure if memory is short.
[[nodiscard]] Bytes sha256(std::string_view text);
[[nodiscard]] SivKey sha512(std::string_view text);

// AES-SIV (RFC 5297) over one message without associated data. Enciphering fills in `tag`; deciphering returns nothing
// for a message that does not belong to the tag. Both raise ServiceFailure if memory is short.
[[nodiscard]] Bytes siv_encipher(const SivKey &key, const Bytes &message, SivTag &tag);
[[nodiscard]] std::optional<Bytes> siv_decipher(const SivKey &key, const Bytes &message, const SivTag &tag);

}  // namespace quillanest
