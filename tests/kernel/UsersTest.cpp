// Logging in, the rights, and the identity that all managers of an image share.
#include <algorithm>
#include <array>
#include <gtest/gtest.h>
#include <limits>
#include <set>
#include <string>

#include "tests/kernel/TableFixture.h"

namespace {

const TableSpec kUsers{104,
                       "users",
                       5,
                       {"ID UINT 4", "name STRING 16", "password PASSWD 24", "fullName STRING 20", "rightsID UINT 4",
                        "phone STRING 20", "shift UINT 4"}};
const TableSpec kRights{
    106, "rights", 3, {"ID UINT 4", "role STRING 16", "r0 UINT 4", "r1 UINT 4", "r2 UINT 4", "r3 UINT 4"}};

using Words = std::array<std::uint32_t, 4>;

struct Users : Image {
  Users() : Image({kUsers, kRights}), users(table(104)), rights(table(106)) {
    const Words operators{0x10, 0x20, 0x30, 0x80000040};
    char *record = rights.GetAt(rights.Insert(7, 0, 0));
    std::memcpy(record + 20, operators.data(), sizeof operators);
    add(11, "admin", "Secret1", 7);
    add(12, "guest", "", 99);
    add(13, "ADMIN", "other", 7);
  }

  char *add(std::uint32_t key, const std::string &name, const std::string &password, std::uint32_t rights_key) {
    char *record = users.GetAt(users.Insert(key, 0, 0));
    std::memcpy(record + 4, name.data(), name.size());
    std::memcpy(record + 20, password.data(), password.size());
    std::memcpy(record + 64, &rights_key, sizeof rights_key);
    return record;
  }

  void set_words(const Words &words) {
    for (int i = 0; i < 4; ++i) manager.SetRights(i, words[static_cast<std::size_t>(i)]);
  }
  Words words() { return {manager.GetRights(0), manager.GetRights(1), manager.GetRights(2), manager.GetRights(3)}; }
  std::string identity() {
    return std::to_string(manager.GetSysUserID()) + ' ' + std::string(manager.GetSysUserName());
  }

  CRtTable users;
  CRtTable rights;
};

// Catches: a comparison that stops early, minds the wrong case or takes a later user opens or refuses the wrong
// account.
TEST(UsersTest, Login) {
  const std::string full_name = "sixteen_letters_";
  const struct {
    const char *name, *password;
    int result;
    const char *identity;  // afterwards; a failure leaves the former one
  } rows[] = {
      {"nobody", "Secret1", -1, "0 "},
      {"admin", "secret1", 0, "0 "},
      {"aDmIn", "Secret1", 1, "11 admin"},
      {"ADMIN", "other", 0, "11 admin"},  // the first match in storage order counts
      {"adm", "Secret1", -1, "11 admin"},
      {"admin", "Secret", 0, "11 admin"},
      {"admin", "Secret12", 0, "11 admin"},
      {"admin", "", 0, "11 admin"},
      {"admin", nullptr, 0, "11 admin"},
      {nullptr, "Secret1", -1, "11 admin"},
      {"", "", -1, "11 admin"},
      {"guest", "", 1, "12 guest"},
      {"sixteen_letters", "pw", -1, "12 guest"},
      {"sixteen_letters_", "pw", 1, "14 sixteen_letters"},
      {"sixteen_letters_pw", "pw", -1, "14 sixteen_letters"},
      {"long", "a password that runs on", 0, "14 sixteen_letters"},
      {"long", "a password that runs on into the full name", 1, "15 long"},
  };
  Users image;
  image.add(14, full_name, "pw", 7);
  image.add(15, "long", "a password that runs on into the full name", 7);
  for (const auto &row : rows) {
    SCOPED_TRACE(std::string(row.name == nullptr ? "null" : row.name) + " " + row.identity);
    EXPECT_EQ(image.manager.UserLogin(row.name, row.password), row.result);
    EXPECT_EQ(image.identity(), row.identity);
  }
}

// Catches: a text form that logs in: it is what an unknown key left of a password, and is in the data file for all to
// read.
TEST(UsersTest, EncipheredTextOpensNothing) {
  Users image;
  image.add(14, "sealed", "qnp1.AAAA", 7);
  EXPECT_EQ(image.manager.UserLogin("sealed", "qnp1.AAAA"), 0);
}

TEST(UsersTest, IdentityIsSharedAndLoginTimeStays) {
  Users image;
  CRtdbManager other;
  ASSERT_EQ(other.AttachShareMemory(), 1);
  image.set_words({1, 2, 3, 4});
  SYSTEMTIME before{}, time{};
  GetLocalTime(before);
  ASSERT_EQ(image.manager.UserLogin("admin", "Secret1"), 1);
  EXPECT_EQ(other.GetSysUserID(), 11U);
  EXPECT_STREQ(other.GetSysUserName(), "admin");
  other.GetLoginUseTime(time);
  EXPECT_GE(time.wDay + 31 * time.wMonth + 372 * time.wYear, before.wDay + 31 * before.wMonth + 372 * before.wYear);
  const std::string login = bytes_at(&time, sizeof time);
  image.manager.UserLogout();
  EXPECT_EQ(other.GetSysUserID(), 0U);
  for (const bool mapped : {true, false}) {
    SCOPED_TRACE(mapped);
    if (!mapped) image.manager.DetachShareMemory();
    image.manager.GetLoginUseTime(time);
    EXPECT_EQ(bytes_at(&time, sizeof time), login);
    EXPECT_EQ(image.identity(), "0 ");
    EXPECT_EQ(image.words(), (Words{0, 0, 0, 0}));
  }
}

// Catches: a setter that writes the image or the object alone.
TEST(UsersTest, SettersWriteImageAndObject) {
  Users image;
  SYSTEMTIME time{2024, 2, 4, 29, 1, 2, 3, 4}, read{};
  image.manager.SetSysUserID(77);
  image.manager.SetSysUserName("fifteen_letters");
  image.manager.SetLoginUseTime(time);
  image.manager.SetSysUserName(nullptr);
  for (const bool mapped : {true, false}) {
    if (!mapped) image.manager.DetachShareMemory();
    image.manager.GetLoginUseTime(read);
    EXPECT_EQ(bytes_at(&read, sizeof read), bytes_at(&time, sizeof time)) << mapped;
    EXPECT_EQ(image.identity(), "77 fifteen_letters") << mapped;
  }
}

// Catches: bytes after the users' area that are taken for a user.
TEST(UsersTest, FaultyCountDoesNotReachTheNextTable) {
  Users image;
  char *after = image.users.GetDataAddress() + 5 * 92;
  std::memcpy(after + 4, "ghost", 6);
  std::memset(after + 20, 0, 1);
  image.users.SetRecordCount(1000);
  EXPECT_EQ(image.manager.UserLogin("ghost", ""), -1);
}

TEST(ByDesign, UserRecordStride) {
  const auto with = [](TableSpec table, const char *last) {
    table.fields.back() = last;
    return table;
  };
  const struct {
    const char *what;
    std::vector<TableSpec> tables;
    int result;
  } rows[] = {
      {"no users", {kRights}, 0},
      {"no rights", {kUsers}, 0},
      {"users of 91 bytes", {with(kUsers, "shift CHAR 3"), kRights}, 0},
      {"users of 93 bytes", {with(kUsers, "shift CHAR 5"), kRights}, 0},
      {"rights of 35 bytes", {kUsers, with(kRights, "r3 CHAR 3")}, 0},
      {"rights of 37 bytes", {kUsers, with(kRights, "r3 CHAR 5")}, -1},
      {"empty", {kUsers, kRights}, -1},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.what);
    Image image(row.tables);
    EXPECT_EQ(image.manager.UserLogin("admin", ""), row.result);
  }
  TestRoot root;
  EXPECT_EQ(CRtdbManager().UserLogin("admin", ""), 0);  // no image at all
}

TEST(ByDesign, LoginRightsStayLocal) {
  Users image;
  image.set_words({1, 2, 3, 4});
  ASSERT_EQ(image.manager.UserLogin("admin", "Secret1"), 1);
  EXPECT_EQ(image.words(), (Words{1, 2, 3, 4}));
  EXPECT_TRUE(image.manager.CheckRights(0));
  CRtdbManager copy = image.manager;  // has the object's own attributes and no mapping
  EXPECT_EQ(copy.GetSysUserID(), 11U);
  EXPECT_STREQ(copy.GetSysUserName(), "admin");
  SYSTEMTIME time{};
  copy.GetLoginUseTime(time);
  EXPECT_GT(time.wYear, 2000);
  EXPECT_EQ(copy.GetRights(0), 0x10U);
  EXPECT_EQ(copy.GetRights(3), 0x80000040U);
  EXPECT_FALSE(copy.CheckRights(0));
  EXPECT_TRUE(copy.CheckRights(4));

  // A rights record that does not exist, one in the slot after the table, and key 0, which is never one.
  std::memset(image.rights.GetAt(0), 0, 4);
  for (const std::uint32_t key : {99U, 0U}) {
    const char *guest = image.users.GetAt(1);
    std::memcpy(const_cast<char *>(guest) + 64, &key, sizeof key);
    ASSERT_EQ(image.manager.UserLogin("guest", ""), 1);
    copy = image.manager;
    EXPECT_EQ(copy.GetRights(0), 0U) << key;
    EXPECT_EQ(copy.GetRights(3), 0U) << key;
  }
  EXPECT_EQ(image.words(), (Words{1, 2, 3, 4}));
}

TEST(ByDesign, RightBoundary) {
  const struct {
    int word, bit;
    std::set<unsigned int> granted;
  } rows[] = {
      {0, 0, {0, 32}}, {0, 1, {1}},   {0, 31, {31}}, {1, 0, {64}}, {1, 1, {33}},   {1, 31, {63}},
      {2, 0, {96}},    {2, 31, {95}}, {3, 0, {}},    {3, 1, {97}}, {3, 31, {127}},
  };
  Users image;
  for (const auto &row : rows) {
    SCOPED_TRACE(std::to_string(row.word) + "/" + std::to_string(row.bit));
    image.set_words({});
    image.manager.SetRights(row.word, 1U << row.bit);
    std::set<unsigned int> granted;
    for (unsigned int n = 0; n < 300; ++n) {
      if (image.manager.CheckRights(n)) granted.insert(n);
    }
    EXPECT_EQ(granted, row.granted);
  }
  image.set_words({~0U, ~0U, ~0U, ~0U});
  for (const unsigned int n : {128U, 4096U, ~0U}) EXPECT_FALSE(image.manager.CheckRights(n));
}

// Catches: word 4 is the start of the login time, word -5 the user's ID; what lies outside the attributes is left
// alone.
TEST(ByDesign, RightWordUnbounded) {
  Users image;
  image.manager.SetRights(4, 2024U | 6U << 16);
  SYSTEMTIME time{};
  image.manager.GetLoginUseTime(time);
  EXPECT_EQ(time.wYear, 2024);
  EXPECT_EQ(time.wMonth, 6);
  image.manager.SetRights(-5, 42);
  EXPECT_EQ(image.manager.GetSysUserID(), 42U);
  EXPECT_EQ(image.manager.GetRights(-5), 42U);

  CShareMemory segment(kManagerKey);
  const auto *start = static_cast<const char *>(segment.Attach());
  const std::string before = bytes_at(start, 1296);
  for (const int word : {-62, -66, 8, 100000, std::numeric_limits<int>::max(), std::numeric_limits<int>::min()}) {
    image.manager.SetRights(word, 0x55555555);
    EXPECT_EQ(image.manager.GetRights(word), 0U) << word;
  }
  EXPECT_EQ(bytes_at(start, 1296), before);
  image.manager.SetRights(7, 0x01020304);  // the last word of the attributes
  image.manager.GetLoginUseTime(time);
  EXPECT_EQ(time.wMilliseconds, 0x0102);
}

TEST(ByDesign, UserNameSpills) {
  Users image;
  image.set_words({~0U, ~0U, ~0U, ~0U});
  image.manager.SetSysUserName("0123456789abcdefGHIJ");
  EXPECT_STREQ(image.manager.GetSysUserName(), "0123456789abcdefGHIJ");
  EXPECT_EQ(image.manager.GetRights(0), 0x4A494847U);
  EXPECT_EQ(image.manager.GetRights(1), 0xFFFFFF00U);
  image.manager.SetSysUserName(image.manager.GetSysUserName() + 1);
  EXPECT_STREQ(image.manager.GetSysUserName(), "123456789abcdefGHIJ");
  EXPECT_STREQ(CRtdbManager(image.manager).GetSysUserName(), "123456789abcdefGHIJ");

  const std::string long_name(5000, 'x');
  CShareMemory segment(kManagerKey);
  const auto *after = static_cast<const char *>(segment.Attach()) + 20 + 276;
  const std::string before = bytes_at(after, 1000);
  image.manager.SetSysUserName(long_name.c_str());
  EXPECT_EQ(image.manager.GetSysUserName(), std::string(47, 'x'));
  EXPECT_EQ(bytes_at(after, 1000), before);
}

}  // namespace
