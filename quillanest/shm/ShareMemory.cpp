#include "quillanest/shm/ShareMemory.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <optional>
#include <string>

#include "quillanest/base/Neutral.h"
#include "quillanest/platform/Path.h"
#include "quillanest/platform/Process.h"

namespace {

using quillanest::NamedRegion;

constexpr int kNoKey = -1;

// Keys wrap around like the 32-bit numbers they are.
int effective_key(int key) {
  return static_cast<int>(static_cast<std::uint32_t>(quillanest::process_id()) + static_cast<std::uint32_t>(key));
}

// "SM_" and the key in at least 12 digits.
std::string segment_name(int key) {
  constexpr std::size_t kDigits = 12;
  const std::int64_t wide = key;
  const std::string digits = std::to_string(wide < 0 ? -wide : wide);
  std::string name = wide < 0 ? "SM_-" : "SM_";
  if (digits.size() < kDigits) name.append(kDigits - digits.size(), '0');
  return name += digits;
}

// The folder of file-backed segments, used unchanged; nothing if the working folder is gone.
std::optional<std::string> backing_folder() {
  if (const char *named = quillanest::trusted_environment("MAP_FILE_PATH"); named != nullptr) return named;
  std::error_code error;
  const std::filesystem::path folder = std::filesystem::current_path(error);
  if (error) return std::nullopt;
  return quillanest::path_in(folder.string(), {});
}

NamedRegion open_segment(int key, std::size_t size, bool use_file) {
  const std::string name = segment_name(key);
  if (!use_file) return NamedRegion::open_or_create(name, size);
  const std::optional<std::string> folder = backing_folder();
  if (!folder) return {};
  return NamedRegion::open_or_create_file(name, *folder + name, size);
}

}  // namespace

CShareMemory::CShareMemory(int nKey) : key_(effective_key(nKey)) {}

CShareMemory::CShareMemory(const CShareMemory &other)
    : key_(other.key_), use_file_(other.use_file_), size_(other.size_) {}

CShareMemory &CShareMemory::operator=(const CShareMemory &other) {
  key_ = other.key_;
  use_file_ = other.use_file_;
  size_ = other.size_;
  return *this;
}

CShareMemory::~CShareMemory() = default;

bool CShareMemory::SetKey(int nKey) {
  key_ = effective_key(nKey);
  return true;
}

void *CShareMemory::Create(int nSize, bool bUseFile, bool bZero) {
  // By design [CreateOnView]: an object that is mapped returns its mapping before any check and never clears it.
  if (!mapping_.bytes().empty()) return mapping_.bytes().data();
  if (nSize <= 0 || key_ == kNoKey) return nullptr;
  size_ = nSize;
  use_file_ = bUseFile;
  const auto size = static_cast<std::size_t>(nSize);
  mapping_ = quillanest::neutral_on_failure(NamedRegion(), [&] { return open_segment(key_, size, bUseFile); });
  if (mapping_.bytes().empty()) return nullptr;
  // An existing segment is opened as it is, and may be smaller.
  if (bZero && !mapping_.is_fresh()) std::memset(mapping_.bytes().data(), 0, std::min(size, mapping_.bytes().size()));
  return mapping_.bytes().data();
}

void *CShareMemory::Attach() {
  if (mapping_.bytes().empty() && key_ != kNoKey) {
    mapping_ = quillanest::neutral_on_failure(NamedRegion(), [&] { return NamedRegion::open(segment_name(key_)); });
  }
  return mapping_.bytes().empty() ? nullptr : mapping_.bytes().data();
}

void CShareMemory::Detach() { mapping_ = {}; }

void CShareMemory::Destroy() { mapping_ = {}; }
