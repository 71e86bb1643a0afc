#include "quillanest/platform/qrvutil/TzFileSystem.h"

#include <string_view>
#include <utility>

#include "quillanest/platform/InstallRoot.h"
#include "quillanest/platform/Profile.h"
#include "quillanest/platform/TextFile.h"

namespace quillanest {

TzFileSystem::TzFileSystem(std::string configuration_file, std::string data_path)
    : configuration_file_(std::move(configuration_file)), data_path_(std::move(data_path)) {
  if (!data_path_.empty() && data_path_.back() != '/') data_path_ += '/';
}

std::optional<std::string> TzFileSystem::configured_folder(const char *key) const {
  std::string folder = profile_text(configuration_file_, kConfigurationSection, key);
  if (folder.empty()) return std::nullopt;
  if (folder.back() != '/') folder += '/';
  return resolve_in_root(configuration_file_, folder);
}

std::string TzFileSystem::GetSystemDataFolder() const {
  return configured_folder("SystemDataFolder").value_or(data_path_);
}

std::optional<std::string> TzFileSystem::GetHalmoreFolder() const {
  std::optional<std::string> folder = configured_folder("BaselineFolder");
  if (!folder) return data_path_;
  if (!is_folder(*folder)) return std::nullopt;
  return folder;
}

}  // namespace quillanest
