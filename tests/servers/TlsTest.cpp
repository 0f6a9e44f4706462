#include <gmock/gmock.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "tests/loopback/TransferTesting.h"
#include "tests/support/Daemons.h"
#include "tests/support/Pki.h"
#include "tests/support/TempDir.h"

// What is verified of a server's certificate, and what is logged of that.
namespace CorvaneTest {
namespace {

using namespace Corvane;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

namespace fs = std::filesystem;

class ZTransferTls : public testing::Test {
 protected:
  // Starts a server with this certificate.
  NginxServer& Serve(const TlsIdentity& identity) {
    NginxOptions options;
    options.tls = identity;
    m_servers.push_back(std::make_unique<NginxServer>(options));
    WriteFile(m_servers.back()->RootDir() / "a.txt", "over TLS");
    return *m_servers.back();
  }

  // One download with a new object; 0 when it succeeded, else libcurl's code.
  unsigned int Download(const std::string& url, bool verifyHost, bool verifyPeer, const fs::path& caFile,
                        const fs::path& caDir) {
    ZTransfer transfer;
    EXPECT_THAT(transfer.SetSSL(verifyHost, verifyPeer, WidePath(caFile), WidePath(caDir)), IsCode(BASE_S_OK));
    ZString result;
    const ZResult code = transfer.Download(Wide(url), result);
    EXPECT_THAT(CauseOf(transfer), IsCode(code));
    EXPECT_EQ(Narrow(result), IsFailure(code) ? "" : "over TLS");
    if (!IsFailure(code)) return 0;
    EXPECT_THAT(ErrorOf(transfer), Not(IsEmpty()));
    return code & 0xFFFF;
  }

  TempDir m_folder;
  Pki m_pki = MakePki(m_folder.Path());
  std::vector<std::unique_ptr<NginxServer>> m_servers;
};

TEST_F(ZTransferTls, VerifiesWhatWasAskedForAndNothingElse) {
  struct Case {
    const char* name;
    TlsIdentity identity;
    unsigned int hostOnly, peerOnly, both;  // libcurl's codes
  };
  const Case cases[] = {
      {"right", m_pki.server, 0, 0, 0},
      {"for another host", m_pki.wrongHost, kPeerNotVerified, 0, kPeerNotVerified},
      {"expired", m_pki.expired, 0, kPeerNotVerified, kPeerNotVerified},
      {"not yet valid", m_pki.notYetValid, 0, kPeerNotVerified, kPeerNotVerified},
      {"self-signed", m_pki.selfSigned, 0, kPeerNotVerified, kPeerNotVerified},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const std::string url = Serve(c.identity).HttpsUrl("/a.txt");
    EXPECT_EQ(Download(url, false, false, "", ""), 0u);
    EXPECT_EQ(Download(url, false, false, m_pki.caFile, m_pki.caDirectory), 0u);
    EXPECT_EQ(Download(url, true, false, "", ""), c.hostOnly);
    EXPECT_EQ(Download(url, false, true, m_pki.caFile, ""), c.peerOnly);
    EXPECT_EQ(Download(url, true, true, m_pki.caFile, ""), c.both);
    EXPECT_EQ(Download(url, true, true, "", m_pki.caDirectory), c.both);
  }
}

TEST_F(ZTransferTls, VerifiesAnAddressAsItDoesAName) {
  const NginxServer& server = Serve(m_pki.server);
  const std::string url = "https://127.0.0.1:" + std::to_string(server.HttpsPort()) + "/a.txt";
  EXPECT_EQ(Download(url, true, true, m_pki.caFile, ""), 0u);
  const NginxServer& other = Serve(m_pki.wrongHost);
  const std::string otherUrl = "https://127.0.0.1:" + std::to_string(other.HttpsPort()) + "/a.txt";
  EXPECT_EQ(Download(otherUrl, true, true, m_pki.caFile, ""), kPeerNotVerified);
}

TEST_F(ZTransferTls, TakesTheAuthoritiesThatWereNamed) {
  const std::string url = Serve(m_pki.server).HttpsUrl("/a.txt");
  const fs::path missing = m_folder / "missing";
  struct Case {
    const char* name;
    fs::path caFile, caDirectory;
    unsigned int curlCode;
  };
  const Case cases[] = {
      {"file", m_pki.caFile, "", 0},
      {"another file", m_pki.otherCaFile, "", kPeerNotVerified},
      {"directory", "", m_pki.caDirectory, 0},
      {"another directory", "", m_pki.otherCaDirectory, kPeerNotVerified},
      {"the directory wins, good", m_pki.otherCaFile, m_pki.caDirectory, 0},
      {"the directory wins, bad", m_pki.caFile, m_pki.otherCaDirectory, kPeerNotVerified},
      {"no such directory, so the file counts", m_pki.caFile, missing, 0},
      {"no such directory, so the other file counts", m_pki.otherCaFile, missing, kPeerNotVerified},
      {"a directory that is a file, so the file counts", m_pki.caFile, m_pki.caFile, 0},
      {"no such file, but the directory", missing, m_pki.caDirectory, 0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(Download(url, true, true, c.caFile, c.caDirectory), c.curlCode);
  }
}

TEST_F(ZTransferTls, TakesPathsInTheEncodingOfTheLocale) {
  const std::string url = Serve(m_pki.server).HttpsUrl("/a.txt");
  const fs::path file = m_folder / "certificat d'autorit\xC3\xA9.pem";
  fs::copy_file(m_pki.caFile, file);
  EXPECT_EQ(Download(url, true, true, file, ""), 0u);
  const fs::path other = m_folder / "autre autorit\xC3\xA9.pem";
  fs::copy_file(m_pki.otherCaFile, other);
  EXPECT_EQ(Download(url, true, true, other, ""), kPeerNotVerified);
}

TEST_F(ZTransferTls, RunsUnverifiedWithAWarningWhenNoAuthorityIsThere) {
  const std::string url = Serve(m_pki.selfSigned).HttpsUrl("/a.txt");
  const std::string missingFile = m_folder / "missing.pem";
  const std::string missingDir = m_folder / "missing";
  const struct {
    std::string caFile, caDirectory;
  } cases[] = {{"", ""}, {missingFile, ""}, {"", missingDir}, {missingFile, missingDir}, {"", m_pki.caFile}};
  for (const auto& c : cases) {
    RecordingLogger logger;
    EXPECT_EQ(Download(url, false, true, c.caFile, c.caDirectory), 0u);
    EXPECT_THAT(logger.Messages(ZLogLevel::Warning),
                ElementsAre("ApplyExtraHttpsSettings: Verify Peer specified, but neither CAFile or CADir supplied. "
                            "CAFile=" +
                            c.caFile + " CADir=" + c.caDirectory));
  }
}

// The host is still verified then.
TEST_F(ZTransferTls, VerifiesTheHostAlsoWithoutAnAuthority) {
  const std::string url = Serve(m_pki.wrongHost).HttpsUrl("/a.txt");
  EXPECT_EQ(Download(url, true, true, "", ""), kPeerNotVerified);
}

TEST_F(ZTransferTls, LogsWhatItVerifies) {
  const std::string url = Serve(m_pki.server).HttpsUrl("/a.txt");
  const auto linesOf = [&](bool verifyHost, bool verifyPeer, const fs::path& caFile, const fs::path& caDir) {
    RecordingLogger logger;
    EXPECT_EQ(Download(url, verifyHost, verifyPeer, caFile, caDir), 0u);
    std::vector<std::string> lines;
    for (const std::string& line : logger.Messages()) {
      if (line.find("ApplyExtraHttpsSettings: ") == 0) lines.push_back(line.substr(25));
    }
    return lines;
  };
  const std::string host = "Verify Host was specified";
  const std::string file = "Verify Peer specified and CAFile was supplied. CAFile=" + m_pki.caFile.string();
  const std::string directory = "Verify Peer specified and CADir was supplied. CADir=" + m_pki.caDirectory.string();
  EXPECT_THAT(linesOf(false, false, m_pki.caFile, m_pki.caDirectory), IsEmpty());
  EXPECT_THAT(linesOf(true, false, m_pki.caFile, ""), ElementsAre(host));
  EXPECT_THAT(linesOf(false, true, m_pki.caFile, ""), ElementsAre(file));
  EXPECT_THAT(linesOf(true, true, m_pki.caFile, ""), ElementsAre(host, file));
  EXPECT_THAT(linesOf(true, true, m_pki.caFile, m_pki.caDirectory), ElementsAre(host, directory));
  EXPECT_THAT(linesOf(true, true, m_pki.caFile, m_folder / "missing"), ElementsAre(host, file));
}

TEST_F(ZTransferTls, KnowsTheSchemeInCapitals) {
  const NginxServer& server = Serve(m_pki.selfSigned);
  for (const char* scheme : {"HTTPS", "Https", "https"}) {
    const std::string url = std::string(scheme) + "://localhost:" + std::to_string(server.HttpsPort()) + "/a.txt";
    EXPECT_EQ(Download(url, true, true, m_pki.caFile, ""), kPeerNotVerified) << scheme;
    EXPECT_EQ(Download(url, false, false, "", ""), 0u) << scheme;
  }
}

TEST_F(ZTransferTls, VerifiesNothingOverPlainHttp) {
  const std::string url = Serve(m_pki.selfSigned).Url("/a.txt");
  RecordingLogger logger;
  EXPECT_EQ(Download(url, true, true, m_folder / "missing", ""), 0u);
  EXPECT_EQ(Download(url, true, true, m_pki.otherCaFile, m_pki.otherCaDirectory), 0u);
  EXPECT_THAT(logger.Messages(), Not(Contains(StartsWith("ApplyExtraHttpsSettings"))));
}

TEST_F(ZTransferTls, SettingsHoldUntilTheyAreReplaced) {
  const std::string url = Serve(m_pki.selfSigned).HttpsUrl("/a.txt");
  ZTransfer transfer;
  ZString result;
  EXPECT_EQ(transfer.SetSSL(true, true, WidePath(m_pki.caFile), WidePath(m_pki.caDirectory)), 0u);
  for (int i = 0; i < 2; ++i) {
    EXPECT_THAT(transfer.Download(Wide(url), result), IsCode(CurlFailure(kPeerNotVerified)));
    transfer.Reset();
  }
  EXPECT_EQ(transfer.SetSSL(true, true, L"", L""), 0u);  // forgets the authorities
  RecordingLogger logger;
  EXPECT_THAT(transfer.Download(Wide(url), result), IsCode(TRANSFER_S_FINISHED));
  EXPECT_THAT(logger.Messages(ZLogLevel::Warning), Contains(testing::EndsWith("CAFile= CADir=")));
}

// The connection of an unverified download is kept, and must not serve one that is to be verified.
TEST_F(ZTransferTls, AreNotBypassedByAKeptConnection) {
  const std::string url = Serve(m_pki.selfSigned).HttpsUrl("/a.txt");
  ZTransfer transfer;
  ZString result;
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(transfer.SetSSL(false, false, L"", L""), 0u);
    EXPECT_THAT(transfer.Download(Wide(url), result), IsCode(TRANSFER_S_FINISHED));
    EXPECT_EQ(transfer.SetSSL(false, true, WidePath(m_pki.caFile), L""), 0u);
    EXPECT_THAT(transfer.Download(Wide(url), result), IsCode(CurlFailure(kPeerNotVerified)));
    EXPECT_EQ(transfer.SetSSL(false, true, L"", WidePath(m_pki.caDirectory)), 0u);
    EXPECT_THAT(transfer.Download(Wide(url), result), IsCode(CurlFailure(kPeerNotVerified)));
  }
}

TEST_F(ZTransferTls, RefusedServersLeaveNoFileAndTellTheCause) {
  const std::string url = Serve(m_pki.expired).HttpsUrl("/a.txt");
  const TempDir folder;
  ZTransfer transfer;
  EXPECT_EQ(transfer.SetSSL(true, true, WidePath(m_pki.caFile), L""), 0u);
  EXPECT_THAT(transfer.DownloadFile(Wide(url), WidePath(folder / "a"), false), IsCode(TRANSFER_E_CONNECT));
  EXPECT_EQ(ErrorOf(transfer), "Failed to connect to the specified URL, " + url + "\n");
  EXPECT_THAT(CauseOf(transfer), IsCode(CurlFailure(kPeerNotVerified)));
  EXPECT_THAT(CauseTextOf(transfer), HasSubstr("expired"));
  EXPECT_THAT(NamesIn(folder.Path()), IsEmpty());
}

TEST_F(ZTransferTls, RefusedServersNeverGetThePassword) {
  NginxOptions options;
  options.tls = m_pki.selfSigned;
  options.serverLines = "return 401;";
  NginxServer server(options);
  ZTransfer transfer;
  EXPECT_EQ(transfer.SetSSL(true, true, WidePath(m_pki.caFile), L""), 0u);
  EXPECT_EQ(transfer.SetCredentials(L"user", L"secret"), 0u);
  ZString result;
  EXPECT_THAT(transfer.Download(Wide(server.HttpsUrl()), result), IsCode(CurlFailure(kPeerNotVerified)));
  server.Stop();  // everything is logged by now
  EXPECT_EQ(server.AccessLog(), "");
}

TEST_F(ZTransferTls, DownloadsAFileExactly) {
  NginxServer& server = Serve(m_pki.server);
  const std::string content = MakePattern(5000000);
  WriteFile(server.RootDir() / "large", content);
  const TempDir folder;
  ZTransfer transfer;
  EXPECT_EQ(transfer.SetSSL(true, true, L"", WidePath(m_pki.caDirectory)), 0u);
  const ZString url = Wide(server.HttpsUrl("/large"));
  EXPECT_THAT(transfer.DownloadFile(url, WidePath(folder / "a"), false), IsCode(TRANSFER_S_FINISHED));
  EXPECT_TRUE(FileHolds(folder / "a", content));
  fs::resize_file(folder / "a", 3000000);
  EXPECT_THAT(transfer.DownloadFile(url, WidePath(folder / "a"), true), IsCode(TRANSFER_S_FINISHED));
  EXPECT_TRUE(FileHolds(folder / "a", content));
}

}  // namespace
}  // namespace CorvaneTest
