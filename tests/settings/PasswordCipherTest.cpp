#include <gtest/gtest.h>

#include "quillanest/settings/PasswordCipher.h"
#include "tests/support/TestRoot.h"

namespace {

using quillanest::PasswordCipher;
using quillanest::TzDes;

PasswordCipher cipher_of(const TestRoot &root) {
  return PasswordCipher::from_configuration(root.path("conf/fix_Rtdb.ini"));
}

// Catches: another text form, in which the passwords of existing files and databases cannot be read.
TEST(TzDes, TextFormStaysTheSame) {
  constexpr struct {
    const char *configuration, *clear, *text;
  } kRows[] = {
      {"", "secret", "qnp1.LpcLD8Udx1NP_MEyoQXi4m82aF_E4OQ"},
      {"", "", "qnp1.5CgaX3NmYbmuOExfHJHDSF4"},
      {"PasswdKeyFile=conf/key\n", "secret", "qnp1.HiK-uOsOdyPrHuOIoy7kJtxDzK_LiUk"},
      {"PasswdKeyFile=conf/missing\n", "secret", "qnp1.LpcLD8Udx1NP_MEyoQXi4m82aF_E4OQ"},
  };
  const TestRoot root;
  root.write("conf/key", "a secret\n");
  for (const auto &row : kRows) {
    SCOPED_TRACE(std::string(row.configuration) + row.clear);
    root.configure(row.configuration);
    EXPECT_EQ(TzDes::SimpleEncrypt(row.clear), row.text);
    EXPECT_EQ(TzDes::SimpleDecrypt(row.text), row.clear);
  }
  for (const char *clear : {"\xC3\xDC ; %s\"'\r\n", "fifteen letters", "sixteen letters.", kRows[0].text}) {
    EXPECT_EQ(TzDes::SimpleDecrypt(TzDes::SimpleEncrypt(clear).c_str()), clear);
  }
}

// Catches: a text of another key that is cut or enciphered twice; one of the built-in key that is not read.
TEST(TzDes, KeyFileAddsAKeyAndForeignTextsPassThrough) {
  const TestRoot root("PasswdKeyFile=conf/key\n");
  const std::string hidden = cipher_of(root).encrypt("before");  // the key file is not there yet
  root.write("conf/key", "first key");
  const std::string foreign = cipher_of(root).encrypt("theirs");
  root.write("conf/key", "second key");
  EXPECT_EQ(cipher_of(root).decrypt(hidden), "before");
  EXPECT_EQ(cipher_of(root).decrypt(foreign), foreign);
  EXPECT_EQ(cipher_of(root).encrypt(foreign), foreign);
  EXPECT_EQ(cipher_of(root).decrypt(hidden + "A"), hidden + "A") << "tampered with";
  root.configure("PasswdKeyFile=" + root.write("data/key", "first key") + "\n");
  EXPECT_EQ(cipher_of(root).decrypt(foreign), "theirs");
}

}  // namespace
