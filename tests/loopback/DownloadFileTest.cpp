#include <gmock/gmock.h>
#include <sys/stat.h>

#include <filesystem>
#include <string>

#include <Corvane/Base/Result.h>

#include "tests/loopback/TransferTesting.h"
#include "tests/support/Env.h"
#include "tests/support/ScriptedFtpServer.h"
#include "tests/support/ScriptedServer.h"
#include "tests/support/Sockets.h"
#include "tests/support/TempDir.h"

// Fresh downloads into files. Resumed ones are in ResumeTest.cpp.
namespace CorvaneTest {
namespace {

using namespace Corvane;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

namespace fs = std::filesystem;

std::string RefusedText(const std::string& url, const std::string& header) {
  return "Failed to connect to the specified URL, " + url + "\n" + header;
}

std::string CannotOpenText(const fs::path& file, int error) {
  return "Failed to open output file " + file.string() + ": " + MessageOf(ResultFromErrno(error));
}

TEST(ZTransferDownloadFile, WritesTheBodyExactly) {
  const std::string content = MakePattern(1000003);
  ScriptedServer server(KeepAlive(Content(content)));
  const TempDir folder;
  ZTransfer transfer;
  EXPECT_THAT(transfer.DownloadFile(Wide(server.Url("/a.bin")), WidePath(folder / "a.bin"), false),
              IsCode(TRANSFER_S_FINISHED));
  EXPECT_TRUE(FileHolds(folder / "a.bin", content));
  EXPECT_EQ(ErrorOf(transfer), "Transfer has finished successfully");
  EXPECT_THAT(CauseOf(transfer), IsCode(TRANSFER_S_FINISHED));
  EXPECT_EQ(transfer.GetContentSize(), content.size());
  EXPECT_EQ(transfer.GetDownloadSize(), content.size());
  EXPECT_THAT(HeaderOf(transfer), StartsWith("HTTP/1.1 200 OK\r\n"));
  ASSERT_EQ(server.Requests().size(), 1u);
  EXPECT_EQ(server.Requests()[0].Header("Range"), std::nullopt);
}

TEST(ZTransferDownloadFile, OfUnknownLengthHasNoContentSize) {
  for (const auto framing : {ContentOptions::Framing::kChunked, ContentOptions::Framing::kUntilClose}) {
    ContentOptions options;
    options.framing = framing;
    const std::string content = MakePattern(50000);
    ScriptedServer server(KeepAlive(Content(content, options)));
    const TempDir folder;
    ZTransfer transfer;
    EXPECT_THAT(transfer.DownloadFile(Wide(server.Url()), WidePath(folder / "a"), false), IsCode(TRANSFER_S_FINISHED));
    EXPECT_TRUE(FileHolds(folder / "a", content));
    EXPECT_EQ(transfer.GetContentSize(), kUnknownSize);
    EXPECT_EQ(transfer.GetDownloadSize(), content.size());
  }
}

TEST(ZTransferDownloadFile, OfNothingLeavesAnEmptyFile) {
  for (const int status : {200, 204}) {
    ScriptedServer server(KeepAlive(Status(status)));
    const TempDir folder;
    WriteFile(folder / "a", "old content");
    ZTransfer transfer;
    EXPECT_THAT(transfer.DownloadFile(Wide(server.Url()), WidePath(folder / "a"), false), IsCode(TRANSFER_S_FINISHED));
    EXPECT_TRUE(FileHolds(folder / "a", ""));
    EXPECT_EQ(transfer.GetContentSize(), kUnknownSize);
  }
}

TEST(ZTransferDownloadFile, TruncatesAnExistingFile) {
  ScriptedServer server(KeepAlive(Status(200, "new")));
  for (const std::size_t size : {0u, 1u, 64u, 65u, 96u, 100000u}) {
    const TempDir folder;
    WriteFile(folder / "a", MakePattern(size));
    ZTransfer transfer;
    EXPECT_THAT(transfer.DownloadFile(Wide(server.Url()), WidePath(folder / "a"), false), IsCode(TRANSFER_S_FINISHED))
        << size;
    EXPECT_TRUE(FileHolds(folder / "a", "new")) << size;
    EXPECT_EQ(server.Requests().back().Header("Range"), std::nullopt);
  }
}

TEST(ZTransferDownloadFile, ManyWithOneObject) {
  ScriptedServer server(KeepAlive(
      [](Connection& peer, const Request& request) { Status(200, "content of " + request.target)(peer, request); }));
  const TempDir folder;
  ZTransfer transfer;
  ZString page;
  for (int i = 0; i < 20; ++i) {
    const std::string name = "/" + std::to_string(i);
    ASSERT_THAT(transfer.DownloadFile(Wide(server.Url(name)), WidePath(folder.Path().string() + name), false),
                IsCode(TRANSFER_S_FINISHED));
    EXPECT_TRUE(FileHolds(folder.Path().string() + name, "content of " + name));
    // A download into memory in between goes into memory.
    ASSERT_THAT(transfer.Download(Wide(server.Url("/page")), page), IsCode(TRANSFER_S_FINISHED));
    EXPECT_EQ(Narrow(page), "content of /page");
    EXPECT_TRUE(FileHolds(folder.Path().string() + name, "content of " + name));
  }
  EXPECT_EQ(server.AcceptedConnections(), 1u);
}

TEST(ZTransferDownloadFile, TellsObserversOnce) {
  ScriptedServer server(KeepAlive(Routes({{"/a", Content(MakePattern(300000))}, {"/b", Status(404, "page")}})));
  const TempDir folder;
  RecordingObserver observer;
  ZTransfer transfer;
  transfer.Attach(&observer);
  transfer.DownloadFile(Wide(server.Url("/a")), WidePath(folder / "a"), false);
  EXPECT_THAT(observer.Events(), ElementsAre(RecordingObserver::Event(1, TRANSFER_E_IN_PROGRESS)));
  transfer.DownloadFile(Wide(server.Url("/b")), WidePath(folder / "b"), false);
  EXPECT_THAT(observer.Events(), ElementsAre(RecordingObserver::Event(1, TRANSFER_E_IN_PROGRESS),
                                             RecordingObserver::Event(1, TRANSFER_E_CONNECT)));
}

// --- names

TEST(ZTransferDownloadFile, CreatesMissingDirectories) {
  ScriptedServer server(KeepAlive(Status(200, "x")));
  const TempDir folder;
  ZTransfer transfer;
  EXPECT_THAT(transfer.DownloadFile(Wide(server.Url()), WidePath(folder / "one/two/three/file"), false),
              IsCode(TRANSFER_S_FINISHED));
  EXPECT_TRUE(FileHolds(folder / "one/two/three/file", "x"));
}

TEST(ZTransferDownloadFile, CreatesMissingDirectoriesAlsoWhenItFailsThen) {
  const PortReservation nobody;
  const TempDir folder;
  ZTransfer transfer;
  const std::string url = "http://127.0.0.1:" + std::to_string(nobody.Port()) + "/";
  EXPECT_THAT(transfer.DownloadFile(Wide(url), WidePath(folder / "one/two/file"), true), IsCode(TRANSFER_E_CONNECT));
  EXPECT_TRUE(fs::is_directory(folder / "one/two"));
  EXPECT_THAT(NamesIn(folder / "one/two"), IsEmpty());
}

TEST(ZTransferDownloadFile, TakesNamesOfAnyCharactersThatTheLocaleKnows) {
  ScriptedServer server(KeepAlive(Status(200, "x")));
  const TempDir folder;
  const fs::path file = folder / "100%2 \xC3\xA4\xE2\x82\xAC\xF0\x9F\x9A\x80 \"quoted\"\n*?;";
  ZTransfer transfer;
  EXPECT_THAT(transfer.DownloadFile(Wide(server.Url()), WidePath(file), false), IsCode(TRANSFER_S_FINISHED));
  EXPECT_TRUE(FileHolds(file, "x"));
}

TEST(ZTransferDownloadFile, RefusesANameThatTheLocaleCannotExpress) {
  ScriptedServer server(KeepAlive(Status(200, "x")));
  const TempDir folder;
  ZTransfer transfer;
  const ScopedLocale c("C");
  for (const char* name : {"new/caf\xC3\xA9", "caf\xC3\xA9/file", "%2\xE2\x82\xAC"}) {
    for (const bool resume : {false, true}) {
      const std::string file = folder.Path().string() + "/" + name;
      EXPECT_THAT(transfer.DownloadFile(Wide(server.Url()), Wide(file), resume), IsCode(TRANSFER_E_DOWNLOAD));
      EXPECT_EQ(ErrorOf(transfer), "Download failed: Output file name '" + file + "' contains invalid characters");
    }
  }
  EXPECT_THAT(NamesIn(folder.Path()), IsEmpty());  // no directory either
  EXPECT_THAT(server.Requests(), IsEmpty());
  EXPECT_THAT(CauseOf(transfer), IsCode(TRANSFER_E_NOT_STARTED));
}

TEST(ZTransferDownloadFile, RefusesANameWithAZeroCharacter) {
  ScriptedServer server(KeepAlive(Status(200, "x")));
  const TempDir folder;
  ZTransfer transfer;
  ZString name = WidePath(folder / "a");
  name.Append(L'\0').Append(L'b');
  EXPECT_THAT(transfer.DownloadFile(Wide(server.Url()), name, false), IsCode(TRANSFER_E_DOWNLOAD));
  EXPECT_THAT(ErrorOf(transfer), HasSubstr("contains invalid characters"));
  EXPECT_THAT(NamesIn(folder.Path()), IsEmpty());
}

TEST(ZTransferDownloadFile, CannotOpenAnEmptyName) {
  ScriptedServer server(KeepAlive(Status(200, "x")));
  ZTransfer transfer;
  for (const bool resume : {false, true}) {
    EXPECT_THAT(transfer.DownloadFile(Wide(server.Url()), L"", resume), IsCode(TRANSFER_E_DOWNLOAD));
    EXPECT_THAT(transfer.GetStatus(), IsCode(TRANSFER_E_DOWNLOAD));
    EXPECT_EQ(ErrorOf(transfer), CannotOpenText("", ENOENT));
  }
  EXPECT_THAT(server.Requests(), IsEmpty());
}

TEST(ZTransferDownloadFile, CannotOpenADirectory) {
  ScriptedServer server(KeepAlive(Status(200, "x")));
  const TempDir folder;
  fs::create_directory(folder / "directory");
  ZTransfer transfer;
  for (const bool resume : {false, true}) {
    EXPECT_THAT(transfer.DownloadFile(Wide(server.Url()), WidePath(folder / "directory"), resume),
                IsCode(TRANSFER_E_DOWNLOAD));
    EXPECT_EQ(ErrorOf(transfer), CannotOpenText(folder / "directory", EISDIR));
    EXPECT_TRUE(fs::is_directory(folder / "directory"));
  }
  EXPECT_THAT(server.Requests(), IsEmpty());
}

TEST(ZTransferDownloadFile, CannotOpenAPathBelowAFile) {
  ScriptedServer server(KeepAlive(Status(200, "x")));
  const TempDir folder;
  WriteFile(folder / "file", "content");
  ZTransfer transfer;
  for (const char* below : {"file/a", "file/a/b"}) {
    EXPECT_THAT(transfer.DownloadFile(Wide(server.Url()), WidePath(folder / below), true), IsCode(TRANSFER_E_DOWNLOAD));
    EXPECT_EQ(ErrorOf(transfer), CannotOpenText(folder / below, ENOTDIR));
  }
  EXPECT_TRUE(FileHolds(folder / "file", "content"));
  EXPECT_THAT(server.Requests(), IsEmpty());
}

TEST(ZTransferDownloadFile, WritesThroughASymbolicLink) {
  ScriptedServer server(KeepAlive(Status(200, "new")));
  const TempDir folder;
  WriteFile(folder / "target", "old");
  fs::create_symlink("target", folder / "link");
  fs::create_symlink("made", folder / "dangling");
  ZTransfer transfer;
  for (const char* name : {"link", "dangling"}) {
    EXPECT_THAT(transfer.DownloadFile(Wide(server.Url()), WidePath(folder / name), false), IsCode(TRANSFER_S_FINISHED));
  }
  EXPECT_TRUE(FileHolds(folder / "target", "new"));
  EXPECT_TRUE(FileHolds(folder / "made", "new"));
  EXPECT_TRUE(fs::is_symlink(folder / "link"));
}

TEST(ZTransferDownloadFile, RefusedRemovesTheLinkAndNotItsTarget) {
  ScriptedServer server(KeepAlive(Status(404)));
  const TempDir folder;
  WriteFile(folder / "target", "old");
  fs::create_symlink("target", folder / "link");
  ZTransfer transfer;
  EXPECT_THAT(transfer.DownloadFile(Wide(server.Url()), WidePath(folder / "link"), false), IsCode(TRANSFER_E_CONNECT));
  EXPECT_THAT(NamesIn(folder.Path()), ElementsAre("target"));
}

TEST(ZTransferDownloadFile, RefusedLeavesADeviceInPlace) {
  ScriptedServer server(KeepAlive(Routes({{"/good", Content(MakePattern(100000))}})));
  ZTransfer transfer;
  EXPECT_THAT(transfer.DownloadFile(Wide(server.Url("/missing")), L"/dev/null", false), IsCode(TRANSFER_E_CONNECT));
  struct stat status {};
  ASSERT_EQ(stat("/dev/null", &status), 0);
  ASSERT_TRUE(S_ISCHR(status.st_mode));
  EXPECT_THAT(transfer.DownloadFile(Wide(server.Url("/good")), L"/dev/null", true), IsCode(TRANSFER_S_FINISHED));
  EXPECT_EQ(transfer.GetDownloadSize(), 100000u);
}

// --- refusals: no good answer came

struct RefusalCase {
  int status;
  const char* body;
};

constexpr RefusalCase kRefusals[] = {{404, "no such page"}, {404, ""}, {500, "sorry"}, {302, "elsewhere"},
                                     {401, "who are you"},  {304, ""}, {416, ""}};

TEST(ZTransferDownloadFile, RefusedLeavesNoFile) {
  for (const RefusalCase& c : kRefusals) {
    for (const bool existed : {false, true}) {
      SCOPED_TRACE(c.status);
      ScriptedServer server(KeepAlive(Status(c.status, c.body)));
      const TempDir folder;
      if (existed) WriteFile(folder / "a", "old");
      ZTransfer transfer;
      EXPECT_THAT(transfer.DownloadFile(Wide(server.Url("/a")), WidePath(folder / "a"), false),
                  IsCode(TRANSFER_E_CONNECT));
      EXPECT_THAT(transfer.GetStatus(), IsCode(TRANSFER_E_CONNECT));
      EXPECT_EQ(ErrorOf(transfer), RefusedText(server.Url("/a"), HeaderOf(transfer)));
      EXPECT_THAT(HeaderOf(transfer), StartsWith("HTTP/1.1 " + std::to_string(c.status) + " "));
      EXPECT_THAT(CauseOf(transfer), IsCode(TRANSFER_S_FINISHED));  // libcurl had nothing to complain about
      EXPECT_EQ(CauseTextOf(transfer), "");
      EXPECT_THAT(NamesIn(folder.Path()), IsEmpty());
    }
  }
}

TEST(ZTransferDownloadFile, WithoutAnyAnswerLeavesNoFile) {
  const PortReservation nobody;
  const std::string url = "http://127.0.0.1:" + std::to_string(nobody.Port()) + "/a";
  const TempDir folder;
  WriteFile(folder / "a", "old");
  ZTransfer transfer;
  EXPECT_THAT(transfer.DownloadFile(Wide(url), WidePath(folder / "a"), false), IsCode(TRANSFER_E_CONNECT));
  EXPECT_EQ(ErrorOf(transfer), RefusedText(url, ""));
  EXPECT_THAT(CauseOf(transfer), IsCode(CurlFailure(kRefusedConnection)));
  EXPECT_THAT(CauseTextOf(transfer), HasSubstr("127.0.0.1"));
  EXPECT_THAT(NamesIn(folder.Path()), IsEmpty());
}

TEST(ZTransferDownloadFile, ThatTimesOutBeforeTheAnswerLeavesNoFile) {
  ScriptedServer server([](Connection& peer) {
    peer.ReadRequest();
    peer.WaitUntilStopped();
  });
  const TempDir folder;
  ZTransfer transfer;
  transfer.SetTimeout(1);
  EXPECT_THAT(transfer.DownloadFile(Wide(server.Url()), WidePath(folder / "a"), false), IsCode(TRANSFER_E_CONNECT));
  EXPECT_THAT(CauseOf(transfer), IsCode(CurlFailure(kTimedOut)));
  EXPECT_THAT(NamesIn(folder.Path()), IsEmpty());
}

TEST(ZTransferDownloadFile, TellsTheCauseOfATransferThatNeverBegan) {
  const TempDir folder;
  ZTransfer transfer;
  const struct {
    const char* url;
    unsigned int curlCode;
  } cases[] = {{"http://no-such-host.invalid/", kUnresolvedHost}, {"http://127.0.0.1:1x/", kMalformedUrl}};
  for (const auto& c : cases) {
    EXPECT_THAT(transfer.DownloadFile(Wide(c.url), WidePath(folder / "a"), false), IsCode(TRANSFER_E_CONNECT));
    EXPECT_EQ(ErrorOf(transfer), RefusedText(c.url, ""));
    EXPECT_THAT(CauseOf(transfer), IsCode(CurlFailure(c.curlCode)));
    EXPECT_THAT(NamesIn(folder.Path()), IsEmpty());
  }
}

TEST(ZTransferDownloadFile, TextOfARefusalHoldsInterimHeadersToo) {
  const std::string head =
      "HTTP/1.1 103 Early Hints\r\nLink: x\r\n\r\nHTTP/1.1 404 Not Found\r\nContent-Length: 0\r\n\r\n";
  ScriptedServer server(KeepAlive([&](Connection& peer, const Request&) { peer.Send(head); }));
  const TempDir folder;
  ZTransfer transfer;
  EXPECT_THAT(transfer.DownloadFile(Wide(server.Url()), WidePath(folder / "a"), false), IsCode(TRANSFER_E_CONNECT));
  EXPECT_EQ(ErrorOf(transfer), RefusedText(server.Url(), head));
}

// --- failures after a good answer

TEST(ZTransferDownloadFile, CutOffAfterAGoodAnswerKeepsWhatCame) {
  ContentOptions options;
  options.stopAfter = 5000;
  const std::string content = MakePattern(9000);
  ScriptedServer server(OncePerConnection(Content(content, options)));
  const TempDir folder;
  ZTransfer transfer;
  EXPECT_THAT(transfer.DownloadFile(Wide(server.Url()), WidePath(folder / "a"), false),
              IsCode(CurlFailure(kPartialFile)));
  EXPECT_EQ(ErrorOf(transfer), CauseTextOf(transfer));
  EXPECT_THAT(ErrorOf(transfer), Not(IsEmpty()));
  EXPECT_TRUE(FileHolds(folder / "a", content.substr(0, 5000)));
  EXPECT_EQ(transfer.GetContentSize(), 9000u);
  EXPECT_EQ(transfer.GetDownloadSize(), 5000u);
}

TEST(ZTransferDownloadFile, CutOffBeforeAnyDataKeepsAnEmptyFile) {
  ContentOptions options;
  options.stopAfter = 0;
  ScriptedServer server(OncePerConnection(Content("content", options)));
  const TempDir folder;
  ZTransfer transfer;
  EXPECT_THAT(transfer.DownloadFile(Wide(server.Url()), WidePath(folder / "a"), false),
              IsCode(CurlFailure(kPartialFile)));
  EXPECT_TRUE(FileHolds(folder / "a", ""));
}

TEST(ZTransferDownloadFile, ThatStallsKeepsWhatCame) {
  ContentOptions options;
  options.stopAfter = 5000;
  options.ending = ContentOptions::Ending::kStall;
  const std::string content = MakePattern(9000);
  ScriptedServer server(OncePerConnection(Content(content, options)));
  const TempDir folder;
  ZTransfer transfer;
  const TimeoutSetter setter(transfer, 1);
  EXPECT_THAT(transfer.DownloadFile(Wide(server.Url()), WidePath(folder / "a"), false), IsCode(CurlFailure(kTimedOut)));
  EXPECT_TRUE(FileHolds(folder / "a", content.substr(0, 5000)));
}

// --- other schemes: there is no status to look at, the outcome is libcurl's

TEST(ZTransferDownloadFile, OverFtpReportsWhatLibcurlSays) {
  ScriptedFtpServer server({{"/pub/a.bin", MakePattern(5000)}});
  const TempDir folder;
  ZTransfer transfer;
  EXPECT_THAT(transfer.DownloadFile(Wide(server.Url("/pub/a.bin")), WidePath(folder / "a"), false),
              IsCode(TRANSFER_S_FINISHED));
  EXPECT_TRUE(FileHolds(folder / "a", MakePattern(5000)));
  EXPECT_EQ(HeaderOf(transfer), "");
  EXPECT_THAT(transfer.DownloadFile(Wide(server.Url("/pub/missing")), WidePath(folder / "b"), false),
              IsCode(CurlFailure(kRemoteFileNotFound)));
  EXPECT_EQ(ErrorOf(transfer), CauseTextOf(transfer));
  EXPECT_TRUE(FileHolds(folder / "b", ""));  // kept
}

TEST(ZTransferDownloadFile, OfALocalUrlReportsWhatLibcurlSays) {
  const TempDir folder;
  WriteFile(folder / "source", MakePattern(5000));
  ZTransfer transfer;
  const std::string url = "file://" + folder.Path().string();
  EXPECT_THAT(transfer.DownloadFile(Wide(url + "/source"), WidePath(folder / "copy"), false),
              IsCode(TRANSFER_S_FINISHED));
  EXPECT_TRUE(FileHolds(folder / "copy", MakePattern(5000)));
  EXPECT_THAT(transfer.DownloadFile(Wide(url + "/missing"), WidePath(folder / "kept"), false),
              IsCode(CurlFailure(kUnreadableFile)));
  EXPECT_TRUE(FileHolds(folder / "kept", ""));
  EXPECT_THAT(transfer.DownloadFile(L"corvane://127.0.0.1/", WidePath(folder / "kept"), false),
              IsCode(CurlFailure(kUnsupportedProtocol)));
  EXPECT_TRUE(FileHolds(folder / "kept", ""));
}

}  // namespace
}  // namespace CorvaneTest
