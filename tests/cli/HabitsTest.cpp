// What the program says to those who type what other programs understand, or who mistype.

#include <gmock/gmock.h>

#include <algorithm>
#include <iterator>
#include <regex>
#include <set>
#include <string>
#include <vector>

#include "tests/cli/CliTesting.h"

namespace CorvaneTest {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using Words = std::vector<std::string>;

constexpr const char* kUrl = "http://127.0.0.1:1/f";

std::set<std::string> LongOptionsIn(const std::string& text) {
  const std::regex expression("--[a-z][a-z0-9-]+");
  return {std::sregex_token_iterator(text.begin(), text.end(), expression), std::sregex_token_iterator()};
}

std::set<std::string> AllOptions() {
  std::set<std::string> all;
  for (const char* const command : {"get", "post", "mirror", "sync", "resolve"}) {
    all.merge(LongOptionsIn(RunCorvane({command, "--help-all"}).out));
  }
  return all;
}

// The first line of what is said about a command line that is refused.
std::string Refusal(const Words& arguments) {
  const ProgramResult result = RunCorvane(arguments);
  EXPECT_EQ(result.exitCode, 2) << testing::PrintToString(arguments) << result.Describe();
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 2) << result.Describe();
  EXPECT_THAT(result.err, testing::StartsWith("corvane: "));
  return result.err.substr(0, result.err.find('\n'));
}

struct HabitCase {
  Words arguments;  // with the command; the URL comes behind it
  std::string remedy;
};

const std::vector<HabitCase>& HabitCases() {  // NOLINT(readability-function-size): a table
  static const std::vector<HabitCase> cases = {
      {{"get", "-O", "-"}, "leave out -O"},
      {{"get", "-qO-"}, "leave out -O"},
      {{"get", "-O-"}, "leave out -O"},
      {{"get", "-O", "f.iso"}, "give -o \"f.iso\""},
      {{"get", "-qO", "f.iso"}, "give -o \"f.iso\""},
      {{"post", "-O"}, "-o FILE"},
      {{"mirror", "-O", "d"}, "the directory stands behind the URL"},
      {{"sync", "-o", "d"}, "the directory stands behind the URL"},
      {{"get", "--output-document=s3cret"}, "-o FILE"},
      {{"get", "--output-document", "f"}, "-o FILE"},
      {{"get", "-P", "d"}, "--into DIR"},
      {{"get", "--directory-prefix=d"}, "--into DIR"},
      {{"mirror", "-P", "d"}, "the directory stands behind the URL"},
      {{"sync", "-P", "d"}, "the directory stands behind the URL"},
      {{"get", "-c"}, "--resume"},
      {{"get", "-C", "-"}, "--resume"},
      {{"get", "-C-"}, "--resume"},
      {{"get", "--continue"}, "--resume"},
      {{"get", "--continue-at", "-"}, "--resume"},
      {{"mirror", "-c", "d"}, "--resume"},
      {{"sync", "-c", "d"}, "the same command continues"},
      {{"sync", "--resume", "d"}, "the same command continues"},
      {{"get", "-N"}, "corvane sync URL DIR"},
      {{"mirror", "-N", "d"}, "--resume"},
      {{"sync", "-N", "d"}, "only what has changed is fetched"},
      {{"get", "-r"}, "corvane sync URL DIR"},
      {{"get", "--recursive"}, "corvane sync URL DIR"},
      {{"mirror", "-r", "d"}, "corvane sync URL DIR"},
      {{"sync", "-r", "d"}, "leave it out"},
      {{"get", "-l", "2"}, "--depth N"},
      {{"get", "-A", "x"}, "--user-agent TEXT"},
      {{"post", "-A", "x"}, "--user-agent TEXT"},
      {{"mirror", "-A", "x", "d"}, "--include GLOB"},
      {{"sync", "-A", "x", "d"}, "--include GLOB"},
      {{"sync", "--reject", "x", "d"}, "--exclude GLOB"},
      {{"sync", "-n", "d"}, "--plan"},
      {{"get", "-L"}, "redirections are followed"},
      {{"get", "-Lo", "f"}, "redirections are followed"},
      {{"post", "--location"}, "redirections are followed"},
      {{"sync", "-L", "d"}, "redirections are followed"},
      {{"mirror", "-L", "d"}, "a mirror follows no redirections"},
      {{"get", "-H", "A: s3cret"}, "--header 'NAME: VALUE'"},
      {{"post", "-HA:s3cret"}, "--header-file FILE"},
      {{"mirror", "-H", "A: s3cret", "d"}, "corvane sync URL DIR"},
      {{"get", "-d", "s3cret"}, "corvane post URL"},
      {{"post", "-d", "s3cret"}, "--data TEXT"},
      {{"post", "--data-binary", "@f"}, "--file PATH"},
      {{"get", "-F", "a=s3cret"}, "corvane post URL"},
      {{"post", "-F", "a=s3cret"}, "--field NAME=VALUE"},
      {{"get", "-X", "POST"}, "corvane post URL"},
      {{"post", "-X", "POST"}, "leave it out"},
      {{"get", "-I"}, "-v"},
      {{"get", "-u", "ada:s3cret"}, "--user NAME"},
      {{"get", "-uada:s3cret"}, "--user NAME"},
      {{"mirror", "-u", "ada:s3cret", "d"}, "--password-file FILE"},
      {{"sync", "--http-password=s3cret", "d"}, "--password-file FILE"},
      {{"get", "-k"}, "--insecure"},
      {{"sync", "--no-check-certificate", "d"}, "--insecure"},
      {{"get", "-x", "http://ada:s3cret@h/"}, "http_proxy"},
      {{"get", "--proxy=http://ada:s3cret@h/"}, "http_proxy"},
      {{"get", "-m", "5"}, "--timeout S"},
      {{"get", "-t", "5"}, "--retries N"},
      {{"get", "--limit-rate=5k"}, "--limit RATE"},
      {{"get", "-#"}, "leave it out"},
      {{"get", "-s"}, "-q"},
      {{"get", "-fsSL"}, "leave it out"},
      {{"post", "--json", "{\"a\":1}"}, "--data TEXT --type application/json"},
  };
  return cases;
}

TEST(Habits, OfOtherProgramsGetARemedyInOneLine) {
  const std::set<std::string> known = AllOptions();
  for (const HabitCase& c : HabitCases()) {
    Words arguments = c.arguments;
    arguments.insert(arguments.begin() + (c.arguments[1] == "--json" ? 1 : static_cast<long>(arguments.size())), kUrl);
    const std::string refusal = Refusal(arguments);
    const std::string name = testing::PrintToString(arguments);
    EXPECT_THAT(refusal, AllOf(HasSubstr(c.remedy), Not(HasSubstr("s3cret")))) << name;
    // What is said to be given has to be there; only what was typed is not.
    std::set<std::string> named = LongOptionsIn(refusal.substr(refusal.find(';')));
    for (const std::string& option : named) EXPECT_EQ(known.count(option), 1U) << option << " in: " << refusal;
  }
}

TEST(Habits, ThatAreOursAreTakenAsTheyAre) {
  const std::vector<Words> cases = {
      {"get", kUrl, "-O", "--retries", "0"},  {"get", kUrl, "-o", "/dev/null", "--retries", "0"},
      {"get", "-qO", kUrl, "--retries", "0"}, {"get", "-O", "127.0.0.1:1/f", kUrl, "--retries", "0"},
      {"get", "-v", kUrl, "--retries", "0"},
  };
  for (const Words& arguments : cases) {
    const ProgramResult result = RunCorvane(arguments);
    EXPECT_EQ(result.exitCode, 1) << testing::PrintToString(arguments) << result.Describe();
  }
}

// --- slips

struct SlipCase {
  Words arguments;
  std::string meant;
};

TEST(Slips, GetASuggestion) {
  const SlipCase cases[] = {
      {{"get", kUrl, "--resum"}, "--resum is not known here; did you mean --resume?"},
      {{"get", kUrl, "--resmue"}, "did you mean --resume?"},
      {{"get", kUrl, "-resume"}, "the option -resume is not known here; did you mean --resume?"},
      {{"get", kUrl, "--retry-w=5"}, "did you mean --retry-wait?"},
      {{"get", kUrl, "--outptu", "s3cret"}, "did you mean --output?"},
      {{"sync", kUrl, "d", "--includes=*"}, "did you mean --include?"},
      {{"sync", kUrl, "d", "--dele"}, "did you mean --delete?"},
      {{"mirror", kUrl, "d", "--size"}, "did you mean --sizes?"},
      {{"resolve", "h", "--jsn"}, "did you mean --json?"},
      {{"get", kUrl, "--include", "x"}, "it is an option of corvane sync"},
      {{"get", kUrl, "--field", "x=y"}, "it is an option of corvane post"},
      {{"mirror", kUrl, "d", "--redirects=1"}, "it is an option of corvane get, post and sync"},
      {{"get", kUrl, "--xyzzy"}, "--xyzzy is not known here; see the help"},
      {{"get", kUrl, "-y"}, "leave it out"},
      {{"get", kUrl, "-Z"}, "-Z is not known here; see the help"},
      {{"--resume", "get", kUrl}, "put it behind \"corvane get\""},
      {{"--resume", kUrl}, "begin with a command, such as \"corvane get\""},
      {{"gte", kUrl}, "did you mean \"corvane get\"?"},
      {{"miror", kUrl}, "did you mean \"corvane mirror\"?"},
      {{"pos", kUrl}, "did you mean \"corvane post\"?"},
      {{"download", kUrl}, "did you mean \"corvane get\"?"},
      {{"rsync", kUrl}, "did you mean \"corvane sync\"?"},
      {{"dig", "h"}, "did you mean \"corvane resolve\"?"},
      {{"help", "get"}, "corvane COMMAND --help"},
      {{"http://ada:s3cret@h/"}, "put \"get\" in front of a URL"},
      {{"xyzzy"}, "the command \"xyzzy\" is not known; use get, post, mirror, sync or resolve"},
  };
  for (const SlipCase& c : cases) {
    EXPECT_THAT(Refusal(c.arguments), AllOf(HasSubstr(c.meant), Not(HasSubstr("s3cret"))))
        << testing::PrintToString(c.arguments);
  }
}

}  // namespace
}  // namespace CorvaneTest
