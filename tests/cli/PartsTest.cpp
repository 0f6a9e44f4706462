// The parts of the program that are worth testing without running it.

#include <gmock/gmock.h>

#include <clocale>
#include <string>
#include <vector>

#include "apps/corvane/Failure.h"
#include "apps/corvane/Target.h"
#include "apps/corvane/Text.h"
#include "apps/corvane/Trust.h"
#include "tests/support/Env.h"

namespace CorvaneCli {
namespace {

using Corvane::ZString;
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

TEST(AsClause, FitsASentenceIntoAnother) {
  EXPECT_EQ(AsClause("The page is no listing."), "the page is no listing");
  EXPECT_EQ(AsClause("FTP is old.\n"), "FTP is old");
  EXPECT_EQ(AsClause("a/b: Permission denied"), "a/b: Permission denied");
  EXPECT_EQ(AsClause("."), "");
  EXPECT_EQ(AsClause(""), "");
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

TEST(DisplayWidth, CountsWhatIsShown) {
  EXPECT_EQ(DisplayWidth("gr\xC3\xBC"), 3U);
  EXPECT_EQ(DisplayWidth("\xE6\xBC\xA2"), 2U);
  EXPECT_EQ(DisplayWidth("a\x1B\n\xE2\x80\xAE"), 4U);  // three blanks
  const CorvaneTest::ScopedLocale locale("C");
  for (const char* const text : {"gr\xC3\xBC", "\xE6\xBC\xA2", "a\x1B\n\xE2\x80\xAE", "plain"}) {
    EXPECT_EQ(DisplayWidth(text), Printable(text).size()) << text;
  }
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

TEST(HideUserinfoIn, StrikesOutWhatMayBeAPasswordInEveryUrl) {
  struct Case {
    const char* text;
    const char* shown;
  };
  const Case cases[] = {
      {"", ""},
      {"HTTP/1.1 302 Found\r\nLocation: http://ada:hush@h/x@y\r\n",
       "HTTP/1.1 302 Found\r\nLocation: http://***@h/x@y\r\n"},
      {"Location: //ada:hush@h/\n", "Location: //***@h/\n"},
      {"Link: <https://a:hush@h/>, <https://b:hush@h/>\nX: http://h:80/a@b",
       "Link: <https://***@h/>, <https://***@h/>\nX: http://h:80/a@b"},
      {"Location: http://ada:hu/sh@h/\n", "Location: http://***@h/\n"},
      {"Location: http://[::1]:80/a@b\n", "Location: http://[::1]:80/a@b\n"},
      {"Refresh: 0; url=ftp://a@h/\n", "Refresh: 0; url=ftp://***@h/\n"},
  };
  for (const Case& c : cases) EXPECT_EQ(HideUserinfoIn(c.text), c.shown);
}

// A quadratic search would take hours.
TEST(HideUserinfoIn, CopesWithAllThatAServerMaySend) {
  for (const char* const piece : {"//", "//a@", "//a:b", "@//", "//a:b\n"}) {
    std::string text;
    while (text.size() < (16 << 20)) text += piece;
    EXPECT_FALSE(HideUserinfoIn(text).empty());
    EXPECT_FALSE(HideUserinfoIn(text + "@").empty());
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

TEST(UseSystemTrust, ForRedirectsTrustsNobodyOnASystemWithoutCertificates) {
  EXPECT_EQ(UseSystemTrustForRedirects({L"/a.pem", ZString()}).file, ZString(L"/a.pem"));
  EXPECT_EQ(UseSystemTrustForRedirects({ZString(), L"/certs"}).directory, ZString(L"/certs"));
  EXPECT_EQ(UseSystemTrustForRedirects({}).file, ZString(L"/dev/null"));
}

TEST(UseSystemTrust, RefusesASystemWithoutCertificates) {
  EXPECT_EQ(UseSystemTrust({L"/a.pem", ZString()}).file, ZString(L"/a.pem"));
  EXPECT_EQ(UseSystemTrust({ZString(), L"/certs"}).directory, ZString(L"/certs"));
  try {
    static_cast<void>(UseSystemTrust({}));
    FAIL();
  } catch (const Failure& failure) {
    EXPECT_EQ(failure.Code(), ExitCode::kSecurity);
    EXPECT_THAT(failure.what(), AllOf(HasSubstr("ca-certificates"), HasSubstr("--cacert"), HasSubstr("--capath")));
  }
}

}  // namespace
}  // namespace CorvaneCli
