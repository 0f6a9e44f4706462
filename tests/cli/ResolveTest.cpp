// corvane resolve.

#include <gmock/gmock.h>

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tests/cli/CliTesting.h"
#include "tests/support/TempDir.h"

namespace CorvaneTest {
namespace {

using testing::AllOf;
using testing::HasSubstr;

TEST(Resolve, PrintsNameAndAddresses) {
  const ProgramResult result = RunCorvane({"resolve", "localhost"});
  EXPECT_EQ(result.exitCode, 0) << result.Describe();
  EXPECT_THAT(result.out, AllOf(testing::StartsWith("name localhost"), HasSubstr("\naddress 127.0.0.1\n")));
  EXPECT_EQ(result.err, "");
}

TEST(Resolve, TakesAnAddressAsAName) {
  EXPECT_EQ(RunCorvane({"resolve", "127.0.0.1"}).out, "name 127.0.0.1\naddress 127.0.0.1\n");
}

TEST(Resolve, TakesAnAddressOfVersion6WithAndWithoutBrackets) {
  EXPECT_EQ(RunCorvane({"resolve", "::1"}).out, "name ::1\naddress ::1\n");
  EXPECT_EQ(RunCorvane({"resolve", "[::1]"}).out, "name ::1\naddress ::1\n");
  const nlohmann::json report = ParseReport(RunCorvane({"resolve", "[2001:DB8:0::1]", "--json"}));
  EXPECT_EQ(report["addresses"], nlohmann::json::array({"2001:db8::1"}));
  EXPECT_EQ(report["error"], nullptr);
}

TEST(Resolve, FindsNoAddressInBracketsThatHoldNone) {
  for (const char* const host : {"[", "[]", "[localhost]", "[127.0.0.1]", "[::1", "::1]", "[:]"}) {
    EXPECT_EQ(RunCorvane({"resolve", host}).exitCode, 1) << host;
  }
}

TEST(Resolve, DescribesTheHostInOneObject) {
  const nlohmann::json report = ParseReport(RunCorvane({"resolve", "127.0.0.1", "--json"}));
  EXPECT_EQ(report["operation"], "resolve");
  EXPECT_EQ(report["name"], "127.0.0.1");
  EXPECT_EQ(report["aliases"], nlohmann::json::array());
  EXPECT_EQ(report["addresses"], nlohmann::json::array({"127.0.0.1"}));
  EXPECT_EQ(report["error"], nullptr);
}

TEST(Resolve, NamesAHostThatIsNotKnown) {
  const ProgramResult result = RunCorvane({"resolve", "no-such-host.invalid", "--json"});
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_EQ(OnlyErrorLine(result),
            "corvane: cannot resolve no-such-host.invalid: no address was found; check the name and the network");
  const nlohmann::json report = ParseReport(result);
  EXPECT_THAT(report["error"].get<std::string>(), HasSubstr("no address was found"));
  EXPECT_EQ(report["addresses"], nlohmann::json::array());
}

TEST(Resolve, RefusesWhatIsNoHost) {
  for (const char* const host : {"", "http://h/", "ada:s3cret@h", "a b", "h/x", "\xFF"}) {
    const ProgramResult result = RunCorvane({"resolve", host});
    EXPECT_EQ(result.exitCode, 2) << host << result.Describe();
    EXPECT_THAT(result.err,
                AllOf(testing::EndsWith("Try: corvane resolve --help\n"), testing::Not(HasSubstr("s3cret"))));
  }
  EXPECT_EQ(RunCorvane({"resolve"}).exitCode, 2);
  EXPECT_EQ(RunCorvane({"resolve", "a", "b"}).exitCode, 2);
}

TEST(Resolve, ReportsAnOutputThatTakesNothing) {
  const ProgramResult result = RunShell("exec \"$0\" resolve localhost > /dev/full");
  EXPECT_EQ(result.exitCode, 3) << result.Describe();
  EXPECT_THAT(OnlyErrorLine(result), HasSubstr("No space left on device"));
}

TEST(Resolve, GoesIntoTheLog) {
  const TempDir folder;
  EXPECT_EQ(RunCorvane({"resolve", "no-such-host.invalid", "--log-file", folder / "log"}).exitCode, 1);
  EXPECT_THAT(ReadFile(folder / "log"),
              AllOf(HasSubstr("resolve no-such-host.invalid"), HasSubstr("[error] cannot resolve")));
}

}  // namespace
}  // namespace CorvaneTest
