#include "quillanest/platform/InstallRoot.h"

#include <dlfcn.h>
#include <filesystem>
#include <memory>
#include <string_view>

#include "quillanest/base/Loading.h"
#include "quillanest/base/Neutral.h"
#include "quillanest/platform/Process.h"

namespace quillanest {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view kLibraryName = "libQuillanest.so";

bool is_library_name(std::string_view name) {
  return name.starts_with(kLibraryName) && (name.size() == kLibraryName.size() || name[kLibraryName.size()] == '.');
}

// The file that this code was loaded from if it is the library under its own name, else the executable.
fs::path module_file() {
  Dl_info info{};
  if (dladdr(&kLibraryName, &info) != 0 && info.dli_fname != nullptr) {
    const fs::path file = info.dli_fname;
    if (is_library_name(file.filename().string())) {
      std::error_code error;
      return fs::absolute(file, error);
    }
  }
  std::error_code error;
  return fs::read_symlink("/proc/self/exe", error);
}

// Found once, when the library is loaded: a relative path counts from the folder in which it was given.
const fs::path &loaded_module_file() {
  static const fs::path &file = *std::make_unique<fs::path>(module_file()).release();
  return file;
}
[[gnu::constructor(kWhenLoaded)]] void find_module_file() {
  (void)neutral_on_failure(false, [] { return loaded_module_file().empty(); });
}

}  // namespace

std::string install_root() {
  if (const char *named = trusted_environment("QUILLANEST_ROOT"); named != nullptr && *named != '\0') {
    std::string root = named;
    if (root.back() != '/') root += '/';
    return root;
  }
  const fs::path &file = loaded_module_file();
  if (!file.has_parent_path() || !file.parent_path().has_parent_path()) return {};
  std::string root = file.parent_path().lexically_normal().parent_path().string();
  if (root.empty() || root.back() != '/') root += '/';
  return root;
}

}  // namespace quillanest
