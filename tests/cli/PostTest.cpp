// corvane post.

#include <gmock/gmock.h>
#include <signal.h>

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tests/cli/CliTesting.h"
#include "tests/support/Gate.h"
#include "tests/support/TempDir.h"

namespace CorvaneTest {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

// The body that arrives when the program is run with these arguments.
std::string Posted(std::vector<std::string> arguments, const ProgramOptions& options = {}) {
  const ScriptedServer server(KeepAlive(Content("thanks")));
  arguments.insert(arguments.begin(), {"post", server.Url("/form")});
  const ProgramResult result = RunCorvane(arguments, options);
  EXPECT_EQ(result.exitCode, 0) << result.Describe();
  EXPECT_EQ(result.out, "thanks");
  EXPECT_EQ(result.err, "");
  if (server.Requests().size() != 1) {
    ADD_FAILURE() << server.Requests().size() << " requests";
    return "";
  }
  EXPECT_EQ(server.Requests()[0].method, "POST");
  EXPECT_EQ(server.Requests()[0].Header("Content-Type"), "application/x-www-form-urlencoded");
  return server.Requests()[0].body;
}

// --- what is sent

TEST(PostFields, AreSentInTheirOrderWithRepetitions) {
  EXPECT_EQ(Posted({"--field", "b=2"}), "b=2");
  EXPECT_EQ(Posted({"--field", "b=2", "--field", "a=1", "--field", "b=3"}), "b=2&a=1&b=3");
}

TEST(PostFields, AreEncodedSoThatNothingIsLost) {
  EXPECT_EQ(Posted({"--field", "note=a & b=c%+\xC3\xBC"}), "note=a%20%26%20b%3Dc%25%2B%C3%BC");
  EXPECT_EQ(Posted({"--field", "a name="}), "a%20name=");
  EXPECT_EQ(Posted({"--field", "="}), "=");
}

TEST(PostData, IsSentAsItIs) {
  for (const char* const data : {"a=1&b=2", "", "{}", "[1, 2]", "[[1]]", "{\"a\": [\"b\"]}", "-x", "--file",
                                 "\"quoted\"", "'a'", "a b\nc\xC3\xBC", "%2", "\\n"}) {
    EXPECT_EQ(Posted({"--data", data}), data);
  }
}

TEST(PostFields, TakeBracketsAndCommasAsTheyAre) {
  EXPECT_EQ(Posted({"--field", "[a,b]=[1,2]", "--field", "c={}"}), "%5Ba%2Cb%5D=%5B1%2C2%5D&c=%7B%7D");
}

TEST(PostFile, IsSentByteByByte) {
  const TempDir folder;
  const std::string bytes = MakePattern(200000);
  WriteFile(folder / "input", bytes);
  EXPECT_TRUE(Posted({"--file", folder / "input"}) == bytes);
  WriteFile(folder / "empty", "");
  EXPECT_EQ(Posted({"--file", folder / "empty"}), "");
}

TEST(PostFile, IsReadFromAPipeToItsEnd) {
  ProgramOptions options;
  options.input = MakePattern(200000);
  EXPECT_TRUE(Posted({"--file", "/dev/stdin"}, options) == options.input);
}

// --- the answer

TEST(PostAnswer, GoesIntoAFileByteByByteForEachKindOfContent) {
  const std::string answer = MakePattern(100000);
  const TempDir folder;
  WriteFile(folder / "input", "a=1");
  for (const std::vector<std::string>& content :
       std::vector<std::vector<std::string>>{{"--field", "a=1"}, {"--data", "a=1"}, {"--file", folder / "input"}}) {
    const ScriptedServer server(KeepAlive(Content(answer)));
    WriteFile(folder / "f", "old");
    const ProgramResult result = RunCorvane({"post", server.Url(), content[0], content[1], "-o", folder / "f"});
    EXPECT_EQ(result.exitCode, 0) << result.Describe();
    EXPECT_EQ(result.out, "");
    EXPECT_TRUE(ReadFile(folder / "f") == answer);
    EXPECT_EQ(server.Requests().at(0).body, "a=1");
    EXPECT_THAT(NamesIn(folder.Path()), ElementsAre("f", "input"));
  }
}

TEST(PostAnswer, IsTheBytesThatCameAndTextWhenAskedFor) {
  const TempDir folder;
  WriteFile(folder / "input", "x");
  const ScriptedServer server(KeepAlive(Content("a\xFF")));
  for (const std::vector<std::string>& content :
       std::vector<std::vector<std::string>>{{"--data", "x"}, {"--file", folder / "input"}}) {
    EXPECT_EQ(RunCorvane({"post", server.Url(), content[0], content[1]}).out, "a\xFF");
    const ProgramResult result = RunCorvane({"post", server.Url(), content[0], content[1], "--text"});
    EXPECT_EQ(result.out, "a\xEF\xBF\xBD");
    EXPECT_THAT(OnlyErrorLine(result), HasSubstr("leave out --text for binary data"));
  }
}

TEST(PostAnswer, IsInTheJsonObject) {
  const TempDir folder;
  WriteFile(folder / "input", "a=1");
  for (const std::vector<std::string>& content :
       std::vector<std::vector<std::string>>{{"--field", "a=1"}, {"--file", folder / "input"}}) {
    const ScriptedServer server(KeepAlive(Content("thanks")));
    const ProgramResult result = RunCorvane({"post", server.Url(), content[0], content[1], "--json"});
    EXPECT_EQ(result.exitCode, 0) << result.Describe();
    const nlohmann::json report = ParseReport(result);
    EXPECT_EQ(report["operation"], "post");
    EXPECT_EQ(report["status"], "0x00010000");
    EXPECT_EQ(report["downloadSize"], 6);
    EXPECT_EQ(report["body"], "thanks");
  }
}

// --- failures

TEST(PostFailure, RefusedPostPrintsNothing) {
  const ScriptedServer server(KeepAlive(Status(500, "oops")));
  const TempDir folder;
  WriteFile(folder / "input", "a=1");
  for (const std::vector<std::string>& content :
       std::vector<std::vector<std::string>>{{"--field", "a=1"}, {"--file", folder / "input"}}) {
    const ProgramResult result = RunCorvane({"post", server.Url(), content[0], content[1]});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.out, "");
    EXPECT_THAT(OnlyErrorLine(result),
                AllOf(HasSubstr("cannot post to " + server.Url()), HasSubstr("500 Internal Server Error")));
    const nlohmann::json report = ParseReport(RunCorvane({"post", server.Url(), content[0], content[1], "--json"}));
    EXPECT_EQ(report["status"], "0x8001138b");
    EXPECT_EQ(report["body"], "oops");
  }
}

TEST(PostFailure, AcceptedErrorIsASuccess) {
  const ScriptedServer server(KeepAlive(Status(422, "oops")));
  const TempDir folder;
  EXPECT_EQ(RunCorvane({"post", server.Url(), "--data", "x", "--accept-http-errors"}).out, "oops");
  EXPECT_EQ(RunCorvane({"post", server.Url(), "--data", "x", "--accept-http-errors", "-o", folder / "f"}).exitCode, 0);
  EXPECT_EQ(ReadFile(folder / "f"), "oops");
}

TEST(PostFailure, LeavesAnExistingFileAsItWas) {
  const ScriptedServer server(KeepAlive(Status(500, "oops")));
  const TempDir folder;
  WriteFile(folder / "f", "old");
  ProgramResult result = RunCorvane({"post", server.Url(), "--data", "x", "-o", folder / "f"});
  EXPECT_EQ(result.exitCode, 1) << result.Describe();
  EXPECT_EQ(ReadFile(folder / "f"), "old");
  EXPECT_EQ(ReadFile(folder / "f.part"), "oops");  // the answer may tell why
  EXPECT_THAT(result.err,
              AllOf(HasSubstr("4 B are kept in " + (folder / "f.part").string()), testing::Not(HasSubstr("--resume"))));
  std::filesystem::remove(folder / "f.part");
  result = RunCorvane({"post", RefusedUrl(), "--data", "x", "-o", folder / "f"});
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_EQ(ReadFile(folder / "f"), "old");
  EXPECT_THAT(NamesIn(folder.Path()), ElementsAre("f"));
}

TEST(PostFailure, UnreadableInputIsRefusedBeforeAnyRequest) {
  const ScriptedServer server(KeepAlive(Content("thanks")));
  const TempDir folder;
  for (const std::string& path : {(folder / "missing").string(), folder.Path().string()}) {
    const ProgramResult result = RunCorvane({"post", server.Url(), "--file", path, "-o", folder / "f"});
    EXPECT_EQ(result.exitCode, 2) << result.Describe();
    EXPECT_THAT(OnlyErrorLine(result), AllOf(HasSubstr("cannot read " + path), HasSubstr("give --file")));
  }
  EXPECT_THAT(server.Requests(), IsEmpty());
  EXPECT_THAT(NamesIn(folder.Path()), IsEmpty());
}

TEST(PostUsage, NeedsExactlyOneContent) {
  const std::vector<std::vector<std::string>> cases = {{},
                                                       {"--field", "a=1", "--data", "x"},
                                                       {"--data", "x", "--file", "y"},
                                                       {"--field", "a=1", "--file", "y"},
                                                       {"--field", "no equals sign"},
                                                       {"--file", ""},
                                                       {"--data", "x", "--resume", "-o", "f"}};
  for (std::vector<std::string> arguments : cases) {
    arguments.insert(arguments.begin(), {"post", "http://127.0.0.1:1/"});
    const ProgramResult result = RunCorvane(arguments);
    EXPECT_EQ(result.exitCode, 2) << result.Describe();
    EXPECT_THAT(result.err, testing::EndsWith("Try: corvane post --help\n"));
  }
}

TEST(PostUsage, TextThatTheLocaleCannotExpressIsRefused) {
  ProgramOptions options;
  options.environment["LC_ALL"] = "C";
  for (const char* const option : {"--data", "--field"}) {
    const ProgramResult result = RunCorvane({"post", RefusedUrl(), option, "a=\xC3\xBC"}, options);
    EXPECT_EQ(result.exitCode, 2) << result.Describe();
    EXPECT_THAT(result.err, AllOf(HasSubstr(option), HasSubstr("LC_ALL=C.UTF-8")));
  }
}

// --- interruption

TEST(PostInterrupt, StopsAWaitForTheAnswer) {
  Gate asked;
  const ScriptedServer server([&](Connection& peer) {
    peer.ReadRequest();
    asked.Open();
    peer.WaitUntilStopped();
  });
  const auto program = StartCorvane({"post", server.Url(), "--data", "x"});
  ASSERT_TRUE(asked.Wait());
  program->Kill(SIGINT);
  const auto result = program->Wait();
  ASSERT_TRUE(result.has_value());
  EXPECT_EQ(result->exitCode, 130) << result->Describe();
}

TEST(PostInterrupt, StopsAWaitForTheInput) {
  const ScriptedServer server(KeepAlive(Content("thanks")));
  const TempDir folder;
  ProgramOptions options;
  options.keepInputOpen = true;
  const auto program = StartCorvane({"post", server.Url(), "--file", "/dev/stdin", "-v"}, options);
  ASSERT_TRUE(program->WaitForErrorOutput(": post "));
  program->Kill(SIGINT);
  const auto result = program->Wait();
  ASSERT_TRUE(result.has_value());
  EXPECT_EQ(result->exitCode, 130) << result->Describe();
  EXPECT_THAT(server.Requests(), IsEmpty());
}

}  // namespace
}  // namespace CorvaneTest
