#include "quillanest/platform/Path.h"

namespace quillanest {
namespace {

constexpr char kSeparator = '/';

}  // namespace

bool is_absolute(std::string_view path) noexcept { return path.starts_with(kSeparator); }

std::string with_separator(std::string path) {
  if (!path.empty() && path.back() != kSeparator) path += kSeparator;
  return path;
}

std::string path_in(std::string_view folder, std::string_view name) {
  std::string path(folder);
  path += kSeparator;
  return path += name;
}

std::string folder_of(const std::string &path) {
  const std::size_t last = path.rfind(kSeparator);
  return last == std::string::npos ? std::string() : path.substr(0, last + 1);
}

bool is_file_name(std::string_view name) noexcept { return name.find(kSeparator) == std::string_view::npos; }

}  // namespace quillanest
