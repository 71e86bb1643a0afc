#include "quillanest/settings/DataFolders.h"

#include <utility>

#include "quillanest/platform/Path.h"
#include "quillanest/platform/TextFile.h"
#include "quillanest/settings/Configuration.h"

namespace quillanest {

DataFolders::DataFolders(std::string configuration_file, std::string data_path)
    : configuration_file_(std::move(configuration_file)), data_path_(with_separator(std::move(data_path))) {}

std::optional<std::string> DataFolders::configured_folder(const char *key) const {
  const std::string folder = profile_text(configuration_file_, kConfigurationSection, key);
  if (folder.empty()) return std::nullopt;
  return resolve_in_root(configuration_file_, with_separator(folder));
}

std::string DataFolders::system_folder() const { return configured_folder("SystemDataFolder").value_or(data_path_); }

std::optional<std::string> DataFolders::baseline_folder() const {
  std::optional<std::string> folder = configured_folder("BaselineFolder");
  if (!folder) return data_path_;
  if (!is_folder(*folder)) return std::nullopt;
  return folder;
}

}  // namespace quillanest
