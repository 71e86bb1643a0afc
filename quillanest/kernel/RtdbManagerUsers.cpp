// The logged-in user, and the rights.
#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <optional>
#include <string_view>

#include "quillanest/base/Report.h"
#include "quillanest/base/Text.h"
#include "quillanest/kernel/KeySearch.h"
#include "quillanest/kernel/ManagerView.h"
#include "quillanest/kernel/TableView.h"
#include "quillanest/platform/SystemTime.h"
#include "quillanest/settings/PasswordCipher.h"
#include "quillanest/shm/Bytes.h"
#include "quillanest/shm/TextAt.h"

using quillanest::as_bytes;
using quillanest::ManagerView;
using quillanest::report_error;
using quillanest::TableView;

namespace {

constexpr unsigned int kUsersTable = 104;
constexpr unsigned int kRightsTable = 106;

// The parts of a user record that a login reads. The name ends at the password at the latest, the password with the
// record.
// By design [UserRecordStride]: users are 92 bytes apart; a table with records of another size counts as missing.
constexpr std::int64_t kUserSize = 92;
constexpr std::size_t kUserName = 4;
constexpr std::size_t kUserPassword = 20;
constexpr std::size_t kUserRights = 64;

// Offset of the four right words in a rights record.
constexpr std::size_t kRightWords = 20;
constexpr std::size_t kRightWordCount = std::extent_v<decltype(_rtdb_attr::Rights)>;
constexpr std::int64_t kRightsSizeMin = kRightWords + kRightWordCount * sizeof(std::uint32_t);

using RightWords = std::array<std::uint32_t, kRightWordCount>;

// Records in use that lie in the table's own area.
std::int32_t records_in(const TableView &view) { return std::min(view.count(), view.capacity()); }

// A copy, so that name, password and rights belong together.
using UserRecord = std::array<std::byte, static_cast<std::size_t>(kUserSize)>;

UserRecord user_record(const TableView &users, std::int32_t position) {
  return quillanest::load<UserRecord>(users.record(position));
}

std::string_view name_of(const UserRecord &user) {
  return quillanest::text_in(std::span<const std::byte>(user).subspan(kUserName, kUserPassword - kUserName));
}

// The first user of that name in storage order.
std::optional<UserRecord> find_user(const TableView &users, std::string_view name) {
  for (std::int32_t i = 0; i < records_in(users); ++i) {
    const UserRecord user = user_record(users, i);
    if (quillanest::equal_ignoring_case(name_of(user), name)) return user;
  }
  return std::nullopt;
}

// Compares every byte of the record from the password on, so that the time does not show at which byte two texts
// differ.
bool password_matches(const UserRecord &user, std::string_view password) {
  const std::span<const std::byte> room = std::span<const std::byte>(user).subspan(kUserPassword);
  const std::string_view stored = quillanest::text_in(room);
  // A text form in the image is one that no key opened; everyone who can read the data file knows it.
  if (quillanest::PasswordCipher::is_text_form(stored)) return false;
  std::size_t difference = stored.size() ^ password.size();
  for (std::size_t i = 0; i < room.size(); ++i) {
    const int kept = i < stored.size() ? stored[i] : 0;
    const int given = i < password.size() ? password[i] : 0;
    difference |= static_cast<std::size_t>(kept ^ given);
  }
  return difference == 0;
}

// The rights of the record with that key, all zero if there is no such record. Key 0 names no record.
RightWords rights_of(const TableView &rights, std::uint32_t key) {
  RightWords words{};
  if (key == 0) return words;
  const quillanest::KeyPlace place = quillanest::find_key(rights, key);
  if (!place.found || place.position >= records_in(rights)) return words;
  return quillanest::load<RightWords>(rights.record(place.position) + kRightWords);
}

// The bytes of a right word; also of one before or after the four if it lies in the block, else null.
// By design [RightWordUnbounded]: the index reaches the whole block, not only the four words.
template <class Attr>
auto right_word(Attr &attr, int word) -> decltype(as_bytes(&attr)) {
  constexpr std::int64_t kFirst = offsetof(_rtdb_attr, Rights);
  const std::int64_t offset = kFirst + word * std::int64_t{sizeof(std::uint32_t)};
  return offset >= 0 && offset < std::int64_t{sizeof attr} ? as_bytes(&attr) + offset : nullptr;
}
static_assert(offsetof(_rtdb_attr, Rights) % sizeof(std::uint32_t) == 0 &&
              sizeof(_rtdb_attr) % sizeof(std::uint32_t) == 0);

// Stores a name, which ends in the block: the last byte is left for its terminator.
// By design [UserNameSpills]: a name of more than 15 characters runs on into the rights and the login time.
void set_user_name(_rtdb_attr &attr, std::string_view name) {
  const std::span<std::byte> room(as_bytes(attr.SysUserName), sizeof attr - offsetof(_rtdb_attr, SysUserName));
  quillanest::copy_text(room, name.substr(0, room.size() - 1));
}

// Whether both tables are there with records that a login can read; else the reason is reported.
bool can_log_in(const TableView &users, const TableView &rights) noexcept {
  if (!users || !rights) {
    report_error("login.table", {"system"}, "there is no table ", users ? kRightsTable : kUsersTable,
                 users ? ", that of the rights" : ", that of the users");
    return false;
  }
  if (users.record_size != kUserSize) {
    report_error("login.users", {"system"}, "records of the users' table 104 have ", users.record_size,
                 " bytes instead of 92: no user can log in");
    return false;
  }
  if (rights.record_size < kRightsSizeMin) {
    report_error("login.rights", {"system"}, "records of the rights' table 106 have ", rights.record_size,
                 " bytes, which is less than 36: no user can log in");
    return false;
  }
  return true;
}

}  // namespace

int CRtdbManager::UserLogin(const char *name, const char *password) {
  CRtTable users_table;
  CRtTable rights_table;
  const quillanest::Operation operation;
  (void)system_.GetDBTableFromID(users_table, kUsersTable);
  (void)system_.GetDBTableFromID(rights_table, kRightsTable);
  const TableView users = TableView::of(users_table);
  const TableView rights = TableView::of(rights_table);
  if (!can_log_in(users, rights)) return 0;

  const auto user = name == nullptr ? std::nullopt : find_user(users, quillanest::text_at(name));
  if (!user) return -1;
  if (password == nullptr || !password_matches(*user, quillanest::text_at(password))) return 0;

  // By design [LoginRightsStayLocal]: the rights go into this object only, and a mapped image keeps those it has.
  const RightWords words = rights_of(rights, quillanest::load<std::uint32_t>(user->data() + kUserRights));
  std::copy(words.begin(), words.end(), std::begin(attr_.Rights));
  SYSTEMTIME now{};
  (void)quillanest::read_local_time(now);
  for (_rtdb_attr *attr : {&ManagerView::attr(*this), &attr_}) {
    attr->SysUserID = quillanest::load<std::uint32_t>(user->data());
    // A name that fills its field is cut, because its terminator would overwrite the rights.
    set_user_name(*attr, name_of(*user).substr(0, RTDB_USER_SIZE - 1));
    attr->LoginUseTime = now;
  }
  return 1;
}

void CRtdbManager::UserLogout() {
  for (_rtdb_attr *attr : {&ManagerView::attr(*this), &attr_}) {
    attr->SysUserID = 0;
    attr->SysUserName[0] = '\0';
    std::fill(std::begin(attr->Rights), std::end(attr->Rights), 0U);
  }
}

bool CRtdbManager::CheckRights(unsigned int n) const {
  constexpr unsigned int kBits = 32;
  if (n >= kBits * kRightWordCount) return false;
  // By design [RightBoundary]: 32, 64 and 96 are the first bit of the word below, and the first bit of word 3 is not a
  // right.
  const unsigned int word = n == 0 ? 0 : (n - 1) / kBits;
  return (GetRights(static_cast<int>(word)) >> (n % kBits) & 1U) != 0;
}

unsigned int CRtdbManager::GetRights(int word) const {
  const std::byte *found = right_word(ManagerView::attr(*this), word);
  return found == nullptr ? 0 : quillanest::load<std::uint32_t>(found);
}

void CRtdbManager::SetRights(int word, unsigned int value) {
  for (_rtdb_attr *attr : {&ManagerView::attr(*this), &attr_}) {
    if (std::byte *found = right_word(*attr, word); found != nullptr) quillanest::store(found, value);
  }
}

unsigned int CRtdbManager::GetSysUserID() const { return ManagerView::attr(*this).SysUserID; }

void CRtdbManager::SetSysUserID(unsigned int id) {
  ManagerView::attr(*this).SysUserID = id;
  attr_.SysUserID = id;
}

char *CRtdbManager::GetSysUserName() { return ManagerView::attr(*this).SysUserName; }

void CRtdbManager::SetSysUserName(const char *name) {
  if (name == nullptr) return;
  // A copy, because the text may be the name that is written first.
  std::array<char, sizeof(_rtdb_attr)> copy{};
  const std::string_view text = quillanest::text_at(name).substr(0, copy.size());
  std::copy(text.begin(), text.end(), copy.begin());
  for (_rtdb_attr *attr : {&ManagerView::attr(*this), &attr_}) set_user_name(*attr, {copy.data(), text.size()});
}

void CRtdbManager::GetLoginUseTime(SYSTEMTIME &time) const { time = ManagerView::attr(*this).LoginUseTime; }

void CRtdbManager::SetLoginUseTime(SYSTEMTIME &time) {
  const SYSTEMTIME copy = time;
  ManagerView::attr(*this).LoginUseTime = copy;
  attr_.LoginUseTime = copy;
}
