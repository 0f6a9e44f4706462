// How much memory the program takes, and what it says when it runs out.

#include <gmock/gmock.h>
#include <sys/resource.h>

#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

#include "tests/cli/CliTesting.h"
#include "tests/support/TempDir.h"

namespace CorvaneTest {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

// More text than any of the limits below leaves room for, but for a listing no more than is taken of one. The client may hang up.
Responder MuchText(int mebibytes) {
  return [=](Connection& peer, const Request&) {
    peer.Send(FormatHead(200, {{"Content-Length", std::to_string(mebibytes << 20)}}));
    const std::string block(1 << 20, 'x');
    for (int sent = 0; sent < mebibytes && peer.Send(block); ++sent) continue;
  };
}

// How much is left decides where it runs out: in a block, in the decoding, or outside of libcurl.
TEST(Memory, ThatRunsOutIsNoFullDisk) {
  const ScriptedServer text(OncePerConnection(MuchText(400)));
  const ScriptedServer listing(OncePerConnection(MuchText(120)));
  const TempDir folder;
  const std::vector<std::string> get = {"get", text.Url(), "--json"};
  const std::vector<std::string> mirror = {"mirror", listing.Url(), folder / "dir", "--json"};
  const std::pair<std::vector<std::string>, rlim_t> runs[] = {{get, 150},    {get, 400},    {get, 1200},
                                                              {mirror, 100}, {mirror, 150}, {mirror, 400}};
  for (const auto& [command, mebibytes] : runs) {
    ProgramOptions options;
    options.limits = {{RLIMIT_AS, mebibytes << 20}};
    const ProgramResult result = RunCorvane(command, options);
    EXPECT_EQ(result.exitCode, 3) << mebibytes << result.Describe();
    EXPECT_THAT(OnlyErrorLine(result),
                AllOf(HasSubstr("emory"), HasSubstr("; free some memory"), Not(HasSubstr("bad_alloc")),
                      Not(HasSubstr("disk")), Not(HasSubstr("space"))));
    EXPECT_EQ(ParseReport(result)["operation"], command.front());
  }
}

// What comes for a pipe is not kept.
TEST(Memory, StaysFlatWhile300MegabytesGoIntoAPipe) {
  constexpr int kMebibytes = 300;
  const ScriptedServer server(OncePerConnection(MuchText(kMebibytes)));
  for (const char* const option : {"-q", "--text"}) {
    const ProgramResult result = RunShell(
        "exec 3< <(exec \"$0\" get \"$1\" $2); pid=$!; head -c 290000000 <&3 > /dev/null; "
        "grep VmHWM /proc/$pid/status | tr -dc 0-9; echo; wc -c <&3",
        {server.Url(), option});
    const int peakKibibytes = std::stoi(result.out);
    EXPECT_GT(peakKibibytes, 1000) << result.Describe();
    EXPECT_LT(peakKibibytes, 40000) << result.Describe();
    EXPECT_THAT(result.out, testing::EndsWith("\n" + std::to_string((kMebibytes << 20) - 290000000) + "\n"));
  }
}

}  // namespace
}  // namespace CorvaneTest
