// A client of the installed library: what it includes, links and catches comes from the package alone.
//
// Prints one line and returns 0 when every claim holds; otherwise names the first that does not.
#include <cstdio>
#include <cstring>
#include <string>

#include "quillanest/Quillanest.h"

namespace {

bool segments_share_their_bytes() {
  CShareMemory first(4711);
  CShareMemory second(4711);
  auto *bytes = static_cast<char *>(first.Create(64, false, true));
  if (bytes == nullptr) return false;
  std::strcpy(bytes + 8, "shared");
  const auto *seen = static_cast<const char *>(second.Attach());
  return seen != nullptr && std::strcmp(seen + 8, "shared") == 0;
}

bool mutex_belongs_to_its_taker() {
  CMutexEx mutex("quillanest package test");
  return mutex.Wait(10000) == 0 && mutex.Release() && !mutex.Release();
}

bool unbuilt_image_has_nothing() {
  CRtdbManager manager;
  CRtDataBase database;
  CRtTable table;
  return manager.FindTable(1, database, table) == 0 && table.GetFirstPosition() == -1;
}

bool store_error_is_caught() {
  try {
    throw _com_error(-2147352571, "does not convert");
  } catch (const std::exception &error) {
    return std::string(error.what()) == "does not convert";
  }
}

}  // namespace

int main() {
  const struct {
    const char *claim;
    bool (*holds)();
  } claims[] = {
      {"segments share their bytes", segments_share_their_bytes},
      {"a mutex belongs to its taker", mutex_belongs_to_its_taker},
      {"a manager without an image finds nothing", unbuilt_image_has_nothing},
      {"a store error is caught", store_error_is_caught},
  };
  for (const auto &[claim, holds] : claims) {
    if (!holds()) {
      std::fprintf(stderr, "package test: it does not hold that %s\n", claim);
      return 1;
    }
  }
  std::puts("package test: every claim holds");
  return 0;
}
