// Text data files and headers when a call fails: every one that can does so once, and once for good.
#include "tests/faults/FailEachCall.h"
#include "tests/faults/TextFiles.h"

namespace {

namespace fs = std::filesystem;
using faults::fail_each_call;

// What replacing a file and enciphering call.
const std::string kWriting =
    "stat faccessat lstat flock getrandom ftruncate fchmod fchown write fsync rename canonical ";
const std::string kSaving = kReading + kWriting + kCiphers + "EVP_CipherUpdate EVP_CipherFinal_ex EVP_Digest";

// Catches: a load that says true without the file's records or their passwords; in the strict mode also one that says
// false and has changed a record.
struct LoadText : TextFiles {
  explicit LoadText(std::string_view more = {}) : TextFiles(more), is_strict(!more.empty()) {}
  void ready() {
    switch_state();
    if (!image.item.SaveData(0) || !image.manager->GetSystemDB()->SaveData(0)) throw std::runtime_error("no files");
    switch_state();
  }
  void run() {
    all = image.manager->LoadAllCustomizedDB(0);
    item = image.manager->LoadTableData(2, 20, item_path.c_str());
    system = image.manager->LoadSystemDB();
  }
  std::string verdict(bool clean) {
    const std::string items = shown(image.item, kItemFields);
    const std::string accounts = shown(account, kAccountFields);
    const std::string new_state = content(3 - state, 0);
    std::string wrong;
    if (clean && (all != 1 || !item || system != 1)) wrong += "not loaded ";
    // The load of all databases is true also when a table failed. One that fails half-way has changed records.
    const std::string password = image.item.GetAt(0) + Item::kPass;
    if (item && (items != new_state || password != (state == 2 ? "open" : "shut"))) wrong += items + password;
    if (system == 1 && accounts != new_state) wrong += "accounts " + accounts;
    const bool changed = (!item && all != 1 && items == new_state) || (system != 1 && accounts != content(state, 1));
    if (is_strict && !clean && changed) wrong += "changed " + items + accounts;
    if (wrong.empty()) return {};
    return wrong + " loaded " + std::to_string(all) + std::to_string(int{item}) + std::to_string(system) + ". ";
  }
  const bool is_strict;
  const std::string item_path = image.root.path(kItemFile);
  int all = 0;
  bool item = false;
  int system = 0;
};

// Catches: a header cut short, debris, or a link to a header yet to be made that the header takes the place of.
struct Headers : TwoStateImage {
  Headers() : TwoStateImage("F") {}
  void ready() {
    fs::remove_all(folder);
    fs::create_directory(folder);
    fs::create_symlink("real.h", folder + "/plant.h");
    image.root.write("headers/system.h", "former");
  }
  void run() {
    const CRtdbManager second(*image.manager);
    built = CRtdbManager(second).BuildIncludeFile(folder.c_str());
  }
  std::string verdict(bool clean) {
    std::string wrong = clean && !built ? "not built " : "";
    if (!fs::is_symlink(folder + "/plant.h")) wrong += "the link is gone ";
    for (const char *name : {"system", "plant"}) {
      const std::string text = image.root.read("headers/" + std::string(name) + ".h");
      const bool whole = text.starts_with("#ifndef __" + std::string(name) + "_h__\r\n") &&
                         text.ends_with("#endif   //__" + std::string(name) + "_h__\r\n");
      if (!whole && (clean || (text != "former" && text != "<missing>"))) wrong += text;
    }
    const std::size_t files = image.root.files("headers").size();
    return (clean ? files == 3 : files >= 2 && files <= 5) ? wrong : wrong + std::to_string(files) + " files ";
  }
  const std::string folder = image.root.path("headers");
  bool built = false;
};

// Catches: a commit that changes half of the records, or whose failed save keeps no marks.
struct Commit : TextFiles {
  void ready() {
    switch_state(5, EDIT_STATUS_INSERTED);
    protect();
  }
  void run() { committed = image.manager->CommitProject(); }
  std::string verdict(bool clean) {
    std::string stamps;
    for (int i = 0; i < kRecords; ++i) {
      for (const std::size_t offset : {Item::kProject, Item::kStatus})
        stamps += std::to_string(peek(image.item.GetAt(i), offset));
    }
    const bool as_before = stamps == "525252";
    // What a save did shows in the file; the marks show whether it is the right one.
    const bool item_saved = shown(image.item, kItemFields) == content(state, 0);
    const bool system_saved = shown(account, kAccountFields) == content(state, 0);
    std::string wrong = judge(item_saved, clean, kItemFile, image.item, kItemFields) +
                        judge(system_saved, clean, kAccountFile, account, kAccountFields);
    if (as_before ? clean || item_saved : stamps != "010101") wrong += "stamps " + stamps;
    if (clean && !committed) wrong += "not committed ";
    return wrong + debris(clean);
  }
  bool committed = false;
};

TEST_F(Faults, SaveText) { fail_each_call(SaveText(), kSaving); }
TEST_F(Faults, SaveTextStrictly) { fail_each_call(SaveText("Strict=1\n"), kSaving); }

// Catches: a save that is true although its bytes are not on the disk.
TEST_F(Faults, SaveNeedsTheDisk) {
  TextFiles files;
  const std::span<const faults::Row> rows = faults::rows();
  const auto is_fsync = [](const faults::Row &row) { return std::string_view(row.name) == "fsync"; };
  const auto row = std::find_if(rows.begin(), rows.end(), is_fsync) - rows.begin();
  files.switch_state();
  bool saved = true;
  {
    const faults::Armed armed({static_cast<int>(row), EIO, 1, true});
    saved = files.image.item.SaveData(0);
  }
  EXPECT_FALSE(saved);
  EXPECT_GT(faults::failed(), 0);
}

TEST_F(Faults, LoadText) { fail_each_call(LoadText(), kReading + kCiphers); }
TEST_F(Faults, LoadTextStrictly) { fail_each_call(LoadText("Strict=1\n"), kReading + kCiphers); }
TEST_F(Faults, Commit) { fail_each_call(Commit(), kSaving); }
TEST_F(Faults, Headers) {
  quillanest::set_message_handler([](const char *) {});
  fail_each_call(Headers(), "new open write fsync rename symlink_status read_symlink");
}

}  // namespace
