// Construction, configuration and attributes of CRtdbManager.
#include "quillanest/kernel/RtdbManager.h"

#include <algorithm>
#include <string>
#include <string_view>

#include "quillanest/base/Neutral.h"
#include "quillanest/base/Report.h"
#include "quillanest/kernel/ManagerView.h"
#include "quillanest/kernel/Parts.h"
#include "quillanest/platform/InstallRoot.h"
#include "quillanest/platform/TextFile.h"
#include "quillanest/settings/Configuration.h"
#include "quillanest/shm/Bytes.h"

using quillanest::ManagerView;
using quillanest::Parts;
using quillanest::report_error;
using quillanest::report_note;

namespace {

constexpr int kDefaultManagerKey = 333;

// Copies a path with its terminator. False, with `to` empty, if it does not fit.
bool copy_path(char (&to)[RTDB_PATH_SIZE], std::string_view path) {
  std::fill(std::begin(to), std::end(to), '\0');
  if (path.size() >= sizeof to) return false;
  std::copy(path.begin(), path.end(), to);
  return true;
}

// Makes the databases of the catalogue forget the manager: another one may still share them.
void release_catalogue(CRtdbManager &manager) {
  for (std::shared_ptr<CRtDataBase> &database : Parts::catalogue(manager)) {
    if (database != nullptr && Parts::manager(*database) == &manager) Parts::manager(*database) = nullptr;
    database.reset();
  }
}

}  // namespace

CRtdbManager::CRtdbManager() : attr_{} {
  attr_.DataBaseMaxNum = RTDB_DATABASE_MAX;
  (void)quillanest::neutral_on_failure(0, [&] { return ReadConfigInfo(); });
}

CRtdbManager::~CRtdbManager() { release_catalogue(*this); }

CRtdbManager::CRtdbManager(const CRtdbManager &other) : attr_{} { *this = other; }

CRtdbManager &CRtdbManager::operator=(const CRtdbManager &other) {
  if (this == &other) return *this;
  release_catalogue(*this);
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
  // All work that can fail for lack of a resource is done by now. A path that does not fit its member is refused,
  // because a cut path would name another place; a manager without a data path does not start.
  if (root.empty()) {
    report_error("config.root", {},
                 "no installation root: QUILLANEST_ROOT is not set, and the library's file is unknown");
    return 0;
  }
  for (const std::string &name : {file, folder}) {
    if (name.size() < RTDB_PATH_SIZE) continue;
    report_error("config.path", {name}, "the path has ", name.size(), " characters, of which 95 fit");
  }
  if (!copy_path(attr_.SysIniFile, file) || !copy_path(attr_.DataPath, folder)) return 0;
  if (!quillanest::file_size(file)) {
    report_note("config.missing", {file}, "there is no configuration file here; all settings have their defaults");
  }
  segment_.SetKey(key);
  return 1;
}

_rtdb_attr *CRtdbManager::GetRealRtdbInfo() const {
  return quillanest::attr_at<_rtdb_attr>(ManagerView::segment(*this), sizeof(_rtdb_head));
}

_db_attr *CRtdbManager::GetDbInfoAddr() const {
  const std::span<std::byte> bytes = ManagerView::segment(*this);
  const auto *head = quillanest::attr_at<_rtdb_head>(bytes, 0);
  return head == nullptr ? nullptr : quillanest::attr_at<_db_attr>(bytes, quillanest::read_once(head->DbInfoOffset));
}

int *CRtdbManager::GetDbInfoIndexAddr() const {
  const std::span<std::byte> bytes = ManagerView::segment(*this);
  const auto *head = quillanest::attr_at<_rtdb_head>(bytes, 0);
  return head == nullptr ? nullptr : quillanest::attr_at<int>(bytes, quillanest::read_once(head->DbInfoIndexOffset));
}

int CRtdbManager::GetRtdbStatus() const { return quillanest::load_shared(ManagerView::attr(*this).RtdbStatus); }

void CRtdbManager::SetRtdbStatus(int status) {
  quillanest::store_shared(ManagerView::attr(*this).RtdbStatus, status);
  attr_.RtdbStatus = status;
}

int CRtdbManager::GetDataBaseMaxNum() const { return quillanest::read_once(ManagerView::attr(*this).DataBaseMaxNum); }
char *CRtdbManager::GetHostName() { return ManagerView::attr(*this).HostName; }
char *CRtdbManager::GetSysIniFile() { return ManagerView::attr(*this).SysIniFile; }
char *CRtdbManager::GetDataPath() { return ManagerView::attr(*this).DataPath; }
CRtDataBase *CRtdbManager::GetSystemDB() { return &system_; }
