// Two programs whose databases have one name share nothing but its mutex: their edits never overlap, and the death of
// one does not stop the other.
#include <array>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include "quillanest/Quillanest.h"
#include "tests/abuse/Length.h"
#include "tests/support/Child.h"
#include "tests/support/Mutexes.h"
#include "tests/support/TestRoot.h"

namespace {

using Count = std::atomic<std::int64_t>;

// What the programs note in a file that all of them map.
struct Notes {
  std::array<Count, 3> edits;  // by who edits
  std::atomic<int> inside;     // the one that edits now, 0 for no program
  std::atomic<int> wrong, abandoned, stop;
};
static_assert(Count::is_always_lock_free);

// The notes in a file of zeros, mapped for the life of the process.
Notes &notes_in(const std::string &path) {
  const int file = open(path.c_str(), O_RDWR | O_CLOEXEC);
  void *address = mmap(nullptr, sizeof(Notes), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
  close(file);
  if (address == MAP_FAILED) throw std::runtime_error("cannot map " + path);
  return *static_cast<Notes *>(address);
}

// An insertion, a change or a deletion; whether it did as it should.
bool edit(CRtTable &table, std::int64_t number) {
  std::array<char, 52> record{1};
  if (number % 3 == 0) return table.Insert(record.data(), 0) == 0;
  return number % 3 == 1 ? table.Update(record.data(), -1, 0) == 0 : table.Delete(1U, -1, 0) == 1;
}

// Arguments: schema, database, file of the notes, who it is, and the number of edits after which it holds the mutex and
// says so. Edits an image of its own until it is told to stop.
int edit_beside_others(const std::vector<std::string> &arguments) {
  CRtdbManager manager;
  CRtDataBase database;
  CRtTable table;
  Notes &notes = notes_in(arguments[2]);
  const int self = std::stoi(arguments[3]);
  if (!manager.RtdbManagerInit(false, arguments[0].c_str()) || manager.FindTable(20U, database, table) != 1) return 1;
  CMutexEx mutex(arguments[1].c_str());
  for (std::int64_t number = 0; notes.stop == 0; ++number) {
    const int wait = mutex.Wait(-1);
    if (wait == 0x80) ++notes.abandoned;
    const int former = notes.inside.exchange(self);  // it may be that of a dead program
    if (wait != 0x80 && (wait != 0 || former != 0)) ++notes.wrong;
    if (!edit(table, number)) ++notes.wrong;
    ++notes.edits[static_cast<std::size_t>(self)];
    if (number == std::stoll(arguments[4])) {
      say("held");
      wait_for_the_end();
    }
    if (notes.inside.exchange(0) != self || !mutex.Release()) ++notes.wrong;
  }
  return 0;
}
const RegisterChild kEditor{"edit_beside_others", edit_beside_others};

// Whether the count rises above a number within ten seconds.
bool rises(const Count &count, std::int64_t number) {
  for (int i = 0; i < 50'000 && count <= number; ++i) usleep(200);
  return count > number;
}

// A schema with table 20 in a database of that name.
std::string schema_of(const std::string &database) {
  TableSpec table = account_table();
  table.id = 20;
  std::string schema = schema_text({account_table()}, {table});
  return schema.replace(schema.find("Name=plant"), 10, "Name=" + database);
}

// Catches: edits of two programs that overlap, and a program that waits for ever after the death of the other one.
// Every second death comes while the mutex is held, the others come at random.
TEST(SharedName, EditsNeverOverlapAndOutliveADeath) {
  const unsigned first = seed();
  SCOPED_TRACE("seed " + std::to_string(first));
  std::mt19937 random(first);
  const TestRoot root;
  const MutexName name;
  const std::string file = root.write("notes", std::string(sizeof(Notes), '\0'));
  std::vector<std::string> arguments{root.write("schema.txt", schema_of(name.text())), name.text(), file, "2", "-1"};
  Notes &notes = notes_in(file);
  Child survivor("edit_beside_others", arguments);
  arguments[3] = "1";
  const int deaths = length(12, 200);
  for (int death = 0; death < deaths && notes.wrong == 0; ++death) {
    SCOPED_TRACE("death " + std::to_string(death));
    const int abandoned = notes.abandoned;
    const std::int64_t before = notes.edits[1];
    const bool holds = death % 2 == 0;
    arguments[4] = holds ? std::to_string(random() % 2'000) : "-1";
    Child victim("edit_beside_others", arguments);
    ASSERT_TRUE(rises(notes.edits[1], before)) << "the new one does not come to edit";
    ASSERT_TRUE(!holds || victim.hear() == "held");
    const std::int64_t held = notes.edits[2];
    usleep(static_cast<useconds_t>(random() % 5'000));
    EXPECT_TRUE(!holds || notes.edits[2] == held) << "the other one edits under a mutex that is held";
    victim.kill();
    ASSERT_TRUE(rises(notes.edits[2], notes.edits[2] + 2)) << "the other one does not go on";
    EXPECT_GE(notes.abandoned, abandoned + (holds ? 1 : 0));
    EXPECT_LE(notes.abandoned, abandoned + 1);
  }
  notes.stop = 1;
  EXPECT_EQ(survivor.wait(), 0);
  EXPECT_EQ(notes.wrong, 0) << "edits overlapped, or one failed";
  std::printf(
      "abuse: one name, two processes: %d deaths (seed %u), %ld edits, %ld of them by those who died; %d times 0x80, "
      "%d overlaps\n",
      deaths, first, notes.edits[1] + notes.edits[2], notes.edits[1].load(), notes.abandoned.load(),
      notes.wrong.load());
}

}  // namespace
