// The parts of the program that are worth testing without running it.

#include <gmock/gmock.h>

#include <clocale>
#include <string>
#include <vector>

#include "apps/corvane/Explain.h"
#include "apps/corvane/Failure.h"
#include "apps/corvane/Progress.h"
#include "apps/corvane/Target.h"
#include "apps/corvane/Text.h"
#include "apps/corvane/Trust.h"
#include "tests/support/Env.h"
#include "tests/support/Pki.h"
#include "tests/support/TempDir.h"

namespace CorvaneCli {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

// --- text

struct SizeCase {
  const char* text;
  std::optional<unsigned long long> size;
};

TEST(ParseSize, TakesWholeNumbersWithAUnit) {
  const SizeCase cases[] = {
      {"0", 0},
      {"1", 1},
      {"1024", 1024},
      {"1k", 1024},
      {"1K", 1024},
      {"3m", 3145728},
      {"2G", 2147483648},
      {"18446744073709551615", 18446744073709551615ULL},
      {"18446744073709551616", std::nullopt},
      {"17179869183G", 18446744072635809792ULL},
      {"17179869184G", std::nullopt},
      {"", std::nullopt},
      {"k", std::nullopt},
      {"1kk", std::nullopt},
      {"1.5M", std::nullopt},
      {"-1", std::nullopt},
      {"+1", std::nullopt},
      {" 1", std::nullopt},
      {"1 ", std::nullopt},
      {"1T", std::nullopt},
      {"0x10", std::nullopt},
  };
  for (const SizeCase& c : cases) EXPECT_EQ(ParseSize(c.text), c.size) << c.text;
}

TEST(FormatBytes, ChoosesTheUnitThatKeepsTheNumberShort) {
  EXPECT_EQ(FormatBytes(0), "0 B");
  EXPECT_EQ(FormatBytes(1023), "1023 B");
  EXPECT_EQ(FormatBytes(1024), "1.0 KiB");
  EXPECT_EQ(FormatBytes(1536), "1.5 KiB");
  EXPECT_EQ(FormatBytes(1048575), "1.0 MiB");
  EXPECT_EQ(FormatBytes(18446744073709551615ULL), "16.0 EiB");
}

TEST(FormatDuration, ShowsHoursOnlyWhenThereAreAny) {
  EXPECT_EQ(FormatDuration(0), "0:00");
  EXPECT_EQ(FormatDuration(61), "1:01");
  EXPECT_EQ(FormatDuration(3599), "59:59");
  EXPECT_EQ(FormatDuration(3600), "1:00:00");
}

TEST(ShellQuote, QuotesWhatTheShellWouldTouch) {
  EXPECT_EQ(ShellQuote("http://h/a.b"), "http://h/a.b");
  EXPECT_EQ(ShellQuote("http://h/?a=1&b=2"), "'http://h/?a=1&b=2'");
  EXPECT_EQ(ShellQuote("it's"), "'it'\\''s'");
  EXPECT_EQ(ShellQuote(""), "''");
  EXPECT_EQ(ShellQuote("~x"), "'~x'");
}

TEST(Printable, LetsNoControlCharacterThrough) {
  EXPECT_EQ(Printable("a\x1b[2Jb\r\nc\x7f"), "a [2Jb  c ");
  EXPECT_EQ(Printable("\xC2\x9B"
                      "31m"),
            " 31m");                   // the 8-bit form of ESC [
  EXPECT_EQ(Printable("a\xE2\x80\xAE"  // NOLINT(misc-misleading-bidirectional)
                      "b"),
            "a b");  // would turn the direction of the rest
  EXPECT_EQ(Printable("gr\xC3\xBC\xC3\x9F"), "gr\xC3\xBC\xC3\x9F");
}

TEST(Printable, NamesCharactersThatTheLocaleDoesNotHave) {
  const CorvaneTest::ScopedLocale locale("C");
  EXPECT_EQ(Printable("gr\xC3\xBC\xC3\x9F"), "gr\\x{FC}\\x{DF}");
}

TEST(DecodeLocal, RefusesWhatTheLocaleCannotExpress) {
  EXPECT_TRUE(DecodeLocal("gr\xC3\xBC").has_value());
  EXPECT_FALSE(DecodeLocal("gr\xFC").has_value());
  const CorvaneTest::ScopedLocale locale("C");
  EXPECT_FALSE(DecodeLocal("gr\xC3\xBC").has_value());
  EXPECT_EQ(DisplayName("gr\xC3\xBC"), "gr\\xC3\\xBC");
}

TEST(Shorten, CountsColumnsAndNotCharacters) {
  EXPECT_EQ(Shorten("abcdef", 6), "abcdef");
  EXPECT_EQ(Shorten("abcdefg", 6), "abc...");
  EXPECT_EQ(Shorten("\xE6\xBC\xA2\xE5\xAD\x97\xE6\xBC\xA2", 5), "\xE6\xBC\xA2...");  // each takes two columns
  EXPECT_EQ(Shorten("abcdefg", 2), "..");
}

// --- URLs

TEST(MakeTarget, CompletesAUrlWithoutScheme) {
  EXPECT_EQ(MakeTarget("example.com/a").display, "http://example.com/a");
  EXPECT_EQ(MakeTarget("localhost:8080/a").display, "http://localhost:8080/a");
  EXPECT_EQ(MakeTarget("HTTPS://example.com/a").scheme, "https");
  EXPECT_EQ(MakeTarget("http://example.com/a@b").display, "http://example.com/a@b");
}

TEST(MakeTarget, NeverRepeatsAPassword) {
  for (const char* const url :
       {"http://ada:s3cret@h/", "ada:s3cret@h", "http://ada:s3/cret@h/", "http://ada:s3cret@h x/",
        "http:/ada:s3cret@h/", "htp://ada:s3cret@h/", "http://a@b:s3cret@h/", "http://ada:s3?cret@h/",
        "ftp://ada:s3#cret@h/", "file://ada:s3cret@h/", "http://h/?u=http://ada:s3cret@h /"}) {
    try {
      static_cast<void>(MakeTarget(url));
      ADD_FAILURE() << url;
    } catch (const Failure& failure) {
      EXPECT_EQ(failure.Code(), ExitCode::kUsage);
      EXPECT_THAT(failure.what(), AllOf(Not(HasSubstr("cret")), Not(HasSubstr("s3")))) << url;
    }
  }
}

TEST(Target, LabelIsTheLastPartOfThePathOrElseTheHost) {
  EXPECT_EQ(MakeTarget("http://h/a/b.iso").Label(), "b.iso");
  EXPECT_EQ(MakeTarget("http://h/a/b.iso?x=/y").Label(), "b.iso");
  EXPECT_EQ(MakeTarget("http://h/").Label(), "h");
  EXPECT_EQ(MakeTarget("http://h").Label(), "h");
  EXPECT_EQ(MakeTarget("http://h:81/a/").Label(), "h:81");
}

// --- certificates

TEST(FindTrust, PrefersADirectoryWithCertificates) {
  const CorvaneTest::TempDir folder;
  const CorvaneTest::Pki pki = CorvaneTest::MakePki(folder.Path());
  const std::string empty = folder / "empty";
  std::filesystem::create_directory(empty);
  const TrustStore both = FindTrust({empty.c_str(), pki.caDirectory.c_str()}, {pki.caFile.c_str()});
  EXPECT_EQ(ToUtf8(both.directory), pki.caDirectory);
  EXPECT_TRUE(both.file.IsEmpty());
  const TrustStore file = FindTrust({empty.c_str()}, {"/no/such/file", pki.caFile.c_str()});
  EXPECT_EQ(ToUtf8(file.file), pki.caFile);
  EXPECT_TRUE(file.directory.IsEmpty());
}

TEST(FindTrust, RefusesASystemWithoutCertificates) {
  const CorvaneTest::TempDir folder;
  CorvaneTest::WriteFile(folder / "empty.pem", "");
  const std::string path = folder.Path();
  const std::string file = folder / "empty.pem";
  try {
    static_cast<void>(FindTrust({path.c_str(), "/no/such/directory"}, {file.c_str(), path.c_str()}));
    FAIL();
  } catch (const Failure& failure) {
    EXPECT_EQ(failure.Code(), ExitCode::kSecurity);
    EXPECT_THAT(failure.what(), AllOf(HasSubstr("ca-certificates"), HasSubstr("--cacert"), HasSubstr("--capath")));
  }
}

// --- progress

ProgressLine HalfWay() {
  ProgressLine line;
  line.label = "big.iso";
  line.sample = {5 << 20, 10 << 20, std::nullopt, std::nullopt};
  line.bytesPerSecond = 1 << 20;
  line.elapsedSeconds = 7;
  return line;
}

TEST(FormatProgress, ShowsBarPercentBytesRateAndTimeLeft) {
  EXPECT_EQ(FormatProgress(HalfWay(), 80),
            "big.iso   50%  [========>          ]  5.0 MiB of 10.0 MiB  1.0 MiB/s  0:05 left");
}

TEST(FormatProgress, IsAlwaysNarrowerThanTheTerminal) {
  ProgressLine line = HalfWay();
  for (const char* const label : {"", "big.iso", "a-very-long-name-that-does-not-fit-anywhere-at-all.iso"}) {
    line.label = label;
    for (std::size_t columns = 0; columns < 200; ++columns) {
      const std::size_t width = DisplayWidth(FormatProgress(line, columns));
      EXPECT_TRUE(width == 0 || width < columns) << columns;
    }
  }
}

TEST(FormatProgress, LeavesTheBarOutFirst) {
  EXPECT_EQ(FormatProgress(HalfWay(), 64), "big.iso   50%  5.0 MiB of 10.0 MiB  1.0 MiB/s  0:05 left");
}

TEST(FormatProgress, ShowsTheTimeSpentWhenTheLengthIsUnknown) {
  ProgressLine line = HalfWay();
  line.sample.total.reset();
  EXPECT_EQ(FormatProgress(line, 80), "big.iso  5.0 MiB  1.0 MiB/s  0:07");
}

TEST(FormatProgress, SaysThatItWaitsBeforeTheFirstByte) {
  ProgressLine line;
  line.label = "big.iso";
  line.elapsedSeconds = 3;
  EXPECT_EQ(FormatProgress(line, 80), "big.iso  waiting  0:03");
}

TEST(FormatProgress, ShowsTheFilesOfAMirror) {
  ProgressLine line = HalfWay();
  line.label = "pub";
  line.sample.files = FileProgress{12, 1000};
  EXPECT_EQ(FormatProgress(line, 100),
            "pub  12 of 1000 files   50%  [===========>             ]  5.0 MiB of 10.0 MiB  1.0 MiB/s  0:05 left");
}

TEST(FormatProgress, CountsFilesWhileTheNumberOfBytesIsNotKnown) {
  ProgressLine line = HalfWay();
  line.label = "pub";
  line.sample.total.reset();
  line.sample.files = FileProgress{3, 8};
  line.elapsedSeconds = 10;
  EXPECT_EQ(FormatProgress(line, 80),
            "pub  3 of 8 files   37%  [======>              ]  5.0 MiB  1.0 MiB/s  0:17 left");
  line.sample.files = FileProgress{0, 8};
  EXPECT_THAT(FormatProgress(line, 80), AllOf(HasSubstr("  0 of 8 files    0%  "), HasSubstr("  0:10")));
  line.sample.files = FileProgress{8, 8};
  EXPECT_THAT(FormatProgress(line, 80), AllOf(HasSubstr("100%"), HasSubstr("0:00 left")));
}

TEST(FormatSummary, TellsWhatAMirrorDid) {
  EXPECT_EQ(FormatSummary("pub", {12, 3, 1, 5 << 20, 2000}),
            "pub  12 fetched, 3 skipped, 1 resumed; 5.0 MiB in 2.0 s (2.5 MiB/s)");
}

TEST(FormatProgress, SurvivesMoreBytesThanTheServerPromised) {
  ProgressLine line = HalfWay();
  line.sample.bytes = 20 << 20;
  EXPECT_THAT(FormatProgress(line, 80), AllOf(HasSubstr("100%"), Not(HasSubstr("left"))));
  line.sample = {0, 0, std::nullopt, std::nullopt};
  EXPECT_THAT(FormatProgress(line, 80), HasSubstr("100%"));
}

TEST(RateWindow, MeasuresTheLastSecondsOnly) {
  RateWindow window;
  const RateWindow::Clock::time_point start;
  window.Add(start, 0);
  EXPECT_EQ(window.BytesPerSecond(), 0U);
  window.Add(start, 100);  // no time has passed
  EXPECT_EQ(window.BytesPerSecond(), 0U);
  for (int second = 1; second <= 20; ++second) window.Add(start + std::chrono::seconds(second), 100);
  EXPECT_EQ(window.BytesPerSecond(), 0U);
  for (int second = 21; second <= 30; ++second) {
    window.Add(start + std::chrono::seconds(second), static_cast<unsigned long long>(second) * 1000);
  }
  EXPECT_EQ(window.BytesPerSecond(), 1000U);
}

TEST(RateWindow, BeginsAnewWhenTheCountGoesDown) {
  RateWindow window;
  const RateWindow::Clock::time_point start;
  window.Add(start, 1000000);
  window.Add(start + std::chrono::seconds(1), 10);
  EXPECT_EQ(window.BytesPerSecond(), 0U);
  window.Add(start + std::chrono::seconds(2), 30);
  EXPECT_EQ(window.BytesPerSecond(), 20U);
}

// --- explanations

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

TEST(Explain, PrefersTheServersAnswerToTheConnectionsEnd) {
  Report report = CurlFailure(18);
  report.header = "HTTP/1.1 403 Forbidden\r\n\r\n";
  const Explanation explanation = Explain(report, {});
  EXPECT_EQ(explanation.code, ExitCode::kSecurity);
  EXPECT_THAT(explanation.text, HasSubstr("403 Forbidden"));
}

}  // namespace
}  // namespace CorvaneCli
