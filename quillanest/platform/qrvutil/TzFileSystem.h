// The folders of the data files.
//
// Both are the manager's data path unless the configuration names others in section "Quillanest": key SystemDataFolder
// for the system database, key BaselineFolder for all others; absolute, or relative to the installation root. Every
// folder is returned with a trailing separator.
#pragma once

#include <optional>
#include <string>

namespace quillanest {

class TzFileSystem {
 public:
  // The configuration file, from whose place the installation root follows, and the folder that stands for those
  // the configuration does not name.
  TzFileSystem(std::string configuration_file, std::string data_path);

  // The folder of the system database's files.
  [[nodiscard]] std::string GetSystemDataFolder() const;

  // The folder of every other database's files; nothing when there is no current baseline, that is, when the
  // configuration names a baseline folder that does not exist.
  [[nodiscard]] std::optional<std::string> GetHalmoreFolder() const;

 private:
  [[nodiscard]] std::optional<std::string> configured_folder(const char *key) const;

  std::string configuration_file_;
  std::string data_path_;
};

}  // namespace quillanest
