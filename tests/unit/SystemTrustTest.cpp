#include <gtest/gtest.h>

#include <filesystem>
#include <initializer_list>
#include <string>

#include <Corvane/Base/StringCoding.h>
#include <Corvane/SystemTrustImpl.h>

#include "tests/support/Pki.h"
#include "tests/support/TempDir.h"

// Where trusted certificates are looked for. The places stand below a root of the test's own.
namespace CorvaneTest {
namespace {

using Corvane::FindTrust;
using Corvane::ZString;
using Corvane::ZSystemTrust;

ZString Wide(const std::string& path) { return ZString(path.c_str()); }

class SystemTrust : public testing::Test {
 protected:
  std::string Make(const std::string& name, const std::string& content) const {
    WriteFile(m_root / name, content);
    return m_root / name;
  }
  std::string MakeDirectory(const std::string& name) const {
    std::filesystem::create_directories(m_root / name);
    return m_root / name;
  }

  TempDir m_root;
};

TEST_F(SystemTrust, PrefersTheFirstDirectoryThatHoldsACertificateUnderItsHash) {
  const std::string empty = MakeDirectory("empty");
  const std::string hashed = MakeDirectory("hashed");
  Make("hashed/3513523f.0", "x");
  const std::string later = MakeDirectory("later");
  Make("later/0123abcd.12", "x");
  const std::string file = Make("bundle.pem", "x");
  const ZSystemTrust found = FindTrust({empty.c_str(), hashed.c_str(), later.c_str()}, {file.c_str()});
  EXPECT_TRUE(found.IsFound());
  EXPECT_EQ(found.caDirectory, Wide(hashed));
  EXPECT_TRUE(found.caFile.IsEmpty());
}

TEST_F(SystemTrust, TakesTheFirstFileThatHoldsSomethingWhereNoDirectoryDoes) {
  const std::string empty = Make("empty.pem", "");
  const std::string file = Make("bundle.pem", "x");
  const std::string folder = MakeDirectory("folder");
  const ZSystemTrust found = FindTrust({folder.c_str(), file.c_str()},
                                       {(m_root / "missing.pem").c_str(), empty.c_str(), folder.c_str(), file.c_str()});
  EXPECT_TRUE(found.IsFound());
  EXPECT_EQ(found.caFile, Wide(file));
  EXPECT_TRUE(found.caDirectory.IsEmpty());
}

TEST_F(SystemTrust, TakesNoOtherNamesForHashes) {
  for (const char* const name :
       {"ca.pem", "3513523f.", "3513523f.x", "3513523.0", "3513523G.0", "3513523f0", "3513523f.0x"}) {
    const std::string folder = MakeDirectory("folder");
    Make(std::string("folder/") + name, "x");
    EXPECT_FALSE(FindTrust({folder.c_str()}, {}).IsFound()) << name;
    std::filesystem::remove_all(folder);
  }
}

// The names come in portions, and the one that counts is in a later one wherever the file system puts it.
TEST_F(SystemTrust, LooksThroughALargeDirectory) {
  const std::string folder = MakeDirectory("folder");
  for (int i = 0; i < 500; ++i) Make("folder/" + std::string(200, 'x') + std::to_string(i) + ".pem", "");
  EXPECT_FALSE(FindTrust({folder.c_str()}, {}).IsFound());
  for (int i = 0; i < 500; i += 50) {
    const std::string name = "folder/3513523f." + std::to_string(i);
    Make(name, "x");
    EXPECT_TRUE(FindTrust({folder.c_str()}, {}).IsFound()) << name;
    std::filesystem::remove(m_root / name);
  }
}

// A link that leads nowhere cannot be read, as an administrator's cannot either.
TEST_F(SystemTrust, LooksForWhatCanBeRead) {
  const std::string folder = MakeDirectory("folder");
  std::filesystem::create_symlink("missing", m_root / "folder/3513523f.0");
  const std::string link = m_root / "link.pem";
  std::filesystem::create_symlink("missing", link);
  EXPECT_FALSE(FindTrust({folder.c_str()}, {link.c_str()}).IsFound());
}

TEST_F(SystemTrust, FindsNothingWhereThereIsNothing) {
  const ZSystemTrust found = FindTrust({}, {});
  EXPECT_FALSE(found.IsFound());
  EXPECT_TRUE(found.caFile.IsEmpty());
  EXPECT_TRUE(found.caDirectory.IsEmpty());
}

TEST_F(SystemTrust, FindsADirectoryThatOpensslMade) {
  const Pki pki = MakePki(m_root.Path());
  EXPECT_EQ(FindTrust({pki.caDirectory.c_str()}, {}).caDirectory, Wide(pki.caDirectory));
}

TEST_F(SystemTrust, TellsWhetherADirectoryHoldsCertificates) {
  const Pki pki = MakePki(m_root.Path());
  EXPECT_TRUE(Corvane::ZHoldsTrustedCertificates(Wide(pki.caDirectory)));
  EXPECT_FALSE(Corvane::ZHoldsTrustedCertificates(Wide(MakeDirectory("empty"))));
  EXPECT_FALSE(Corvane::ZHoldsTrustedCertificates(Wide(pki.caFile)));
  EXPECT_FALSE(Corvane::ZHoldsTrustedCertificates(Wide(m_root / "missing")));
  EXPECT_FALSE(Corvane::ZHoldsTrustedCertificates(ZString()));
  std::filesystem::rename(pki.caDirectory, m_root / "gr\xC3\xBC\xC3\x9F");
  EXPECT_TRUE(Corvane::ZHoldsTrustedCertificates(Wide(m_root / "gr\xC3\xBC\xC3\x9F")));
}

// scripts/setup installs the package.
TEST_F(SystemTrust, OfThisSystemIsThere) {
  const ZSystemTrust found = Corvane::ZFindSystemTrust();
  ASSERT_TRUE(found.IsFound());
  EXPECT_NE(found.caFile.IsEmpty(), found.caDirectory.IsEmpty());
  const Corvane::ZStringEncoder path(found.caFile.IsEmpty() ? found.caDirectory : found.caFile,
                                     Corvane::ZStringEncoder::Utf8);
  EXPECT_TRUE(std::filesystem::exists(path.CStr())) << path.CStr();
}

}  // namespace
}  // namespace CorvaneTest
