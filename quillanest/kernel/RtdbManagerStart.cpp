// Start-up: attaching to an image, building one, re-opening one.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <string>

#include "quillanest/base/Neutral.h"
#include "quillanest/base/Report.h"
#include "quillanest/base/Text.h"
#include "quillanest/kernel/DatabaseView.h"
#include "quillanest/kernel/ManagerView.h"
#include "quillanest/kernel/Parts.h"
#include "quillanest/kernel/SchemaCheck.h"
#include "quillanest/kernel/SchemaReader.h"
#include "quillanest/platform/Process.h"
#include "quillanest/platform/TextFile.h"
#include "quillanest/settings/Configuration.h"
#include "quillanest/shm/Bytes.h"
#include "quillanest/shm/SegmentAccess.h"
#include "quillanest/shm/TextAt.h"

using quillanest::DatabaseView;
using quillanest::Directory;
using quillanest::ManagerView;
using quillanest::Operation;
using quillanest::Parts;
using quillanest::report_error;
using quillanest::report_note;
using quillanest::SegmentAccess;

namespace {

constexpr const char *kSystemName = "system";

// Copies the attributes. The status is written in one step, because another thread may read it at the same time.
void write_attributes(_rtdb_attr &to, const _rtdb_attr &from) {
  constexpr std::size_t kStatus = offsetof(_rtdb_attr, RtdbStatus);
  constexpr std::size_t kAfter = kStatus + sizeof from.RtdbStatus;
  std::memcpy(&to, &from, kStatus);
  quillanest::store_shared(to.RtdbStatus, from.RtdbStatus);
  std::memcpy(quillanest::as_bytes(&to) + kAfter, quillanest::as_bytes(&from) + kAfter, sizeof from - kAfter);
}

// Maps the segments of an existing directory for the life of the process.
bool reopen_image(CRtdbManager &manager) {
  const Directory entries = ManagerView::directory(manager, Parts::attr(manager).DataBaseMaxNum);
  if (!entries) {
    report_error("start.directory", {}, "there is no directory of databases to reopen");
    return false;
  }
  for (int slot = entries.next_present(0); slot >= 0; slot = entries.next_present(slot + 1)) {
    const _db_attr record = entries.records[slot];
    CShareMemory segment(static_cast<int>(record.DBID));
    if (segment.Create(record.DBSize, false, false) == nullptr) {
      report_error("start.segment", {}, "no segment of ", record.DBSize, " bytes for the database ", record.DBID);
      return false;
    }
    // By design [ReopenKeepsSegments]: a re-opened segment stays for the life of the process.
    SegmentAccess::keep_for_process_life(segment);
  }
  manager.UserLogout();
  manager.SetRtdbStatus(RTDB_STATUS_LAID_OUT);
  return true;
}

void record_host_name(CRtdbManager &manager) {
  if (ManagerView::segment(manager).empty()) return;
  const std::string name = quillanest::host_name().substr(0, RTDB_HOST_SIZE - 1);
  for (_rtdb_attr *attr : {&ManagerView::attr(manager), &Parts::attr(manager)}) {
    std::fill(std::begin(attr->HostName), std::end(attr->HostName), '\0');
    std::copy(name.begin(), name.end(), attr->HostName);
  }
}

// Maps the database with ID 1. It must have the name of the system database in the directory or, if another database of
// that ID was laid out over it, in its segment.
bool bind_system_database(CRtdbManager &manager) {
  CRtDataBase &system = Parts::system(manager);
  const auto has_name = [&] {
    return quillanest::equal_ignoring_case(
        quillanest::text_in({quillanest::as_bytes(system.GetDBName()), sizeof(_db_attr)}), kSystemName);
  };
  if (manager.GetDataBaseFromID(system, quillanest::kSystemDatabaseID) == 0) {
    report_error("start.system", {}, "no database has the ID 1, that of the system database");
    return false;
  }
  const bool is_listed = has_name();
  if (system.AttachShareMemory() == 0) {
    report_error("start.segment", {}, "the segment of the system database cannot be mapped");
    return false;
  }
  if (is_listed || has_name()) return true;
  report_error("start.system", {}, "the database with the ID 1 is not called \"system\"");
  (void)system.DetachShareMemory();
  return false;
}

// The process remembers what its image was built from in the first note about the manager segment.
void note_schema(const CShareMemory &segment, const char *path) {
  const auto notes = SegmentAccess::notes(segment);
  if (!notes.empty()) notes[0].store(quillanest::file_stamp(std::string(quillanest::text_at(path))));
}

// Whether an image that is there already serves a start with this schema file. It always does by default.
bool serves_schema(const CShareMemory &segment, const char *path, bool is_strict) {
  const auto notes = SegmentAccess::notes(segment);
  const std::uint64_t built_from = notes.empty() ? 0 : notes[0].load();
  if (path == nullptr || built_from == 0 ||
      built_from == quillanest::file_stamp(std::string(quillanest::text_at(path)))) {
    report_note("start.attached", {}, "this process has an image already, which is used; the schema file is not read");
    return true;
  }
  quillanest::report_as(is_strict ? quillanest::Severity::kError : quillanest::Severity::kWarning, "start.schema",
                        {quillanest::text_at(path)},
                        "the image of this process was built from another schema file, or this one was changed since");
  return !is_strict;
}

}  // namespace

int CRtdbManager::AttachShareMemory() {
  if (segment_.Attach() == nullptr) return 0;
  if (ManagerView::segment(*this).empty()) {  // some other segment has the key
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
  if (slots < 0 || slots > RTDB_DATABASE_MAX) {  // SetRights reaches every word of the attributes
    report_error("start.slots", {}, "the attributes say ", slots, " database slots, of which there are at most 10");
    return 0;
  }
  const bool creates = bReopen == 0;
  if (segment_.Create(quillanest::manager_segment_size(slots), false, creates) == nullptr) {
    report_error("start.segment", {}, "no manager segment: the system refuses, or FileKey_Manager leads to key -1");
    return 0;
  }
  const std::span<std::byte> bytes = ManagerView::segment(*this);
  // An existing segment may be of any size.
  if (bytes.size() < static_cast<std::size_t>(quillanest::manager_segment_size(slots))) {
    report_error("start.segment", {}, "a smaller segment of another use has the key of the manager segment");
    return 0;
  }
  if (creates) write_attributes(ManagerView::attr(*this), attr_);
  _rtdb_head head{};
  head.DbInfoOffset = quillanest::kDirectoryOffset;
  head.DbInfoIndexOffset = quillanest::kDirectoryOffset + slots * std::int32_t{sizeof(_db_attr)};
  head.EndOffset = quillanest::manager_segment_size(slots);
  quillanest::store(bytes.data(), head);
  return 1;
}

bool CRtdbManager::RtdbManagerInit(bool bReopen, const char *pszSchemaFile) {
  Operation operation;
  const bool started = quillanest::neutral_on_failure(false, [&] {
    // If the configuration cannot be read whole, the key of the segment is not known.
    if (*attr_.DataPath == '\0' && ReadConfigInfo() == 0) return false;
    const bool strict = quillanest::is_strict(attr_.SysIniFile);
    if (AttachShareMemory() != 0) {
      if (!serves_schema(segment_, bReopen ? nullptr : pszSchemaFile, strict)) return false;
      // By default the image of a start that failed in its load is taken as it is, without data.
      return !strict || GetRtdbStatus() == RTDB_STATUS_LOADED || LoadSystemDB() != 0;
    }
    if (strict && !bReopen && !quillanest::schema_is_sound(pszSchemaFile)) return false;
    if (CreateMem(bReopen ? 1 : 0) == 0) return false;
    if (!bReopen) SetRtdbStatus(RTDB_STATUS_BUILDING);
    const bool laid_out =
        bReopen ? reopen_image(*this) : quillanest::read_schema(pszSchemaFile, *this) && CreateDBMem() != 0;
    if (!laid_out) return false;
    if (!bReopen) note_schema(segment_, pszSchemaFile);
    record_host_name(*this);
    if (!bind_system_database(*this)) return false;
    if (!bReopen) return LoadSystemDB() != 0;
    SetRtdbStatus(RTDB_STATUS_LOADED);
    return true;
  });
  return operation.explain(started, "start.failed", {}, "the image does not start");
}
