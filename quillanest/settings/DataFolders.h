// The folders of the data files.
//
// Both are the manager's data path unless the configuration names others in section "Quillanest": key SystemDataFolder
// for the system database, key BaselineFolder for all others; absolute, or relative to the installation root. Every
// folder is returned with a trailing separator. The functions may run on any thread.
#pragma once

#include <optional>
#include <string>

namespace quillanest {

class DataFolders {
 public:
  // The configuration file, from whose place the installation root follows, and the folder for what the configuration
  // does not name.
  DataFolders(std::string configuration_file, std::string data_path);

  // The folder of the system database's files.
  [[nodiscard]] std::string system_folder() const;

  // The folder of every other database's files. Nothing if there is no current baseline, that is, if the configuration
  // names a baseline folder that does not exist.
  [[nodiscard]] std::optional<std::string> baseline_folder() const;

 private:
  [[nodiscard]] std::optional<std::string> configured_folder(const char *key) const;

  std::string configuration_file_;
  std::string data_path_;
};

}  // namespace quillanest
