#include "tests/support/Pki.h"

#include <gtest/gtest.h>

#include <set>
#include <string>

#include "tests/support/Process.h"
#include "tests/support/TempDir.h"

namespace CorvaneTest {
namespace {

namespace fs = std::filesystem;

// What `openssl verify` thinks of a certificate; trust is "-CAfile" or "-CApath" and what comes after it.
ProgramResult Verify(const TlsIdentity& identity, const std::string& option, const fs::path& trusted,
                     const std::string& host = "localhost") {
  return RunProgram({"openssl", "verify", "-no-CAstore", "-purpose", "sslserver", "-verify_hostname", host, option,
                     trusted.string(), identity.certificate.string()});
}

struct VerifyCase {
  const char* name;
  TlsIdentity Pki::*identity;
  const char* error;  // empty: it is valid
};
constexpr VerifyCase kVerifyCases[] = {
    {"server", &Pki::server, ""},
    {"wrong host", &Pki::wrongHost, "hostname mismatch"},
    {"expired", &Pki::expired, "certificate has expired"},
    {"not yet valid", &Pki::notYetValid, "certificate is not yet valid"},
    {"self-signed", &Pki::selfSigned, "self-signed certificate"},
};

TEST(Pki, EachIdentityHasItsOneFlaw) {
  const TempDir folder;
  const Pki pki = MakePki(folder.Path());
  for (const VerifyCase& c : kVerifyCases) {
    const ProgramResult result = Verify(pki.*c.identity, "-CAfile", pki.caFile);
    const bool isValid = std::string(c.error).empty();
    EXPECT_EQ(result.exitCode == 0, isValid) << c.name << ": " << result.Describe();
    EXPECT_NE(result.err.find(c.error), std::string::npos) << c.name << ": " << result.Describe();
  }
}

TEST(Pki, ServerIsValidForTheAddressAndTheOtherHost) {
  const TempDir folder;
  const Pki pki = MakePki(folder.Path());
  EXPECT_EQ(Verify(pki.wrongHost, "-CAfile", pki.caFile, "wrong.example").exitCode, 0);
  const ProgramResult result = RunProgram({"openssl", "verify", "-no-CAstore", "-verify_ip", "127.0.0.1", "-CAfile",
                                           pki.caFile.string(), pki.server.certificate.string()});
  EXPECT_EQ(result.exitCode, 0) << result.Describe();
}

TEST(Pki, DirectoryIsFoundByHash) {
  const TempDir folder;
  const Pki pki = MakePki(folder.Path());
  const ProgramResult trusted = Verify(pki.server, "-CApath", pki.caDirectory);
  EXPECT_EQ(trusted.exitCode, 0) << trusted.Describe();
  EXPECT_NE(Verify(pki.server, "-CApath", pki.otherCaDirectory).exitCode, 0);
  EXPECT_NE(Verify(pki.server, "-CAfile", pki.otherCaFile).exitCode, 0);
}

std::set<std::string> NamesIn(const fs::path& folder) {
  std::set<std::string> names;
  for (const auto& entry : fs::directory_iterator(folder)) names.insert(entry.path().filename().string());
  return names;
}

TEST(Pki, DirectoryIsWhatRehashMakes) {
  const TempDir folder;
  const Pki pki = MakePki(folder.Path());
  const std::set<std::string> ours = NamesIn(pki.caDirectory);
  ASSERT_EQ(ours.size(), 2u);
  for (const std::string& name : ours) {
    if (fs::is_symlink(pki.caDirectory / name)) fs::remove(pki.caDirectory / name);
  }
  ASSERT_EQ(NamesIn(pki.caDirectory).size(), 1u);
  ASSERT_EQ(RunProgram({"openssl", "rehash", pki.caDirectory.string()}).exitCode, 0);
  EXPECT_EQ(NamesIn(pki.caDirectory), ours);
}

TEST(Pki, KeysBelongToTheirCertificates) {
  const TempDir folder;
  const Pki pki = MakePki(folder.Path());
  for (const VerifyCase& c : kVerifyCases) {
    const TlsIdentity& identity = pki.*c.identity;
    const ProgramResult ofKey = RunProgram({"openssl", "pkey", "-pubout", "-in", identity.key.string()});
    const ProgramResult ofCertificate =
        RunProgram({"openssl", "x509", "-pubkey", "-noout", "-in", identity.certificate.string()});
    EXPECT_EQ(ofKey.out, ofCertificate.out) << c.name;
    EXPECT_NE(ofKey.out, "") << c.name;
  }
}

TEST(Pki, FailureNamesTheFile) {
  try {
    MakePki("/nowhere/at/all");
    FAIL() << "certificates were written to a folder that does not exist";
  } catch (const std::exception& exception) {
    EXPECT_NE(std::string(exception.what()).find("/nowhere"), std::string::npos) << exception.what();
  }
}

}  // namespace
}  // namespace CorvaneTest
