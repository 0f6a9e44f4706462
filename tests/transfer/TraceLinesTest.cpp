#include <Corvane/Transfer/TraceLinesImpl.h>

#include <gmock/gmock.h>

#include <ctime>
#include <stdexcept>
#include <string>
#include <vector>

#include <Corvane/Base/StringCoding.h>

#include "tests/unit/PrintTo.h"

// The lines that a trace is told, and what is struck out in them.
namespace Corvane {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Kind = ZTransferTrace::Kind;

class Collecting : public ZTransferTrace {
 public:
  void Line(Kind kind, const ZString& line) override {
    const ZStringEncoder text(line, ZStringEncoder::Utf8);
    lines.push_back(std::string(1, "*><"[static_cast<int>(kind)]) + std::string(text.CStr(), text.Length()));
  }
  std::vector<std::string> Take() { return std::exchange(lines, {}); }
  std::vector<std::string> lines;
};

class ATrace : public testing::Test {
 protected:
  // The one line that these bytes make.
  std::string Told(Kind kind, const std::string& line) {
    lines.Take(kind, line + "\n");
    const std::vector<std::string> told = trace.Take();
    return told.size() == 1 ? told[0].substr(1) : "not one line";
  }

  Collecting trace;
  TraceLines lines{trace, {"X-Token", "Accept"}, "http://h/"};
};

TEST_F(ATrace, HasALineForEachLineEnd) {
  lines.Take(Kind::RequestLine, "GET / HTTP/1.1\r\nHost: h\r\n\r\n");
  EXPECT_THAT(trace.Take(), ElementsAre(">GET / HTTP/1.1", ">Host: h", ">"));
  lines.Take(Kind::ResponseLine, "220-a\n");
  lines.Take(Kind::ResponseLine, "220 b\rc\r\n");
  EXPECT_THAT(trace.Take(), ElementsAre("<220-a", "<220 b\rc"));
  lines.Take(Kind::Information, "Trying\n");
  lines.Take(Kind::Information, "no end");
  EXPECT_THAT(trace.Take(), ElementsAre("*Trying", "*no end"));
  lines.Take(Kind::ResponseLine, "");
  lines.Finish();
  EXPECT_THAT(trace.Take(), IsEmpty());
}

// A request that could not be sent at once comes in pieces, and a secret must not begin in the second.
TEST_F(ATrace, HasOneLineForPieces) {
  lines.Take(Kind::RequestLine, "GET / HTTP/1.1\r\nCoo");
  lines.Take(Kind::Information, "between\n");
  lines.Take(Kind::RequestLine, "kie: a=sec");
  lines.Take(Kind::RequestLine, "ret\r\nHost: h\r");
  lines.Take(Kind::RequestLine, "\n\r\n");
  EXPECT_THAT(trace.Take(), ElementsAre(">GET / HTTP/1.1", "*between", ">Cookie: ***", ">Host: h", ">"));
  lines.Take(Kind::RequestLine, "Authorization: Basic sec");
  EXPECT_THAT(trace.Take(), IsEmpty());
  lines.Finish();
  EXPECT_THAT(trace.Take(), ElementsAre(">Authorization: ***"));
}

TEST_F(ATrace, ShowsNoValueOfASecretField) {
  for (const char* name : {"Authorization", "PROXY-AUTHORIZATION", "cookie", "Set-Cookie", "x-token", "ACCEPT"}) {
    for (const Kind kind : {Kind::RequestLine, Kind::ResponseLine}) {
      EXPECT_EQ(Told(kind, std::string(name) + ": sec:ret"), std::string(name) + ": ***");
      EXPECT_EQ(Told(kind, std::string(name) + ":secret"), std::string(name) + ": ***");
      EXPECT_EQ(Told(kind, std::string(name) + " \t: secret"), std::string(name) + " \t: ***");
    }
  }
  EXPECT_EQ(Told(Kind::ResponseLine, "Cookies: 3"), "Cookies: 3");
  EXPECT_EQ(Told(Kind::ResponseLine, "WWW-Authenticate: Basic"), "WWW-Authenticate: Basic");
}

TEST_F(ATrace, ShowsNoContinuationOfASecretField) {
  lines.Take(Kind::ResponseLine, "Set-Cookie: a=b;\r\n secret\r\n");
  lines.Take(Kind::Information, "between\n");
  lines.Take(Kind::ResponseLine, "\tsecret\r\nServer: s\r\n more\r\n\r\n");
  EXPECT_THAT(trace.Take(), ElementsAre("<Set-Cookie: ***", "< ***", "*between", "< ***", "<Server: s", "< more", "<"));
}

TEST_F(ATrace, ShowsNoSecretInWhatLibcurlSaysOfHttp2) {
  EXPECT_EQ(Told(Kind::Information, "h2h3 [authorization: Basic c2VjcmV0]"), "h2h3 [authorization: ***]");
  EXPECT_EQ(Told(Kind::Information, "[HTTP/2] [1] [cookie: a=[1]; b=secret]"), "[HTTP/2] [1] [cookie: ***]");
  EXPECT_EQ(Told(Kind::Information, "[HTTP/3] [0] [x-token: cut o"), "[HTTP/3] [0] [x-token: ***]");
  EXPECT_EQ(Told(Kind::Information, "h2h3 [:path: /a]"), "h2h3 [:path: /a]");
  EXPECT_EQ(Told(Kind::Information, "h2h3 [user-agent: x]"), "h2h3 [user-agent: x]");
  EXPECT_EQ(Told(Kind::Information, "[[["), "[[[");
}

TEST_F(ATrace, ShowsNoPasswordOfFtp) {
  TraceLines ftp(trace, {}, "FTP://h/");
  ftp.Take(Kind::RequestLine, "USER ada\r\nPASS sec ret\r\nacct secret\r\nPWD\r\n");
  EXPECT_THAT(trace.Take(), ElementsAre(">USER ada", ">PASS ***", ">acct ***", ">PWD"));
}

TEST_F(ATrace, ShowsNoPasswordInAUrl) {
  EXPECT_EQ(Told(Kind::ResponseLine, "Location: http://ada:secret@h/b?u=http://bob:secret@i/"),
            "Location: http://ada:***@h/b?u=http://bob:***@i/");
  EXPECT_EQ(Told(Kind::ResponseLine, "location: //ada:secret@h/b"), "location: //ada:***@h/b");
  EXPECT_EQ(Told(Kind::ResponseLine, "Location: http://ada:sec ret@h/b"), "Location: http://ada:***@h/b");
  EXPECT_EQ(Told(Kind::ResponseLine, "Link: <http://ada:secret@h/>; rel=next"), "Link: <http://ada:***@h/>; rel=next");
  EXPECT_EQ(Told(Kind::RequestLine, "GET http://ada:secret@h/ HTTP/1.1"), "GET http://ada:***@h/ HTTP/1.1");
  EXPECT_EQ(Told(Kind::Information, "Issue another request to this URL: 'https://ada:secret@h:1/b'"),
            "Issue another request to this URL: 'https://ada:***@h:1/b'");
  EXPECT_EQ(Told(Kind::Information, "Uses proxy env variable http_proxy == 'ada:secret@p:3128'"),
            "Uses proxy env variable http_proxy == 'ada:***@p:3128'");
  EXPECT_EQ(Told(Kind::Information, "Unsupported proxy syntax in 'http://ada:sec ret@p'"),
            "Unsupported proxy syntax in 'http://ada:***@p'");
}

TEST_F(ATrace, ShowsNothingThatIsSentInOtherProtocols) {
  for (const char* url : {"imap://h/", "pop3s://h/", "h/", ""}) {
    TraceLines other(trace, {}, url);
    other.Take(Kind::RequestLine, "A001 LOGIN ada secret\r\n");
    other.Take(Kind::ResponseLine, "A001 OK\r\n");
    EXPECT_THAT(trace.Take(), ElementsAre(">***", "<A001 OK")) << url;
  }
  for (const char* url : {"HTTPS://h/", "ftps://h/"}) {
    TraceLines known(trace, {}, url);
    known.Take(Kind::RequestLine, "NOOP\r\n");
    EXPECT_THAT(trace.Take(), ElementsAre(">NOOP")) << url;
  }
}

TEST_F(ATrace, IsUnicodeWhateverTheServerSends) {
  EXPECT_EQ(Told(Kind::ResponseLine, "X: gr\xC3\xBCn"), "X: gr\xC3\xBCn");
  EXPECT_EQ(Told(Kind::ResponseLine, "X: \xFFy"), "X: \xEF\xBF\xBDy");
  lines.Take(Kind::ResponseLine, std::string("X: \0y\n", 6));
  EXPECT_EQ(trace.Take()[0], std::string("<X: \0y", 6));
}

// A header line may be large, and hold whatever makes a search begin again.
TEST_F(ATrace, IsMadeInTimeThatGrowsWithTheLineOnly) {
  const std::clock_t begin = std::clock();  // of this process: others may be busy
  for (const char* piece : {"//", "://", "//a:b", "//a:b@", "//a:b/@", "[a:", " //:"}) {
    std::string line = "X: ";
    while (line.size() < 300000) line += piece;
    lines.Take(Kind::ResponseLine, line + "\r\n");
  }
  EXPECT_LT((std::clock() - begin) / CLOCKS_PER_SEC, 30) << "minutes, if each began again";
}

}  // namespace
}  // namespace Corvane
