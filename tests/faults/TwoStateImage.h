// An image whose records are in one of two states, so that a fault cannot leave what looks like success.
#pragma once

#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <string_view>

#include "tests/store/StoreFixture.h"

// What reading a file calls, and what the ciphers do.
inline const std::string kReading = "new open fstat read ";
inline const std::string kCiphers = "EVP_CIPHER_CTX_new EVP_CipherInit_ex EVP_CIPHER_CTX_ctrl ";

// The offsets of a table's levels and marks.
struct Fields {
  std::size_t level, modified;
};
inline constexpr Fields kAccountFields{.level = 12, .modified = 40};
inline constexpr Fields kItemFields{.level = Item::kLevel, .modified = Item::kModified};
inline constexpr std::size_t kAccountSince = 24;
inline constexpr int kRecords = 3;

// An image whose tables Item and Account hold the records 1 to 3 in one of two states, all of them marked.
struct TwoStateImage {
  explicit TwoStateImage(std::string_view slots) : image(slots) {
    const std::string key_file = image.root.write("conf/key", "secret");
    std::filesystem::permissions(key_file, std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
    std::filesystem::create_directories(image.root.path("data/base"));
    if (!image.started || image.manager->GetSystemTable(account, 10) == 0) throw std::runtime_error("no image");
    for (std::uint32_t key = 1; key <= kRecords; ++key) {
      (void)image.add({.key = key});
      char *record = account.GetAt(account.Insert(key, 0, 0));
      put(record, kAccountSince, SYSTEMTIME{2001, 2, 6, 3, 10, 20, 30, 0});
    }
  }

  // Puts the records into the other state.
  void switch_state(int project = 0, int status = 1) {
    state = 3 - state;
    for (int i = 0; i < kRecords; ++i) {
      char *record = image.item.GetAt(i);
      std::memcpy(record + Item::kName, state == 1 ? "one" : "two", 4);
      std::memcpy(record + Item::kPass, state == 1 ? "open" : "shut", 5);
      poke(record, Item::kProject, project);
      poke(record, Item::kStatus, status);
      mark(record, i, kItemFields);
      mark(account.GetAt(i), i, kAccountFields);
    }
  }
  void mark(char *record, int i, Fields fields) const {
    poke(record, fields.level, 100 * state + i);
    poke(record, fields.modified, 1);
  }

  // "level mark," of every record.
  static std::string shown(const CRtTable &table, Fields fields) {
    std::string text;
    for (int i = 0; i < table.GetRecordCount(); ++i) {
      const char *record = table.GetAt(i);
      text += std::to_string(peek(record, fields.level)) + ' ' + std::to_string(peek(record, fields.modified)) + ',';
    }
    return text;
  }
  [[nodiscard]] static std::string content(int of_state, int modified) {
    std::string text;
    for (int i = 0; i < kRecords; ++i) {
      text += std::to_string(100 * of_state + i) + ' ' + std::to_string(modified) + ',';
    }
    return text;
  }

  StoreImage image;
  CRtTable account;
  int state = 1;
};
