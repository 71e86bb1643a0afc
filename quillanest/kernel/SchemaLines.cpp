#include "quillanest/kernel/SchemaLines.h"

#include <algorithm>

namespace quillanest {
namespace {

LineText text_after(RecordLine &line, std::string_view key) {
  const std::string_view text = line.text(key);
  return {text, line.last_column()};
}

}  // namespace

// By design [DefaultAnywhere]: the word counts anywhere in the line, in a name too; the text starts after the one
// character that follows it.
std::optional<std::string_view> default_of(std::string_view line) noexcept {
  constexpr std::string_view kWord = "Default";
  const std::size_t at = line.find(kWord);
  if (at == std::string_view::npos) return std::nullopt;
  std::string_view text = line.substr(std::min(at + kWord.size() + 1, line.size()));
  while (text.ends_with(' ') || text.ends_with('\n')) text.remove_suffix(1);
  return text;
}

DatabaseLine::DatabaseLine(std::string_view text) : line(text) {
  name = text_after(line, "#Name=");
  caption = text_after(line, " Describe=");
  id = line.number(" ID=");
  type = line.number(" Type=");
  tables = line.integer(" TableCount=");
}

TableLine::TableLine(std::string_view text) : line(text) {
  database = line.number("#DBID=");
  name = text_after(line, " NAME=");
  caption = text_after(line, " CNAME=");
  id = line.number(" ID=");
  index = line.integer(" INDEX=");
  capacity = line.integer(" MAX=");
  fields = line.integer(" FIELDNUM=");
}

FieldLine::FieldLine(std::string_view text) : line(text) {
  database = line.number("#DBID=");
  table = line.number(" TABLEID=");
  name = text_after(line, " NAME=");
  caption = text_after(line, " CNAME=");
  id = line.number(" ID=");
  index = line.integer(" INDEX=");
  type = text_after(line, " TYPE=");
  size = line.integer(" SIZE=");
  default_text = default_of(text);
}

}  // namespace quillanest
