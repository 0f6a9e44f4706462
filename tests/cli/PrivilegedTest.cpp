// What needs the right to mount: a full file system, and a hosts file of the test's own.

#include <gmock/gmock.h>

#include <string>

#include "tests/cli/CliTesting.h"
#include "tests/cli/MirrorPages.h"
#include "tests/support/SmallFileSystem.h"
#include "tests/support/TempDir.h"

namespace CorvaneTest {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

constexpr const char* kOld = "what the user had before, and would miss";

TEST(NoSpace, FullFileSystemIsNamedWithWhatIsLeftAndLosesNothing) {
  const SmallFileSystem small("128k");
  const std::string content = MakePattern(1 << 20);
  const ScriptedServer server(KeepAlive(Content(content)));
  WriteFile(small / "f", kOld);
  const ProgramResult result = RunCorvane({"get", server.Url(), "-o", small / "f"});
  EXPECT_EQ(result.exitCode, 3) << result.Describe();
  EXPECT_THAT(result.err, AllOf(HasSubstr("cannot write "), HasSubstr("the file system has 0 B left; free some space"),
                                HasSubstr("f.part")));
  EXPECT_EQ(ReadFile(small / "f"), kOld);
  const std::string partial = ReadFile(small / "f.part");
  EXPECT_GT(partial.size(), 65536U);
  EXPECT_TRUE(content.substr(0, partial.size()) == partial);
}

// A page tells sizes or not: the run ends before the first byte, or at the file that does not fit.
TEST(NoSpace, EndsASyncAtTheFileThatDoesNotFitAndKeepsWhatCame) {
  const SmallFileSystem small("256k");
  const std::string content = MakePattern(1 << 20);
  const ScriptedServer server(
      KeepAlive(Directory({{"a", Content("a")}, {"big", Content(content)}, {"c", Content("c")}})));
  const ProgramResult result = RunCorvane({"sync", server.Url("/d/"), small / "here", "--connections", "1"});
  EXPECT_EQ(result.exitCode, 3) << result.Describe();
  EXPECT_THAT(result.err, AllOf(HasSubstr("big: "), HasSubstr("No space left on device; free some space\n"),
                                HasSubstr("here  1 fetched, 0 continued, 0 kept, 1 failed; ")));
  EXPECT_EQ(ReadFile(small / "here/a"), "a");
  EXPECT_FALSE(std::filesystem::exists(small / "here/big"));
  EXPECT_FALSE(std::filesystem::exists(small / "here/c")) << "the run ended there";
}

// The aliases come from the hosts file of a mount namespace of its own, so that the machine's stays as it is.
TEST(Resolve, ListsOtherNamesAndAllAddresses) {
  const TempDir folder;
  WriteFile(folder / "hosts", "192.0.2.1 main.test other.test third.test\n192.0.2.2 main.test\n");
  const std::string script =
      "own=--mount; unshare $own true 2> /dev/null || own='--mount --map-root-user'\n"
      "exec unshare $own sh -c 'mount --bind \"$1\" /etc/hosts && exec \"$0\" resolve main.test' \"$0\" \"$1\"";
  const ProgramResult result = RunShell(script, {folder / "hosts"});
  EXPECT_THAT(result.err, Not(HasSubstr("unshare"))) << kNeedsPrivileges;
  EXPECT_EQ(result.exitCode, 0) << result.Describe();
  EXPECT_THAT(result.out, AllOf(HasSubstr("name main.test\n"), HasSubstr("alias other.test\nalias third.test\n"),
                                HasSubstr("address 192.0.2.1\naddress 192.0.2.2\n")));
}

}  // namespace
}  // namespace CorvaneTest
