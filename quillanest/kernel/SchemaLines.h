// The lines of a schema file, for the kernel's reader and for the checker.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

#include "quillanest/kernel/RecordLine.h"

namespace quillanest {

// The longest piece of a line that is read at once, in bytes with the line end.
inline constexpr std::size_t kSchemaLineMax = 1023;

enum class Section : std::uint8_t { kNone, kDatabase, kTable, kField };

struct Marker {
  std::string_view text;
  Section section;  // kNone ends the current one
};
inline constexpr std::array<Marker, 6> kMarkers{{{"#Database_Start", Section::kDatabase},
                                                 {"#Database_Finish", Section::kNone},
                                                 {"#Table_Start", Section::kTable},
                                                 {"#Table_Finish", Section::kNone},
                                                 {"#Field_Start", Section::kField},
                                                 {"#Field_Finish", Section::kNone}}};

// Which section a line that begins with '#' belongs to.
class Sections {
 public:
  // Takes the next such line.
  // By design [StartCountsFromNextLine]: a Start marker takes effect with the following line, a Finish marker at once.
  [[nodiscard]] Section of(std::string_view line) noexcept {
    current_ = next_;
    for (const Marker &marker : kMarkers) {
      if (!line.starts_with(marker.text)) continue;
      next_ = marker.section;
      if (marker.section == Section::kNone) current_ = Section::kNone;
    }
    return current_;
  }
  // The section of the line after it, unless that one is a marker.
  [[nodiscard]] Section next() const noexcept { return next_; }

 private:
  Section current_ = Section::kNone;
  Section next_ = Section::kNone;
};

// A text and the column, from 1, of its key. It points into the line.
struct LineText {
  std::string_view text;
  int column = 1;
};

// What a record line says. `line` knows what is missing; values after the first missing one are empty or 0.
struct DatabaseLine {
  explicit DatabaseLine(std::string_view text);
  RecordLine line;
  LineText name, caption;
  std::uint32_t id = 0, type = 0;
  int tables = 0;
};
struct TableLine {
  explicit TableLine(std::string_view text);
  RecordLine line;
  std::uint32_t database = 0;
  LineText name, caption;
  std::uint32_t id = 0;
  int index = 0, capacity = 0, fields = 0;
};
struct FieldLine {
  explicit FieldLine(std::string_view text);
  RecordLine line;
  std::uint32_t database = 0, table = 0;
  LineText name, caption;
  std::uint32_t id = 0;
  int index = 0;
  LineText type;
  int size = 0;
  std::optional<std::string_view> default_text;
};

// The default text of a field line, if the line has one.
[[nodiscard]] std::optional<std::string_view> default_of(std::string_view line) noexcept;

}  // namespace quillanest
