#include <gmock/gmock.h>

#include <sys/mount.h>

#include <string>

#include "tests/servers/MirrorRuns.h"
#include "tests/support/SmallFileSystem.h"

// Disks that are too small: refused beforehand when the sizes are known, never a success, and continued when there is
// space.
namespace CorvaneTest {
namespace {

using namespace Corvane;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

namespace fs = std::filesystem;

const Files kFiles = {{"a", MakePattern(300000, 1)}, {"b", MakePattern(900000, 2)}, {"c", MakePattern(1000, 3)}};

TEST(ZMultiDownloadDisk, ThatCannotHoldTheFilesIsRefusedBeforehandOverFtp) {
  WatchedVsftpd vsftpd;
  WriteFiles(vsftpd.RootDir() / "pub", kFiles);
  const SmallFileSystem disk("1m");
  for (const bool resume : {false, true}) {
    const Outcome outcome = MirrorAfresh(vsftpd.Url("/pub"), disk / "dir", resume);
    EXPECT_THAT(outcome.code, IsCode(TRANSFER_E_DISK_SPACE));
    // 1,201,000 bytes; a tmpfs of 256 pages needs none for its folders.
    EXPECT_EQ(outcome.error, "Insufficient disk space to download " + vsftpd.Url("/pub/") + " to " +
                                 (disk / "dir").string() + ". Required: 1172 Kb. Available: 1024 Kb.");
    EXPECT_THAT(NamesIn(disk / "dir"), IsEmpty());
  }
  EXPECT_EQ(vsftpd.CountCommands("RETR"), 0U);
}

TEST(ZMultiDownloadDisk, ThatCannotHoldTheFilesIsRefusedBeforehandWithAListOfSizes) {
  WatchedNginx nginx;
  WriteFiles(nginx.RootDir() / "pub", kFiles);
  const SmallFileSystem disk("1m");
  const Outcome outcome = MirrorAfresh(nginx.Url("/pub"), disk / "dir", true, SizeListOf(kFiles));
  EXPECT_THAT(outcome.code, IsCode(TRANSFER_E_DISK_SPACE));
  EXPECT_THAT(outcome.error, HasSubstr("Required: 1172 Kb. Available: 1024 Kb."));
  EXPECT_THAT(nginx.Requests(), IsEmpty());
  EXPECT_THAT(NamesIn(disk / "dir"), IsEmpty());
}

TEST(ZMultiDownloadDisk, HoldsTheRestWhenTheOtherPartIsThere) {
  WatchedVsftpd vsftpd;
  WriteFiles(vsftpd.RootDir() / "pub", {{"a", MakePattern(300000, 1)}, {"b", MakePattern(700000, 2)}});
  const SmallFileSystem disk("1m");
  WriteFile(disk / "dir/a", MakePattern(300000, 1));
  WriteFile(disk / "dir/b", MakePattern(400000, 2));
  const Outcome outcome = MirrorAfresh(vsftpd.Url("/pub"), disk / "dir", true);
  EXPECT_THAT(outcome.code, IsCode(TRANSFER_S_FINISHED)) << outcome.error;
  EXPECT_TRUE(HoldsExactly(disk / "dir", {{"a", MakePattern(300000, 1)}, {"b", MakePattern(700000, 2)}}));
  EXPECT_EQ(outcome.downloadSize, 1000000U);
}

TEST(ZMultiDownloadDisk, ThatFillsUpWithoutKnownSizesFailsAtTheFileThatDoesNotFit) {
  WatchedNginx nginx;
  WriteFiles(nginx.RootDir() / "pub", kFiles);
  const SmallFileSystem disk("1m");
  WriteFile(disk / "filler", std::string(100000, 'x'));
  const Outcome outcome = MirrorAfresh(nginx.Url("/pub"), disk / "dir", false);
  EXPECT_THAT(outcome.code, IsCode(CurlFailure(kWriteError)));
  EXPECT_THAT(outcome.error, Not(IsEmpty()));
  EXPECT_THAT(NamesIn(disk / "dir"), ElementsAre("a", "b")) << "the file after it was not begun";
  EXPECT_TRUE(FileHolds(disk / "dir/a", kFiles.at("a")));
  EXPECT_TRUE(HoldsBeginningsOf(disk / "dir", kFiles));
  const std::uintmax_t fitted = FileSize(disk / "dir/b");
  EXPECT_GT(fitted, 500000U);
  EXPECT_LT(fitted, 900000U);

  // Still full: with sizes it is refused, and nothing is lost.
  EXPECT_THAT(MirrorAfresh(nginx.Url("/pub"), disk / "dir", true, SizeListOf(kFiles)).code,
              IsCode(TRANSFER_E_DISK_SPACE));
  EXPECT_EQ(FileSize(disk / "dir/b"), fitted);

  fs::remove(disk / "filler");
  ASSERT_EQ(mount(nullptr, disk.Path().c_str(), nullptr, MS_REMOUNT | MS_NOSUID | MS_NODEV, "size=2m"), 0);
  const std::size_t former = nginx.Requests().size();
  const Outcome resumed = MirrorAfresh(nginx.Url("/pub"), disk / "dir", true, SizeListOf(kFiles));
  EXPECT_THAT(resumed.code, IsCode(TRANSFER_S_FINISHED)) << resumed.error;
  EXPECT_TRUE(HoldsExactly(disk / "dir", kFiles));
  const std::vector<std::string> requests = nginx.Requests();
  ASSERT_EQ(requests.size(), former + 2);
  EXPECT_THAT(requests[former], HasSubstr(" 206 /pub/b"));
  EXPECT_THAT(requests[former + 1], HasSubstr(" 200 /pub/c"));
}

// The check beforehand cannot know what others write meanwhile.
TEST(ZMultiDownloadDisk, ThatOthersFillDuringTheRunFailsAndIsContinued) {
  WatchedVsftpd vsftpd;
  WriteFiles(vsftpd.RootDir() / "pub", kFiles);
  const SmallFileSystem disk("1500k");
  ZMultiDownload mirror;
  AtTransfer others(2, [&] { WriteFile(disk / "filler", std::string(500000, 'x')); });
  mirror.Attach(&others);
  EXPECT_THAT(mirror.Download(Wide(vsftpd.Url("/pub")), WidePath(disk / "dir"), true),
              IsCode(CurlFailure(kWriteError)));
  EXPECT_THAT(NamesIn(disk / "dir"), ElementsAre("a", "b"));
  EXPECT_TRUE(FileHolds(disk / "dir/a", kFiles.at("a")));
  EXPECT_TRUE(HoldsBeginningsOf(disk / "dir", kFiles));
  const std::uintmax_t fitted = FileSize(disk / "dir/b");
  EXPECT_GT(fitted, 64U);

  fs::remove(disk / "filler");
  const Outcome resumed = MirrorAfresh(vsftpd.Url("/pub"), disk / "dir", true);
  EXPECT_THAT(resumed.code, IsCode(TRANSFER_S_FINISHED)) << resumed.error;
  EXPECT_TRUE(HoldsExactly(disk / "dir", kFiles));
  EXPECT_THAT(vsftpd.Commands(), testing::Contains("REST " + std::to_string(fitted - 32)));
}

}  // namespace
}  // namespace CorvaneTest
