// The catalogue phase of CRtDataBase: taking tables and fields, and laying the segment out.
#include <limits>
#include <string_view>

#include "quillanest/base/Neutral.h"
#include "quillanest/base/Report.h"
#include "quillanest/kernel/Parts.h"
#include "quillanest/shm/Bytes.h"
#include "quillanest/shm/SegmentAccess.h"

using quillanest::Parts;
using quillanest::Place;
using quillanest::report_error;

namespace {

// A segment's size and every offset in it are 32-bit numbers.
constexpr std::int64_t kLargestSegment = std::numeric_limits<std::int32_t>::max();

// The number of table descriptors that fit into a segment.
constexpr std::int64_t kMostTables =
    (kLargestSegment - std::int64_t{sizeof(_db_attr)}) / std::int64_t{sizeof(_table_attr)};

// Calls `visit(table)` for every slot in order, with a fresh table for a slot that was not filled.
template <class Visit>
void visit_slots(CRtDataBase &database, Visit visit) {
  auto &tables = *Parts::tables(database);
  for (int slot = 0; slot < Parts::attr(database).DBTableNum; ++slot) {
    const auto found = tables.find(slot);
    if (found != tables.end()) {
      visit(found->second);
    } else {
      CRtTable fresh;
      visit(fresh);
    }
  }
}

bool refuse(CRtTable &table, std::string_view sentence) noexcept {
  report_error("layout.table", {table.GetTableName()}, "the table cannot be laid out: ", sentence);
  return false;
}

// Computes the offsets of a table's fields and its record size.
bool compute_record(CRtTable &table) {
  const std::int32_t count = Parts::attr(table).TableFieldNum;
  std::int64_t size = 0;
  if (count < 0) return refuse(table, "FIELDNUM is negative");
  if (Parts::attr(table).RecordMaxCount < 0) return refuse(table, "MAX is negative");
  if (Parts::fields(table) == nullptr) return refuse(table, "it has no fields");
  for (auto &[index, field] : *Parts::fields(table)) {
    if (index >= count) return refuse(table, "a field's INDEX is not below FIELDNUM");
    if (field.GetFieldSize() < 0) return refuse(table, "the SIZE of a field is negative");
    if (size > kLargestSegment) break;
    field.SetFieldOffset(static_cast<int>(size));
    size += field.GetFieldSize();
  }
  if (size > kLargestSegment) return refuse(table, "a record would have more than 2 GB");
  table.SetTableSize(static_cast<int>(size));
  return true;
}

// Computes the record size of every table and the offsets and size of the segment. False, for a catalogue that no
// segment can hold, if a number is negative or the size exceeds 2 GB.
bool compute_layout(CRtDataBase &database) {
  _db_attr &attr = Parts::attr(database);
  std::int64_t fields = 0;
  std::int64_t data = 0;
  const auto is_too_large = [&](std::int64_t size) {
    if (size > kLargestSegment) {
      report_error("layout.size", {database.GetDBName()}, "the segment of the database would have more than 2 GB");
    }
    return size > kLargestSegment;
  };
  if (is_too_large(attr.DBTableNum * std::int64_t{sizeof(_table_attr)} + std::int64_t{sizeof(_db_attr)})) return false;
  // Unfilled slots have neither fields nor records, so only the filled ones count.
  for (auto &[slot, table] : *Parts::tables(database)) {
    if (slot >= attr.DBTableNum) return refuse(table, "its INDEX is not below TableCount");
    if (!compute_record(table)) return false;
    fields += Parts::attr(table).TableFieldNum;
    data += std::int64_t{Parts::attr(table).TableSize} * Parts::attr(table).RecordMaxCount;
    if (is_too_large(data) || is_too_large(fields * std::int64_t{sizeof(_field_attr)})) return false;
  }
  const std::int64_t field_offset =
      std::int64_t{sizeof(_db_attr)} + attr.DBTableNum * std::int64_t{sizeof(_table_attr)};
  const std::int64_t data_offset = field_offset + fields * std::int64_t{sizeof(_field_attr)};
  if (is_too_large(data_offset + data)) return false;
  attr.TableOffset = sizeof(_db_attr);
  attr.FieldOffset = static_cast<std::int32_t>(field_offset);
  attr.DBFieldNum = static_cast<std::int32_t>(fields);
  attr.DataOffset = static_cast<std::int32_t>(data_offset);
  attr.DBSize = static_cast<std::int32_t>(data_offset + data);
  return true;
}

// Copies a table's field descriptors to their places, the first one at `place`. Returns the place after the last.
std::byte *write_fields(const CRtTable &table, std::byte *place) {
  int record_offset = 0;
  for (int index = 0; index < Parts::attr(table).TableFieldNum; ++index) {
    CRtField field;  // a slot that was not filled still has its place in the record
    field.SetFieldOffset(record_offset);
    if (const auto *fields = Parts::fields(table); fields != nullptr) {
      if (const auto found = fields->find(index); found != fields->end()) field = found->second;
    }
    record_offset = field.GetFieldOffset() + field.GetFieldSize();
    quillanest::store(place, Parts::attr(field));
    place += sizeof(_field_attr);
  }
  return place;
}

// Copies table and field descriptors to their places in the new segment.
void write_slots(CRtDataBase &database) {
  const _db_attr &attr = Parts::attr(database);
  std::byte *base = quillanest::SegmentAccess::bytes(Parts::segment(database)).data();
  std::byte *table_place = base + attr.TableOffset;
  std::byte *field_place = base + attr.FieldOffset;
  std::int32_t data_offset = attr.DataOffset;
  visit_slots(database, [&](CRtTable &table) {
    Parts::set_offsets(table, static_cast<int>(field_place - base), data_offset);
    field_place = write_fields(table, field_place);
    quillanest::store(table_place, Parts::attr(table));
    table_place += sizeof(_table_attr);
    data_offset += Parts::attr(table).TableSize * Parts::attr(table).RecordMaxCount;
    Parts::release_fields(table);
  });
}

}  // namespace

int CRtDataBase::CreateTableMemory() {
  if (attr_.DBTableNum < 0 || attr_.DBTableNum > kMostTables) return 0;
  return quillanest::neutral_on_failure(0, [&] {
    tables_ = std::make_unique<std::map<int, CRtTable>>();
    return 1;
  });
}

int CRtDataBase::ReleaseTableMemory() {
  tables_.reset();
  return 1;
}

int CRtDataBase::InitAddTable(int slot, const CRtTable &table) {
  if (slot < 0 || slot >= attr_.DBTableNum || tables_ == nullptr) return 0;
  CRtTable &stored = (*tables_)[slot];
  stored = table;
  stored.SetDataBase(nullptr);  // the caller's may be bound to another table
  return stored.CreateFieldMemory();
}

int CRtDataBase::InitAddField(const CRtField &field) {
  const unsigned int id = field.GetTableID();
  if (tables_ == nullptr) {
    CRtTable laid_out;
    return GetDBTableFromID(laid_out, id);
  }
  int fresh_slot = 0;  // the first slot that was not filled; its table ID is kNoID
  for (auto &[slot, table] : *tables_) {
    if (id == quillanest::kNoID && fresh_slot < slot) break;
    if (table.attr_.TableID == id && slot < attr_.DBTableNum) {
      // The field is accepted even if the table ignores it.
      (void)table.InitAddField(field);
      return 1;
    }
    fresh_slot = slot + 1;
  }
  return id == quillanest::kNoID && fresh_slot < attr_.DBTableNum ? 1 : 0;
}

int CRtDataBase::CreateMem() {
  const Place place{GetDBName()};
  if (attr_.DBTableNum < 1 || tables_ == nullptr) {
    report_error("layout.no_tables", place, "the database has no table slots, or is laid out already");
    return 0;
  }
  if (!compute_layout(*this)) return 0;
  segment_.SetKey(static_cast<int>(attr_.DBID));
  if (segment_.Create(attr_.DBSize, false, true) == nullptr) {
    report_error("layout.segment", place, "the system has no segment of ", attr_.DBSize, " bytes");
    return 0;
  }
  // Create() returns an existing segment of any size.
  if (quillanest::SegmentAccess::bytes(segment_).size() < static_cast<std::size_t>(attr_.DBSize)) {
    report_error("layout.shared_id", place, "the segment of the ID ", attr_.DBID, " exists and is smaller than the ",
                 attr_.DBSize, " bytes of this database: give it an ID of its own");
    return 0;
  }
  write_slots(*this);
  quillanest::store(quillanest::SegmentAccess::bytes(segment_).data(), attr_);
  for (std::atomic<std::uint64_t> &note : quillanest::SegmentAccess::notes(segment_)) {
    note.store(0);  // of an image that was here before
  }
  (void)ReleaseTableMemory();
  mapped_ = 1;
  return 1;
}
