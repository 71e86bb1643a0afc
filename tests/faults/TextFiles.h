// Text data files of an image in two states, and what a save may leave of them.
#pragma once

#include <algorithm>
#include <array>
#include <filesystem>
#include <map>
#include <string>
#include <sys/stat.h>

#include "tests/faults/TwoStateImage.h"

inline constexpr const char *kText =
    "DataInFile=1\nRtdbDataPath=data/\nBaselineFolder=data/base\nPasswdKeyFile=conf/key\n";
inline constexpr const char *kAccountFile = "data/system_Account.txt";
inline constexpr const char *kItemFile = "data/base/plant_Item.txt";

struct TextFiles : TwoStateImage {
  // `more` goes to section "Quillanest".
  explicit TextFiles(std::string_view more = {}) : TwoStateImage("F") {
    image.root.configure(kText + std::string(more));
    if (image.manager->LoadAllCustomizedDB(0) != 1) throw std::runtime_error("not loaded");  // without files
    std::filesystem::create_directories(image.root.path("elsewhere"));
    image.root.write("elsewhere/accounts", "");
    std::filesystem::create_symlink(image.root.path("elsewhere/accounts"), image.root.path(kAccountFile));
    image.root.write(kItemFile, "");
    std::filesystem::create_directory(
        image.root.path(kItemFile + std::string(".saving")));  // so that another name is taken
  }

  // Makes the files their owner's, as a file of passwords is.
  void protect() const {
    for (const char *path : {kAccountFile, kItemFile}) (void)::chmod(image.root.path(path).c_str(), 0600);
  }

  // What is wrong with a table's file and marks after its save.
  std::string judge(bool saved, bool clean, const char *path, const CRtTable &table, Fields fields) {
    std::array<std::string, 3> &known = files[path];
    const std::string file = image.root.read(path);
    std::string wrong;
    if (clean && known[static_cast<std::size_t>(state)].empty()) {
      const std::string last = "\n3;" +
                               std::string(path == std::string_view(kItemFile) ? (state == 1 ? "one;" : "two;") : ";") +
                               std::to_string(100 * state + 2) + ";";
      if (std::count(file.begin(), file.end(), '\n') != kRecords + 1 || file.find(last) == std::string::npos) {
        wrong += "no such records: " + file;
      }
      known[static_cast<std::size_t>(state)] = file;
    }
    if (clean && !saved) wrong += " not saved";
    const int in_file = saved ? state : 3 - state;
    if (file != known[static_cast<std::size_t>(in_file)])
      wrong += std::string(saved ? " true" : " false") + " with file " + file;
    const std::string marks = shown(table, fields);
    if (marks != content(state, saved ? 0 : 1)) wrong += " marks " + marks;
    struct stat status {};
    if (::stat(image.root.path(path).c_str(), &status) != 0 || (status.st_mode & 07777) != 0600)
      wrong += " permissions";
    return wrong.empty() ? wrong : std::string(path) + ":" + wrong + ". ";
  }

  // Files that a failure must not leave: the temporary ones may stay, until the next save unless the name is random.
  [[nodiscard]] std::string debris(bool clean) const {
    std::string wrong;
    if (!std::filesystem::is_symlink(image.root.path(kAccountFile))) wrong += "the link is gone ";
    for (const char *folder : {"conf", "data", "data/base", "elsewhere", "."}) {
      for (const std::string &file : image.root.files(folder)) {
        if (kFiles.find(" " + file + " ") != std::string::npos) continue;
        const bool is_temporary = file.starts_with("accounts.saving") || file.starts_with("plant_Item.txt.saving.");
        if (clean || !is_temporary) wrong += "file " + file + " ";
        if (file != "accounts.saving")
          std::filesystem::remove(image.root.path(folder + ("/" + file)));  // stays for good
      }
    }
    return wrong;
  }

  const std::string kFiles =
      " conf data elsewhere schema.txt fix_Rtdb.ini key store.db base system_Account.txt accounts plant_Item.txt "
      "plant_Item.txt.saving ";
  std::map<std::string, std::array<std::string, 3>> files;
};

// Catches: a save that says true without the file, says false and changes it, loses marks, links or permissions.
struct SaveText : TextFiles {
  using TextFiles::TextFiles;
  void ready() {
    switch_state();
    protect();
  }
  void run() {
    item_saved = image.item.SaveData(0);
    system_saved = image.manager->GetSystemDB()->SaveData(0);
  }
  std::string verdict(bool clean) {
    return judge(item_saved, clean, kItemFile, image.item, kItemFields) +
           judge(system_saved, clean, kAccountFile, account, kAccountFields) + debris(clean) +
           (system_saved || *quillanest::last_failure() != '\0' ? "" : "no reason ");
  }
  bool item_saved = false;
  bool system_saved = false;
};
