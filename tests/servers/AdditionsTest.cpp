#include <gmock/gmock.h>

#include <chrono>
#include <filesystem>
#include <memory>
#include <string>

#include "tests/loopback/AdditionsTesting.h"
#include "tests/support/Daemons.h"
#include "tests/support/Pki.h"
#include "tests/support/Sockets.h"
#include "tests/support/TempDir.h"

// What a transfer does only when it is asked to, against servers that have their own ideas of validators, ranges and redirects.
namespace CorvaneTest {
namespace {

using namespace Corvane;
using testing::AnyOf;
using testing::Contains;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

namespace fs = std::filesystem;

constexpr const char* kChanged = "The file on the server has changed. Cannot resume.";

class AdditionsOnServers : public testing::Test {
 protected:
  // So long ago that no server doubts the time, and so that `seconds` tell two versions apart.
  static void WriteOld(const fs::path& file, const std::string& content, int seconds = 0) {
    WriteFile(file, content);
    fs::last_write_time(file,
                        fs::file_time_type::clock::now() - std::chrono::hours(24) + std::chrono::seconds(seconds));
  }

  void Set(const ZTransferOptions& options) { EXPECT_THAT(transfer.SetOptions(options), IsCode(BASE_S_OK)); }

  void Follow() {
    ZTransferOptions options;
    options.mostRedirects = 10;
    Set(options);
  }

  void Check(const std::string& validator) {
    ZTransferOptions options;
    options.checkResume = true;
    options.validator = Wide(validator);
    options.askModificationTime = true;
    Set(options);
  }

  std::string Validator() const {
    ZString validator;
    EXPECT_THAT(transfer.GetValidator(validator), IsCode(BASE_S_OK));
    return Narrow(validator);
  }

  std::string EffectiveUrl() const {
    ZString url;
    EXPECT_THAT(transfer.GetEffectiveUrl(url), IsCode(BASE_S_OK));
    return Narrow(url);
  }

  ZResult Resume(const std::string& url) { return transfer.DownloadFile(Wide(url), WidePath(Local()), true); }

  fs::path Local() const { return folder / "local"; }

  // A first part lies here, and the server has told its validator. What becomes of it when the file is the same, when a
  // version of the same size has taken its place, and when a shorter one has.
  void ExpectCheckedResumes(const std::string& url, const fs::path& remote) {
    WriteOld(remote, content);
    Check("");
    EXPECT_THAT(transfer.DownloadFile(Wide(url), WidePath(Local()), false), IsCode(TRANSFER_S_FINISHED));
    const std::string validator = Validator();
    ASSERT_NE(validator, "");
    Check(validator);
    const std::string part = content.substr(0, 40000);
    WriteFile(Local(), part);
    EXPECT_THAT(Resume(url), IsCode(TRANSFER_S_FINISHED)) << validator;
    EXPECT_TRUE(FileHolds(Local(), content));
    EXPECT_EQ(Validator(), validator);
    EXPECT_LT(transfer.GetTransferSize(), content.size() - 39000) << "only the rest was moved";

    WriteFile(Local(), part);
    const std::string sameOverlap = content.substr(0, 90000) + MakePattern(10000, 2);
    for (const std::string& other : {MakePattern(content.size(), 2), sameOverlap, content.substr(0, 39990)}) {
      WriteOld(remote, other, 60);
      EXPECT_THAT(Resume(url), IsCode(CurlFailure(kRangeError))) << validator;
      EXPECT_EQ(ErrorOf(transfer), kChanged);
      EXPECT_TRUE(FileHolds(Local(), part));
    }
  }

  // A sink is handed the same, or nothing.
  void ExpectCheckedParts(const std::string& url, const fs::path& remote) {
    WriteOld(remote, content);
    Check("");
    CollectingSink sink;
    std::string told;
    sink.onWrite = [&] { told = Validator(); };
    EXPECT_THAT(transfer.Download(Wide(url), sink), IsCode(TRANSFER_S_FINISHED));
    EXPECT_EQ(told, Validator());
    ASSERT_NE(told, "");
    Check(told);
    sink.collected.clear();
    EXPECT_THAT(transfer.Download(Wide(url), sink, 70000), IsCode(TRANSFER_S_FINISHED));
    EXPECT_EQ(sink.collected, content.substr(70000));
    EXPECT_EQ(transfer.GetDownloadSize(), content.size());

    WriteOld(remote, MakePattern(content.size(), 2), 60);
    CollectingSink none;
    EXPECT_THAT(transfer.Download(Wide(url), none, 70000), IsCode(CurlFailure(kRangeError)));
    EXPECT_EQ(ErrorOf(transfer), kChanged);
    EXPECT_EQ(none.collected, "");
  }

  const std::string content = MakePattern(100000);
  TempDir folder;
  ZTransfer transfer;
  ZString result;
};

// --- redirects

TEST_F(AdditionsOnServers, FollowTheRedirectsOfNginx) {
  NginxOptions options;
  options.serverLines =
      "location = /old { return 301 /new.bin; } location = /older { return 302 /old; } location = /loop { return 307 "
      "/loop; }";
  NginxServer server(options);
  WriteFile(server.RootDir() / "new.bin", content);
  Follow();
  EXPECT_THAT(transfer.DownloadFile(Wide(server.Url("/older")), WidePath(Local()), false), IsCode(TRANSFER_S_FINISHED));
  EXPECT_TRUE(FileHolds(Local(), content));
  EXPECT_EQ(EffectiveUrl(), server.Url("/new.bin"));
  CollectingSink sink;
  EXPECT_THAT(transfer.Download(Wide(server.Url("/older")), sink, 90000), IsCode(TRANSFER_S_FINISHED));
  EXPECT_EQ(sink.collected, content.substr(90000));
  EXPECT_THAT(transfer.Download(Wide(server.Url("/loop")), result), IsCode(CurlFailure(47)));
}

TEST_F(AdditionsOnServers, FollowTheRedirectToAFolderOfApache) {
  ApacheServer server;
  WriteFile(server.RootDir() / "dir" / "index.html", "index");
  Follow();
  EXPECT_THAT(transfer.Download(Wide(server.Url("/dir")), result), IsCode(TRANSFER_S_FINISHED));
  EXPECT_EQ(Narrow(result), "index");
  EXPECT_THAT(EffectiveUrl(), testing::EndsWith("/dir/"));
}

TEST_F(AdditionsOnServers, FollowRedirectsIntoTlsAndNeverOutOfIt) {
  const Pki pki = MakePki(folder.Path());
  EXPECT_EQ(transfer.SetSSL(true, true, WidePath(pki.caFile), L""), 0u);
  NginxServer plain;
  WriteFile(plain.RootDir() / "a", "in the clear");
  NginxOptions secureOptions;
  secureOptions.tls = pki.server;
  secureOptions.serverLines = "location = /down { return 302 " + plain.Url("/a") + "; }";
  NginxServer secure(secureOptions);
  WriteFile(secure.RootDir() / "a", "over TLS");
  NginxOptions upOptions;
  upOptions.serverLines = "location = /up { return 301 " + secure.HttpsUrl("/a") +
                          "; } location = /updown { return 301 " + secure.HttpsUrl("/down") + "; }";
  NginxServer up(upOptions);

  Follow();
  EXPECT_THAT(transfer.Download(Wide(up.Url("/up")), result), IsCode(TRANSFER_S_FINISHED));
  EXPECT_EQ(Narrow(result), "over TLS");
  EXPECT_EQ(EffectiveUrl(), secure.HttpsUrl("/a"));
  for (const std::string& url : {secure.HttpsUrl("/down"), up.Url("/updown")}) {
    EXPECT_THAT(transfer.Download(Wide(url), result), IsCode(CurlFailure(kUnsupportedProtocol))) << url;
    EXPECT_THAT(Narrow(result), Not(HasSubstr("in the clear")));
  }
  EXPECT_EQ(plain.AccessLog(), "");
  EXPECT_EQ(transfer.SetSSL(true, true, WidePath(pki.otherCaFile), L""), 0u);
  EXPECT_THAT(transfer.Download(Wide(up.Url("/up")), result), IsCode(CurlFailure(kPeerNotVerified)))
      << "the certificate is looked at behind the redirect, too";
}

// --- checked resumes and parts

TEST_F(AdditionsOnServers, ContinueTheSameVersionOfNginxByItsTag) {
  NginxServer server;
  ExpectCheckedResumes(server.Url("/a"), server.RootDir() / "a");
  EXPECT_TRUE(server.WaitForAccess("\"GET /a HTTP/1.1\" 206 "));
  ExpectCheckedParts(server.Url("/a"), server.RootDir() / "a");
  EXPECT_THAT(Validator(), StartsWith("\""));
}

TEST_F(AdditionsOnServers, ContinueTheSameVersionOfApacheByItsTag) {
  ApacheServer server;
  ExpectCheckedResumes(server.Url("/a"), server.RootDir() / "a");
  ExpectCheckedParts(server.Url("/a"), server.RootDir() / "a");
  EXPECT_THAT(Validator(), StartsWith("\""));
}

TEST_F(AdditionsOnServers, ContinueTheSameVersionByItsTimeWhereThereIsNoTag) {
  NginxOptions nginxOptions;
  nginxOptions.serverLines = "etag off;";
  NginxServer nginx(nginxOptions);
  ExpectCheckedResumes(nginx.Url("/a"), nginx.RootDir() / "a");
  ApacheOptions apacheOptions;
  apacheOptions.serverLines = "FileETag None";
  ApacheServer apache(apacheOptions);
  ExpectCheckedResumes(apache.Url("/a"), apache.RootDir() / "a");
  EXPECT_THAT(Validator(), HasSubstr(" GMT"));
}

TEST_F(AdditionsOnServers, LeaveAPartAloneWhereTheServerKnowsNoRanges) {
  NginxOptions options;
  options.serverLines = "max_ranges 0;";
  NginxServer server(options);
  WriteOld(server.RootDir() / "a", content);
  EXPECT_THAT(transfer.Download(Wide(server.Url("/a")), result), IsCode(TRANSFER_S_FINISHED));
  Check(Validator());
  const std::string part = content.substr(0, 40000);
  WriteFile(Local(), part);
  CollectingSink sink;
  EXPECT_THAT(Resume(server.Url("/a")), IsCode(CurlFailure(kRangeError)));
  EXPECT_THAT(ErrorOf(transfer), Not(HasSubstr("has changed"))) << "it has not";
  EXPECT_THAT(transfer.Download(Wide(server.Url("/a")), sink, 40000), IsCode(CurlFailure(kRangeError)));
  WriteOld(server.RootDir() / "a", MakePattern(100000, 2), 60);
  EXPECT_THAT(Resume(server.Url("/a")), IsCode(CurlFailure(kRangeError)));
  EXPECT_EQ(ErrorOf(transfer), kChanged);
  EXPECT_TRUE(FileHolds(Local(), part));
  EXPECT_EQ(sink.collected, "");
}

TEST_F(AdditionsOnServers, HandNothingOnFromTheEndOfTheResource) {
  NginxServer nginx;
  ApacheServer apache;
  for (const Daemon* server : {static_cast<const Daemon*>(&nginx), static_cast<const Daemon*>(&apache)}) {
    WriteFile(server->RootDir() / "a", content);
    for (const unsigned long long beyond : {0ULL, 1ULL, 1000ULL}) {
      CollectingSink sink;
      EXPECT_THAT(transfer.Download(Wide(server->Url("/a")), sink, content.size() + beyond),
                  IsCode(TRANSFER_E_CONNECT));
      EXPECT_EQ(transfer.GetHttpStatus(), 416);
      EXPECT_EQ(sink.collected, "");
    }
  }
}

TEST_F(AdditionsOnServers, HandOnAPartBehind4GiB) {
  NginxServer server;
  constexpr unsigned long long kEnd = (5ULL << 30) + 5;
  WriteFile(server.RootDir() / "huge", "");
  fs::resize_file(server.RootDir() / "huge", kEnd);  // a hole, which takes no space
  CollectingSink sink;
  EXPECT_THAT(transfer.Download(Wide(server.Url("/huge")), sink, kEnd - 5), IsCode(TRANSFER_S_FINISHED));
  EXPECT_EQ(sink.collected, std::string(5, '\0'));
  EXPECT_EQ(transfer.GetContentSize(), kEnd);
}

TEST_F(AdditionsOnServers, ContinueTheSameVersionOverFtpBySizeAndTime) {
  VsftpdServer vsftpd;
  PyftpdServer pyftpd;
  for (const Daemon* server : {static_cast<const Daemon*>(&vsftpd), static_cast<const Daemon*>(&pyftpd)}) {
    SCOPED_TRACE(server->Url());
    ExpectCheckedResumes(server->Url("/a"), server->RootDir() / "a");
    ExpectCheckedParts(server->Url("/a"), server->RootDir() / "a");
    EXPECT_THAT(Validator(), StartsWith("SIZE 100000 MDTM "));
  }
}

// --- trace

TEST_F(AdditionsOnServers, TraceHttp2WithoutItsSecrets) {
  const Pki pki = MakePki(folder.Path());
  const PortReservation port;
  NginxOptions nginxOptions;
  nginxOptions.httpLines = "server { listen 127.0.0.1:" + std::to_string(port.Port()) + " ssl http2; ssl_certificate " +
                           pki.server.certificate.string() + "; ssl_certificate_key " + pki.server.key.string() +
                           "; location / { add_header Set-Cookie id=cook1e; return 200 'body'; } }";
  NginxServer server(nginxOptions);
  EXPECT_EQ(transfer.SetSSL(true, true, WidePath(pki.caFile), L""), 0u);
  EXPECT_EQ(transfer.SetCredentials(L"ada", L"s3cret"), 0u);
  RecordingTrace trace;
  ZTransferOptions options;
  options.trace = &trace;
  options.headers = {L"Cookie: id=bisc8it", L"X-Token: t0ken"};
  Set(options);
  const ZString url = Wide("https://localhost:" + std::to_string(port.Port()) + "/a");
  ASSERT_TRUE(WaitUntil([&] { return !IsFailure(transfer.Download(url, result)); })) << server.Log();
  EXPECT_EQ(Narrow(result), "body");
  EXPECT_THAT(trace.lines, Contains("< HTTP/2 200 "));
  EXPECT_THAT(trace.lines, Contains("> GET /a HTTP/2"));
  EXPECT_THAT(trace.lines, Contains(AnyOf("> X-Token: ***", "> x-token: ***")));
  EXPECT_THAT(trace.lines, Contains("< set-cookie: ***"));
  EXPECT_THAT(trace.lines, Contains(HasSubstr("subject: ")));
  for (const char* secret : {"s3cret", "YWRhOnMzY3JldA", "bisc8it", "t0ken", "cook1e"}) {
    EXPECT_THAT(trace.lines, Not(Contains(HasSubstr(secret)))) << secret;
  }
  EXPECT_EQ(transfer.SetOptions(ZTransferOptions()), 0u);
}

TEST_F(AdditionsOnServers, TraceFtpWithoutItsPassword) {
  PyftpdOptions account;
  account.user = "ada";
  account.password = "s3cret";
  PyftpdServer server(account);
  WriteFile(server.RootDir() / "a", content);
  EXPECT_EQ(transfer.SetCredentials(L"ada", L"s3cret"), 0u);
  RecordingTrace trace;
  ZTransferOptions options;
  options.trace = &trace;
  Set(options);
  CollectingSink sink;
  EXPECT_THAT(transfer.Download(Wide(server.Url("/a")), sink, 99000), IsCode(TRANSFER_S_FINISHED));
  EXPECT_THAT(trace.lines, Contains("> PASS ***"));
  EXPECT_THAT(trace.lines, Contains("> REST 99000"));
  EXPECT_THAT(trace.lines, Contains(StartsWith("< 226")));
  EXPECT_THAT(trace.lines, Not(Contains(HasSubstr("s3cret"))));
  EXPECT_EQ(transfer.SetOptions(ZTransferOptions()), 0u);
}

}  // namespace
}  // namespace CorvaneTest
