// The lines of a schema file, checked one by one; what they say together is checked at the end.
#pragma once

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include "quillanest/kernel/SchemaLines.h"
#include "quillanest/kernel/SchemaModel.h"
#include "quillanest/kernel/SchemaRecords.h"

namespace quillanest {

inline std::vector<std::string_view> marker_words() {
  std::vector<std::string_view> words;
  words.reserve(kMarkers.size());
  for (const Marker &marker : kMarkers) words.push_back(marker.text);
  return words;
}

// Threads: one object belongs to one thread. take() gets every line of the file with its number, from 1.
class SchemaChecker {
 public:
  explicit SchemaChecker(Findings &findings) : findings_(findings), records_(findings) {}

  void take(std::string_view line, int number) {
    number_ = number;
    ends_with_marker_ = is_marker(line);
    if (!line.starts_with('#')) return take_other(line);
    const bool is_inside = sections_.next() != Section::kNone;
    const Section section = sections_.of(line);
    if (is_inside && section != Section::kNone && is_marker(line)) {
      mistake("schema.marker", 1, "the section before is not finished");
    } else if (section == Section::kNone) {
      if (!is_marker(line)) take_outside(line);
    } else {
      take_record(section, line);
    }
  }

  void finish() {
    if (sections_.next() != Section::kNone) {
      // Taken twice, a field replaces itself, and a marker or a database is refused.
      const bool is_harmless = sections_.next() == Section::kField && !ends_with_marker_;
      findings_.report_finding(is_harmless ? Severity::kWarning : Severity::kError, number_, 0, "schema.unfinished",
                               "the file ends inside a section: its last line is taken twice");
    }
    records_.finish();
  }

 private:
  template <class... Pieces>
  void mistake(const char *code, int column, const Pieces &...pieces) {
    findings_.report_mistake(code, number_, column, pieces...);
  }
  // A line that is ignored: it looks like one that was not meant to be.
  void take_other(std::string_view line) {
    const std::string_view word = first_word(line);
    std::string with_mark(word.starts_with('#') ? 0 : 1, '#');
    with_mark += word;
    const auto begins = [&](std::string_view start) { return with_mark.starts_with(start); };
    if (!is_marker(with_mark) && !begins("#DBID=") && !begins("#Name=")) return;
    mistake("schema.ignored", 1, "the line is ignored, because it does not begin with '#'");
    // What it was meant to be, so that the lines that go with it are not mistakes too.
    const std::size_t start = line.find(word);
    read_as_meant(with_mark + std::string(line.substr(start + word.size())));
  }

  void read_as_meant(const std::string &line) {
    const Section section = sections_.of(line);
    if (section != Section::kNone && !is_marker(line)) take_record(section, line);
  }
  void read_as_marker(std::string_view marker) { (void)sections_.of(marker); }

  static bool is_marker(std::string_view line) {
    return std::any_of(kMarkers.begin(), kMarkers.end(),
                       [&](const Marker &marker) { return line.starts_with(marker.text); });
  }

  // A line with '#' outside all sections is a remark, unless it looks like something else.
  void take_outside(std::string_view line) {
    const std::string_view word = first_word(line);
    if (word.starts_with("#DBID=") || word.starts_with("#Name=")) {
      return mistake("schema.ignored", 1, "the line is ignored, because it is outside all sections");
    }
    if (const std::string_view near = nearest_word(word, marker_words()); !near.empty()) {
      mistake("schema.marker", 1, "the line is a remark; did you mean ", near, "?");
      read_as_marker(near);
    }
  }

  void take_record(Section section, std::string_view line) {
    const std::string_view word = first_word(line);
    const std::string_view start = section == Section::kDatabase ? "#Name=" : "#DBID=";
    if (!word.starts_with(start)) {
      const std::string_view marker = nearest_word(word, marker_words());
      if (!marker.empty()) {
        mistake("schema.marker", 1, "no such marker; did you mean ", marker, "?");
        return read_as_marker(marker);
      }
      const std::string_view near = nearest_word(word.substr(0, word.find('=') + 1), kKeys);
      if (!near.empty()) return mistake("schema.form", 1, Quoted{start}, " is missing here; did you mean it?");
      return mistake("schema.form", 1, Quoted{start},
                     " is missing here: a remark inside a section must not begin with '#'");
    }
    records_.take(section, line, number_);
  }

  Findings &findings_;
  RecordChecker records_;
  Sections sections_;
  int number_ = 0;
  bool ends_with_marker_ = false;
};

}  // namespace quillanest
