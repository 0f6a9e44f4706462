// What the program makes of a failure.

#include <gmock/gmock.h>

#include <string>

#include "apps/corvane/Explain.h"
#include "apps/corvane/Explain/HttpAnswer.h"
#include "tests/support/TempDir.h"

namespace CorvaneCli {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

TEST(LastHttpStatus, FindsTheStatusOfTheLastAnswer) {
  struct Case {
    const char* header;
    int status;
    const char* text;
  };
  const Case cases[] = {
      {"", 0, ""},
      {"HTTP/1.1 404 Not Found\r\nA: b\r\n\r\n", 404, "404 Not Found"},
      {"HTTP/1.1 100 Continue\r\n\r\nHTTP/1.1 500 Oops\r\n\r\n", 500, "500 Oops"},
      {"HTTP/2 404 \r\nserver: x\r\n\r\n", 404, "404 Not Found"},
      {"HTTP/2 599 \r\n\r\n", 599, "599"},
      {"HTTP/1.1 401 Unauthorized\r\n\r\nHTTP/1.1 200 OK\r\nX: HTTP/1.1 500\r\n\r\n", 200, "200 OK"},
      {"HTTP/1.1\r\n\r\n", 0, ""},
  };
  for (const Case& c : cases) {
    int status = -1;
    EXPECT_EQ(LastHttpStatus(c.header, status), c.text) << c.header;
    EXPECT_EQ(status, c.status) << c.header;
  }
}

Report CurlFailure(unsigned int number, const std::string& text = "") {
  Report report;
  report.status = Corvane::TRANSFER_E_CONNECT;
  report.cause = Corvane::TRANSFER_E_CURL_BASE | number;
  report.causeText = text;
  return report;
}

TEST(Explain, IsNeverEmptyAndAlwaysNamesARemedy) {
  for (unsigned int number = 1; number < 120; ++number) {
    const Explanation explanation = Explain(CurlFailure(number), {});
    EXPECT_NE(explanation.text.find("; "), std::string::npos) << number << explanation.text;
    EXPECT_GT(explanation.text.find("; "), 10U) << number << explanation.text;
    EXPECT_NE(explanation.code, ExitCode::kSuccess) << number;
  }
}

TEST(Explain, TellsTlsAndAuthenticationFromTheRest) {
  for (const unsigned int number :
       {35U, 51U, 53U, 54U, 58U, 59U, 60U, 64U, 66U, 67U, 77U, 80U, 82U, 83U, 90U, 91U, 94U}) {
    EXPECT_EQ(Explain(CurlFailure(number), {}).code, ExitCode::kSecurity) << number;
  }
  for (const unsigned int number : {1U, 3U, 6U, 7U, 18U, 28U, 33U, 52U, 56U, 78U, 119U}) {
    EXPECT_EQ(Explain(CurlFailure(number), {}).code, ExitCode::kTransfer) << number;
  }
}

TEST(Explain, AddsWhatLibcurlSaid) {
  EXPECT_THAT(Explain(CurlFailure(6, "Could not resolve host: h"), {}).text, HasSubstr("(Could not resolve host: h)"));
  EXPECT_THAT(Explain(CurlFailure(119), {}).text, HasSubstr("119"));
}

TEST(Explain, OffersNoResumptionWhereTheServerCannot) {
  for (const unsigned int number : {31U, 33U, 36U}) {
    EXPECT_FALSE(Explain(CurlFailure(number), {}).canResume) << number;
    EXPECT_THAT(Explain(CurlFailure(number), {}).text, HasSubstr("without --resume")) << number;
  }
  EXPECT_TRUE(Explain(CurlFailure(18), {}).canResume);
}

TEST(Explain, TellsMemoryThatRanOutFromAFullDisk) {
  const CorvaneTest::TempDir folder;
  CorvaneTest::WriteFile(folder / "f", "content");
  Circumstances circumstances;
  circumstances.outputPath = folder / "f";
  const Explanation file = Explain(CurlFailure(23), circumstances);
  EXPECT_EQ(file.code, ExitCode::kLocal);
  EXPECT_THAT(file.text, AllOf(HasSubstr((folder / "f").string()), HasSubstr("memory ran out; free some memory"),
                               Not(HasSubstr("free some space"))));

  circumstances.isMirror = true;  // and no file: it was the listing, which is kept in memory
  circumstances.outputPath = folder.Path();
  EXPECT_THAT(Explain(CurlFailure(23), circumstances).text,
              AllOf(HasSubstr("the list of files"), HasSubstr("memory ran out"), Not(HasSubstr("space"))));

  Report report;
  report.status = Corvane::TRANSFER_E_DOWNLOAD;
  for (const char* const text : {"Download failed", "Download failed: Cannot allocate memory"}) {
    report.libraryText = text;
    EXPECT_THAT(Explain(report, {}).text, AllOf(HasSubstr("free some memory"), Not(HasSubstr("disk")))) << text;
  }
}

TEST(Explain, FindsTheRemedyForAFileThatCannotBeOpened) {
  struct Case {
    const char* reason;
    const char* remedy;
  };
  const Case cases[] = {{"File name too long", "; the disk takes no such name: leave the file out with --ignore 'a b'"},
                        {"Invalid argument", "--ignore 'a b'"},
                        {"Is a directory", "; remove the directory, or leave the file out with --ignore 'a b'"},
                        {"No space left on device", "; free some space"},
                        {"Permission denied", "; check the disk and the permissions"}};
  Circumstances circumstances;
  circumstances.isMirror = true;
  circumstances.fileName = "a b";
  Report report;
  report.status = Corvane::TRANSFER_E_DOWNLOAD;
  for (const Case& c : cases) {
    report.libraryText = std::string("Failed to open output file /d/a b: ") + c.reason;
    EXPECT_THAT(Explain(report, circumstances).text, testing::EndsWith(c.remedy)) << c.reason;
  }
  circumstances.isNameExpressible = false;
  EXPECT_THAT(Explain(report, circumstances).text, HasSubstr("; set LC_ALL=C.UTF-8"));
}

TEST(Explain, PrefersTheServersAnswerToTheConnectionsEnd) {
  Report report = CurlFailure(18);
  report.header = "HTTP/1.1 403 Forbidden\r\n\r\n";
  const Explanation explanation = Explain(report, {});
  EXPECT_EQ(explanation.code, ExitCode::kSecurity);
  EXPECT_THAT(explanation.text, HasSubstr("403 Forbidden"));
}

}  // namespace
}  // namespace CorvaneCli
