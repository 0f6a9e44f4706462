#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include "tests/loopback/TransferTesting.h"
#include "tests/support/Env.h"
#include "tests/support/HttpResponders.h"
#include "tests/support/Pki.h"
#include "tests/support/Process.h"
#include "tests/support/ScriptedServer.h"
#include "tests/support/TempDir.h"

// The files of PostFile: which cannot be opened, what is left of them, and what they cost. Where a test needs a process of its
// own it is the program post_probe.
namespace CorvaneTest {
namespace {

using namespace Corvane;
using testing::AnyOf;
using testing::ElementsAre;
using testing::IsEmpty;

namespace fs = std::filesystem;

// Names of the files in `folder` that this process has open.
std::vector<std::string> OpenFilesIn(const fs::path& folder) {
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator("/proc/self/fd")) {
    std::error_code gone;  // the descriptor of the iteration itself
    const fs::path target = fs::read_symlink(entry.path(), gone);
    if (!gone && target.parent_path() == folder) names.push_back(target.filename().string());
  }
  return names;
}

class ZTransferPostFile : public testing::Test {
 protected:
  ZTransferPostFile() { WriteFile(m_folder / "input", "posted"); }

  ZString Path(const char* name) const { return WidePath(m_folder / name); }
  std::string Text(const char* name) const { return (m_folder / name).string(); }

  // The post fails before any request is made, with this text and these error lines, and leaves only the input.
  void ExpectNoRequest(const ZString& input, const ZString& output, const std::string& text,
                       const std::vector<std::string>& lines) {
    SCOPED_TRACE(text);
    RecordingLogger logger;
    EXPECT_THAT(m_transfer.PostFile(Wide(m_server.Url()), input, output), IsCode(TRANSFER_E_DOWNLOAD));
    EXPECT_THAT(m_transfer.GetStatus(), IsCode(TRANSFER_E_DOWNLOAD));
    EXPECT_EQ(ErrorOf(m_transfer), text);
    EXPECT_THAT(CauseOf(m_transfer), IsCode(TRANSFER_E_NOT_STARTED));
    EXPECT_EQ(logger.Messages(ZLogLevel::Error), lines);
    EXPECT_EQ(m_server.AcceptedConnections(), 0u);
    EXPECT_THAT(NamesIn(m_folder.Path()), ElementsAre("input"));
    EXPECT_THAT(OpenFilesIn(m_folder.Path()), IsEmpty());
    EXPECT_TRUE(FileHolds(m_folder / "input", "posted"));
  }

  static std::string Line(const std::string& name) { return "PostFile: Unable to open file for posting file:" + name; }

  TempDir m_folder{TempDir::Access::kPublic};
  ScriptedServer m_server{KeepAlive(Status(200, "answer"))};
  ZTransfer m_transfer;
};

// --- files that cannot be opened

TEST_F(ZTransferPostFile, ThatIsMissingIsNamedAndNoOutputIsMade) {
  const std::string text = "Failed to open input file " + Text("missing") + ": No such file or directory";
  ExpectNoRequest(Path("missing"), Path("output"), text, {Line(Text("missing"))});
  ExpectNoRequest(Path("missing"), ZString(), text, {Line(Text("missing"))});
  ExpectNoRequest(Path("no/such/folder"), Path("output"),
                  "Failed to open input file " + Text("no/such/folder") + ": No such file or directory",
                  {Line(Text("no/such/folder"))});
  ExpectNoRequest(Path("input/below"), Path("output"),
                  "Failed to open input file " + Text("input/below") + ": Not a directory",
                  {Line(Text("input/below"))});
}

TEST_F(ZTransferPostFile, WithoutANameIsMissing) {
  ExpectNoRequest(ZString(), Path("output"), "Failed to open input file : No such file or directory", {Line("")});
  ExpectNoRequest(ZString(), ZString(), "Failed to open input file : No such file or directory", {Line("")});
}

TEST_F(ZTransferPostFile, IsNamedAsGivenWhateverTheNameHolds) {
  ExpectNoRequest(Path("100%2 %1"), Path("output"),
                  "Failed to open input file " + Text("100%2 %1") + ": No such file or directory",
                  {Line(Text("100%2 %1"))});
}

TEST_F(ZTransferPostFile, WhoseOutputCannotBeOpenedIsClosed) {
  ExpectNoRequest(Path("input"), Path("no/folder"),
                  "Failed to open output file " + Text("no/folder") + ": No such file or directory",
                  {Line(Text("no/folder"))});
  ExpectNoRequest(Path("input"), WidePath(m_folder.Path()),
                  "Failed to open output file " + m_folder.Path().string() + ": Is a directory",
                  {Line(m_folder.Path().string())});
}

TEST_F(ZTransferPostFile, IsClosedWithItsOutputAfterEveryPost) {
  ScriptedServer broken(KeepAlive(Status(500, "broken")));
  ScriptedServer silent([](Connection& peer) { peer.ReadRequest(); });
  for (const std::string& url : {m_server.Url(), broken.Url(), silent.Url()}) {
    m_transfer.PostFile(Wide(url), Path("input"), Path("output"));
    EXPECT_THAT(OpenFilesIn(m_folder.Path()), IsEmpty()) << url;
    m_transfer.PostFile(Wide(url), Path("input"));
    EXPECT_THAT(OpenFilesIn(m_folder.Path()), IsEmpty()) << url;
  }
}

TEST_F(ZTransferPostFile, IsOpenWithItsOutputDuringThePost) {
  std::vector<std::string> open;
  ScriptedServer server([&](Connection& peer) {
    const std::optional<Request> request = peer.ReadRequest();
    if (!request) return;
    open = OpenFilesIn(m_folder.Path());
    Status(200)(peer, *request);
  });
  EXPECT_THAT(m_transfer.PostFile(Wide(server.Url()), Path("input"), Path("output")), IsCode(TRANSFER_S_FINISHED));
  EXPECT_THAT(open, testing::UnorderedElementsAre("input", "output"));
}

// --- names that the locale cannot express

TEST_F(ZTransferPostFile, HasNamesThatTheLocaleCanExpress) {
  const ZString strange = Path("") + L"caf\u00E9\u20AC";
  const std::string name = Text("") + "caf\xC3\xA9\xE2\x82\xAC";
  const std::string input = "Download failed: Input file name '" + name + "' contains invalid characters";
  const std::string output = "Download failed: Output file name '" + name + "' contains invalid characters";
  {
    const ScopedLocale ascii("C");
    ExpectNoRequest(strange, Path("output"), input, {});
    ExpectNoRequest(strange, ZString(), input, {});
    ExpectNoRequest(strange, strange, input, {});
    ExpectNoRequest(Path("missing"), strange, output, {});
    ExpectNoRequest(Path("input"), strange, output, {});
  }
  EXPECT_THAT(m_transfer.PostFile(Wide(m_server.Url()), Path("input"), strange), IsCode(TRANSFER_S_FINISHED));
  EXPECT_TRUE(FileHolds(name, "answer"));
}

// --- directories

// The C library opens directories for reading, too; libcurl would announce a body that never comes, and stall.
TEST_F(ZTransferPostFile, ThatIsADirectoryIsRefused) {
  ExpectNoRequest(WidePath(m_folder.Path()), Path("output"),
                  "Failed to open input file " + m_folder.Path().string() + ": Is a directory",
                  {Line(m_folder.Path().string())});
}

// --- in a process of its own

struct ProbeResult {
  ZResult code = 0;
  unsigned long grownKilobytes = 0;
  std::string text;
};

// Posts `input` as post_probe does; the probe must have come to its end by itself.
ProbeResult Probe(const std::string& option, const std::string& url, const fs::path& input, const fs::path& output) {
  ProgramOptions options;
  options.timeout = std::chrono::minutes(5);
  const ProgramResult end = RunProgram({CORVANE_POST_PROBE, option, url, input.string(), output.string()}, options);
  EXPECT_EQ(end.exitCode, 0) << end.Describe();
  std::istringstream lines(end.out);
  ProbeResult result;
  lines >> std::hex >> result.code >> std::dec >> result.grownKilobytes >> std::ws;
  EXPECT_TRUE(lines) << end.Describe();
  std::getline(lines, result.text);
  return result;
}

TEST_F(ZTransferPostFile, ThatMayNotBeReadIsNamedAndNoOutputIsMade) {
  fs::permissions(m_folder.Path(), fs::perms(0777));
  fs::permissions(m_folder / "input", fs::perms(0200));
  const ProbeResult result = Probe("--without-privileges", m_server.Url(), m_folder / "input", m_folder / "output");
  EXPECT_THAT(result.code, IsCode(TRANSFER_E_DOWNLOAD));
  EXPECT_EQ(result.text, "Failed to open input file " + Text("input") + ": Permission denied");
  EXPECT_THAT(NamesIn(m_folder.Path()), ElementsAre("input"));
  EXPECT_EQ(m_server.AcceptedConnections(), 0u);
}

TEST_F(ZTransferPostFile, WhoseOutputMayNotBeWrittenLeavesItAsItIs) {
  fs::permissions(m_folder / "input", fs::perms(0444));
  WriteFile(m_folder / "output", "old");
  fs::permissions(m_folder / "output", fs::perms(0444));
  const ProbeResult result = Probe("--without-privileges", m_server.Url(), m_folder / "input", m_folder / "output");
  EXPECT_THAT(result.code, IsCode(TRANSFER_E_DOWNLOAD));
  EXPECT_EQ(result.text, "Failed to open output file " + Text("output") + ": Permission denied");
  EXPECT_TRUE(FileHolds(m_folder / "output", "old"));
  EXPECT_EQ(m_server.AcceptedConnections(), 0u);
}

// A process that has SIGPIPE at its default outlives a server that goes away during the upload.
class ZTransferPostFileSurvives : public ZTransferPostFile, public testing::WithParamInterface<bool> {};

TEST_P(ZTransferPostFileSurvives, AServerThatLeavesDuringTheUpload) {
  const auto leave = [](Connection& peer) {
    peer.ReadRequest(Body::kLeave);
    peer.Send("HTTP/1.1 100 Continue\r\n\r\n");
    peer.ReadExactly(100000);
    peer.Close();
  };
  fs::resize_file(m_folder / "input", 32 << 20);  // more than the socket buffers hold
  std::optional<ScriptedServer> server;
  if (GetParam()) {
    server.emplace(leave, MakePki(m_folder.Path()).server);
  } else {
    server.emplace(leave);
  }
  const ProbeResult result = Probe("--plain", server->Url(), m_folder / "input", m_folder / "output");
  EXPECT_THAT(result.code, AnyOf(IsCode(CurlFailure(52)), IsCode(CurlFailure(55)), IsCode(CurlFailure(56))));
}

INSTANTIATE_TEST_SUITE_P(Schemes, ZTransferPostFileSurvives, testing::Bool(),
                         [](const auto& scheme) { return scheme.param ? "Https" : "Http"; });

}  // namespace
}  // namespace CorvaneTest
