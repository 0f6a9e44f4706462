// TLS against a real web server with an authority of its own.

#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "tests/cli/CliTesting.h"
#include "tests/support/Daemons.h"
#include "tests/support/Pki.h"
#include "tests/support/TempDir.h"

namespace CorvaneTest {
namespace {

using testing::AllOf;
using testing::AnyOf;
using testing::HasSubstr;

constexpr int kSecurity = 4;

NginxOptions With(const TlsIdentity& identity) {
  NginxOptions options;
  options.tls = identity;
  return options;
}

class TlsServer : public NginxServer {
 public:
  explicit TlsServer(const TlsIdentity& identity) : NginxServer(With(identity)) {
    WriteFile(RootDir() / "a.txt", "content\n");
  }
  std::string Url() const { return HttpsUrl("/a.txt"); }
};

void ExpectRefused(const ProgramResult& result, const std::string& reason) {
  EXPECT_EQ(result.exitCode, kSecurity) << result.Describe();
  EXPECT_EQ(result.out, "");
  EXPECT_THAT(OnlyErrorLine(result), AllOf(HasSubstr(reason), HasSubstr("; ")));
}

TEST(Tls, AcceptsTheRightHostWithTheAuthoritysFileOrDirectory) {
  const TlsServer server(ThePki().server);
  for (const std::vector<std::string>& trust :
       std::vector<std::vector<std::string>>{{"--cacert", ThePki().caFile}, {"--capath", ThePki().caDirectory}}) {
    const ProgramResult result = RunCorvane({"get", server.Url(), trust[0], trust[1]});
    EXPECT_EQ(result.exitCode, 0) << result.Describe();
    EXPECT_EQ(result.out, "content\n");
  }
}

TEST(Tls, DoesNotTrustAnUnknownAuthorityByDefault) {
  const TlsServer server(ThePki().server);
  ExpectRefused(RunCorvane({"get", server.Url()}), "certificate was not accepted");
  ExpectRefused(RunCorvane({"get", server.Url(), "--cacert", ThePki().otherCaFile}), "certificate was not accepted");
  ExpectRefused(RunCorvane({"get", server.Url(), "--capath", ThePki().otherCaDirectory}),
                "certificate was not accepted");
  EXPECT_FALSE(server.WaitForAccess("/a.txt", Clock::now()));
}

TEST(Tls, RefusesBadCertificates) {
  for (const TlsIdentity& identity :
       {ThePki().wrongHost, ThePki().expired, ThePki().notYetValid, ThePki().selfSigned}) {
    const TlsServer server(identity);
    ExpectRefused(RunCorvane({"get", server.Url(), "--cacert", ThePki().caFile}), "certificate was not accepted");
    EXPECT_FALSE(server.WaitForAccess("/a.txt", Clock::now())) << identity.certificate;
  }
}

TEST(Tls, RefusedFileDownloadLeavesTheOldFile) {
  const TlsServer server(ThePki().wrongHost);
  const TempDir folder;
  WriteFile(folder / "f", "old");
  const ProgramResult result = RunCorvane({"get", server.Url(), "-o", folder / "f", "--cacert", ThePki().caFile});
  ExpectRefused(result, "certificate was not accepted");
  EXPECT_EQ(ReadFile(folder / "f"), "old");
  EXPECT_THAT(NamesIn(folder.Path()), testing::ElementsAre("f"));
}

TEST(Tls, InsecureAcceptsAnything) {
  for (const TlsIdentity& identity : {ThePki().wrongHost, ThePki().expired, ThePki().selfSigned}) {
    const TlsServer server(identity);
    const ProgramResult result = RunCorvane({"get", server.Url(), "--insecure", "-v"});
    EXPECT_EQ(result.exitCode, 0) << result.Describe();
    EXPECT_EQ(result.out, "content\n");
    EXPECT_THAT(result.err, HasSubstr("not verified (--insecure)"));
  }
}

TEST(Tls, AnotherProtocolOnThePortIsATlsFailure) {
  const ScriptedServer server([](Connection& peer) {
    peer.Send("220 this is no TLS server\r\n");
    peer.WaitUntilPeerCloses();
  });
  const ProgramResult result = RunCorvane({"get", "https" + server.Url("/x").substr(4)});
  ExpectRefused(result, "the TLS connection could not be set up");
}

// Each of these would make the library go on unverified, so that the program has to stop before it.
TEST(Trust, UnusableFilesAreRefusedBeforeAnyRequest) {
  const TlsServer server(ThePki().server);
  const TempDir folder;
  WriteFile(folder / "empty.pem", "");
  WriteFile(folder / "text.pem", "no certificate\n");
  struct Case {
    const char* option;
    std::string value;
    const char* reason;
  };
  const Case cases[] = {
      {"--cacert", folder / "missing", "No such file or directory"},
      {"--cacert", folder / "empty.pem", "no certificate is in it"},
      {"--cacert", folder / "text.pem", "no certificate is in it"},
      {"--cacert", folder.Path(), "it is a directory; use --capath"},
      {"--cacert", folder / "\xFF", "the locale cannot express the name"},
      {"--capath", folder / "missing", "No such file or directory"},
      {"--capath", folder / "empty.pem", "it is not a directory; use --cacert"},
      {"--capath", folder.Path(), "openssl rehash"},
  };
  for (const Case& c : cases) {
    for (const std::string& url : {server.Url(), server.NginxServer::Url("/a.txt")}) {
      ExpectRefused(RunCorvane({"get", url, c.option, c.value}), c.reason);
    }
  }
  EXPECT_FALSE(server.WaitForAccess("/a.txt", Clock::now()));
}

// Such a file shows only when libcurl reads it.
TEST(Trust, FileThatCannotBeParsedIsNamed) {
  const TlsServer server(ThePki().server);
  const TempDir folder;
  WriteFile(folder / "bad.pem", "-----BEGIN CERTIFICATE-----\nbm9uZQ==\n-----END CERTIFICATE-----\n");
  ExpectRefused(RunCorvane({"get", server.Url(), "--cacert", folder / "bad.pem"}),
                "the trusted certificates in " + (folder / "bad.pem").string() + " cannot be read");
  EXPECT_FALSE(server.WaitForAccess("/a.txt", Clock::now()));
}

}  // namespace
}  // namespace CorvaneTest
