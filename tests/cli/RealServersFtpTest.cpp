// corvane get from FTP servers that others wrote.

#include <gmock/gmock.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tests/cli/CliTesting.h"
#include "tests/cli/KilledDownload.h"
#include "tests/support/Daemons.h"
#include "tests/support/TempDir.h"

namespace CorvaneTest {
namespace {

namespace fs = std::filesystem;
using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

// Neither server can be slow for one client alone, so what is to be killed slows itself down.
const std::vector<std::string> kLimited = {"--limit", "200k"};

enum class FtpDaemon { kVsftpd, kPyftpdlib };

std::unique_ptr<Daemon> StartFtpDaemon(FtpDaemon kind) {
  if (kind == FtpDaemon::kVsftpd) return std::make_unique<VsftpdServer>();
  return std::make_unique<PyftpdServer>();
}

class GetFromFtpServer : public testing::TestWithParam<FtpDaemon> {
 protected:
  std::string Url(const std::string& path) const { return m_server->Url(path); }
  fs::path Root() const { return m_server->RootDir(); }

  std::unique_ptr<Daemon> m_server = StartFtpDaemon(GetParam());
  TempDir m_folder;
};

TEST_P(GetFromFtpServer, FilesAndPipesGetEveryByte) {
  const std::string content = MakePattern(10000000);
  WriteFile(Root() / "pub" / "a b#1.bin", content);
  const ProgramResult result = RunCorvane({"get", Url("/pub/a%20b%231.bin"), "--into", m_folder.Path()});
  EXPECT_EQ(result.exitCode, 0) << result.Describe();
  EXPECT_TRUE(ReadFile(m_folder / "a b#1.bin") == content);
  const ProgramResult piped = RunCorvane({"get", Url("/pub/a%20b%231.bin")});
  EXPECT_EQ(piped.exitCode, 0) << piped.exitCode.value_or(-1);
  EXPECT_TRUE(piped.out == content);
}

TEST_P(GetFromFtpServer, ContinuesWhatAKillLeftBySizeAndTime) {
  const std::string content = MakePattern(kLarge);
  Publish(Root() / "f", content);
  const KilledDownload download(Url("/f"), kLimited);
  ASSERT_LT(download.PartSize(), content.size());
  EXPECT_THAT(download.Validator(), StartsWith("SIZE " + std::to_string(kLarge) + " MDTM "));
  const ProgramResult result = download.Resume({"-v", "--json"});
  EXPECT_EQ(result.exitCode, 0) << result.Describe();
  EXPECT_TRUE(download.Holds(content));
  EXPECT_THAT(result.err, HasSubstr("> REST " + std::to_string(download.PartSize() - 32) + "\n"));
  EXPECT_THAT(result.err, Not(HasSubstr("anew")));
  EXPECT_LT(ParseReport(result)["transferSize"], content.size() - download.PartSize() + 5000);  // the dialogue counts
}

// The end of the new version is that of the old one, so that no comparison of the bytes can show it.
TEST_P(GetFromFtpServer, BeginsAnewWhenTheFileHasAnotherTime) {
  std::string content = MakePattern(kLarge);
  Publish(Root() / "f", content);
  const KilledDownload download(Url("/f"), kLimited);
  std::reverse(content.begin(), content.begin() + 1000);
  Publish(Root() / "f", content, std::chrono::minutes(1));
  const ProgramResult result = download.Resume();
  EXPECT_EQ(result.exitCode, 0) << result.Describe();
  EXPECT_THAT(OnlyErrorLine(result), AllOf(HasSubstr("cannot continue"), HasSubstr("beginning anew")));
  EXPECT_TRUE(download.Holds(content));
}

TEST_P(GetFromFtpServer, BeginsAnewWhenTheFileHasAnotherSize) {
  const std::string content = MakePattern(kLarge);
  for (const std::size_t size : {kLarge / 2 * 3, kLarge - 1, std::size_t{1000}}) {
    Publish(Root() / "f", content);
    const KilledDownload download(Url("/f"), kLimited);
    const fs::file_time_type time = fs::last_write_time(Root() / "f");
    WriteFile(Root() / "f", MakePattern(size));
    fs::last_write_time(Root() / "f", time);
    const ProgramResult result = download.Resume();
    EXPECT_EQ(result.exitCode, 0) << result.Describe();
    EXPECT_THAT(OnlyErrorLine(result), AllOf(HasSubstr("cannot continue"), HasSubstr("beginning anew"))) << size;
    EXPECT_TRUE(download.Holds(MakePattern(size))) << size;
  }
}

TEST_P(GetFromFtpServer, FetchesACompleteFileAgainOnlyWhenItIsNewer) {
  const auto get = [&] {
    return RunCorvane({"get", Url("/f"), "-o", m_folder / "f", "--remote-time", "--resume", "-v"});
  };
  std::string content = MakePattern(1000000);
  Publish(Root() / "f", content);
  EXPECT_EQ(get().exitCode, 0);
  const ProgramResult same = get();
  EXPECT_EQ(same.exitCode, 0) << same.Describe();
  EXPECT_THAT(same.err, HasSubstr("is complete already"));
  EXPECT_TRUE(ReadFile(m_folder / "f") == content);

  std::reverse(content.begin(), content.begin() + 1000);
  Publish(Root() / "f", content, std::chrono::minutes(1));
  const ProgramResult newer = get();
  EXPECT_EQ(newer.exitCode, 0) << newer.Describe();
  EXPECT_THAT(newer.err, AllOf(HasSubstr("nothing proves"), HasSubstr("beginning anew")));
  EXPECT_TRUE(ReadFile(m_folder / "f") == content);
}

TEST_P(GetFromFtpServer, MissingFileIsAFailureThatLeavesNothing) {
  const ProgramResult result = RunCorvane({"get", Url("/missing"), "--into", m_folder.Path()});
  EXPECT_EQ(result.exitCode, 1) << result.Describe();
  EXPECT_THAT(OnlyErrorLine(result), HasSubstr("does not have the file"));
  EXPECT_THAT(NamesIn(m_folder.Path()), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Daemons, GetFromFtpServer, testing::Values(FtpDaemon::kVsftpd, FtpDaemon::kPyftpdlib),
                         [](const testing::TestParamInfo<FtpDaemon>& daemon) {
                           return daemon.param == FtpDaemon::kVsftpd ? "Vsftpd" : "Pyftpdlib";
                         });

// --- logins

ProgramResult GetAs(const std::string& user, const std::string& password, const std::string& url,
                    const TempDir& folder) {
  ProgramOptions options;
  options.environment["CORVANE_PASSWORD"] = password;
  return RunCorvane({"get", url, "--user", user, "--into", folder.Path()}, options);
}

void ExpectLogin(const Daemon& server, const std::string& user, const std::string& password) {
  WriteFile(server.RootDir() / "f", "for " + user);
  const TempDir folder;
  const ProgramResult refused = GetAs(user, "wr0ng", server.Url("/f"), folder);
  EXPECT_EQ(refused.exitCode, 4) << refused.Describe();
  EXPECT_THAT(OnlyErrorLine(refused),
              AllOf(HasSubstr("does not accept the login"), Not(HasSubstr("wr0ng")), Not(HasSubstr("trying again"))));
  EXPECT_THAT(NamesIn(folder.Path()), IsEmpty());
  const ProgramResult accepted = GetAs(user, password, server.Url("/f"), folder);
  EXPECT_EQ(accepted.exitCode, 0) << accepted.Describe();
  EXPECT_EQ(ReadFile(folder / "f"), "for " + user);
}

TEST(GetFromPyftpdlib, RefusedPasswordIsAnAuthenticationFailure) {
  PyftpdOptions options;
  options.anonymous = false;
  options.user = "ada";
  options.password = "s3cret";
  ExpectLogin(PyftpdServer(options), "ada", "s3cret");
}

// Its other accounts are those of the machine; the passwords of the anonymous one can be a list.
TEST(GetFromVsftpd, RefusedPasswordIsAnAuthenticationFailure) {
  const TempDir folder(TempDir::Access::kPublic);
  WriteFile(folder / "passwords", "s3cret\n");
  const VsftpdServer server({.lines = "no_anon_password=NO\nsecure_email_list_enable=YES\nemail_password_file=" +
                                      (folder / "passwords").string()});
  ExpectLogin(server, "anonymous", "s3cret");
}

}  // namespace
}  // namespace CorvaneTest
