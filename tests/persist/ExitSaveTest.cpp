// A program that saves a password at its end, in the destructor of an object that is older than all that OpenSSL made.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <unistd.h>

#include "tests/support/Child.h"
#include "tests/support/TestRoot.h"

namespace {

using Save = bool (*)();

struct SavesAtExit {
  ~SavesAtExit() { _exit(save != nullptr && save() ? 0 : 1); }
  Save save = nullptr;
};

// Runs in a child, which has neither OpenSSL nor the library in use yet.
[[noreturn]] void work(const std::string &schema, bool uses_openssl, bool saves_before) {
  static SavesAtExit at_exit;
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
  if (uses_openssl && EVP_Digest("", 0, digest.data(), nullptr, EVP_sha256(), nullptr) != 1) _exit(2);
  void *module = dlopen(QUILLANEST_EXIT_MODULE, RTLD_NOW);
  if (module == nullptr) _exit(3);
  const auto start = reinterpret_cast<bool (*)(const char *)>(dlsym(module, "start"));
  const auto save = reinterpret_cast<Save>(dlsym(module, "save"));
  if (!start(schema.c_str()) || (saves_before && !save())) _exit(4);
  at_exit.save = save;
  exit(5);
}

// Catches: a save that needs what OpenSSL's handler of the program's end has put away, and crashes.
TEST(ExitSave, WorksAfterOpensslHasPutAllAway) {
  for (const bool uses_openssl : {false, true}) {
    for (const bool saves_before : {false, true}) {
      SCOPED_TRACE(testing::Message() << "OpenSSL " << uses_openssl << ", save before " << saves_before);
      const TestRoot root;
      const std::string schema =
          root.write("schema.txt", schema_text({{10, "users", 2, {"ID UINT 4", "Pass PASSWD 16"}}}));
      EXPECT_EQ(in_fork([&]() -> int { work(schema, uses_openssl, saves_before); }), 0);
      EXPECT_EQ(root.read("data/system_users.txt"), "ID;Pass\r\n1;qnp1.LpcLD8Udx1NP_MEyoQXi4m82aF_E4OQ\r\n");
    }
  }
}

}  // namespace
