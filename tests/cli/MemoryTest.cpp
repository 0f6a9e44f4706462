// What the program says when memory runs out.

#include <gmock/gmock.h>
#include <sys/resource.h>

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tests/cli/CliTesting.h"
#include "tests/support/TempDir.h"

namespace CorvaneTest {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

// More text than any of the limits below leaves room for. The client may hang up.
Responder EndlessText() {
  return [](Connection& peer, const Request&) {
    constexpr int kMebibytes = 400;
    peer.Send(FormatHead(200, {{"Content-Length", std::to_string(kMebibytes << 20)}}));
    const std::string block(1 << 20, 'x');
    for (int sent = 0; sent < kMebibytes && peer.Send(block); ++sent) continue;
  };
}

// How much is left decides where it runs out: in a block, in the decoding, or outside of libcurl.
TEST(Memory, ThatRunsOutIsNoFullDisk) {
  const ScriptedServer server(OncePerConnection(EndlessText()));
  const TempDir folder;
  for (const rlim_t mebibytes : {150U, 400U, 1200U}) {
    ProgramOptions options;
    options.limits = {{RLIMIT_AS, mebibytes << 20}};
    for (const std::vector<std::string>& command : std::vector<std::vector<std::string>>{
             {"get", server.Url(), "--json"}, {"mirror", server.Url(), folder / "dir", "--json"}}) {
      const ProgramResult result = RunCorvane(command, options);
      EXPECT_EQ(result.exitCode, 3) << mebibytes << result.Describe();
      EXPECT_THAT(OnlyErrorLine(result),
                  AllOf(HasSubstr("emory"), HasSubstr("; free some memory"), Not(HasSubstr("bad_alloc")),
                        Not(HasSubstr("disk")), Not(HasSubstr("space"))));
      EXPECT_EQ(ParseReport(result)["operation"], command.front());
    }
  }
}

}  // namespace
}  // namespace CorvaneTest
