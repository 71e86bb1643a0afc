// Relational stores when a call fails.
#include <filesystem>
#include <string>

#include "tests/faults/FailEachCall.h"
#include "tests/faults/TwoStateImage.h"

namespace {

using faults::fail_each_call;

// Catches: a save, of base data or of a project, that is true with rows that are neither the new ones nor, as for a
// rejected INSERT, missing; or false with rows or marks that are not the former ones.
struct SaveRows : TwoStateImage {
  SaveRows(std::string_view slots, int project_number) : TwoStateImage(slots), project(project_number) {
    (void)image.add({.key = kRecords + 1, .level = kRejected, .pass = "kept"});
  }
  void ready() {
    switch_state(project, EDIT_STATUS_INSERTED);
    poke(image.item.GetAt(kRecords), Item::kModified, 1);
  }
  void run() { saved = image.item.SaveData(project); }
  std::string verdict(bool clean) {
    const std::string rows = image.rows("SELECT Level FROM plant_Item ORDER BY ID");
    const std::string marks = shown(image.item, kItemFields);
    const std::string rejected = std::to_string(kRejected) + (saved ? " 0," : " 1,");
    const bool all_old = rows == levels(3 - state);
    const bool all_new = rows == levels(state);
    // By design a save that reaches no database is true.
    const bool unreached =
        saved && all_old && faults::calls("sqlite3_step") <= 3 && faults::calls("SQLExecDirect") == 0;
    const bool saved_rows_fit = unreached || are_new(rows);
    const bool refused_rows_fit = project != 0 || all_old;  // those of a project are judged one by one
    const bool rows_fit = clean ? all_new : saved ? saved_rows_fit : refused_rows_fit;
    const bool marks_fit = (!saved && project != 0) || marks == content(state, saved ? 0 : 1) + rejected;
    std::string wrong = clean && !saved ? "not saved " : "";
    if (!rows_fit) wrong += "rows " + rows;
    if (!marks_fit) wrong += "marks " + marks;
    if (!clean && !saved && project != 0) wrong += judge_project(rows);
    wrong += faults::reason_missing(saved);
    return wrong.empty() ? wrong : wrong + (saved ? "saved. " : "not saved. ");
  }

  static std::string levels(int of_state) {
    std::string text;
    for (int i = 0; i < kRecords; ++i) text += std::to_string(100 * of_state + i) + '\n';
    return text;
  }
  // New rows, of which some may be missing.
  [[nodiscard]] bool are_new(std::string rows) const {
    for (int i = 0; i < kRecords; ++i) {
      const std::string row = std::to_string(100 * state + i) + '\n';
      if (rows.starts_with(row)) rows.erase(0, row.size());
    }
    return rows.empty();
  }
  // A record that is still marked has its former row.
  [[nodiscard]] std::string judge_project(const std::string &rows) const {
    for (int i = 0; i < kRecords; ++i) {
      const bool marked = peek(image.item.GetAt(i), Item::kModified) != 0;
      const bool is_old = rows.find(std::to_string(100 * (3 - state) + i) + '\n') != std::string::npos;
      if (marked != is_old) return "record " + std::to_string(i + 1) + " marked " + std::to_string(int{marked}) + rows;
    }
    return {};
  }
  static constexpr int kRejected = 5000;  // the level of one more record, whose row the store does not take
  const int project;
  bool saved = false;
};

// Catches: a load that is true with less than the store has.
struct LoadRows : TwoStateImage {
  explicit LoadRows(std::string_view slots) : TwoStateImage(slots) {
    image.run(
        "INSERT INTO plant_Item VALUES(1,'a',300,1.5,'p',0,0,1),(2,'b',301,1.5,'p',0,0,1),(3,'c',302,1.5,'p',0,0,1),"
        "(3,'d',402,2.5,'p',0,5,3)");
  }
  void ready() { switch_state(); }
  void run() { loaded = image.manager->LoadAllCustomizedDB(5) == 1; }
  std::string verdict(bool clean) {
    const std::string shown = TwoStateImage::shown(image.item, kItemFields);
    std::string wrong = clean && !loaded ? "not loaded " : "";
    const std::string stored = "300 0,301 0,402 0,";
    // By design a load whose project's rows do not come is that of the base rows.
    const bool base_only = !clean && shown == "300 0,301 0,302 0,";
    if (loaded && shown != stored && !base_only) wrong += "items " + shown;
    wrong += faults::reason_missing(loaded);
    return wrong.empty() ? wrong : wrong + (loaded ? "loaded. " : "not loaded. ");
  }
  bool loaded = false;
};

// A store in the strict mode, whose table is empty at first.
struct StrictStoreImage : TwoStateImage {
  explicit StrictStoreImage(std::string_view slots) : TwoStateImage(slots) {
    image.root.configure("DataInFile=0\nStrict=1\nPasswdKeyFile=conf/key\nRtdbDataPath=data/\n[RtdbMedia]\n" +
                         image.settings());
    if (image.manager->LoadAllCustomizedDB(0) != 1) throw std::runtime_error(quillanest::last_failure());
    for (std::uint32_t key = 1; key <= kRecords; ++key) (void)image.add({.key = key});
  }
};

// Catches: a save that is true without all rows in every database, or false with a changed row or mark in one.
struct SaveStrictly : StrictStoreImage {
  using StrictStoreImage::StrictStoreImage;
  void ready() { switch_state(); }
  void run() { saved = image.item.SaveData(0); }
  std::string verdict(bool clean) {
    const std::string rows = image.rows("SELECT Level FROM plant_Item ORDER BY ID");
    const std::string marks = shown(image.item, kItemFields);
    std::string wrong = clean && !saved ? "not saved " : "";
    if (rows != SaveRows::levels(saved ? state : 3 - state)) wrong += "rows " + rows;
    if (marks != content(state, saved ? 0 : 1)) wrong += "marks " + marks;
    wrong += faults::reason_missing(saved);
    return wrong.empty() ? wrong : wrong + (saved ? "saved. " : "not saved. ") + quillanest::last_failure();
  }
  bool saved = false;
};

// Catches: a load that is true with less than the store has, or false with a changed record.
struct LoadStrictly : StrictStoreImage {
  explicit LoadStrictly(std::string_view slots) : StrictStoreImage(slots) {
    image.run(
        "INSERT INTO plant_Item VALUES(1,'a',300,1.5,'p',0,0,1),(2,'b',301,1.5,'p',0,0,1),(3,'c',302,1.5,'p',0,0,1),"
        "(3,'d',402,2.5,'p',0,5,3)");
  }
  void ready() { switch_state(); }
  void run() { loaded = image.manager->LoadAllCustomizedDB(5) == 1; }
  std::string verdict(bool clean) {
    const std::string shown = TwoStateImage::shown(image.item, kItemFields);
    std::string wrong = clean && !loaded ? "not loaded " : "";
    if (shown != (loaded ? "300 0,301 0,402 0," : content(state, 1))) wrong += "items " + shown;
    wrong += faults::reason_missing(loaded);
    return wrong.empty() ? wrong : wrong + (loaded ? "loaded. " : "not loaded. ") + quillanest::last_failure();
  }
  bool loaded = false;
};

TEST_F(Faults, StrictFileStore) {
  fail_each_call(SaveStrictly("F"), kReading + kCiphers + "sqlite3_open_v2 sqlite3_bind_text sqlite3_step");
  fail_each_call(LoadStrictly("F"), "new sqlite3_column_name sqlite3_column_text");
}
TEST_F(Faults, SaveFileStore) {
  for (const int project : {0, 5}) {
    fail_each_call(SaveRows("F", project), kReading + kCiphers + "sqlite3_open_v2 sqlite3_prepare_v2 sqlite3_step");
  }
}
TEST_F(Faults, LoadFileStore) { fail_each_call(LoadRows("F"), "new sqlite3_column_name sqlite3_column_text"); }
TEST_F(Faults, ServerStore) {
  unsetenv("TMPDIR");
  (void)postgres();
  setenv("TMPDIR", "/dev/shm", 1);
  const faults::Limits few{.calls = 10, .any = 12, .only_odbc = true};
  fail_each_call(SaveRows("S", 0), "SQLDriverConnect SQLExecDirect SQLEndTran", few);
  fail_each_call(LoadRows("S"), "SQLFetch SQLDescribeCol", few);
  const faults::Limits fewer{.calls = 4, .any = 6, .only_odbc = true};
  fail_each_call(SaveStrictly("S"), "SQLDriverConnect SQLExecDirect SQLEndTran SQLGetInfo", fewer);
  fail_each_call(LoadStrictly("S"), "SQLFetch SQLDescribeCol", fewer);
}

}  // namespace
