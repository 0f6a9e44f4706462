// corvane get into a file: a file under its name is complete and of one version, whatever happens in between.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
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

namespace fs = std::filesystem;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

constexpr const char* kDate = "Sat, 03 Jan 2026 10:00:00 GMT";
constexpr const char* kOldTime = "Thu, 01 Jan 2026 10:00:00 GMT";

VersionedFile::Version Tagged(std::string content, const std::string& tag) {
  return {std::move(content), {{"ETag", '"' + tag + '"'}, {"Date", kDate}}};
}

std::string Part(const std::string& url, const std::string& validator) {
  return nlohmann::json{{"corvane", 1}, {"url", url}, {"validator", validator}, {"size", nullptr}}.dump();
}

// A part as an earlier run leaves it.
void WritePart(const fs::path& file, const std::string& content, const std::string& url, const std::string& validator) {
  WriteFile(file.string() + ".part", content);
  WriteFile(file.string() + ".part.json", Part(url, validator));
}

ProgramResult Get(const std::string& url, const fs::path& file, std::vector<std::string> more = {}) {
  std::vector<std::string> arguments = {"get", url, "-o", file.string(), "--retries", "0"};
  arguments.insert(arguments.end(), more.begin(), more.end());
  return RunCorvane(arguments);
}

// --- what is there while a download is under way, and after it

TEST(Part, HoldsWhatIsUnderWayAndSaysWhatItIsAPartOf) {
  VersionedFile file(Tagged(MakePattern(5000), "v1"));
  file.BreakAfter({1000});
  const ScriptedServer server(KeepAlive(file.Serve()));
  const TempDir folder;
  const ProgramResult result = Get(server.Url("/f"), folder / "f");
  EXPECT_EQ(result.exitCode, 1) << result.Describe();
  EXPECT_THAT(NamesIn(folder.Path()), ElementsAre("f.part", "f.part.json"));
  EXPECT_EQ(ReadFile(folder / "f.part"), MakePattern(1000));
  const nlohmann::json record = nlohmann::json::parse(ReadFile(folder / "f.part.json"));
  EXPECT_EQ(record["url"], server.Url("/f"));
  EXPECT_EQ(record["validator"], "\"v1\"");
  EXPECT_EQ(record["size"], 5000);
}

TEST(Part, IsNotThereAfterASuccess) {
  const ScriptedServer server(KeepAlive(Content("new")));
  const TempDir folder;
  EXPECT_EQ(Get(server.Url(), folder / "f").exitCode, 0);
  EXPECT_THAT(NamesIn(folder.Path()), ElementsAre("f"));
}

TEST(Part, IsNotThereAfterARefusal) {
  const ScriptedServer server(KeepAlive(Status(500, std::string(5000, 'x'))));
  const TempDir folder;
  EXPECT_EQ(Get(server.Url(), folder / "f").exitCode, 1);
  EXPECT_THAT(NamesIn(folder.Path()), IsEmpty());
}

TEST(Part, NoFileIsUnderItsNameBeforeItIsComplete) {
  Gate sent, goOn;
  const ScriptedServer server([&](Connection& peer) {
    peer.ReadRequest();
    peer.Send(FormatHead(200, {{"Content-Length", "10"}}) + "01234");
    sent.Open();
    if (peer.WaitFor(goOn)) peer.Send("56789");
  });
  const TempDir folder;
  const auto program = StartCorvane({"get", server.Url(), "-o", folder / "f"});
  ASSERT_TRUE(sent.Wait());
  EXPECT_FALSE(fs::exists(folder / "f"));
  goOn.Open();
  EXPECT_EQ(program->Wait()->exitCode, 0);
  EXPECT_EQ(ReadFile(folder / "f"), "0123456789");
}

// --- killed, and continued

TEST(Part, SurvivesASigkillAndIsContinued) {
  const std::string content = MakePattern(500000);
  Gate sent;
  VersionedFile file(Tagged(content, "v1"));
  const ScriptedServer server([&](Connection& peer) {
    while (const auto request = peer.ReadRequest()) {
      if (peer.Number() != 0) {
        file.Serve()(peer, *request);
        continue;
      }
      peer.Send(FormatHead(200, {{"ETag", "\"v1\""}, {"Content-Length", "500000"}}) + content.substr(0, 200000));
      sent.Open();
      peer.WaitUntilStopped();
    }
  });
  const TempDir folder;
  const auto program = StartCorvane({"get", server.Url("/f"), "-o", folder / "f"});
  ASSERT_TRUE(sent.Wait());
  const Deadline deadline = After(kPatience);
  std::error_code error;
  while (fs::file_size(folder / "f.part", error) != 200000 && Clock::now() < deadline) std::this_thread::yield();
  program->Kill(SIGKILL);
  ASSERT_TRUE(program->Wait().has_value());
  EXPECT_THAT(NamesIn(folder.Path()), ElementsAre("f.part", "f.part.json"));

  const ProgramResult again = Get(server.Url("/f"), folder / "f", {"--resume"});
  EXPECT_EQ(again.exitCode, 0) << again.Describe();
  EXPECT_EQ(again.err, "");
  EXPECT_TRUE(ReadFile(folder / "f") == content);
  EXPECT_THAT(NamesIn(folder.Path()), ElementsAre("f"));
  ASSERT_EQ(server.Requests().size(), 2U);
  EXPECT_EQ(server.Requests()[1].Header("Range"), "bytes=199968-");
  EXPECT_EQ(server.Requests()[1].Header("If-Range"), "\"v1\"");
}

// --- a resource that has changed

struct Change {
  const char* name;
  VersionedFile::Version before;
  VersionedFile::Version after;
  const char* reason;  // in the note
};

std::vector<Change> Changes() {
  const std::string old = MakePattern(5000, 1);
  const std::string other = MakePattern(5000, 2);
  const std::string sameOverlap = other.substr(0, 968) + old.substr(968, 32) + other.substr(1000);
  const auto dated = [](std::string content, const char* time) {
    return VersionedFile::Version{std::move(content), {{"Last-Modified", time}, {"Date", kDate}}};
  };
  const auto careless = [](VersionedFile::Version version) {
    version.obeysIfRange = false;
    return version;
  };
  const auto rangeless = [](VersionedFile::Version version) {
    version.servesRanges = false;
    return version;
  };
  return {
      {"same length, other tag", Tagged(old, "v1"), Tagged(other, "v2"), "cannot continue"},
      {"shorter", Tagged(old, "v1"), Tagged(other.substr(0, 500), "v2"), "cannot continue"},
      {"longer", Tagged(old, "v1"), Tagged(other + other, "v2"), "cannot continue"},
      {"other date", dated(old, kOldTime), dated(other, "Fri, 02 Jan 2026 10:00:00 GMT"), "cannot continue"},
      {"If-Range ignored, other tag", Tagged(old, "v1"), careless(Tagged(sameOverlap, "v2")), "has changed"},
      {"If-Range ignored, no tag, other bytes", Tagged(old, "v1"), careless({other, {}}), "has changed"},
      {"If-Range ignored, shorter than the part", Tagged(old, "v1"), careless(Tagged(old.substr(0, 990), "v1")),
       "has changed"},
      {"ranges no longer served", Tagged(old, "v1"), rangeless(Tagged(other, "v2")), "cannot continue"},
      {"no validator at all", {old, {}}, {other, {}}, "nothing proves"},
      {"a weak tag", {old, {{"ETag", "W/\"1\""}}}, {other, {{"ETag", "W/\"1\""}}}, "nothing proves"},
      {"a date of this very second",
       {old, {{"Last-Modified", kDate}, {"Date", kDate}}},
       {other, {{"Last-Modified", kDate}, {"Date", kDate}}},
       "nothing proves"},
  };
}

TEST(ResumeOfAChangedResource, BeginsAnewAndSaysSoAndMixesNothing) {
  for (const Change& change : Changes()) {
    SCOPED_TRACE(change.name);
    VersionedFile file(change.before);
    file.BreakAfter({1000});
    const ScriptedServer server(KeepAlive(file.Serve()));
    const TempDir folder;
    ASSERT_EQ(Get(server.Url("/f"), folder / "f").exitCode, 1);
    ASSERT_EQ(FileSize(folder / "f.part"), 1000U);
    file.Change(change.after);
    const ProgramResult again = Get(server.Url("/f"), folder / "f", {"--resume"});
    EXPECT_EQ(again.exitCode, 0) << again.Describe();
    EXPECT_TRUE(ReadFile(folder / "f") == change.after.content);
    EXPECT_THAT(OnlyErrorLine(again), AllOf(HasSubstr(change.reason), HasSubstr("beginning anew")));
    EXPECT_THAT(NamesIn(folder.Path()), ElementsAre("f"));
  }
}

TEST(ResumeOfAnUnchangedResource, AsksForTheRestOnly) {
  const std::string content = MakePattern(5000);
  const VersionedFile::Version versions[] = {Tagged(content, "v1"),
                                             {content, {{"Last-Modified", kOldTime}, {"Date", kDate}}}};
  for (const VersionedFile::Version& version : versions) {
    VersionedFile file(version);
    file.BreakAfter({1000});
    const ScriptedServer server(KeepAlive(file.Serve()));
    const TempDir folder;
    ASSERT_EQ(Get(server.Url("/f"), folder / "f").exitCode, 1);
    const ProgramResult again = Get(server.Url("/f"), folder / "f", {"--resume", "--json"});
    EXPECT_EQ(again.exitCode, 0) << again.Describe();
    EXPECT_EQ(again.err, "");
    EXPECT_TRUE(ReadFile(folder / "f") == content);
    ASSERT_EQ(server.Requests().size(), 2U);
    EXPECT_EQ(server.Requests()[1].Header("Range"), "bytes=968-");
    EXPECT_EQ(server.Requests()[1].Header("If-Range"), version.headers[0].value);
    EXPECT_EQ(ParseReport(again)["downloadSize"], 5000);
  }
}

TEST(ResumeOfAPartThatIsComplete, OnlyGivesItItsName) {
  const std::string content = MakePattern(5000);
  VersionedFile file(Tagged(content, "v1"));
  const ScriptedServer server(KeepAlive(file.Serve()));
  const TempDir folder;
  WritePart(folder / "f", content, server.Url("/f"), "\"v1\"");
  const ProgramResult result = Get(server.Url("/f"), folder / "f", {"--resume"});
  EXPECT_EQ(result.exitCode, 0) << result.Describe();
  EXPECT_TRUE(ReadFile(folder / "f") == content);
  EXPECT_EQ(server.Requests().at(0).Header("Range"), "bytes=4968-");
}

TEST(ResumeBeyond4GiB, AsksForTheRest) {
  constexpr std::uint64_t kSize = (std::uint64_t{5} << 30) + 1000;
  const ScriptedServer server(KeepAlive([](Connection& peer, const Request& request) {
    const std::uint64_t offset = kSize - 1032;
    EXPECT_EQ(request.Header("Range"), "bytes=" + std::to_string(offset) + "-");
    peer.Send(FormatHead(206, {{"ETag", "\"v1\""},
                               {"Content-Length", "1032"},
                               {"Content-Range", "bytes " + std::to_string(offset) + "-" + std::to_string(kSize - 1) +
                                                     "/" + std::to_string(kSize)}}) +
              std::string(32, '\0') + std::string(1000, 'e'));
  }));
  const TempDir folder;
  WritePart(folder / "f", "", server.Url("/f"), "\"v1\"");
  fs::resize_file(folder / "f.part", kSize - 1000);
  const ProgramResult result = Get(server.Url("/f"), folder / "f", {"--resume"});
  EXPECT_EQ(result.exitCode, 0) << result.Describe();
  ASSERT_EQ(FileSize(folder / "f"), kSize);
}

// --- over FTP

TEST(ResumeOverFtp, TakesSizeAndTimeForAProof) {
  const std::string content = MakePattern(5000);
  ScriptedFtpServer server({{"/f", content}});
  server.SetModificationTime("/f", "20260101100000");
  server.CutDataAfter(1000);
  const TempDir folder;
  ASSERT_EQ(Get(server.Url("/f"), folder / "f").exitCode, 1);
  ASSERT_EQ(FileSize(folder / "f.part"), 1000U);
  server.CutDataAfter(std::nullopt);
  const ProgramResult again = Get(server.Url("/f"), folder / "f", {"--resume"});
  EXPECT_EQ(again.exitCode, 0) << again.Describe();
  EXPECT_EQ(again.err, "");
  EXPECT_TRUE(ReadFile(folder / "f") == content);
  EXPECT_TRUE(server.HasCommand("REST 968"));
}

TEST(ResumeOverFtp, BeginsAnewWhenTheTimeIsAnotherOrUnknown) {
  const std::string old = MakePattern(5000, 1);
  const std::string other = MakePattern(5000, 2).replace(968, 32, old.substr(968, 32));
  for (const bool hasTime : {true, false}) {
    ScriptedFtpServer server({{"/f", old}});
    if (hasTime) server.SetModificationTime("/f", "20260101100000");
    server.CutDataAfter(1000);
    const TempDir folder;
    ASSERT_EQ(Get(server.Url("/f"), folder / "f").exitCode, 1);
    server.CutDataAfter(std::nullopt);
    server.SetFile("/f", other);
    if (hasTime) server.SetModificationTime("/f", "20260102100000");
    const ProgramResult again = Get(server.Url("/f"), folder / "f", {"--resume"});
    EXPECT_EQ(again.exitCode, 0) << again.Describe();
    EXPECT_TRUE(ReadFile(folder / "f") == other);
    EXPECT_THAT(OnlyErrorLine(again), HasSubstr("beginning anew"));
  }
}

// --- a part that is none

TEST(ForeignPart, OfAnotherUrlIsBegunAnew) {
  VersionedFile file(Tagged(MakePattern(5000), "v1"));
  const ScriptedServer server(KeepAlive(file.Serve()));
  const TempDir folder;
  WritePart(folder / "f", MakePattern(1000), server.Url("/other"), "\"v1\"");
  const ProgramResult result = Get(server.Url("/f"), folder / "f", {"--resume"});
  EXPECT_EQ(result.exitCode, 0) << result.Describe();
  EXPECT_THAT(OnlyErrorLine(result), AllOf(HasSubstr("belongs to " + server.Url("/other")), HasSubstr("anew")));
  EXPECT_EQ(server.Requests().at(0).Header("Range"), std::nullopt);
  EXPECT_TRUE(ReadFile(folder / "f") == MakePattern(5000));
}

TEST(ForeignPart, IsLeftAlone) {
  const ScriptedServer server(KeepAlive(Content("new")));
  struct Case {
    const char* name;
    void (*make)(const TempDir& folder);
  };
  const Case cases[] = {
      {"no record", [](const TempDir& folder) { WriteFile(folder / "f.part", "theirs"); }},
      {"a record of something else",
       [](const TempDir& folder) {
         WriteFile(folder / "f.part", "theirs");
         WriteFile(folder / "f.part.json", "{\"id\": 7}");
       }},
      {"a link",
       [](const TempDir& folder) {
         WriteFile(folder / "theirs", "theirs");
         fs::create_symlink("theirs", folder / "f.part");
       }},
      {"a hard link",
       [](const TempDir& folder) {
         WriteFile(folder / "theirs", "");
         fs::create_hard_link(folder / "theirs", folder / "f.part");
       }},
      {"a FIFO", [](const TempDir& folder) { ASSERT_EQ(mkfifo((folder / "f.part").c_str(), 0600), 0); }},
      {"a directory", [](const TempDir& folder) { fs::create_directory(folder / "f.part"); }},
      {"a record that is a link",
       [](const TempDir& folder) {
         WriteFile(folder / "theirs", "theirs");
         fs::create_symlink("theirs", folder / "f.part.json");
       }},
  };
  for (const Case& c : cases) {
    for (const bool resume : {false, true}) {
      SCOPED_TRACE(c.name);
      const TempDir folder;
      c.make(folder);
      std::vector<std::string> before = NamesIn(folder.Path());
      const ProgramResult result =
          Get(server.Url(), folder / "f", resume ? std::vector<std::string>{"--resume"} : std::vector<std::string>{});
      EXPECT_EQ(result.exitCode, 0) << result.Describe();
      EXPECT_EQ(ReadFile(folder / "f"), "new");
      before.insert(before.begin(), "f");
      EXPECT_EQ(NamesIn(folder.Path()), before);
      if (fs::is_regular_file(folder / "theirs") && fs::file_size(folder / "theirs") != 0) {
        EXPECT_EQ(ReadFile(folder / "theirs"), "theirs");
      }
      if (fs::is_regular_file(fs::symlink_status(folder / "f.part")) && fs::hard_link_count(folder / "f.part") == 1) {
        EXPECT_EQ(ReadFile(folder / "f.part"), "theirs");
      }
    }
  }
}

// --- a file that is there already

TEST(CompleteFile, IsNotFetchedAgainWhenTheServerProvesIt) {
  const std::string content = MakePattern(5000);
  VersionedFile file({content, {{"Last-Modified", kOldTime}, {"Date", kDate}}});
  const ScriptedServer server(KeepAlive(file.Serve()));
  const TempDir folder;
  WriteFile(folder / "f", content);
  const ProgramResult result = Get(server.Url("/f"), folder / "f", {"--resume"});
  EXPECT_EQ(result.exitCode, 0) << result.Describe();
  EXPECT_THAT(OnlyErrorLine(result), HasSubstr("is complete already"));
  EXPECT_EQ(Get(server.Url("/f"), folder / "f", {"--resume", "--remote-time"}).exitCode, 0);
  struct stat status {};
  ASSERT_EQ(stat((folder / "f").c_str(), &status), 0);
  EXPECT_EQ(status.st_mtime, 1767261600);
  ASSERT_EQ(server.Requests().size(), 2U);
  EXPECT_EQ(server.Requests()[0].Header("Range"), "bytes=4968-");
  EXPECT_THAT(NamesIn(folder.Path()), ElementsAre("f"));
}

TEST(CompleteFile, IsFetchedAnewWhenNothingProvesIt) {
  const std::string old = MakePattern(5000, 1);
  const std::string other = MakePattern(5000, 2);
  const std::string sameEnd = other.substr(0, 4968) + old.substr(4968);
  const VersionedFile::Version versions[] = {
      {other, {{"Last-Modified", kOldTime}, {"Date", kDate}}},          // another end
      {old + "x", {{"Last-Modified", kOldTime}, {"Date", kDate}}},      // longer
      {old.substr(0, 4990), {{"Last-Modified", kOldTime}}},             // shorter
      {sameEnd, {}},                                                    // no time
      {sameEnd, {{"Last-Modified", "Wed, 01 Jan 2099 10:00:00 GMT"}}},  // changed since
  };
  for (const VersionedFile::Version& version : versions) {
    VersionedFile file(version);
    const ScriptedServer server(KeepAlive(file.Serve()));
    const TempDir folder;
    WriteFile(folder / "f", old);
    const ProgramResult result = Get(server.Url("/f"), folder / "f", {"--resume"});
    EXPECT_EQ(result.exitCode, 0) << result.Describe();
    EXPECT_THAT(OnlyErrorLine(result), HasSubstr("beginning anew"));
    EXPECT_TRUE(ReadFile(folder / "f") == version.content);
  }
}

// --- two at once

TEST(TwoDownloadsIntoOneFile, AreRefusedAndTheFirstIsNotDisturbed) {
  Gate sent, goOn;
  const ScriptedServer server([&](Connection& peer) {
    if (!peer.ReadRequest()) return;
    peer.Send(FormatHead(200, {{"Content-Length", "10"}}) + "01234");
    sent.Open();
    if (peer.WaitFor(goOn)) peer.Send("56789");
  });
  const TempDir folder;
  const auto program = StartCorvane({"get", server.Url(), "-o", folder / "f"});
  ASSERT_TRUE(sent.Wait());
  const ProgramResult second = Get(server.Url(), folder / "f", {"--resume"});
  EXPECT_EQ(second.exitCode, 3) << second.Describe();
  EXPECT_THAT(OnlyErrorLine(second), AllOf(HasSubstr("another run of corvane is writing"), HasSubstr("wait for it")));
  goOn.Open();
  EXPECT_EQ(program->Wait()->exitCode, 0);
  EXPECT_EQ(ReadFile(folder / "f"), "0123456789");
  EXPECT_THAT(NamesIn(folder.Path()), ElementsAre("f"));
}

// --- checksum and time

constexpr const char* kSumOfAbc = "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad";

TEST(Checksum, IsLookedAtBeforeTheFileGetsItsName) {
  const ScriptedServer server(KeepAlive(Routes({{"/good", Content("abc")}, {"/bad", Content("abd")}})));
  const TempDir folder;
  WriteFile(folder / "f", "old");
  const ProgramResult bad = Get(server.Url("/bad"), folder / "f", {"--sha256", kSumOfAbc, "--json"});
  EXPECT_EQ(bad.exitCode, 1) << bad.Describe();
  EXPECT_THAT(OnlyErrorLine(bad), AllOf(HasSubstr("its SHA-256 is "), HasSubstr(kSumOfAbc), HasSubstr("; check")));
  EXPECT_EQ(ReadFile(folder / "f"), "old");
  EXPECT_EQ(ReadFile(folder / "f.part"), "abd");
  EXPECT_EQ(ParseReport(bad)["partial"], (folder / "f.part").string());
  EXPECT_EQ(Get(server.Url("/good"), folder / "f", {"--sha256", kSumOfAbc}).exitCode, 0);
  EXPECT_EQ(ReadFile(folder / "f"), "abc");
  EXPECT_THAT(NamesIn(folder.Path()), ElementsAre("f"));
}

TEST(Checksum, ProvesACompleteFileWithoutARequest) {
  const TempDir folder;
  WriteFile(folder / "f", "abc");
  const ProgramResult result = Get(RefusedUrl(), folder / "f", {"--sha256", kSumOfAbc, "--resume"});
  EXPECT_EQ(result.exitCode, 0) << result.Describe();
  EXPECT_THAT(OnlyErrorLine(result), HasSubstr("is complete already"));
}

TEST(Checksum, LetsAPartBeContinuedWithoutAValidator) {
  const std::string content(5000, 'a');
  VersionedFile file({content, {}});
  file.BreakAfter({1000});
  const ScriptedServer server(KeepAlive(file.Serve()));
  const TempDir folder;
  constexpr const char* kSum = "c526c6222044dab5674de9c4ac7f4566ebb5e4d8bf9d8ea34c9cc8a7cc3c869c";
  ASSERT_EQ(Get(server.Url("/f"), folder / "f").exitCode, 1);
  const ProgramResult again = Get(server.Url("/f"), folder / "f", {"--resume", "--sha256", kSum});
  EXPECT_EQ(again.exitCode, 0) << again.Describe();
  EXPECT_EQ(server.Requests().at(1).Header("Range"), "bytes=968-");
  EXPECT_TRUE(ReadFile(folder / "f") == content);
}

TEST(Checksum, ThatAContinuedPartDoesNotHaveMakesItBeginAnew) {
  // Another version under the same tag, with the same bytes where the two are compared.
  const std::string content(5000, 'a');
  std::string other = content;
  other[7] = 'b';
  VersionedFile file(Tagged(content, "v1"));
  const ScriptedServer server(KeepAlive(file.Serve()));
  const TempDir folder;
  WritePart(folder / "f", other.substr(0, 1000), server.Url("/f"), "\"v1\"");
  const ProgramResult result =
      Get(server.Url("/f"), folder / "f",
          {"--resume", "--sha256", "c526c6222044dab5674de9c4ac7f4566ebb5e4d8bf9d8ea34c9cc8a7cc3c869c"});
  EXPECT_EQ(result.exitCode, 0) << result.Describe();
  EXPECT_THAT(OnlyErrorLine(result), AllOf(HasSubstr("has another SHA-256"), HasSubstr("beginning anew")));
  EXPECT_TRUE(ReadFile(folder / "f") == content);
  EXPECT_THAT(NamesIn(folder.Path()), ElementsAre("f"));
}

TEST(RemoteTime, IsGivenToTheFileOverHttpAndFtp) {
  const ScriptedServer http(KeepAlive(Content("x", {.headers = {{"Last-Modified", kOldTime}}})));
  ScriptedFtpServer ftp({{"/f", "x"}});
  ftp.SetModificationTime("/f", "20260101100000");
  for (const std::string& url : {http.Url("/f"), ftp.Url("/f")}) {
    const TempDir folder;
    EXPECT_EQ(Get(url, folder / "f", {"--remote-time"}).exitCode, 0);
    struct stat status {};
    ASSERT_EQ(stat((folder / "f").c_str(), &status), 0);
    EXPECT_EQ(status.st_mtime, 1767261600) << url;
  }
}

TEST(RemoteTime, ThatIsNotToldIsNoted) {
  const ScriptedServer server(KeepAlive(Content("x")));
  const TempDir folder;
  const ProgramResult result = Get(server.Url(), folder / "f", {"--remote-time"});
  EXPECT_EQ(result.exitCode, 0) << result.Describe();
  EXPECT_THAT(OnlyErrorLine(result), HasSubstr("does not tell the time"));
}

// --- streams

TEST(GetIntoAFifo, WaitsForItsReaderAndASignalEndsTheWait) {
  const ScriptedServer server(KeepAlive(Content("through the pipe")));
  const TempDir folder;
  ASSERT_EQ(mkfifo((folder / "fifo").c_str(), 0600), 0);
  const ProgramResult result =
      RunShell("\"$0\" get \"$1\" -o \"$2\" & cat \"$2\"; wait $!", {server.Url(), folder / "fifo"});
  EXPECT_EQ(result.exitCode, 0) << result.Describe();
  EXPECT_EQ(result.out, "through the pipe");
  EXPECT_TRUE(fs::is_fifo(folder / "fifo"));

  const auto program = StartCorvane({"get", server.Url(), "-o", folder / "fifo", "-v"});
  ASSERT_TRUE(program->WaitForErrorOutput("corvane "));
  program->Kill(SIGINT);
  const auto ended = program->Wait();
  ASSERT_TRUE(ended.has_value());
  EXPECT_EQ(ended->exitCode, 130) << ended->Describe();
}

TEST(GetIntoTheStandardOutputsFile, AppendsAsTheShellAskedFor) {
  const ScriptedServer server(KeepAlive(Content("new")));
  const TempDir folder;
  WriteFile(folder / "log", "old ");
  const ProgramResult result =
      RunShell("(\"$0\" get \"$1\" -o /dev/stdout; echo end) >> \"$2\"", {server.Url(), folder / "log"});
  EXPECT_EQ(result.exitCode, 0) << result.Describe();
  EXPECT_EQ(ReadFile(folder / "log"), "old newend\n");
}

}  // namespace
}  // namespace CorvaneTest
