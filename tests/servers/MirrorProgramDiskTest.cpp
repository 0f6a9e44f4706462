#include <gmock/gmock.h>
#include <sys/mount.h>

#include <string>
#include <vector>

#include "tests/cli/CliTesting.h"
#include "tests/servers/MirrorTree.h"
#include "tests/support/SmallFileSystem.h"

// corvane mirror onto a disk that is too small.
namespace CorvaneTest {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;

namespace fs = std::filesystem;

const Files kFiles = {{"a", MakePattern(300000, 1)}, {"b", MakePattern(900000, 2)}, {"c", MakePattern(1000, 3)}};

TEST(CorvaneMirrorDisk, ThatIsTooSmallIsRefusedBeforehandOrFailsAndIsContinued) {
  WatchedVsftpd vsftpd;
  WatchedNginx nginx;
  WriteFiles(vsftpd.RootDir() / "pub", kFiles);
  WriteFiles(nginx.RootDir() / "pub", kFiles);
  const SmallFileSystem disk("1m");
  const fs::path target = disk / "dir";
  const ProgramResult refused = RunCorvane({"mirror", vsftpd.Url("/pub"), target});
  EXPECT_EQ(refused.exitCode, 3) << refused.Describe();
  EXPECT_THAT(refused.err, HasSubstr("Insufficient disk space"));
  EXPECT_THAT(NamesIn(target), testing::IsEmpty());
  EXPECT_EQ(vsftpd.CountCommands("RETR"), 0U);

  const ProgramResult full = RunCorvane({"mirror", nginx.Url("/pub"), target});
  EXPECT_EQ(full.exitCode, 3) << full.Describe();
  EXPECT_THAT(full.err, AllOf(HasSubstr((target / "b").string()), HasSubstr("free some space"),
                              HasSubstr("1 file and the beginning of b are kept"), HasSubstr("--sizes FILE")));
  EXPECT_THAT(NamesIn(target), ElementsAre("a", "b"));
  EXPECT_TRUE(HoldsBeginningsOf(target, kFiles));

  ASSERT_EQ(mount(nullptr, disk.Path().c_str(), nullptr, MS_REMOUNT | MS_NOSUID | MS_NODEV, "size=2m"), 0);
  const TempDir lists;
  WriteNumberList(lists / "sizes", SizesOf(kFiles));
  const ProgramResult resumed =
      RunCorvane({"mirror", nginx.Url("/pub"), target, "--resume", "--sizes", lists / "sizes"});
  EXPECT_EQ(resumed.exitCode, 0) << resumed.Describe();
  EXPECT_TRUE(HoldsExactly(target, kFiles));
  const std::vector<std::string> requests = nginx.Requests();
  EXPECT_THAT(requests[requests.size() - 2], testing::EndsWith(" 206 /pub/b"));
}

}  // namespace
}  // namespace CorvaneTest
