// corvane sync from real servers: what comes, what stays, what goes, and what is told of it.

#include <gmock/gmock.h>
#include <signal.h>

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tests/cli/CliTesting.h"
#include "tests/cli/SyncTesting.h"
#include "tests/support/Daemons.h"
#include "tests/support/Pki.h"
#include "tests/support/TempDir.h"

namespace CorvaneTest {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;
using testing::AllOf;
using testing::HasSubstr;
using testing::StartsWith;
using Actions = std::map<std::string, std::string>;

class SyncFromNginx : public testing::Test {
 protected:
  explicit SyncFromNginx(const NginxOptions& options = {}) : m_server(options) { PublishTree(Site(), m_tree); }

  fs::path Site() const { return m_server.RootDir() / "pub"; }
  fs::path Here() const { return m_folder / "here"; }
  std::string Url() const { return m_server.Url("/pub/"); }
  ProgramResult Sync(std::vector<std::string> more = {}) const { return RunSync(Url(), Here(), std::move(more)); }

  const Tree m_tree = {{"a.txt", "content of a"},
                       {"sub/b.bin", MakePattern(100000)},
                       {"sub/deep/c d & \xC3\xBC.txt", "c"},
                       {"sub/deep/none", ""},
                       {"empty/", ""}};
  const NginxServer m_server;
  const TempDir m_folder;
};

// --- a run

TEST_F(SyncFromNginx, FetchesATreeAndASecondRunFetchesNothing) {
  const ProgramResult first = Sync();
  EXPECT_EQ(first.exitCode, 0) << first.Describe();
  EXPECT_EQ(first.out + first.err, "") << "nothing is said on a pipe";
  EXPECT_EQ(TreeIn(Here()), m_tree);
  for (const auto& [path, content] : m_tree) {
    if (path.ends_with('/')) continue;
    EXPECT_EQ(std::chrono::floor<std::chrono::seconds>(fs::last_write_time(Site() / path)),
              fs::last_write_time(Here() / path))
        << path;
  }
  const ProgramResult second = Sync({"--json"});
  EXPECT_EQ(second.exitCode, 0) << second.Describe();
  const json statistics = ParseReport(second)["statistics"];
  EXPECT_EQ(statistics["filesKept"], 4);
  EXPECT_EQ(statistics["filesFetched"], 0);
  EXPECT_EQ(statistics["receivedBytes"], 0);
  EXPECT_EQ(statistics["requests"], 4) << "one for each folder's page";
}

TEST_F(SyncFromNginx, FetchesWhatHasChangedAndWhatIsNew) {
  ASSERT_EQ(Sync().exitCode, 0);
  PublishTree(Site(), {{"a.txt", "Content of A"}}, std::chrono::minutes(60));
  PublishTree(Site(), {{"sub/b.bin", "shorter"}, {"sub/new/d", "d"}});
  const ProgramResult result = Sync({"--json"});
  EXPECT_EQ(result.exitCode, 0) << result.Describe();
  const json report = ParseReport(result);
  EXPECT_EQ(FileIn(report, "a.txt")["reason"], "timeDiffers");
  EXPECT_EQ(FileIn(report, "sub/b.bin")["reason"], "sizeDiffers");
  EXPECT_EQ(FileIn(report, "sub/new/d")["reason"], "missing");
  EXPECT_EQ(FileIn(report, "sub/deep/none")["reason"], "sameAsListed");
  EXPECT_EQ(TreeIn(Here()), TreeIn(Site()));
}

TEST_F(SyncFromNginx, TellsEverythingAsJson) {
  const ProgramResult result = Sync({"--json"});
  EXPECT_EQ(result.err, "");
  json report = ParseReport(result);
  EXPECT_GE(report["statistics"]["elapsedMs"], 0);
  EXPECT_GT(report["statistics"]["listingBytes"], 0);
  EXPECT_THAT(report["statistics"]["connections"].get<int>(), AllOf(testing::Ge(0), testing::Le(8)));
  for (const char* const name : {"elapsedMs", "listingBytes", "connections"}) report["statistics"].erase(name);
  EXPECT_EQ(report["statistics"], json({{"folders", 4},
                                        {"filesKnown", 4},
                                        {"filesToFetch", 4},
                                        {"filesFetched", 4},
                                        {"filesResumed", 0},
                                        {"filesKept", 0},
                                        {"filesFailed", 0},
                                        {"foldersFailed", 0},
                                        {"filesDeleted", 0},
                                        {"filesWithoutChecksum", 0},
                                        {"leftOut", 0},
                                        {"inFlight", 0},
                                        {"requests", 8},
                                        {"totalBytes", 100013},
                                        {"bytesHere", 100013},
                                        {"receivedBytes", 100013}}));
  EXPECT_EQ(report["files"].size(), 4U);
  EXPECT_EQ(report["files"][1], json({{"path", "sub/b.bin"},
                                      {"isFolder", false},
                                      {"action", "fetch"},
                                      {"reason", "missing"},
                                      {"size", 100000},
                                      {"status", "0x00000000"},
                                      {"error", nullptr},
                                      {"attempts", 1},
                                      {"httpStatus", 200}}));
  EXPECT_EQ(report["files"][2]["path"], "sub/deep/c d & \xC3\xBC.txt");
  for (const char* const name : {"statistics", "files"}) report.erase(name);
  EXPECT_EQ(report, json({{"operation", "sync"},
                          {"isPlan", false},
                          {"url", Url()},
                          {"directory", Here()},
                          {"status", "0x00010000"},
                          {"error", nullptr},
                          {"exitCode", 0}}));
}

TEST_F(SyncFromNginx, NamesWhatItDoesInTheLog) {
  WriteFile(Here() / "extra", "12345");
  const ProgramResult result = Sync({"-v", "--delete", "--max-delete", "9", "--log-file", m_folder / "log"});
  EXPECT_EQ(result.exitCode, 0) << result.Describe();
  for (const std::string& log : {result.err, ReadFile(m_folder / "log")}) {
    EXPECT_THAT(log, AllOf(HasSubstr("fetched: sub/b.bin (not here), 100000 bytes"),
                           HasSubstr("deleted: extra (not on the server), 5 bytes"),
                           HasSubstr("4 fetched, 0 continued, 0 kept, 1 deleted; ")));
  }
}

TEST_F(SyncFromNginx, CompletesTheUrlAndTakesWhatAnAddressBarShows) {
  const ProgramResult result = RunSync(Url().substr(7, Url().size() - 8) + "?C=M&O=D#top", Here());
  EXPECT_EQ(result.exitCode, 0) << result.Describe();
  EXPECT_EQ(result.err,
            "corvane: \"?C=M&O=D\" is sent when the directory's page is asked for, and with no file\n"
            "corvane: \"#top\" is left out of the URL: it names a place on the page, and all of the directory is "
            "fetched\n");
  EXPECT_EQ(TreeIn(Here()), m_tree);
  EXPECT_TRUE(m_server.WaitForAccess("GET /pub/?C=M&O=D "));
  EXPECT_TRUE(m_server.WaitForAccess("GET /pub/a.txt HTTP"));
}

TEST_F(SyncFromNginx, TellsOfADirectoryWithoutFiles) {
  const ProgramResult result = RunSync(Url() + "empty", Here());
  EXPECT_EQ(result.exitCode, 0) << result.Describe();
  EXPECT_EQ(OnlyErrorLine(result), "corvane: the server shows no file below " + Url() + "empty");
  const ProgramResult filtered = RunSync(Url(), m_folder / "other", {"--include", "*.iso"});
  EXPECT_EQ(filtered.exitCode, 0) << filtered.Describe();
  EXPECT_EQ(OnlyErrorLine(filtered),
            "corvane: the server shows no file below " + Url() + " that the patterns let through");
}

// --- a plan

TEST_F(SyncFromNginx, PlanTellsOfEachFileAndChangesNothing) {
  const ProgramResult result = Sync({"--plan"});
  EXPECT_EQ(result.exitCode, 0) << result.Describe();
  EXPECT_EQ(result.out,
            "fetch            12 B  a.txt  (not here)\n"
            "fetch        97.7 KiB  sub/b.bin  (not here)\n"
            "fetch             1 B  sub/deep/c d & \xC3\xBC.txt  (not here)\n"
            "fetch             0 B  sub/deep/none  (not here)\n"
            "4 to fetch, 0 to continue, 0 to keep, 0 to delete; 97.7 KiB to come\n");
  EXPECT_EQ(result.err, "");
  EXPECT_FALSE(fs::exists(Here()));
}

TEST_F(SyncFromNginx, PlanAsJsonIsWhatTheRunThenDoes) {
  PublishTree(Here(), {{"a.txt", "content of a"}});
  fs::last_write_time(Here() / "a.txt",
                      std::chrono::floor<std::chrono::seconds>(fs::last_write_time(Site() / "a.txt")));
  WriteFile(Here() / "sub/b.bin", "other");
  WriteFile(Here() / "extra", "12345");
  const Tree before = TreeIn(Here());
  const ProgramResult planned = Sync({"--plan", "--delete", "--json"});
  EXPECT_EQ(planned.exitCode, 0) << planned.Describe();
  EXPECT_EQ(TreeIn(Here()), before);
  const json plan = ParseReport(planned);
  EXPECT_EQ(plan["isPlan"], true);
  EXPECT_EQ(plan["statistics"]["filesDeleted"], 1);
  EXPECT_EQ(plan["statistics"]["receivedBytes"], 0);
  const Actions expected = {{"a.txt", "keep"},
                            {"extra", "delete"},
                            {"sub/b.bin", "fetch"},
                            {"sub/deep/c d & \xC3\xBC.txt", "fetch"},
                            {"sub/deep/none", "fetch"}};
  EXPECT_EQ(ActionsIn(plan), expected);
  EXPECT_EQ(FileIn(plan, "extra")["size"], 5);
  const ProgramResult done = Sync({"--delete", "--json"});
  EXPECT_EQ(done.exitCode, 0) << done.Describe();
  EXPECT_EQ(ActionsIn(ParseReport(done)), expected);
  EXPECT_EQ(TreeIn(Here()), m_tree);
}

// --- which files

TEST_F(SyncFromNginx, PatternsAndDepthChooseWhatIsFetched) {
  const std::string deepest = "sub/deep/c d & \xC3\xBC.txt";
  struct Case {
    std::vector<std::string> options;
    std::vector<std::string> fetched;
  };
  const Case cases[] = {
      {{"--include", "*.txt"}, {"a.txt", deepest}},
      {{"--include", "*.bin", "--include", "none"}, {"sub/b.bin", "sub/deep/none"}},
      {{"--include", "deep"}, {deepest, "sub/deep/none"}},
      {{"--include", "/*.txt"}, {"a.txt"}},
      {{"--exclude", "sub"}, {"a.txt"}},
      {{"--exclude", "sub/deep", "--exclude", "*.bin"}, {"a.txt"}},
      {{"--include", "*.txt", "--exclude", "a*"}, {deepest}},
      {{"--depth", "0"}, {"a.txt"}},
      {{"--depth=1"}, {"a.txt", "sub/b.bin"}},
  };
  for (const Case& c : cases) {
    std::vector<std::string> options = c.options;
    options.insert(options.end(), {"--plan", "--json"});
    const ProgramResult result = Sync(options);
    EXPECT_EQ(result.exitCode, 0) << result.Describe();
    std::vector<std::string> paths;
    for (const auto& [path, action] : ActionsIn(ParseReport(result))) paths.push_back(path);
    EXPECT_EQ(paths, c.fetched) << testing::PrintToString(c.options);
  }
}

// --- what goes

TEST_F(SyncFromNginx, DeletesNothingUnlessAsked) {
  WriteFile(Here() / "extra", "12345");
  EXPECT_EQ(Sync().exitCode, 0);
  EXPECT_TRUE(fs::exists(Here() / "extra"));
}

TEST_F(SyncFromNginx, DeletesWhatTheServerDoesNotListAndThePatternsDoNotSpare) {
  ASSERT_EQ(Sync().exitCode, 0);
  WriteFile(m_folder / "outside", "stays");
  for (const char* const path : {"extra", "old/x", "spared.log"}) WriteFile(Here() / path, "12345");
  fs::create_symlink(m_folder / "outside", Here() / "link");
  const ProgramResult result = Sync({"--delete", "--exclude", "*.log", "--json"});
  EXPECT_EQ(result.exitCode, 0) << result.Describe();
  EXPECT_EQ(ParseReport(result)["statistics"]["filesDeleted"], 3);
  Tree expected = m_tree;
  expected["spared.log"] = "12345";
  EXPECT_EQ(TreeIn(Here()), expected);
  EXPECT_EQ(ReadFile(m_folder / "outside"), "stays");
}

TEST_F(SyncFromNginx, DeletesNoneWhenItWouldBeTooManyAndFetchesAllTheSame) {
  const std::vector<std::string> extra = {"1", "2", "3", "4", "5"};
  for (const std::string& name : extra) WriteFile(Here() / name, "x");
  const ProgramResult half = Sync({"--delete"});
  EXPECT_EQ(half.exitCode, 1) << half.Describe();
  EXPECT_THAT(half.err, AllOf(StartsWith("corvane: cannot sync " + Url() +
                                         ": nothing is deleted: 5 of 5 files would "
                                         "go, and at most 2 may; look at them with --plan --max-delete N"),
                              HasSubstr("here  4 fetched, 0 continued, 0 kept, 0 deleted; ")));
  const ProgramResult four = Sync({"--delete", "--max-delete", "4"});
  EXPECT_EQ(four.exitCode, 1) << four.Describe();
  EXPECT_THAT(four.err, HasSubstr("5 of 9 files would go, and at most 4 may; look at them with --plan and a larger"));
  for (const std::string& name : extra) EXPECT_TRUE(fs::exists(Here() / name));
  EXPECT_TRUE(fs::exists(Here() / "sub/b.bin"));
  EXPECT_EQ(Sync({"--delete", "--max-delete", "5"}).exitCode, 0);
  EXPECT_EQ(TreeIn(Here()), m_tree);
}

TEST_F(SyncFromNginx, DeletesNothingWhenAFolderCouldNotBeListed) {
  ASSERT_EQ(Sync().exitCode, 0);
  WriteFile(Here() / "extra", "12345");
  fs::permissions(Site() / "sub/deep", fs::perms::none);
  const ProgramResult result = Sync({"--delete", "--json"});
  fs::permissions(Site() / "sub/deep", fs::perms::all);
  if (result.exitCode == 0) GTEST_FAIL() << "the server may read what nobody may: " << result.Describe();
  EXPECT_EQ(result.exitCode, 4) << "403: " << result.Describe();
  EXPECT_THAT(result.err, AllOf(HasSubstr("corvane: nothing was deleted, since not all of the tree could be listed\n"),
                                HasSubstr("sub/deep/: the server answered 403 Forbidden; ")));
  EXPECT_TRUE(fs::exists(Here() / "extra"));
  const json folder = FileIn(ParseReport(result), "sub/deep/");
  EXPECT_EQ(folder["isFolder"], true);
  EXPECT_EQ(folder["action"], "refuse");
  EXPECT_EQ(folder["httpStatus"], 403);
  EXPECT_EQ(folder["error"], "The server answered 403.");
}

// --- checksums

std::string Sha256Of(const fs::path& file) { return RunProgram({"sha256sum", file.string()}).out.substr(0, 64); }

TEST_F(SyncFromNginx, VerifiesWhatComesAndCountsWhatNoListNames) {
  const std::string good = Sha256Of(Site() / "sub/b.bin") + "  b.bin\n";
  WriteFile(Site() / "sub/SHA256SUMS", good);
  const ProgramResult result = Sync({"--verify"});
  EXPECT_EQ(result.exitCode, 0) << result.Describe();
  EXPECT_EQ(OnlyErrorLine(result),
            "corvane: 4 files came without a check: no SHA512SUMS or SHA256SUMS of the server names them");
  EXPECT_TRUE(fs::exists(Here() / "sub/b.bin"));
}

TEST_F(SyncFromNginx, AFileWithAnotherChecksumDoesNotAppear) {
  WriteFile(Site() / "sub/SHA256SUMS", std::string(64, '0') + "  b.bin\n");
  const ProgramResult result = Sync({"--verify", "--json"});
  EXPECT_EQ(result.exitCode, 1) << result.Describe();
  EXPECT_THAT(result.err, HasSubstr("cannot sync " + Url() +
                                    ": sub/b.bin: the file has not the checksum that the "
                                    "server lists for it; try again, it may just have changed"));
  EXPECT_FALSE(fs::exists(Here() / "sub/b.bin"));
  EXPECT_EQ(ReadFile(Here() / "a.txt"), "content of a");
  EXPECT_EQ(FileIn(ParseReport(result), "sub/b.bin")["status"], "0x8001138e");
  ASSERT_EQ(Sync().exitCode, 0);
  EXPECT_EQ(TreeIn(Here()), TreeIn(Site())) << "without --verify it comes";
}

// --- killed, and continued

class SyncFromASlowNginx : public SyncFromNginx {
 protected:
  static NginxOptions Slow() {
    NginxOptions options;
    options.serverLines = "if ($http_x_slow) { set $limit_rate 50k; }";
    return options;
  }
  SyncFromASlowNginx() : SyncFromNginx(Slow()) { PublishTree(Site(), {{"big", m_big}}); }

  const std::string m_big = MakePattern(3000000);
};

TEST_F(SyncFromASlowNginx, ARunAfterASigkillContinuesWhatWasUnderWay) {
  const auto program = StartCorvane({"sync", Url(), Here(), "--header", "X-Slow: 1"});
  ASSERT_TRUE(AwaitPartIn(Here(), 50000)) << program->ErrorOutput();
  program->Kill(SIGKILL);
  const auto killed = program->Wait();
  ASSERT_TRUE(killed && killed->signal == SIGKILL);
  EXPECT_FALSE(fs::exists(Here() / "big")) << "a file under its name is complete";
  EXPECT_THAT(Sync({"--plan"}).out, HasSubstr("continue      2.9 MiB  big  (not here)\n"));

  const ProgramResult result = Sync({"--json"});
  EXPECT_EQ(result.exitCode, 0) << result.Describe();
  const json report = ParseReport(result);
  EXPECT_GE(report["statistics"]["filesResumed"], 1);
  std::size_t all = 0;
  for (const auto& [path, content] : TreeIn(Site())) all += content.size();
  EXPECT_LT(report["statistics"]["receivedBytes"], all);
  EXPECT_EQ(FileIn(report, "big")["action"], "continue");
  EXPECT_EQ(FileIn(report, "big")["httpStatus"], 206);
  EXPECT_EQ(TreeIn(Here()), TreeIn(Site())) << "and nothing of a run is left";
}

TEST_F(SyncFromASlowNginx, ASecondRunIntoTheDirectoryIsRefusedMeanwhile) {
  const auto program = StartCorvane({"sync", Url(), Here(), "--header", "X-Slow: 1"});
  ASSERT_TRUE(AwaitPartIn(Here(), 1)) << program->ErrorOutput();
  const ProgramResult result = Sync();
  EXPECT_EQ(result.exitCode, 3) << result.Describe();
  EXPECT_EQ(OnlyErrorLine(result), "corvane: cannot sync " + Url() + ": " + Here().string() +
                                       ": Another run is on in this directory; wait until it has ended");
}

// --- TLS, and FTP

TEST(SyncOverTls, VerifiesTheServerByDefault) {
  const TempDir folder(TempDir::Access::kPublic);
  const Pki pki = MakePki(folder.Path());
  NginxOptions options;
  options.tls = pki.server;
  const NginxServer server(options);
  WriteFile(server.RootDir() / "pub/a", "a");
  const std::string url = server.HttpsUrl("/pub/");
  for (const std::vector<std::string>& trust :
       std::vector<std::vector<std::string>>{{}, {"--cacert", pki.otherCaFile}, {"--capath", pki.otherCaDirectory}}) {
    const ProgramResult refused = RunSync(url, folder / "here", trust);
    EXPECT_EQ(refused.exitCode, 4) << refused.Describe();
    EXPECT_THAT(OnlyErrorLine(refused), AllOf(StartsWith("corvane: cannot sync " + url + ": "),
                                              HasSubstr("certificate was not accepted"), HasSubstr("--cacert FILE")));
  }
  EXPECT_EQ(server.AccessLog(), "");
  for (const std::vector<std::string>& trust :
       std::vector<std::vector<std::string>>{{"--cacert", pki.caFile}, {"--capath", pki.caDirectory}, {"--insecure"}}) {
    const TempDir here;
    EXPECT_EQ(RunSync(url, here.Path(), trust).exitCode, 0) << trust.front();
    EXPECT_EQ(ReadFile(here / "a"), "a");
  }
}

TEST(SyncFromFtp, FetchesATreeAndThenNothing) {
  PyftpdOptions options;
  options.anonymous = false;
  options.user = "ada";
  options.password = "s3cret";
  const PyftpdServer server(options);
  const Tree tree = {{"a.txt", "a"}, {"sub/b c", MakePattern(70000)}};
  PublishTree(server.RootDir() / "pub", tree);
  const TempDir folder;
  ProgramOptions login;
  login.environment["CORVANE_PASSWORD"] = "s3cret";
  const ProgramResult first = RunSync(server.Url("/pub/"), folder / "here", {"--user", "ada"}, login);
  EXPECT_EQ(first.exitCode, 0) << first.Describe();
  EXPECT_EQ(TreeIn(folder / "here"), tree);
  const ProgramResult second = RunSync(server.Url("/pub/"), folder / "here", {"--user", "ada", "--json"}, login);
  EXPECT_EQ(ParseReport(second)["statistics"]["filesKept"], 2) << second.Describe();
  login.environment["CORVANE_PASSWORD"] = "wrong";
  const ProgramResult refused = RunSync(server.Url("/pub/"), folder / "here", {"--user", "ada"}, login);
  EXPECT_EQ(refused.exitCode, 4) << refused.Describe();
}

}  // namespace
}  // namespace CorvaneTest
