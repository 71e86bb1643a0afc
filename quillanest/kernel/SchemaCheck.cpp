// The checker of schema files: reads the lines as the kernel does, and goes on after a mistake.
#include "quillanest/kernel/SchemaCheck.h"

#include "quillanest/kernel/SchemaChecker.h"
#include "quillanest/kernel/SchemaLines.h"
#include "quillanest/kernel/SchemaModel.h"
#include "quillanest/platform/TextFile.h"
#include "quillanest/shm/LineReader.h"
#include "quillanest/shm/TextAt.h"

namespace quillanest {
namespace {

// Whether the bytes are text, as far as that shows.
bool check_encoding(std::string_view text, Findings &findings) {
  const bool has_zeros = text.find('\0') != std::string_view::npos;
  const bool has_line_ends = text.find('\n') != std::string_view::npos;
  if (has_zeros || text.starts_with("\xFF\xFE") || text.starts_with("\xFE\xFF")) {
    findings.report_mistake("schema.encoding", 0, 0, "the file has zero bytes: UTF-16, or no text at all");
  } else if (!has_line_ends && text.find('\r') != std::string_view::npos) {
    findings.report_mistake("schema.encoding", 0, 0, "the lines end with CR alone: LF or CR LF is needed");
  } else if (text.empty()) {
    findings.report_mistake("start.system", 0, 0, "the file is empty");
  } else {
    return true;
  }
  return false;
}

void check_lines(FileText &file, Findings &findings) {
  const std::span<char> text = without_byte_order_mark(file.chars());
  if (text.size() < file.chars().size()) {
    findings.report_finding(Severity::kNote, 1, 1, "schema.encoding", "a byte order mark, which is skipped");
  }
  if (!check_encoding({text.data(), text.size()}, findings)) return;
  LineReader lines(text, kSchemaLineMax);
  SchemaChecker checker(findings);
  std::string_view line;
  for (int number = 1; lines.next(line); ++number) {
    const bool is_part = !line.ends_with('\n') && !lines.at_end();
    if (is_part) {
      findings.report_mistake("schema.line_length", number, 0, "the line is longer than ", kSchemaLineMax - 1,
                              " bytes: what follows is read as a line of its own");
    }
    checker.take(line, number);
  }
  checker.finish();
}

}  // namespace

std::vector<Finding> check_schema(const char *path) {
  Findings findings;
  const std::string name(path == nullptr ? std::string_view() : text_at(path));
  if (name.empty()) {
    findings.report_mistake("schema.path", 0, 0, "no schema file is named");
  } else if (std::optional<FileText> file = read_file(name)) {
    check_lines(*file, findings);
  } else {
    findings.report_mistake("schema.missing", 0, 0, "the schema file does not exist, is not a file or may not be read");
  }
  return findings.sorted();
}

bool schema_is_sound(const char *path) {
  bool sound = true;
  for (const Finding &found : check_schema(path)) {
    if (found.severity != Severity::kError) continue;
    sound = false;
    report_error(found.code.c_str(), {path == nullptr ? "" : path, found.line, found.column},
                 std::string_view(found.text));
  }
  return sound;
}

}  // namespace quillanest
