// A configuration file of any bytes: its keys are read, a manager is made from it, and an image is started when it
// selects data files. Nothing is saved and nothing connected.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

#include "quillanest/persist/DbConnection.h"
#include "quillanest/platform/InstallRoot.h"
#include "quillanest/platform/TextFile.h"
#include "quillanest/settings/Configuration.h"
#include "quillanest/settings/DataFolders.h"
#include "quillanest/settings/PasswordCipher.h"
#include "tests/model/Support.h"

namespace {

using quillanest::profile_int;
using quillanest::profile_text;
using quillanest::model::MemoryFile;
using quillanest::model::require;

constexpr const char *kFile = "conf/fix_Rtdb.ini";

struct Key {
  std::string_view section;
  std::string_view key;
};
constexpr Key kKeys[] = {{"Quillanest", "DataInFile"},       {"Quillanest", "RtdbDataPath"},
                         {"Quillanest", "SystemDataFolder"}, {"Quillanest", "BaselineFolder"},
                         {"Quillanest", "UseCName"},         {"Quillanest", "DataFileExt"},
                         {"Quillanest", "FileKey_Manager"},  {"RtdbMedia", "MainDBType"},
                         {"RtdbMedia", "MainDBName"},        {"RtdbMedia", "BackDBPasswd"}};

struct Surroundings : quillanest::model::RootsInMemory {
  TestRoot root;
  std::string schema = root.write("schema.txt", schema_text({account_table()}));
  MemoryFile plain;
  MemoryFile with_returns;
};

std::string upper_case(std::string_view text) {
  std::string upper(text);
  std::transform(upper.begin(), upper.end(), upper.begin(),
                 [](char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; });
  return upper;
}

// The same lines after a comment, each ended by CR LF. A byte order mark means something at the start only.
std::string with_returns(std::string_view text) {
  text = quillanest::without_byte_order_mark(text);
  std::string lines = "; a comment\r\n";
  for (const char c : text) lines.append(c == '\n' ? "\r\n" : std::string(1, c));
  return lines;
}

void check_key(const Surroundings &surroundings, const Key &key) {
  const std::string plain = surroundings.plain.path();
  const std::string value = profile_text(plain, key.section, key.key, "none");
  require(profile_text(surroundings.with_returns.path(), key.section, key.key, "none") == value,
          "comments and line ends make no difference");
  require(profile_text(plain, upper_case(key.section), upper_case(key.key), "none") == value, "case makes none");
  const bool is_long = value.size() > 9;
  if (is_long || value == "none" || value.empty()) return;
  const int number = profile_int(plain, key.section, key.key, 7);
  const bool is_number = value.find_first_not_of("+-0123456789") == std::string::npos;
  if (is_number && value.find_first_of("+-", 1) == std::string::npos) {
    require(number == static_cast<int>(std::strtol(value.c_str(), nullptr, 10)), "a number is read as it is written");
  }
}

void check_manager(const Surroundings &surroundings) {
  const std::string configuration = surroundings.root.path(kFile);
  CRtdbManager manager;
  const std::string_view file = manager.GetSysIniFile();
  const std::string_view folder = manager.GetDataPath();
  if (file.empty()) {
    require(folder.empty(), "a configuration is refused as a whole");
    return;
  }
  require(file == configuration, "the manager knows its configuration file");
  if (folder.empty()) {
    require(!manager.RtdbManagerInit(false, surroundings.schema.c_str()), "no manager starts without a data path");
    return;
  }
  require(folder.starts_with(surroundings.root.folder()), "the data path lies below the root");
  const quillanest::DataFolders folders(configuration, std::string(folder));
  require(folders.system_folder().ends_with('/'), "a folder ends with a separator");
  (void)folders.baseline_folder();
  if (profile_int(configuration, quillanest::kConfigurationSection, "DataInFile", 0) == 0) return;
  // ID 1 is the database's, whose segment cannot be the manager's.
  const int key = profile_int(configuration, quillanest::kConfigurationSection, "FileKey_Manager", 333);
  const bool started = manager.RtdbManagerInit(false, surroundings.schema.c_str());
  CRtTable account;
  if (key != 1 && started) {
    require(manager.GetSystemTable(account, 10U) == 1, "a started image has its tables");
    require(account.GetRecordCount() == 0, "a table without a data file is empty");
  }
}

void check_connections(const std::string &configuration) {
  quillanest::CDbConnection connection;
  connection.SetIniFile(configuration.c_str());
  connection.SetSection("RtdbMedia");
  connection.ReadConfig();
  for (const int slot : {quillanest::SLOT_MAIN, quillanest::SLOT_BACKUP}) {
    require(connection.GetDataSource(slot).value_or("").size() < 64, "a name is cut to its width");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, std::size_t size) {
  static const Surroundings surroundings;
  const std::string text(bytes, bytes + size);
  surroundings.plain.write(text);
  surroundings.with_returns.write(with_returns(text));
  for (const Key &key : kKeys) check_key(surroundings, key);
  const std::string configuration = surroundings.root.write(kFile, text);
  check_manager(surroundings);
  check_connections(configuration);
  const auto cipher = quillanest::PasswordCipher::from_configuration(configuration);
  require(cipher.decrypt(cipher.encrypt("secret")) == "secret", "a password comes back with any key file");
  return 0;
}
