#include "quillanest/settings/Configuration.h"

#include <optional>

#include "quillanest/base/Ini.h"
#include "quillanest/platform/Path.h"
#include "quillanest/platform/TextFile.h"

namespace quillanest {

std::string profile_text(const std::string &file, std::string_view section, std::string_view key,
                         std::string_view fallback) {
  const std::optional<FileText> content = read_file(file);
  if (!content) return std::string(fallback);
  return std::string(ini_value(without_byte_order_mark(content->view()), section, key).value_or(fallback));
}

int profile_int(const std::string &file, std::string_view section, std::string_view key, int fallback) {
  const std::string text = profile_text(file, section, key);
  return text.empty() ? fallback : ini_number(text);
}

bool is_strict(const std::string &configuration_file) {
  return profile_int(configuration_file, kConfigurationSection, "Strict", 0) != 0;
}

std::string resolve_in_root(std::string_view configuration_file, const std::string &path) {
  if (is_absolute(path) || !configuration_file.ends_with(kConfigurationFile)) return path;
  configuration_file.remove_suffix(kConfigurationFile.size());
  return std::string(configuration_file) + path;
}

}  // namespace quillanest
