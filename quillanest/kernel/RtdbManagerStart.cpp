// Start-up: attaching to an image, building one, re-opening one.
#include <algorithm>
#include <cstddef>
#include <cstring>
#include <iterator>
#include <string>

#include "quillanest/base/Neutral.h"
#include "quillanest/base/Text.h"
#include "quillanest/kernel/DatabaseView.h"
#include "quillanest/kernel/Directory.h"
#include "quillanest/kernel/RtdbManager.h"
#include "quillanest/kernel/SchemaReader.h"
#include "quillanest/platform/Process.h"
#include "quillanest/shm/Bytes.h"
#include "quillanest/shm/SegmentAccess.h"

using quillanest::DatabaseView;
using quillanest::SegmentAccess;

namespace {

constexpr const char *kSystemName = "system";

// Copies the attributes; the status, which another thread may read at the same time, as a whole.
void write_attributes(_rtdb_attr &to, const _rtdb_attr &from) {
  constexpr std::size_t kStatus = offsetof(_rtdb_attr, RtdbStatus);
  constexpr std::size_t kBehind = kStatus + sizeof from.RtdbStatus;
  std::memcpy(&to, &from, kStatus);
  quillanest::store_shared(to.RtdbStatus, from.RtdbStatus);
  std::memcpy(quillanest::as_bytes(&to) + kBehind, quillanest::as_bytes(&from) + kBehind, sizeof from - kBehind);
}

}  // namespace

int CRtdbManager::AttachShareMemory() {
  if (segment_.Attach() == nullptr) return 0;
  if (segment_bytes().empty()) {  // some other segment lies under the key
    segment_.Detach();
    return 0;
  }
  if (DatabaseView::is_mapped(system_)) return 1;
  if (GetDataBaseFromName(system_, kSystemName) == 0) return 0;
  return system_.AttachShareMemory();
}

void CRtdbManager::DetachShareMemory() {
  segment_.Detach();
  (void)system_.DetachShareMemory();
}

// By design [DestroyKeepsDatabases]: only the manager segment is unmapped; the databases stay mapped by the catalogue.
void CRtdbManager::DestroyMemory() { segment_.Detach(); }

int CRtdbManager::CreateMem(int bReopen) {
  const std::int32_t slots = attr_.DataBaseMaxNum;
  if (slots < 0 || slots > RTDB_DATABASE_MAX) return 0;  // SetRights reaches every word of the attributes
  const bool creates = bReopen == 0;
  if (segment_.Create(quillanest::manager_segment_size(slots), false, creates) == nullptr) return 0;
  const std::span<std::byte> bytes = segment_bytes();
  // An existing segment may be of any size.
  if (bytes.size() < static_cast<std::size_t>(quillanest::manager_segment_size(slots))) return 0;
  if (creates) write_attributes(in_force(), attr_);
  _rtdb_head head{};
  head.DbInfoOffset = quillanest::kDirectoryOffset;
  head.DbInfoIndexOffset = quillanest::kDirectoryOffset + slots * std::int32_t{sizeof(_db_attr)};
  head.EndOffset = quillanest::manager_segment_size(slots);
  quillanest::store(bytes.data(), head);
  return 1;
}

bool CRtdbManager::build_image(const char *schema_file) {
  SetRtdbStatus(RTDB_STATUS_BUILDING);
  return quillanest::read_schema(schema_file, *this) && CreateDBMem() != 0;
}

bool CRtdbManager::reopen_image() {
  const Directory entries = directory(attr_.DataBaseMaxNum);
  if (!entries) return false;
  for (int slot = entries.next_present(0); slot >= 0; slot = entries.next_present(slot + 1)) {
    const _db_attr record = entries.records[slot];
    CShareMemory segment(static_cast<int>(record.DBID));
    if (segment.Create(record.DBSize, false, false) == nullptr) return false;
    // By design [ReopenKeepsSegments]: a re-opened segment stays for the life of the process.
    SegmentAccess::keep_for_process_life(segment);
  }
  UserLogout();
  SetRtdbStatus(RTDB_STATUS_LAID_OUT);
  return true;
}

void CRtdbManager::record_host_name() {
  if (segment_bytes().empty()) return;
  const std::string name = quillanest::host_name().substr(0, RTDB_HOST_SIZE - 1);
  for (_rtdb_attr *attr : {&in_force(), &attr_}) {
    std::fill(std::begin(attr->HostName), std::end(attr->HostName), '\0');
    std::copy(name.begin(), name.end(), attr->HostName);
  }
}

// Maps the database with ID 1, which has the name of the system database in the directory or, where another one of its
// ID was laid out over it, in its segment.
bool CRtdbManager::bind_system_database() {
  const auto has_name = [&] {
    return quillanest::equal_ignoring_case(
        quillanest::text_in({quillanest::as_bytes(system_.GetDBName()), sizeof(_db_attr)}), kSystemName);
  };
  if (GetDataBaseFromID(system_, quillanest::kSystemDatabaseID) == 0) return false;
  const bool is_listed = has_name();
  if (system_.AttachShareMemory() == 0) return false;
  if (is_listed || has_name()) return true;
  (void)system_.DetachShareMemory();
  return false;
}

bool CRtdbManager::RtdbManagerInit(bool bReopen, const char *pszSchemaFile) {
  return quillanest::neutral_on_failure(false, [&] { return start(bReopen, pszSchemaFile); });
}

bool CRtdbManager::start(bool reopen, const char *schema_file) {
  // If the configuration cannot be read whole, the key of the segment is not known.
  if (*attr_.DataPath == '\0' && ReadConfigInfo() == 0) return false;
  if (AttachShareMemory() != 0) return true;
  if (CreateMem(reopen ? 1 : 0) == 0) return false;
  if (!(reopen ? reopen_image() : build_image(schema_file))) return false;
  record_host_name();
  if (!bind_system_database()) return false;
  if (!reopen) return LoadSystemDB() != 0;
  SetRtdbStatus(RTDB_STATUS_LOADED);
  return true;
}
