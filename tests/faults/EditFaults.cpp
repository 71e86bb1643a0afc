// Edits, mutexes and the other calls that need no file of data, when a call fails.
#include <array>
#include <optional>
#include <sys/stat.h>

#include "quillanest/platform/posix/MutexFolder.h"
#include "tests/faults/FailEachCall.h"
#include "tests/faults/Primitives.h"
#include "tests/faults/TwoStateImage.h"

namespace {

namespace fs = std::filesystem;
using faults::fail_each_call;

// Catches: an edit that fails and changes the table all the same, a lock that is not given back. Every run edits under
// the mutex of another name, so that each opens one for the first time.
struct Edit : TwoStateImage {
  Edit() : TwoStateImage("F") {}
  struct Results {
    int insert, update, erase, issue, wait, set, release;
    bool operator==(const Results &) const = default;
  };

  void ready() {
    name.emplace();
    image.plant.SetDBName(name->c_str());
    (void)image.item.DeleteAllRecord();
    for (const std::uint32_t key : {1U, 2U, 5U}) {
      std::memset(record.data(), 0, record.size());
      std::memcpy(record.data(), &key, sizeof key);
      std::memcpy(image.item.GetDataAddress() + Item::kSize * static_cast<std::size_t>(image.item.GetRecordCount()),
                  record.data(), record.size());
      image.item.SetRecordCount(image.item.GetRecordCount() + 1);
    }
    image.item.SetIDExclusive(6);
    record[0] = 5;
    record[Item::kLevel] = 9;
  }
  void run() {
    results.insert = image.item.Insert(3U, 0, 0);
    results.update = image.item.Update(record.data(), 0, 0);
    results.erase = image.item.Delete(1, 0, 0);
    results.issue = image.item.Insert(0U, 5, 0);
    CMutexEx mutex(name->c_str());
    results.wait = mutex.Wait(1000);
    results.set = image.item.SetFieldData(2, 2, reinterpret_cast<const char *>(&level));
    results.release = mutex.Release() ? 1 : 0;
  }
  std::string verdict(bool clean) {
    // key and level of each record, by what the edits say that they did
    std::string expected = results.erase == 1 ? "" : "1 0,";
    expected += results.set == 1 ? "2 7," : "2 0,";
    expected += results.insert == 2 ? "3 0," : "";
    expected += results.update >= 0 ? "5 9," : "5 0,";
    expected += results.issue >= 0 ? "6 0," : "";
    std::string shown;
    for (int i = 0; i < image.item.GetRecordCount(); ++i) {
      const char *at = image.item.GetAt(i);
      shown += std::to_string(peek(at, 0)) + ' ' + std::to_string(peek(at, Item::kLevel)) + ',';
    }
    std::string wrong;
    if (shown != expected) wrong += shown + " instead of " + expected;
    if (clean &&
        results != Results{.insert = 2, .update = 3, .erase = 1, .issue = 3, .wait = 0, .set = 1, .release = 1})
      wrong += "an edit fails ";
    const bool is_free = on_other_thread([&] {
      CMutexEx mutex(name->c_str());
      return mutex.Wait(0) == 0 && mutex.Release();
    });
    if (!is_free) wrong += "the mutex is held ";
    return wrong;
  }

  const int level = 7;
  std::optional<MutexName> name;
  std::array<char, Item::kSize> record{};
  Results results{};
};

// Catches: a folder of mutexes that only this process takes for the one of all, whether or not another user has taken
// its plain name; one without the permissions that a umask took away.
struct MutexFolder {
  explicit MutexFolder(bool is_taken) : taken(is_taken) {}
  void ready() {
    fs::remove_all(root.path("shm"));
    fs::create_directory(root.path("shm"));
    if (taken) root.write("shm/mutexes", "");
    found.clear();
    former = umask(0777);
  }
  void run() {
    try {
      found = quillanest::mutex_folder(plain);
    } catch (const std::system_error &) {  // no folder
    } catch (const std::bad_alloc &) {
    }
  }
  std::string verdict(bool clean) {
    umask(former);
    const std::string agreed = quillanest::mutex_folder(plain);
    if (found.empty() ? clean : found != agreed) return found + " instead of " + agreed;
    const bool is_open = fs::status(agreed).permissions() == fs::perms::owner_all;
    return is_open && (agreed == plain) != taken ? "" : agreed;
  }

  const bool taken;
  TestRoot root;
  const std::string plain = root.path("shm/mutexes");
  std::string found;
  mode_t former = 0;
};

TEST_F(Faults, Edit) { fail_each_call(Edit(), kLocking + "new pthread_mutex_lock pthread_mutex_clocklock"); }
TEST_F(Faults, MutexFolder) {
  fail_each_call(MutexFolder(false), "lstat glob mkdir chmod");
  fail_each_call(MutexFolder(true), "lstat glob mkdir mkdtemp chmod access open flock");
}
TEST_F(Faults, Primitives) {
  fail_each_call(Primitives(), kLocking +
                                   "pthread_mutex_trylock pthread_attr_init pthread_attr_setstack pthread_create "
                                   "mprotect current_path fopen localtime_r stat resize_file");
}

}  // namespace
