// corvane get: what failed for a reason that may pass is tried again, and goes on where it ended.

#include <gmock/gmock.h>
#include <signal.h>

#include <atomic>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

#include "tests/cli/CliTesting.h"
#include "tests/cli/VersionedFile.h"
#include "tests/support/ScriptedFtpServer.h"
#include "tests/support/TempDir.h"

namespace CorvaneTest {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

VersionedFile::Version Tagged(std::string content, const std::string& tag) {
  return {std::move(content), {{"ETag", '"' + tag + '"'}}};
}

// The first answers with these statuses, then the content.
Responder FailingAtFirst(std::vector<int> statuses, const std::vector<HeaderField>& headers = {}) {
  auto answers = std::make_shared<std::vector<int>>(std::move(statuses));
  auto mutex = std::make_shared<std::mutex>();
  return [=](Connection& peer, const Request& request) {
    int status = 200;
    {
      const std::lock_guard guard(*mutex);
      if (!answers->empty()) {
        status = answers->front();
        answers->erase(answers->begin());
      }
    }
    (status == 200 ? Content("content") : Status(status, "busy", headers))(peer, request);
  };
}

const std::vector<std::string> kNoWait = {"--retry-wait", "0"};

ProgramResult Get(const std::string& url, std::vector<std::string> more) {
  std::vector<std::string> arguments = {"get", url};
  arguments.insert(arguments.end(), more.begin(), more.end());
  arguments.insert(arguments.end(), kNoWait.begin(), kNoWait.end());
  return RunCorvane(arguments);
}

TEST(Retry, MakesGoodWhatMayPass) {
  for (const int status : {408, 429, 500, 502, 503, 504}) {
    const ScriptedServer server(KeepAlive(FailingAtFirst({status, status, status})));
    const TempDir folder;
    const ProgramResult result = Get(server.Url(), {"-o", folder / "f", "--json"});
    EXPECT_EQ(result.exitCode, 0) << result.Describe();
    EXPECT_EQ(ReadFile(folder / "f"), "content");
    EXPECT_EQ(server.Requests().size(), 4U);
    const nlohmann::json report = ParseReport(result);
    EXPECT_EQ(report["attempts"], 4);
    EXPECT_EQ(report["httpStatus"], 200);
    EXPECT_EQ(report["exitCode"], 0);
  }
}

TEST(Retry, SaysWhyWhenAndWhichOne) {
  const ScriptedServer server(KeepAlive(FailingAtFirst({503, 502})));
  const ProgramResult result = Get(server.Url(), {});
  EXPECT_EQ(result.exitCode, 0) << result.Describe();
  EXPECT_EQ(result.out, "content");
  EXPECT_EQ(result.err,
            "corvane: the server answered 503 Service Unavailable; trying again in 0 s (1 of 3)\n"
            "corvane: the server answered 502 Bad Gateway; trying again in 0 s (2 of 3)\n");
  const ScriptedServer quiet(KeepAlive(FailingAtFirst({503})));
  EXPECT_EQ(Get(quiet.Url(), {"-q"}).err, "");
}

TEST(Retry, NeverRepeatsWhatCannotGetBetter) {
  for (const int status : {400, 401, 403, 404, 410, 416, 501, 505}) {
    const ScriptedServer server(KeepAlive(Status(status)));
    EXPECT_NE(Get(server.Url(), {}).exitCode, 0);
    EXPECT_EQ(server.Requests().size(), 1U) << status;
  }
}

TEST(Retry, EndsAfterAsManyAsAreAllowed) {
  for (const auto& [option, requests] :
       std::vector<std::pair<std::string, std::size_t>>{{"0", 1}, {"1", 2}, {"5", 6}}) {
    const ScriptedServer server(KeepAlive(Status(503)));
    const ProgramResult result = Get(server.Url(), {"--retries", option, "-q"});
    EXPECT_EQ(result.exitCode, 1) << result.Describe();
    EXPECT_EQ(server.Requests().size(), requests);
    if (requests > 1) {
      EXPECT_THAT(OnlyErrorLine(result), HasSubstr("(after " + std::to_string(requests) + " tries)"));
    }
  }
  const ScriptedServer server(KeepAlive(Status(503)));
  EXPECT_EQ(Get(server.Url(), {}).exitCode, 1);
  EXPECT_EQ(server.Requests().size(), 4U);  // without the option
}

TEST(Retry, ContinuesAFileWhereTheConnectionBroke) {
  const std::string content = MakePattern(5000);
  VersionedFile file(Tagged(content, "v1"));
  file.BreakAfter({1000, 500, 32});
  const ScriptedServer server(KeepAlive(file.Serve()));
  const TempDir folder;
  const ProgramResult result = Get(server.Url(), {"-o", folder / "f"});
  EXPECT_EQ(result.exitCode, 0) << result.Describe();
  EXPECT_TRUE(ReadFile(folder / "f") == content);
  EXPECT_THAT(result.err, HasSubstr("trying again from 1000 B on in 0 s (1 of 3)"));
  ASSERT_EQ(server.Requests().size(), 4U);
  EXPECT_EQ(server.Requests()[1].Header("Range"), "bytes=968-");
  EXPECT_EQ(server.Requests()[1].Header("If-Range"), "\"v1\"");
  EXPECT_EQ(server.Requests()[2].Header("Range"), "bytes=1436-");
}

// The program may ask again before the thread of the first answer goes on, so that the second one brings the change along.
Responder ChangedBeforeTheSecondAnswer(VersionedFile& file, VersionedFile::Version next) {
  return [&file, next = std::move(next), asked = std::make_shared<std::atomic<int>>(0)](Connection& peer,
                                                                                        const Request& request) {
    if (asked->fetch_add(1) == 1) file.Change(next);
    file.Serve()(peer, request);
  };
}

TEST(Retry, MixesNothingWhenTheFileChangesMeanwhile) {
  const std::string changed = MakePattern(6000, 2);
  VersionedFile file(Tagged(MakePattern(5000, 1), "v1"));
  file.BreakAfter({1000});
  const ScriptedServer server(KeepAlive(ChangedBeforeTheSecondAnswer(file, Tagged(changed, "v2"))));
  const TempDir folder;
  const ProgramResult result = Get(server.Url(), {"-o", folder / "f"});
  EXPECT_EQ(result.exitCode, 0) << result.Describe();
  EXPECT_TRUE(ReadFile(folder / "f") == changed);
  EXPECT_THAT(result.err, HasSubstr("beginning anew"));
}

TEST(Retry, ContinuesAStreamWithoutABytesLossOrRepetition) {
  const std::string content = MakePattern(5000);
  VersionedFile file(Tagged(content, "v1"));
  file.BreakAfter({1000, 500});
  const ScriptedServer server(KeepAlive(file.Serve()));
  const ProgramResult result = Get(server.Url(), {});
  EXPECT_EQ(result.exitCode, 0) << result.Describe();
  EXPECT_TRUE(result.out == content);
  EXPECT_EQ(server.Requests().at(1).Header("Range"), "bytes=968-");
}

TEST(Retry, EndsAStreamThatNothingProvesTheRestOf) {
  const std::string content = MakePattern(5000);
  VersionedFile::Version careless = Tagged(MakePattern(5000, 2), "v1");
  careless.obeysIfRange = false;
  const std::pair<VersionedFile::Version, VersionedFile::Version> changes[] = {
      {{content, {}}, {content, {}}},                               // no validator
      {Tagged(content, "v1"), Tagged(MakePattern(5000, 2), "v2")},  // another version
      {Tagged(content, "v1"), careless},                            // other bytes under the same tag
  };
  for (const auto& [before, after] : changes) {
    VersionedFile file(before);
    file.BreakAfter({1000});
    const ScriptedServer server(KeepAlive(ChangedBeforeTheSecondAnswer(file, after)));
    const ProgramResult result = Get(server.Url(), {});
    EXPECT_EQ(result.exitCode, 1) << result.Describe();
    EXPECT_TRUE(result.out == content.substr(0, 1000));
    EXPECT_THAT(result.err, AllOf(HasSubstr("1000 B went to the standard output before; that is not the whole"),
                                  Not(HasSubstr("--resume"))));
  }
}

TEST(Retry, OfAStreamSaysWhyItsRestDoesNotCome) {
  const std::string content = MakePattern(5000);
  VersionedFile::Version rangeless = Tagged(content, "v1");
  rangeless.servesRanges = false;
  const std::pair<VersionedFile::Version, const char*> cases[] = {
      {Tagged(MakePattern(5000, 2), "v2"), "the file on the server has changed meanwhile; begin anew"},
      {rangeless, "the server does not send the rest alone; begin anew"}};
  for (const auto& [after, reason] : cases) {
    VersionedFile file(Tagged(content, "v1"));
    file.BreakAfter({1000});
    const ScriptedServer server(KeepAlive(ChangedBeforeTheSecondAnswer(file, after)));
    EXPECT_THAT(Get(server.Url(), {}).err, HasSubstr(reason));
  }
}

TEST(Retry, AreInTheLogAlsoWhenQuiet) {
  const ScriptedServer server(KeepAlive(FailingAtFirst({503})));
  const TempDir folder;
  EXPECT_EQ(Get(server.Url(), {"-q", "--log-file", folder / "log"}).err, "");
  EXPECT_THAT(ReadFile(folder / "log"), HasSubstr("trying again in 0 s (1 of 3)"));
}

TEST(Retry, MakesGoodARefusedConnection) {
  const ProgramResult result = Get(RefusedUrl(), {"--retries", "2", "--json"});
  EXPECT_EQ(result.exitCode, 1) << result.Describe();
  const nlohmann::json report = ParseReport(result);
  EXPECT_EQ(report["attempts"], 3);
  EXPECT_EQ(report["httpStatus"], nullptr);
  EXPECT_EQ(report["exitCode"], 1);
}

TEST(Retry, MakesGoodAnFtpRefusalThatMayPass) {
  ScriptedFtpServer server({{"/f", "content"}});
  int refusals = 2;
  server.OnCommand("RETR", [&](Connection& control, const std::string&) {
    if (refusals == 0) return false;
    --refusals;
    control.Send("450 Busy\r\n");
    return true;
  });
  const ProgramResult result = Get(server.Url("/f"), {});
  EXPECT_EQ(result.exitCode, 0) << result.Describe();
  EXPECT_EQ(result.out, "content");
}

TEST(Retry, PostsAreNeverRepeated) {
  const ScriptedServer server(KeepAlive(Status(503)));
  EXPECT_EQ(RunCorvane({"post", server.Url(), "--data", "x"}).exitCode, 1);
  EXPECT_EQ(server.Requests().size(), 1U);
  EXPECT_EQ(RunCorvane({"post", server.Url(), "--data", "x", "--retries", "2"}).exitCode, 2);
}

// --- waits

TEST(RetryAfter, IsObeyedAsSecondsAndAsADate) {
  for (const char* const value : {"1", "Thu, 01 Jan 2026 10:00:00 GMT"}) {
    const ScriptedServer server(KeepAlive(FailingAtFirst({503}, {{"Retry-After", value}})));
    const ProgramResult result = RunCorvane({"get", server.Url(), "--retry-wait", "7000"});
    EXPECT_EQ(result.exitCode, 0) << result.Describe();
    EXPECT_THAT(result.err, HasSubstr(value[0] == '1' ? "trying again in 1 s" : "trying again in 0 s"));
  }
}

TEST(RetryAfter, BeyondAnHourIsNotWaitedFor) {
  const ScriptedServer server(KeepAlive(FailingAtFirst({503}, {{"Retry-After", "3601"}})));
  const ProgramResult result = RunCorvane({"get", server.Url()});
  EXPECT_EQ(result.exitCode, 1) << result.Describe();
  EXPECT_EQ(server.Requests().size(), 1U);
  EXPECT_THAT(result.err, HasSubstr("the server asks to wait 1:00:01 before the next try"));
}

TEST(RetryWait, EndsAtASignal) {
  const ScriptedServer server(KeepAlive(Status(503)));
  const auto program = StartCorvane({"get", server.Url(), "--retry-wait", "3600", "--json"});
  ASSERT_TRUE(program->WaitForErrorOutput("trying again in"));
  program->Kill(SIGTERM);
  const auto result = program->Wait();
  ASSERT_TRUE(result.has_value());
  EXPECT_EQ(result->exitCode, 130) << result->Describe();
  EXPECT_THAT(result->err, HasSubstr("corvane: interrupted"));
  EXPECT_EQ(ParseReport(*result)["exitCode"], 130);
}

TEST(RetryWait, GrowsFromOneSecond) {
  const ScriptedServer server(KeepAlive(Status(503)));
  const ProgramResult result = RunCorvane({"get", server.Url(), "--retries", "2"});
  EXPECT_THAT(result.err, AllOf(HasSubstr("in 1 s (1 of 2)"), HasSubstr("in 2 s (2 of 2)")));
}

}  // namespace
}  // namespace CorvaneTest
