// Which failures may pass.

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <string>

#include <Corvane/Transfer.h>

#include "apps/corvane/Retry.h"
#include "apps/corvane/Text.h"
#include "tests/support/ScriptedFtpServer.h"
#include "tests/support/ScriptedServer.h"

namespace CorvaneCli {
namespace {

using Corvane::ZResult;
using CorvaneTest::ScriptedFtpServer;
using CorvaneTest::ScriptedServer;

Report CurlReport(unsigned int number, const std::string& text = "") {
  Report report;
  report.status = Corvane::TRANSFER_E_CURL_BASE | number;
  report.cause = report.status;
  report.causeText = text;
  return report;
}

Report StatusReport(ZResult status, ZResult cause = Corvane::TRANSFER_S_FINISHED) {
  Report report;
  report.status = status;
  report.cause = cause;
  return report;
}

TEST(MayPass, TakesBrokenConnectionsAndTimeOuts) {
  for (unsigned int number = 1; number < 200; ++number) {
    constexpr std::array<unsigned int, 9> kPassing = {7, 16, 18, 28, 52, 55, 56, 92, 95};
    const bool isPassing = std::find(kPassing.begin(), kPassing.end(), number) != kPassing.end();
    EXPECT_EQ(MayPass(CurlReport(number), 0), isPassing) << number;
    // A file's download has a code of the library's own above libcurl's.
    const Report file = StatusReport(Corvane::TRANSFER_E_CONNECT, Corvane::TRANSFER_E_CURL_BASE | number);
    EXPECT_EQ(MayPass(file, 0), isPassing) << number;
  }
}

TEST(MayPass, NeverTakesASuccessAnAbortOrALocalFailure) {
  for (const ZResult status :
       {Corvane::TRANSFER_S_FINISHED, Corvane::TRANSFER_E_ABORTED, Corvane::TRANSFER_E_DOWNLOAD,
        Corvane::TRANSFER_E_DISK_SPACE, Corvane::TRANSFER_E_INVALID_URL, Corvane::TRANSFER_E_NOT_STARTED,
        Corvane::TRANSFER_E_SYSTEM_INIT, Corvane::TRANSFER_E_SIZE_MISMATCH, ZResult{0x8000000C}}) {
    EXPECT_FALSE(MayPass(StatusReport(status), 0)) << std::hex << status;
    EXPECT_FALSE(MayPass(StatusReport(status), 503)) << std::hex << status;
    EXPECT_FALSE(MayPass(StatusReport(status, Corvane::TRANSFER_E_CURL_BASE | 28), 0)) << std::hex << status;
  }
}

TEST(MayPass, TakesTheAnswersOfAnOverloadedServer) {
  for (long status = 100; status < 600; ++status) {
    const bool isPassing = status == 408 || status == 429 || status == 500 || (status >= 502 && status <= 504);
    EXPECT_EQ(MayPass(StatusReport(Corvane::TRANSFER_E_CONNECT), status), isPassing) << status;
    EXPECT_EQ(MayPass(StatusReport(Corvane::TRANSFER_E_POST), status), isPassing) << status;
  }
}

TEST(MayPass, LooksAtTheAnswerAlsoWhenItsPageDidNotComeWhole) {
  EXPECT_FALSE(MayPass(StatusReport(Corvane::TRANSFER_E_CONNECT, Corvane::TRANSFER_E_CURL_BASE | 18), 404));
  EXPECT_TRUE(MayPass(StatusReport(Corvane::TRANSFER_E_CONNECT, Corvane::TRANSFER_E_CURL_BASE | 61), 503));
  EXPECT_TRUE(MayPass(CurlReport(56), 200));
  EXPECT_TRUE(MayPass(CurlReport(56), 302));  // the way to where a redirect leads broke
  EXPECT_TRUE(MayPass(CurlReport(56), 401));  // in the middle of a login
}

struct TextCase {
  unsigned int number;
  bool isPassing;
  const char* text;
};

TEST(MayPass, ReadsTheReplyOfAnFtpServerInTheText) {
  const TextCase cases[] = {
      {19, true, "RETR response: 450"},
      {19, true, "RETR response: 451"},
      {19, true, "RETR response: 452"},
      {19, true, "RETR response: 425"},
      {19, true, "RETR response: 426"},
      {19, true, "RETR response: 421"},
      {19, false, "RETR response: 500"},
      {19, false, "RETR response: 550"},
      {19, false, "RETR response: 999"},
      {19, false, "RETR response: "},
      {19, false, "RETR response: 45000000000000000000000"},
      {78, false, "RETR response: 550"},
      {8, true, "Got a 425 ftp-server response when 220 was expected"},
      {8, false, "Got a 500 ftp-server response when 220 was expected"},
      {13, true, "Bad PASV/EPSV response: 425"},
      {13, false, "Bad PASV/EPSV response: 500"},
      {67, false, "Access denied: 530"},
      {67, false, "Access denied: 430"},  // the name or the password is wrong
      {67, true, "Access denied: 421"},
      {18, true, "server did not report OK, got 426"},
      {18, true, "server did not report OK, got 451"},
      {18, false, "server did not report OK, got 552"},
      {18, true, "transfer closed with 5 bytes remaining to read"},
      {9, false, "Server denied you to change to the given directory"},
      {28, true, "FTP response timeout"},
      {56, true, "response reading failed (errno: 0)"},
  };
  for (const TextCase& c : cases) EXPECT_EQ(MayPass(CurlReport(c.number, c.text), 0), c.isPassing) << c.text;
}

TEST(MayPass, TakesTlsOnlyWhenThePeerBrokeOff) {
  const TextCase cases[] = {
      {35, false, ""},
      {35, true, "OpenSSL SSL_connect: Connection reset by peer in connection to h:443 "},
      {35, true, "OpenSSL SSL_connect: SSL_ERROR_SYSCALL in connection to h:443 "},
      {35, true, "error:0A000126:SSL routines::unexpected eof while reading"},
      {35, true, "TLS connect error: error:0A000126:SSL routines::unexpected eof while reading"},
      {35, true, "Recv failure: Connection reset by peer"},
      {35, true, "Send failure: Broken pipe"},
      {35, false, "error:0A00010B:SSL routines::wrong version number"},
      {35, false, "error:0A000410:SSL routines::sslv3 alert handshake failure"},
      {60, false, "SSL certificate problem: unable to get local issuer certificate"},
      {60, false, "SSL certificate problem: Connection reset by peer"},
      {77, false, "error setting certificate file"},
      {56, true, "OpenSSL SSL_read: error:0A000126:SSL routines::unexpected eof while reading, errno 0"},
      {56, false, "OpenSSL SSL_read: error:0A00045C:SSL routines::tlsv13 alert certificate required, errno 0"},
  };
  for (const TextCase& c : cases) EXPECT_EQ(MayPass(CurlReport(c.number, c.text), 0), c.isPassing) << c.text;
}

TEST(MayPass, ReadsWhatAProxyAnsweredAndWhatOnlyGrows) {
  const TextCase cases[] = {
      {56, true, "CONNECT tunnel failed, response 503"},
      {56, false, "CONNECT tunnel failed, response 407"},
      {56, false, "CONNECT tunnel failed, response 403"},
      {56, true, "Received HTTP code 502 from proxy after CONNECT"},
      {56, false, "Received HTTP code 403 from proxy after CONNECT"},
      {56, true, "Proxy CONNECT aborted"},
      {56, false, "Too large response headers: 307201 > 307200"},
      {56, false, "CONNECT response too large"},
  };
  for (const TextCase& c : cases) EXPECT_EQ(MayPass(CurlReport(c.number, c.text), 0), c.isPassing) << c.text;
}

// --- the same with the texts of the libcurl that is there

struct Outcome {
  bool mayPass;
  std::string described;
};

Outcome Fetch(const std::string& url) {
  Corvane::ZTransfer transfer;
  Corvane::ZString body;
  transfer.SetTimeout(20);
  transfer.DetectHttpError(true);
  Report report;
  report.status = transfer.Download(FromUtf8(url), body);
  Corvane::ZString text;
  report.cause = transfer.GetCause(text);
  report.causeText = ToUtf8(text);
  const long status = transfer.GetHttpStatus();
  return {MayPass(report, status),
          std::to_string(report.cause & 0xFFFFU) + " \"" + report.causeText + "\", HTTP " + std::to_string(status)};
}

TEST(MayPass, KnowsTheRepliesOfFtpServers) {
  struct Case {
    const char* verb;
    const char* reply;
    bool isPassing;
  };
  const Case cases[] = {
      {"RETR", "450 Busy", true},     {"RETR", "550 No such file", false}, {"RETR", "421 Going down", true},
      {"PASS", "530 Wrong", false},   {"PASS", "421 Too many", true},      {"USER", "421 Too many", true},
      {"RETR", "553 Not you", false},
  };
  for (const Case& c : cases) {
    ScriptedFtpServer server({{"/a", "content"}});
    server.SetReply(c.verb, c.reply);
    const Outcome outcome = Fetch(server.Url("/a"));
    EXPECT_EQ(outcome.mayPass, c.isPassing) << c.verb << ' ' << c.reply << ": " << outcome.described;
  }
}

TEST(MayPass, KnowsAnFtpServerThatIsFullAtTheDoor) {
  for (const char* const banner : {"421 Too many users", "425 Later"}) {
    ScriptedFtpServer server({{"/a", "content"}}, banner);
    const Outcome outcome = Fetch(server.Url("/a"));
    EXPECT_TRUE(outcome.mayPass) << banner << ": " << outcome.described;
  }
  ScriptedFtpServer server({{"/a", "content"}}, "500 Never");
  const Outcome outcome = Fetch(server.Url("/a"));
  EXPECT_FALSE(outcome.mayPass) << outcome.described;
}

TEST(MayPass, KnowsAnFtpTransferThatWasCut) {
  ScriptedFtpServer server({{"/a", std::string(100000, 'x')}});
  server.CutDataAfter(1000);
  const Outcome outcome = Fetch(server.Url("/a"));
  EXPECT_TRUE(outcome.mayPass) << outcome.described;
}

TEST(MayPass, KnowsATlsHandshakeThatThePeerBrokeOff) {
  ScriptedServer resets([](CorvaneTest::Connection& connection) {
    static_cast<void>(connection.ReadSome());
    connection.Reset();
  });
  const Outcome reset = Fetch("https://127.0.0.1:" + std::to_string(resets.Port()) + "/");
  EXPECT_TRUE(reset.mayPass) << reset.described;
  ScriptedServer closes([](CorvaneTest::Connection& connection) {
    static_cast<void>(connection.ReadSome());
    connection.Close();
  });
  const Outcome closed = Fetch("https://127.0.0.1:" + std::to_string(closes.Port()) + "/");
  EXPECT_TRUE(closed.mayPass) << closed.described;
}

TEST(MayPass, KnowsAServerThatSpeaksNoTls) {
  ScriptedServer server([](CorvaneTest::Connection& connection) {
    static_cast<void>(connection.ReadSome());
    static_cast<void>(connection.Send("HTTP/1.1 400 Bad Request\r\n\r\n"));
    static_cast<void>(connection.WaitUntilPeerCloses());
  });
  const Outcome outcome = Fetch("https://127.0.0.1:" + std::to_string(server.Port()) + "/");
  EXPECT_FALSE(outcome.mayPass) << outcome.described;
}

TEST(MayPass, KnowsHttpAnswersAndBrokenOnes) {
  struct Case {
    const char* answer;
    bool isPassing;
  };
  const Case cases[] = {
      {"HTTP/1.1 503 Busy\r\nContent-Length: 0\r\n\r\n", true},
      {"HTTP/1.1 404 No\r\nContent-Length: 0\r\n\r\n", false},
      {"HTTP/1.1 404 No\r\nContent-Length: 10\r\n\r\nabc", false},
      {"HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nabc", true},
      {"", true},
  };
  for (const Case& c : cases) {
    ScriptedServer server([&c](CorvaneTest::Connection& connection) {
      static_cast<void>(connection.ReadRequest());
      static_cast<void>(connection.Send(c.answer));
      connection.Close();
    });
    const Outcome outcome = Fetch(server.Url("/"));
    EXPECT_EQ(outcome.mayPass, c.isPassing) << c.answer << ": " << outcome.described;
  }
}

TEST(MayPass, KnowsAHostOnWhichNobodyListens) {
  std::string url;
  {
    const ScriptedServer server([](CorvaneTest::Connection& /*connection*/) {});
    url = server.Url("/");
  }
  const Outcome outcome = Fetch(url);
  EXPECT_TRUE(outcome.mayPass) << outcome.described;
}

}  // namespace
}  // namespace CorvaneCli
