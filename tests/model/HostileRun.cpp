#include "tests/model/HostileRun.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <latch>
#include <thread>

namespace quillanest::model {
namespace {

constexpr std::size_t kNamesEnd = offsetof(_db_attr, DBID);
constexpr std::size_t kPathsStart = sizeof(_rtdb_head);
constexpr std::size_t kPathsEnd = kPathsStart + offsetof(_rtdb_attr, HostName);
constexpr std::size_t kManagerSize = 1296;
// Of a caller's buffer: any segment, and the enciphered form of a text of that length.
constexpr std::size_t kRoom = std::size_t{1} << 16;
constexpr std::size_t kLargestSegment = kRoom / 4;

constexpr const char *kTexts[] = {"",   "ID", "bmodified", "iProjectID", "t10",   "T11",
                                  "f1", "1",  "users",     "admin",      "qnp1.", "2024-3-7 9:5:0"};

}  // namespace

void ImageSurroundings::remove_data() const {
  for (const std::string &name : root.files("data")) (void)std::remove(root.path("data/" + name).c_str());
}

void run_image(Input input, void (*run)(const ImageSurroundings &, Input)) {
  static const ImageSurroundings surroundings;
  set_message_handler([](const char *) {});
  run(surroundings, input);
  for (const int key : {kManagerKey, 1, 2, 3}) {
    require(CShareMemory(key).Attach() == nullptr, "nothing is left of an image");
  }
}

HostileRun::HostileRun(const ImageSurroundings &surroundings, const RandomSchema &schema, Input input)
    : surroundings_(surroundings),
      input_(input),
      mapped_(schema.database_count),
      manager_segment_(kManagerKey),
      buffer_(std::make_unique<char[]>(kRoom)) {
  require(builder_.RtdbManagerInit(false, surroundings_.schema.path()), "a sound schema starts");
  unsigned int id = 0;
  for (Mapped &mapped : mapped_) {
    require(builder_.GetDataBaseFromID(mapped.database, ++id) == 1, "a database is found by its ID");
    require(mapped.database.AttachShareMemory() == 1, "a database can be mapped");
    mapped.start = mapped.database.GetStartAddress();
    const auto attr = value_at<_db_attr>(mapped.start, 0);
    mapped.size = static_cast<std::size_t>(attr.DBSize);
    mapped.table_count = static_cast<std::size_t>(attr.DBTableNum);
    mapped.descriptors_end = static_cast<std::size_t>(attr.DataOffset);
    mapped.after_names = bytes_at(mapped.start + kNamesEnd, mapped.descriptors_end - kNamesEnd);
    require(mapped.size < kLargestSegment, "a small schema makes small segments");
    mapped.end = std::make_unique<SegmentEnd>(mapped.start, mapped.size);
  }
  remember_names();
  head_ = static_cast<char *>(manager_segment_.Attach());
  manager_end_ = std::make_unique<SegmentEnd>(head_, kManagerSize);
  manager_bytes_ = bytes_at(head_, kManagerSize);
  (void)second_.AttachShareMemory();
}

void HostileRun::remember_names() {
  for (Mapped &mapped : mapped_) mapped.names = bytes_at(mapped.start, kNamesEnd);
}

void HostileRun::mend() {
  manager_bytes_.copy(head_ + kPathsStart, kPathsEnd - kPathsStart, kPathsStart);
  for (const Mapped &mapped : mapped_) mapped.names.copy(mapped.start, mapped.names.size());
}

// What any client can do: a number of a descriptor becomes another one.
void HostileRun::write_over() {
  constexpr std::size_t kWord = sizeof(std::int32_t);
  if (input_.choice(4) == 0) {
    std::size_t place = input_.choice((kManagerSize - kPathsEnd + kPathsStart) / kWord) * kWord;
    if (place >= kPathsStart) place += kPathsEnd - kPathsStart;
    put(head_, place, input_.wild());
    return;
  }
  const Mapped &mapped = any_mapped();
  const std::size_t words = (mapped.descriptors_end - kNamesEnd) / kWord;
  put(mapped.start, kNamesEnd + input_.number<std::uint16_t>() % words * kWord, input_.wild());
}

// The same for a number of a table or field.
void HostileRun::write_number() {
  const Mapped &mapped = any_mapped();
  const std::size_t fields = sizeof(_db_attr) + mapped.table_count * sizeof(_table_attr);
  const std::size_t field_count = (mapped.descriptors_end - fields) / sizeof(_field_attr);
  const bool of_table = field_count == 0 || input_.flag();
  const std::size_t place = of_table ? sizeof(_db_attr) + input_.choice(mapped.table_count) * sizeof(_table_attr)
                                     : fields + input_.choice(field_count) * sizeof(_field_attr);
  const std::size_t word = input_.choice(of_table ? 10 : 8) * sizeof(std::int32_t);
  put(mapped.start, place + kNamesEnd + word, input_.flag() ? input_.wild() : static_cast<int>(input_.choice(64)) * 4);
}

char *HostileRun::any_address() {
  const Mapped &mapped = any_mapped();
  return mapped.start + input_.number<std::uint16_t>() % mapped.size;
}

const char *HostileRun::any_text() {
  switch (input_.choice(4)) {
    case 0:
      return input_.pick(kTexts);
    case 1:
      return any_address();
    case 2:
      return input_.choice(8) == 0 ? nullptr : "a text that is longer than most of the fields are wide";
    default:
      return any_changeable_text();
  }
}

char *HostileRun::any_changeable_text() {
  if (input_.choice(4) == 0) return any_address();
  texts_.push_back(exact_copy(input_.text(48)));
  return texts_.back().get();
}

char *HostileRun::any_buffer() {
  switch (input_.choice(8)) {
    case 0:
      return nullptr;
    case 1:
    case 2:
      return any_address();
    case 3: {
      const std::string bytes = input_.text(255);
      bytes.copy(buffer_.get(), bytes.size());
      return buffer_.get();
    }
    default:
      std::memset(buffer_.get(), input_.number<std::uint8_t>(), kLargestSegment);
      return buffer_.get();
  }
}

unsigned int HostileRun::any_id() {
  constexpr unsigned int kIDs[] = {0, 1, 2, 3, 4, 10, 11, 12, 20, 21, 30, kUsersTable, kRightsTable, 0xFFFFFFFF};
  return input_.pick(kIDs);
}

CRtField HostileRun::any_field() {
  CRtField field;
  field.SetFieldName(any_text());
  field.SetFieldCName(any_text());
  field.SetDefaultValue(any_text());
  field.SetDataBaseID(any_id());
  field.SetTableID(any_id());
  field.SetFieldID(any_id());
  field.SetIndexInTable(input_.flag() ? static_cast<int>(input_.choice(8)) : input_.wild());
  field.SetFieldType(input_.flag() ? static_cast<int>(input_.choice(16)) : input_.wild());
  field.SetFieldTypeSize(input_.wild());
  field.SetFieldSize(input_.wild());
  field.SetFieldOffset(input_.wild());
  return field;
}

char *HostileRun::any_record(const CRtTable &table) {
  const bool fits = !contended_ && table.GetTableSize() <= static_cast<int>(kLargestSegment);
  return fits ? any_buffer() : any_address();
}

bool HostileRun::is_cheap(CRtDataBase &database) {
  constexpr std::size_t kSmall = 4096;  // regardless of what the descriptors say
  if (contended_) {
    return std::all_of(mapped_.begin(), mapped_.end(), [](const Mapped &mapped) { return mapped.size <= kSmall; });
  }
  constexpr std::int64_t kMostWork = 1'000'000;
  const auto segment = static_cast<std::int64_t>(kLargestSegment);
  std::int64_t work = 0;
  CRtTable table;
  int position = database.GetFirstTablePostion();
  while (work <= kMostWork && database.GetNextTable(table, position)) {
    const std::int64_t fitting = segment / std::max(table.GetTableSize(), 1);
    const std::int64_t records = std::clamp<std::int64_t>(table.GetRecordCount(), 0, fitting);
    const std::int64_t fields = std::clamp<std::int64_t>(table.GetTableFieldNum(), 0, segment / 128);
    work += 1 + records * fields * 512;
  }
  return work <= kMostWork;
}

bool HostileRun::all_are_cheap() {
  return std::all_of(mapped_.begin(), mapped_.end(), [&](Mapped &mapped) { return is_cheap(mapped.database); });
}

void HostileRun::call() {
  CRtTable table;
  input_.make_one_of([&] { write_over(); }, [&] { call_database(any_mapped().database); },
                     [&] {
                       CRtDataBase copy(any_mapped().database);
                       if (input_.flag()) (void)copy.AttachShareMemory();
                       call_database(copy);
                     },
                     [&] { call_manager(input_.flag() ? builder_ : second_); },
                     [&] {
                       (void)builder_.GetSystemTable(table, any_id());
                       call_table(table);
                     },
                     [&] {
                       (void)any_mapped().database.GetDBTableFromIndex(table, input_.wild());
                       call_table(table);
                     },
                     times<2>([&] {
                       (void)any_mapped().database.GetDBTableFromIndex(table, static_cast<int>(input_.choice(4)));
                       call_table(table);
                     }));
}

void HostileRun::run() {
  constexpr int kMostCalls = 200;
  const Input all = input_;
  const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(2);
  for (int calls = 0; calls < kMostCalls && !input_.empty(); ++calls) {
    mend();
    call();
    texts_.clear();
    if (contended_ && input_.empty() && std::chrono::steady_clock::now() < end) input_ = all;
  }
  mend();
  surroundings_.remove_data();
}

void HostileRun::expect_contention() {
  constexpr unsigned int kMostRecords = 4;
  contended_ = true;
  for (Mapped &mapped : mapped_) {
    CRtTable table;
    for (int position = 0; mapped.database.GetNextTable(table, position);) {
      for (unsigned int key = 1; key <= kMostRecords; ++key) (void)table.Insert(key, 0, 1);
    }
  }
}

void HostileRun::change_descriptor() {
  CRtTable table;
  input_.make_one_of([&] { write_over(); },
                     [&] {
                       (void)any_mapped().database.GetDBTableFromIndex(table, static_cast<int>(input_.choice(4)));
                       set_descriptor(table);
                     },
                     [&] {
                       CRtDataBase copy(any_mapped().database);
                       (void)copy.AttachShareMemory();
                       set_number(copy);
                     },
                     [&] { write_number(); });
}

void HostileRun::disturb(const std::stop_token &stop) {
  constexpr std::size_t kLongestPause = 256;
  const auto keep_order = [] { std::atomic_signal_fence(std::memory_order_seq_cst); };
  for (const Input all = input_; !stop.stop_requested(); input_ = input_.empty() ? all : input_) {
    change_descriptor();
    for (std::size_t pause = input_.choice(kLongestPause) + 1; pause > 0; --pause) keep_order();
    manager_bytes_.copy(head_, manager_bytes_.size());
    for (const Mapped &mapped : mapped_) mapped.after_names.copy(mapped.start + kNamesEnd, mapped.after_names.size());
    keep_order();
    texts_.clear();
  }
}

void run_hostile(const ImageSurroundings &surroundings, Input input) {
  const RandomSchema schema = random_schema(input, FieldSizes::kAny);
  surroundings.schema.write(schema.text());
  HostileRun(surroundings, schema, input).run();
}

void run_contended(const ImageSurroundings &surroundings, Input input) {
  constexpr std::size_t kMostThreads = 2;
  constexpr std::size_t kLongest = 64;
  const RandomSchema schema = random_schema(input, FieldSizes::kAny);
  surroundings.schema.write(schema.text());
  std::vector<Input> parts(1 + input.choice(kMostThreads), input);
  for (Input &part : parts) part = input.part(input.choice(kLongest));
  HostileRun client(surroundings, schema, input);
  client.expect_contention();
  std::deque<HostileRun> others;
  for (const Input &part : parts) others.emplace_back(surroundings, schema, part);
  std::latch ready(static_cast<std::ptrdiff_t>(others.size()) + 1);
  std::vector<std::jthread> threads;
  for (HostileRun &other : others) {
    threads.emplace_back([&](const std::stop_token &stop) {
      ready.arrive_and_wait();
      other.disturb(stop);
    });
  }
  ready.arrive_and_wait();
  client.run();
}

}  // namespace quillanest::model
