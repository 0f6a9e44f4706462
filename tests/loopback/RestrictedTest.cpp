#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/loopback/TransferTesting.h"
#include "tests/support/Privileges.h"
#include "tests/support/Process.h"
#include "tests/support/ScriptedServer.h"
#include "tests/support/TempDir.h"

// Downloads into files that the system does not let us write as we want: permissions and full disks. Where the
// restriction would hold for the whole test process it is done by the program loopback_probe.
namespace CorvaneTest {
namespace {

using namespace Corvane;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

namespace fs = std::filesystem;

struct ProbeResult {
  ZResult code = 0;
  ZResult cause = 0;
  std::string text;
};

ProbeResult Probe(std::vector<std::string> options, const std::string& url, const fs::path& file, bool resume) {
  std::vector<std::string> argv{CORVANE_LOOPBACK_PROBE};
  argv.insert(argv.end(), options.begin(), options.end());
  argv.insert(argv.end(), {url, file.string(), resume ? "resume" : "fresh"});
  const ProgramResult end = RunProgram(argv);
  if (end.exitCode != 0 || end.out.size() < 19) {
    ADD_FAILURE() << end.Describe();
    return {};
  }
  return {static_cast<ZResult>(std::strtoul(end.out.substr(0, 8).c_str(), nullptr, 16)),
          static_cast<ZResult>(std::strtoul(end.out.substr(9, 8).c_str(), nullptr, 16)),
          end.out.substr(18, end.out.size() - 19)};
}

// --- permissions

// A file in a folder of its own, both belonging to the user whom the probe becomes.
class OwnedFile {
 public:
  OwnedFile(const std::string& content, mode_t mode) {
    WriteFile(Path(), content);
    if (geteuid() != 0) {
      fs::permissions(Path(), fs::perms(mode));
      return;
    }
    if (chown(m_folder.Path().c_str(), kNobody, kNobody) != 0 || chown(Path().c_str(), kNobody, kNobody) != 0) {
      throw std::runtime_error(std::string("chown: ") + std::strerror(errno));
    }
    fs::permissions(Path(), fs::perms(mode));
  }

  const TempDir& Folder() const { return m_folder; }
  fs::path Path() const { return m_folder / "file"; }

 private:
  TempDir m_folder{TempDir::Access::kPublic};
};

TEST(ZTransferPermissions, ResumeOfAFileThatCannotBeReadStartsAfresh) {
  const std::string content = MakePattern(1000);
  ScriptedServer server(KeepAlive(Content(content)));
  const OwnedFile file(content.substr(0, 500), 0200);
  const ProbeResult result = Probe({"--without-privileges"}, server.Url(), file.Path(), true);
  EXPECT_THAT(result.code, IsCode(TRANSFER_S_FINISHED));
  ASSERT_EQ(server.Requests().size(), 1u);
  EXPECT_EQ(server.Requests()[0].Header("Range"), std::nullopt);
  fs::permissions(file.Path(), fs::perms(0600));
  EXPECT_TRUE(FileHolds(file.Path(), content));
}

TEST(ZTransferPermissions, AFreshStartAfterAFailedResumeIsRemovedWhenRefused) {
  ScriptedServer server(KeepAlive(Status(404)));
  const OwnedFile file(MakePattern(500), 0200);
  const ProbeResult result = Probe({"--without-privileges"}, server.Url(), file.Path(), true);
  EXPECT_THAT(result.code, IsCode(TRANSFER_E_CONNECT));
  EXPECT_THAT(NamesIn(file.Folder().Path()), IsEmpty());
}

TEST(ZTransferPermissions, AFileThatCannotBeWrittenIsLeftUntouched) {
  ScriptedServer server(KeepAlive(Status(200, "new")));
  const std::string content = MakePattern(500);
  for (const bool resume : {false, true}) {
    const OwnedFile file(content, 0400);
    const ProbeResult result = Probe({"--without-privileges"}, server.Url(), file.Path(), resume);
    EXPECT_THAT(result.code, IsCode(TRANSFER_E_DOWNLOAD));
    EXPECT_THAT(result.cause, IsCode(TRANSFER_E_NOT_STARTED));
    EXPECT_EQ(result.text, "Failed to open output file " + file.Path().string() + ": Permission denied");
    EXPECT_TRUE(FileHolds(file.Path(), content));
  }
  EXPECT_THAT(server.Requests(), IsEmpty());
}

TEST(ZTransferPermissions, AFolderThatCannotBeWrittenGetsNoFile) {
  ScriptedServer server(KeepAlive(Status(200, "new")));
  const OwnedFile neighbour("x", 0600);
  fs::permissions(neighbour.Folder().Path(), fs::perms(0500));
  for (const char* name : {"new", "new/directory/file"}) {
    const fs::path file = neighbour.Folder() / name;
    const ProbeResult result = Probe({"--without-privileges"}, server.Url(), file, false);
    EXPECT_THAT(result.code, IsCode(TRANSFER_E_DOWNLOAD));
    EXPECT_THAT(result.text, StartsWith("Failed to open output file " + file.string() + ": "));
  }
  fs::permissions(neighbour.Folder().Path(), fs::perms(0700));
  EXPECT_THAT(NamesIn(neighbour.Folder().Path()), ElementsAre("file"));
  EXPECT_THAT(server.Requests(), IsEmpty());
}

// --- full disks: what did not reach the disk is never a success, and what did can be continued

TEST(ZTransferFullDisk, ThatTakesNothingFailsTheSmallestDownload) {
  for (const std::size_t size : {1u, 10u, 4095u, 100000u}) {
    SCOPED_TRACE(size);
    ScriptedServer server(KeepAlive(Content(MakePattern(size))));
    ZTransfer transfer;
    EXPECT_THAT(transfer.DownloadFile(Wide(server.Url()), L"/dev/full", false), IsCode(CurlFailure(kWriteError)));
    EXPECT_THAT(CauseOf(transfer), IsCode(CurlFailure(kWriteError)));
    EXPECT_THAT(ErrorOf(transfer), Not(IsEmpty()));
    EXPECT_EQ(transfer.GetDownloadSize(), 0u);
  }
  EXPECT_TRUE(fs::is_character_file("/dev/full"));
}

TEST(ZTransferFullDisk, BehindAFileSizeLimitLeavesAFileToResume) {
  const std::string content = MakePattern(300000);
  for (const std::size_t limit : {1u, 65u, 4096u, 50000u, 299999u}) {
    for (const auto framing : {ContentOptions::Framing::kContentLength, ContentOptions::Framing::kChunked}) {
      SCOPED_TRACE(limit);
      ContentOptions options;
      options.framing = framing;
      ScriptedServer server(KeepAlive(Content(content, options)));
      const TempDir folder(TempDir::Access::kPublic);
      const fs::path file = folder / "a";
      const ProbeResult result = Probe({"--file-size-limit", std::to_string(limit)}, server.Url(), file, false);
      EXPECT_THAT(result.code, IsCode(CurlFailure(kWriteError)));
      EXPECT_THAT(result.cause, IsCode(CurlFailure(kWriteError)));
      EXPECT_THAT(result.text, Not(IsEmpty()));
      EXPECT_TRUE(FileHolds(file, content.substr(0, limit)));

      ZTransfer transfer;
      EXPECT_THAT(transfer.DownloadFile(Wide(server.Url()), WidePath(file), true), IsCode(TRANSFER_S_FINISHED));
      EXPECT_TRUE(FileHolds(file, content));
      const std::size_t position = limit > 64 ? limit - 32 : 0;
      EXPECT_EQ(server.Requests().back().Header("Range"),
                position > 0 ? std::optional("bytes=" + std::to_string(position) + "-") : std::nullopt);
    }
  }
}

TEST(ZTransferFullDisk, DuringAResumeKeepsWhatWasThereAndWhatFitted) {
  const std::string content = MakePattern(300000);
  ScriptedServer server(KeepAlive(Content(content)));
  const TempDir folder(TempDir::Access::kPublic);
  const fs::path file = folder / "a";
  WriteFile(file, content.substr(0, 100000));
  const ProbeResult result = Probe({"--file-size-limit", "200000"}, server.Url(), file, true);
  EXPECT_THAT(result.code, IsCode(CurlFailure(kWriteError)));
  EXPECT_TRUE(FileHolds(file, content.substr(0, 200000)));
  ZTransfer transfer;
  EXPECT_THAT(transfer.DownloadFile(Wide(server.Url()), WidePath(file), true), IsCode(TRANSFER_S_FINISHED));
  EXPECT_TRUE(FileHolds(file, content));
  EXPECT_EQ(server.Requests().back().Header("Range"), "bytes=199968-");
}

}  // namespace
}  // namespace CorvaneTest
