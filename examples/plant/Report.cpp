#include "Report.h"

#include <cstdint>
#include <fstream>
#include <iomanip>
#include <sstream>
#include <string_view>

#include "Access.h"

namespace plant {
namespace {

// All values of a record, in the form in which the data file holds them.
std::string record_text(const CRtTable &table, const char *record) {
  // A copy, since showing a broken time repairs it in place; with a zero after it for a text that fills its field.
  std::vector<char> copy(record, record + table.GetTableSize());
  copy.push_back('\0');
  std::vector<char> value(400 + 2 * copy.size());  // room for the longest number and for an enciphered password
  std::string line;
  CRtField field;
  for (int position = table.GetFirstFieldPostion(); table.GetNextField(field, position);) {
    CRtField::GetDisplayText(field.GetFieldType(), copy.data() + field.GetFieldOffset(), value.data());
    if (!line.empty()) line += ';';
    line += value.data();
  }
  return line;
}

// FNV-1a, 64 bits.
std::uint64_t hash(const std::string &text) {
  std::uint64_t result = 0xcbf29ce484222325U;
  for (const char c : text) result = (result ^ static_cast<unsigned char>(c)) * 0x100000001b3U;
  return result;
}

std::string describe_table(const CRtTable &table) {
  std::uint64_t checksum = 0;
  int records = 0;
  for (int position = table.GetFirstPosition(); position != -1;) {
    checksum += hash(record_text(table, table.GetNextPosition(position)));
    ++records;
  }
  std::ostringstream text;
  text << std::setw(5) << records << " records, checksum " << std::hex << std::setfill('0') << std::setw(16)
       << checksum;
  return text.str();
}

std::string describe_record(CRtdbManager &manager, const std::string &subject) {
  const std::size_t dot = subject.find('.');
  const std::size_t blank = subject.find(' ');
  if (dot > blank || blank == std::string::npos) throw Failure("not the name of a record: " + subject);
  CRtDataBase database;
  open_database(manager, subject.substr(0, dot).c_str(), database);
  const CRtTable table = open_table(database, subject.substr(dot + 1, blank - dot - 1).c_str());
  const auto key = static_cast<std::uint32_t>(std::stoul(subject.substr(blank + 1)));
  const char *record = table.FindIDExclusive(key);
  return record == nullptr ? "(none)" : record_text(table, record);
}

constexpr std::string_view kSeparator = " = ";
constexpr std::string_view kLastLine = "end";

}  // namespace

Report make_report(CRtdbManager &manager, const std::vector<std::string> &records) {
  Report report;
  for_each_table(manager, [&](const std::string &name, const CRtTable &table) {
    report.push_back({name, describe_table(table)});
  });
  for (const std::string &subject : records) report.push_back({subject, describe_record(manager, subject)});
  return report;
}

std::vector<std::string> records_of(const Report &report) {
  std::vector<std::string> records;
  for (const Entry &entry : report) {
    if (entry.subject.find(' ') != std::string::npos) records.push_back(entry.subject);
  }
  return records;
}

void write_report(const std::filesystem::path &path, const Report &report) {
  std::ofstream file(path);
  for (const Entry &entry : report) file << entry.subject << kSeparator << entry.content << '\n';
  file << kLastLine << '\n';
  file.close();
  if (!file) throw Failure("cannot write " + path.string());
}

Report read_report(const std::filesystem::path &path) {
  std::ifstream file(path);
  if (!file) throw Failure("no report " + path.string() + "; \"plant run\" and \"plant store\" write one");
  Report report;
  std::string line;
  while (std::getline(file, line)) {
    if (line == kLastLine) return report;
    const std::size_t separator = line.find(kSeparator);
    if (separator == std::string::npos) throw Failure(path.string() + " has a line that is not an entry: " + line);
    report.push_back({line.substr(0, separator), line.substr(separator + kSeparator.size())});
  }
  throw Failure(path.string() + " is incomplete");
}

}  // namespace plant
