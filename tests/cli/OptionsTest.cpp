// What the program says about command lines that are wrong.

#include <gmock/gmock.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/cli/CliTesting.h"
#include "tests/support/TempDir.h"

namespace CorvaneTest {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

constexpr int kUsage = 2;

// One line that names what is wrong and what to do, and one that names the help; nothing on standard output.
void ExpectUsageError(const std::vector<std::string>& arguments, const std::vector<std::string>& parts,
                      const std::string& help) {
  const ProgramResult result = RunCorvane(arguments);
  EXPECT_EQ(result.exitCode, kUsage) << result.Describe();
  EXPECT_EQ(result.out, "");
  EXPECT_THAT(result.err, StartsWith("corvane: "));
  EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 2) << result.Describe();
  EXPECT_THAT(result.err, testing::EndsWith("\nTry: " + help + "\n"));
  for (const std::string& part : parts) EXPECT_THAT(result.err, HasSubstr(part));
}

void ExpectGetError(std::vector<std::string> arguments, const std::vector<std::string>& parts) {
  arguments.insert(arguments.begin(), {"get", "http://127.0.0.1:1/"});
  ExpectUsageError(arguments, parts, "corvane get --help");
}

// --- commands and arguments

TEST(Usage, AsksForACommand) {
  ExpectUsageError({}, {"no command", "get, post, mirror, sync or resolve"}, "corvane --help");
  ExpectUsageError({"fetch", "http://h/"}, {"\"fetch\"", "get, post, mirror, sync or resolve"}, "corvane --help");
  ExpectUsageError({"--quiet", "get", "http://h/"}, {"--quiet", "wrong place", "\"corvane get\""},
                   "corvane get --help");
  ExpectUsageError({"--bogus", "get", "http://h/"}, {"--bogus", "not known here"}, "corvane get --help");
}

TEST(Usage, AsksForAUrl) {
  ExpectUsageError({"get"}, {"no URL", "http://example.com/file"}, "corvane get --help");
  ExpectUsageError({"post"}, {"no URL"}, "corvane post --help");
  ExpectUsageError({"post", "a", "b"}, {"\"b\"", "one too many"}, "corvane post --help");
}

TEST(Usage, TakesSeveralUrlsOnlyWhereEachHasAPlace) {
  ExpectGetError({"http://h/b", "-o", "f"}, {"-o names one file, but there are 2 URLs", "use -O or --into DIR"});
  ExpectGetError({"http://h/b", "--sha256", std::string(64, 'a')}, {"--sha256 is about one file"});
}

TEST(Usage, RefusesPlacesThatContradictEachOther) {
  ExpectGetError({"-o", "f", "-O"}, {"--output and --remote-name cannot be used together"});
  ExpectGetError({"-o", "f", "--into", "d"}, {"--output and --into cannot be used together"});
  ExpectGetError({"-o", "f", "--text"}, {"--text is for the standard output"});
  ExpectGetError({"--into", ""}, {"--into got an empty name"});
}

TEST(Usage, RefusesWhatIsNoChecksum) {
  for (const char* const sum : {"", "abc", "zz7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"}) {
    ExpectGetError({"-o", "f", "--sha256", sum}, {"no SHA-256 checksum", "64 hexadecimal digits"});
  }
}

TEST(Usage, NamesAnUnknownOptionWithoutItsValue) {
  ExpectGetError({"--password=s3cret"}, {"--password is not known"});
  ExpectGetError({"--password", "s3cret"}, {"--password is not known"});
  for (const std::vector<std::string>& arguments :
       std::vector<std::vector<std::string>>{{"get", "http://h/", "--password=s3cret"},
                                             {"get", "http://h/", "--password", "s3cret"},
                                             {"get", "http://h/", "--user", "ada:s3cret"},
                                             {"get", "http://h/", "http://ada:s3cret@h/"},
                                             {"http://ada:s3cret@h/"},
                                             {"get", "http://h/", "--timeout", "http://ada:s3cret@h/"},
                                             {"get", "http://h/", "--insecure=ada:s3cret@h"}}) {
    const ProgramResult result = RunCorvane(arguments);
    EXPECT_EQ(result.exitCode, kUsage);
    EXPECT_THAT(result.err, Not(HasSubstr("s3cret"))) << result.Describe();
  }
}

TEST(Usage, AsksForTheValueOfAnOption) {
  ExpectGetError({"--timeout"}, {"--timeout"});
  ExpectGetError({"-o"}, {"--output"});
  ExpectGetError({"-o", ""}, {"-o", "empty"});
  ExpectGetError({"--user", ""}, {"--user", "empty"});
  ExpectGetError({"--cacert", ""}, {"--cacert", "empty"});
  ExpectGetError({"--log-file", ""}, {"--log-file", "empty"});
}

TEST(Usage, RefusesASingleOptionGivenTwice) { ExpectGetError({"-o", "a", "-o", "b"}, {"--output"}); }

TEST(Usage, RefusesOptionsThatContradictEachOther) {
  const std::vector<std::vector<std::string>> pairs = {
      {"--limit", "1k", "--limit-percent", "5"}, {"--no-throttle", "--limit", "1k"},
      {"--no-throttle", "--limit-percent", "5"}, {"--no-throttle", "--low-water", "5"},
      {"--insecure", "--cacert", "x"},           {"--insecure", "--capath", "x"},
      {"--cacert", "x", "--capath", "y"},        {"-o", "f", "--resume", "--accept-http-errors"},
  };
  for (const std::vector<std::string>& pair : pairs)
    ExpectGetError(pair, {"cannot be used together", pair[0] == "-o" ? "--resume" : pair[0]});
}

TEST(Usage, RefusesOptionsThatLackAnother) {
  ExpectGetError({"--resume"}, {"--resume needs a file", "-o FILE, -O or --into DIR"});
  ExpectGetError({"--remote-time"}, {"--remote-time needs a file"});
  ExpectGetError({"-o", "-", "--resume"}, {"--resume needs a file"});
  ExpectGetError({"--low-water", "5"}, {"--low-water needs --limit"});
  ExpectGetError({"--password-file", "x"}, {"--password-file needs --user"});
}

// --- numbers

struct NumberCase {
  const char* option;
  const char* value;
  const char* what;
};

TEST(Numbers, WrongOnesAreRefusedWithTheRange) {
  const NumberCase cases[] = {
      {"--timeout", "abc", "from 0 to 2147483"},
      {"--timeout", "", "from 0 to 2147483"},
      {"--timeout", "-1", "from 0 to 2147483"},
      {"--timeout", "1.5", "from 0 to 2147483"},
      {"--timeout", "2147484", "from 0 to 2147483"},
      {"--timeout", "10s", "from 0 to 2147483"},
      {"--timeout", "99999999999999999999", "from 0 to 2147483"},
      {"--limit", "0", "from 1024"},
      {"--limit", "1023", "from 1024"},
      {"--limit", "4G", "to 4294967295"},
      {"--limit", "4294967296", "to 4294967295"},
      {"--limit", "18014398509481984k", "to 4294967295"},
      {"--limit", "fast", "from 1024"},
      {"--limit", "-5k", "from 1024"},
      {"--limit", "1.5M", "from 1024"},
      {"--limit", "", "from 1024"},
      {"--redirects", "-1", "from 0 to 10000"},
      {"--redirects", "10001", "from 0 to 10000"},
      {"--retries", "many", "from 0 to 1000000"},
      {"--retries", "1000001", "from 0 to 1000000"},
      {"--retry-wait", "0.5", "from 0 to 86400"},
      {"--retry-wait", "86401", "from 0 to 86400"},
      {"--limit-percent", "0", "from 1 to 100"},
      {"--limit-percent", "101", "from 1 to 100"},
      {"--limit-percent", "50%", "from 1 to 100"},
  };
  for (const NumberCase& c : cases) {
    ExpectGetError({c.option, c.value}, {c.option, '"' + std::string(c.value) + '"', c.what});
  }
  for (const char* const mark : {"0", "4294967296", "x"}) {
    ExpectGetError({"--limit-percent", "5", "--low-water", mark}, {"--low-water", "from 1 to 4294967295"});
  }
}

// The server refuses the connection, so that nothing but the number could have been the reason for another status.
TEST(Numbers, RightOnesAreTaken) {
  const std::vector<std::vector<std::string>> cases = {
      {"--timeout", "0"},
      {"--timeout", "2147483"},
      {"--timeout=5"},
      {"--limit", "1024"},
      {"--limit", "4294967295"},
      {"--limit", "1k"},
      {"--limit", "3G"},
      {"--limit-percent", "1"},
      {"--limit-percent", "100"},
      {"--limit", "1k", "--low-water", "1"},
      {"--limit-percent", "50", "--low-water", "2M"},
      {"--no-throttle"},
      {"--redirects", "0"},
      {"--redirects", "10000"},
      {"--retry-wait", "86400"},
      {"--user-agent", ""},
  };
  for (std::vector<std::string> arguments : cases) {
    arguments.insert(arguments.begin(), {"get", RefusedUrl(), "--retries", "0"});
    const ProgramResult result = RunCorvane(arguments);
    EXPECT_EQ(result.exitCode, 1) << testing::PrintToString(arguments) << result.Describe();
  }
}

// --- options in all their spellings

TEST(Options, AreTakenOneByOneTogetherAndWithAnEqualsSign) {
  const TempDir folder;
  const std::string log = folder / "log";
  const std::string file = folder / "file";
  const std::vector<std::vector<std::string>> cases = {
      {"-o", file, "-q"}, {"-qo", file}, {"-qo" + file}, {"-q", "--output=" + file}, {"--quiet", "--output", file},
  };
  for (std::vector<std::string> arguments : cases) {
    std::filesystem::remove(log);
    arguments.insert(arguments.begin(), {"get", "--retries=0", RefusedUrl(), "--log-file", log});
    const ProgramResult result = RunCorvane(arguments);
    EXPECT_EQ(result.exitCode, 1) << testing::PrintToString(arguments) << result.Describe();
    EXPECT_TRUE(std::filesystem::exists(log)) << testing::PrintToString(arguments);
  }
}

TEST(Options, MayHaveTheNameOfACommandForAValue) {
  const ProgramResult result = RunCorvane({"post", RefusedUrl(), "--data", "get", "--user-agent", "mirror"});
  EXPECT_EQ(result.exitCode, 1) << result.Describe();
}

// --- URLs

TEST(Urls, BadOnesAreRefusedWithReasonAndRemedy) {
  struct Case {
    const char* url;
    const char* reason;
  };
  const Case cases[] = {
      {"", "empty"},
      {"http://", "malformed"},
      {"http://h:99999999/", "malformed"},
      {"http://h:abc/", "malformed"},
      {"http://a b/", "malformed"},
      {"http://h/a b", "malformed"},
      {"http://h/\t", "malformed"},
      {"http://[::1/", "malformed"},
      {"file:///etc/passwd", "\"file\" is not supported; use http, https or ftp"},
      {"ftps://h/x", "\"ftps\" is not supported; use http, https or ftp"},
      {"gopher://h/", "\"gopher\" is not supported"},
      {"http://ada:s3cret@h/", "--user NAME"},
      {"http://ada@h/", "--user NAME"},
      {"ada:s3cret@h/", "--user NAME"},
      {"http://h/\xFF", "LC_ALL=C.UTF-8"},
  };
  for (const Case& c : cases) {
    ExpectUsageError({"get", c.url}, {"cannot use the URL", c.reason}, "corvane get --help");
  }
  ExpectUsageError({"post", "ftp://h/", "--data", "x"}, {"cannot post to", "http or https"}, "corvane post --help");
}

TEST(Urls, OneThatTheLocaleCannotExpressIsRefused) {
  ProgramOptions options;
  options.environment["LC_ALL"] = "C";
  const ProgramResult result = RunCorvane({"get", "http://h/gr\xC3\xBC\xC3\x9F"}, options);
  EXPECT_EQ(result.exitCode, kUsage);
  EXPECT_THAT(result.err, AllOf(HasSubstr("http://h/gr\\xC3\\xBC\\xC3\\x9F"), HasSubstr("LC_ALL=C.UTF-8"),
                                HasSubstr("percent-encode")));
}

}  // namespace
}  // namespace CorvaneTest
