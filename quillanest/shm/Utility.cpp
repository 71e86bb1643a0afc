#include "quillanest/shm/Utility.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <string_view>

#include "quillanest/base/Neutral.h"
#include "quillanest/platform/FileSizeSignal.h"
#include "quillanest/platform/Process.h"
#include "quillanest/platform/TextFile.h"
#include "quillanest/platform/Thread.h"
#include "quillanest/shm/Bytes.h"
#include "quillanest/shm/TextAt.h"
#include "quillanest/shm/ValueBytes.h"

namespace {

using quillanest::as_bytes;

struct FileClose {
  void operator()(std::FILE *file) const { (void)std::fclose(file); }
};

// Empties the file, creating it if it does not exist, and makes it `words` zero words of 4 bytes.
void write_zero_words(const char *path, std::uintmax_t words) {
  try {
    const std::string name(quillanest::text_at(path));
    std::unique_ptr<std::FILE, FileClose> file(std::fopen(name.c_str(), "wb"));
    if (file == nullptr) return;
    file.reset();
    const quillanest::FileSizeSignalBlock block;
    std::error_code error;  // a full disk leaves the file empty
    std::filesystem::resize_file(name, words * 4, error);
  } catch (const std::bad_alloc &) {
    // The same as for a file that cannot be opened: nothing happens.
  }
}

std::optional<std::int64_t> size_of(const char *path) {
  if (path == nullptr) return std::nullopt;
  return quillanest::neutral_on_failure(std::optional<std::int64_t>(),
                                        [&] { return quillanest::file_size(std::string(quillanest::text_at(path))); });
}

// The bytes at an address that the caller promises to be large enough.
std::span<std::byte> promised_room(void *destination, std::size_t size) {
  return {as_bytes(destination), quillanest::room_at(destination, size)};
}

}  // namespace

void GetLocalTime(SYSTEMTIME &time) { (void)quillanest::read_local_time(time); }

void ReadTime(const char *text, SYSTEMTIME *time) {
  if (text == nullptr || time == nullptr) return;
  quillanest::read_time(quillanest::text_at(text), promised_room(time, sizeof *time));
}

void KillProcess(int nProcessID) { quillanest::end_process(nProcessID); }

void *CreateThreadEx(unsigned long (*routine)(void *), void *argument) {
  // A handle is a number in the shape of an address; it is never dereferenced.
  return reinterpret_cast<void *>(quillanest::start_thread(routine, argument));
}

bool KillThreadEx(void *handle) {
  quillanest::end_thread(reinterpret_cast<quillanest::ThreadHandle>(handle));
  return true;
}

int GetFileSize(const char *path) {
  const std::optional<std::int64_t> size = size_of(path);
  return size ? static_cast<int>(static_cast<std::uint32_t>(*size)) : -1;
}

void ChangeFileSize(const char *path, int size) {
  if (path == nullptr) return;
  // By design [ExtraWord]: one word more than the size holds.
  write_zero_words(path, static_cast<std::uint32_t>(size) / 4 + 1);
}

void ClearFile(const char *path) {
  const std::optional<std::int64_t> size = size_of(path);
  if (size) write_zero_words(path, static_cast<std::uintmax_t>(*size) / 4);
}

void SetDefaultField(int type, char *destination, const char *text) {
  if (destination == nullptr || text == nullptr || *text == '\0') return;
  const std::string_view value = quillanest::text_at(text);
  quillanest::store_default(type, promised_room(destination, std::max(sizeof(SYSTEMTIME), value.size() + 1)), value);
}
