// Construction, configuration and attributes of CRtdbManager.
#include "quillanest/kernel/RtdbManager.h"

#include <algorithm>
#include <string>
#include <string_view>

#include "quillanest/base/Neutral.h"
#include "quillanest/kernel/DatabaseView.h"
#include "quillanest/kernel/Directory.h"
#include "quillanest/platform/InstallRoot.h"
#include "quillanest/settings/Configuration.h"
#include "quillanest/shm/Bytes.h"
#include "quillanest/shm/SegmentAccess.h"

using quillanest::SegmentAccess;

namespace {

constexpr int kDefaultManagerKey = 333;

// Copies a path with its terminator; false, with `to` empty, for one that does not fit.
bool copy_path(char (&to)[RTDB_PATH_SIZE], std::string_view path) {
  std::fill(std::begin(to), std::end(to), '\0');
  if (path.size() >= sizeof to) return false;
  std::copy(path.begin(), path.end(), to);
  return true;
}

}  // namespace

CRtdbManager::CRtdbManager() : attr_{} {
  attr_.DataBaseMaxNum = RTDB_DATABASE_MAX;
  (void)quillanest::neutral_on_failure(0, [&] { return ReadConfigInfo(); });
}

CRtdbManager::~CRtdbManager() { release_catalogue(); }

// Lets the databases of the catalogue forget this manager: another one may go on sharing them.
void CRtdbManager::release_catalogue() {
  for (std::shared_ptr<CRtDataBase> &database : catalogue_) {
    if (database != nullptr && database->manager_ == this) database->manager_ = nullptr;
    database.reset();
  }
}

CRtdbManager::CRtdbManager(const CRtdbManager &other) : attr_{} { *this = other; }

CRtdbManager &CRtdbManager::operator=(const CRtdbManager &other) {
  if (this == &other) return *this;
  release_catalogue();
  attr_ = other.attr_;
  catalogue_ = other.catalogue_;
  system_ = other.system_;
  if (system_.manager_ != nullptr) system_.manager_ = this;
  segment_ = other.segment_;
  return *this;
}

int CRtdbManager::ReadConfigInfo() {
  const std::string root = quillanest::install_root();
  const std::string file = root + std::string(quillanest::kConfigurationFile);
  const std::string path =
      quillanest::profile_text(file, quillanest::kConfigurationSection, "RtdbDataPath").substr(0, RTDB_PATH_SIZE - 1);
  const std::string folder = root + path;
  const int key =
      quillanest::profile_int(file, quillanest::kConfigurationSection, "FileKey_Manager", kDefaultManagerKey);
  // What can fail for lack of a resource is done by now. A path that does not fit its member is refused, because a cut
  // one would name another place; a manager without a data path does not start.
  if (root.empty() || !copy_path(attr_.SysIniFile, file) || !copy_path(attr_.DataPath, folder)) return 0;
  segment_.SetKey(key);
  return 1;
}

// The manager segment while it is mapped and large enough for one, else empty.
std::span<std::byte> CRtdbManager::segment_bytes() const {
  const std::span<std::byte> bytes = SegmentAccess::bytes(segment_);
  return bytes.size() >= static_cast<std::size_t>(quillanest::kDirectoryOffset) ? bytes : std::span<std::byte>();
}

_rtdb_attr *CRtdbManager::GetRealRtdbInfo() const {
  return quillanest::attr_at<_rtdb_attr>(segment_bytes(), sizeof(_rtdb_head));
}

_db_attr *CRtdbManager::GetDbInfoAddr() const {
  const std::span<std::byte> bytes = segment_bytes();
  const auto *head = quillanest::attr_at<_rtdb_head>(bytes, 0);
  return head == nullptr ? nullptr : quillanest::attr_at<_db_attr>(bytes, quillanest::read_once(head->DbInfoOffset));
}

int *CRtdbManager::GetDbInfoIndexAddr() const {
  const std::span<std::byte> bytes = segment_bytes();
  const auto *head = quillanest::attr_at<_rtdb_head>(bytes, 0);
  return head == nullptr ? nullptr : quillanest::attr_at<int>(bytes, quillanest::read_once(head->DbInfoIndexOffset));
}

// The first `slots` slots of the directory, as far as the segment holds them.
CRtdbManager::Directory CRtdbManager::directory(int slots) const {
  Directory found;
  found.records = GetDbInfoAddr();
  found.flags = GetDbInfoIndexAddr();
  if (!found) return {};
  const std::span<std::byte> bytes = segment_bytes();
  const auto room_behind = [&](const void *address) {
    return static_cast<std::size_t>(bytes.data() + bytes.size() - quillanest::as_bytes(address));
  };
  const std::size_t fitting =
      std::min(room_behind(found.records) / sizeof(_db_attr), room_behind(found.flags) / sizeof(int));
  found.slots = std::clamp(slots, 0, static_cast<int>(fitting));
  return found;
}

// The directory once the databases are laid out; nothing before.
CRtdbManager::Directory CRtdbManager::usable_directory() const {
  return GetRtdbStatus() >= RTDB_STATUS_LAID_OUT ? directory(GetDataBaseMaxNum()) : Directory{};
}

_rtdb_attr &CRtdbManager::in_force() {
  _rtdb_attr *shared = GetRealRtdbInfo();
  return shared != nullptr ? *shared : attr_;
}

const _rtdb_attr &CRtdbManager::in_force() const {
  const _rtdb_attr *shared = GetRealRtdbInfo();
  return shared != nullptr ? *shared : attr_;
}

int CRtdbManager::GetRtdbStatus() const { return quillanest::load_shared(in_force().RtdbStatus); }

void CRtdbManager::SetRtdbStatus(int status) {
  quillanest::store_shared(in_force().RtdbStatus, status);
  attr_.RtdbStatus = status;
}

int CRtdbManager::GetDataBaseMaxNum() const { return quillanest::read_once(in_force().DataBaseMaxNum); }
char *CRtdbManager::GetHostName() { return in_force().HostName; }
char *CRtdbManager::GetSysIniFile() { return in_force().SysIniFile; }
char *CRtdbManager::GetDataPath() { return in_force().DataPath; }
CRtDataBase *CRtdbManager::GetSystemDB() { return &system_; }
