#include <fcntl.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <string>

#include "tests/loopback/TransferTesting.h"
#include "tests/support/FileDescriptor.h"
#include "tests/support/ScriptedFtpServer.h"
#include "tests/support/ScriptedServer.h"
#include "tests/support/Sockets.h"
#include "tests/support/TempDir.h"

// Downloads that continue an existing file.
namespace CorvaneTest {
namespace {

using namespace Corvane;
using testing::Contains;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

namespace fs = std::filesystem;

// A file of `size` bytes that is the beginning of `content`.
void WritePartialFile(const fs::path& file, const std::string& content, std::size_t size) {
  WriteFile(file, std::string_view(content).substr(0, size));
}

struct SizeCase {
  std::size_t size;                  // of the existing file
  std::optional<std::string> range;  // what the server is asked for
  unsigned long long position;
};

const SizeCase kSizes[] = {
    {0, std::nullopt, 0},  {1, std::nullopt, 0},     {32, std::nullopt, 0},     {63, std::nullopt, 0},
    {64, std::nullopt, 0}, {65, "bytes=33-", 33},    {66, "bytes=34-", 34},     {96, "bytes=64-", 64},
    {97, "bytes=65-", 65}, {999, "bytes=967-", 967}, {1000, "bytes=968-", 968},
};

TEST(ZTransferResume, ContinuesAFileOfMoreThan64Bytes) {
  const std::string content = MakePattern(1000);
  for (const SizeCase& c : kSizes) {
    SCOPED_TRACE(c.size);
    ScriptedServer server(KeepAlive(Content(content)));
    const TempDir folder;
    WritePartialFile(folder / "a", content, c.size);
    ZTransfer transfer;
    EXPECT_THAT(transfer.DownloadFile(Wide(server.Url("/a")), WidePath(folder / "a"), true),
                IsCode(TRANSFER_S_FINISHED));
    EXPECT_TRUE(FileHolds(folder / "a", content));
    ASSERT_EQ(server.Requests().size(), 1u);
    EXPECT_EQ(server.Requests()[0].Header("Range"), c.range);
    EXPECT_EQ(server.Requests()[0].CountHeaders("Range"), c.range ? 1u : 0u);
    // Sizes are those of the whole file.
    EXPECT_EQ(transfer.GetContentSize(), content.size());
    EXPECT_EQ(transfer.GetDownloadSize(), content.size());
    EXPECT_LT(transfer.GetTransferSize(), content.size() - c.position + 1000);
  }
}

TEST(ZTransferResume, LogsThePositionOnlyWhenItContinues) {
  const std::string content = MakePattern(1000);
  ScriptedServer server(KeepAlive(Content(content)));
  for (const SizeCase& c : kSizes) {
    SCOPED_TRACE(c.size);
    const TempDir folder;
    const std::string file = folder / "100%2";  // no placeholder
    WritePartialFile(file, content, c.size);
    ZTransfer transfer;
    RecordingLogger logger;
    ASSERT_THAT(transfer.DownloadFile(Wide(server.Url()), Wide(file), true), IsCode(TRANSFER_S_FINISHED));
    const std::string line = "DownloadFile: Resuming file \"" + file + "\" at position " + std::to_string(c.position);
    const auto lines = logger.Messages(ZLogLevel::Information);
    if (c.range) {
      EXPECT_THAT(lines, Contains(line));
    } else {
      EXPECT_THAT(lines, Not(Contains(HasSubstr("Resuming"))));
    }
  }
}

TEST(ZTransferResume, WithoutAFileStartsAfresh) {
  const std::string content = MakePattern(1000);
  ScriptedServer server(KeepAlive(Content(content)));
  const TempDir folder;
  ZTransfer transfer;
  RecordingLogger logger;
  EXPECT_THAT(transfer.DownloadFile(Wide(server.Url()), WidePath(folder / "new" / "a"), true),
              IsCode(TRANSFER_S_FINISHED));
  EXPECT_TRUE(FileHolds(folder / "new" / "a", content));
  EXPECT_EQ(server.Requests()[0].Header("Range"), std::nullopt);
  EXPECT_THAT(logger.Messages(), Not(Contains(HasSubstr("Resuming"))));
}

// The last 32 bytes of a partial file are the least certain ones: they are fetched again.
TEST(ZTransferResume, OverwritesTheLast32Bytes) {
  const std::string content = MakePattern(1000);
  ScriptedServer server(KeepAlive(Content(content)));
  const TempDir folder;
  WriteFile(folder / "a", content.substr(0, 468) + std::string(32, '?'));
  ZTransfer transfer;
  EXPECT_THAT(transfer.DownloadFile(Wide(server.Url()), WidePath(folder / "a"), true), IsCode(TRANSFER_S_FINISHED));
  EXPECT_TRUE(FileHolds(folder / "a", content));
}

TEST(ZTransferResume, LeavesWhatIsBeforeThePositionAsItIs) {
  const std::string content = MakePattern(1000);
  ScriptedServer server(KeepAlive(Content(content)));
  const TempDir folder;
  const std::string old = MakePattern(500, 2);
  WriteFile(folder / "a", old);
  ZTransfer transfer;
  EXPECT_THAT(transfer.DownloadFile(Wide(server.Url()), WidePath(folder / "a"), true), IsCode(TRANSFER_S_FINISHED));
  EXPECT_TRUE(FileHolds(folder / "a", old.substr(0, 468) + content.substr(468)));
}

TEST(ZTransferResume, GoesThroughASymbolicLink) {
  const std::string content = MakePattern(1000);
  ScriptedServer server(KeepAlive(Content(content)));
  const TempDir folder;
  WritePartialFile(folder / "target", content, 200);
  fs::create_symlink("target", folder / "link");
  ZTransfer transfer;
  EXPECT_THAT(transfer.DownloadFile(Wide(server.Url()), WidePath(folder / "link"), true), IsCode(TRANSFER_S_FINISHED));
  EXPECT_EQ(server.Requests()[0].Header("Range"), "bytes=168-");
  EXPECT_TRUE(fs::is_symlink(folder / "link"));
  EXPECT_TRUE(FileHolds(folder / "target", content));
}

TEST(ZTransferResume, CompletesAFileThatWasCutOff) {
  const std::string content = MakePattern(200000);
  ContentOptions options;
  options.stopAfter = 70000;
  ScriptedServer server(OncePerConnection(Content(content, options)));
  const TempDir folder;
  ZTransfer transfer;
  const ZString file = WidePath(folder / "a");
  ZResult code = transfer.DownloadFile(Wide(server.Url()), file, true);
  std::size_t rounds = 1;
  for (; code == CurlFailure(kPartialFile) && rounds < 10; ++rounds) {
    EXPECT_TRUE(FileHolds(folder / "a", content.substr(0, rounds * 70000 - 32 * (rounds - 1))));
    code = transfer.DownloadFile(Wide(server.Url()), file, true);
  }
  EXPECT_THAT(code, IsCode(TRANSFER_S_FINISHED));
  EXPECT_EQ(rounds, 3u);
  EXPECT_TRUE(FileHolds(folder / "a", content));
}

TEST(ZTransferResume, OfUnknownLengthHasNoContentSize) {
  for (const auto framing : {ContentOptions::Framing::kChunked, ContentOptions::Framing::kUntilClose}) {
    ContentOptions options;
    options.framing = framing;
    const std::string content = MakePattern(50000);
    ScriptedServer server(KeepAlive(Content(content, options)));
    const TempDir folder;
    WritePartialFile(folder / "a", content, 10000);
    ZTransfer transfer;
    EXPECT_THAT(transfer.DownloadFile(Wide(server.Url()), WidePath(folder / "a"), true), IsCode(TRANSFER_S_FINISHED));
    EXPECT_TRUE(FileHolds(folder / "a", content));
    EXPECT_EQ(transfer.GetContentSize(), kUnknownSize);
    EXPECT_EQ(transfer.GetDownloadSize(), content.size());
  }
}

TEST(ZTransferResume, TellsObserversOfGoodData) {
  const std::string content = MakePattern(1000);
  ScriptedServer server(KeepAlive(Content(content)));
  const TempDir folder;
  WritePartialFile(folder / "a", content, 500);
  RecordingObserver observer;
  ZTransfer transfer;
  transfer.Attach(&observer);
  ASSERT_THAT(transfer.DownloadFile(Wide(server.Url()), WidePath(folder / "a"), true), IsCode(TRANSFER_S_FINISHED));
  EXPECT_THAT(observer.Events(), testing::ElementsAre(RecordingObserver::Event(1, TRANSFER_E_IN_PROGRESS)));
}

// --- the remote file is not longer than the local one

TEST(ZTransferResume, OfACompleteFileFetchesItsEndAgain) {
  const std::string content = MakePattern(1000);
  ScriptedServer server(KeepAlive(Content(content)));
  const TempDir folder;
  WriteFile(folder / "a", content);
  ZTransfer transfer;
  EXPECT_THAT(transfer.DownloadFile(Wide(server.Url()), WidePath(folder / "a"), true), IsCode(TRANSFER_S_FINISHED));
  EXPECT_TRUE(FileHolds(folder / "a", content));
  EXPECT_EQ(server.Requests()[0].Header("Range"), "bytes=968-");
}

TEST(ZTransferResume, CutsOffWhatIsBehindTheEndOfAShorterRemoteFile) {
  for (const std::size_t localSize : {1001u, 1016u, 1031u}) {
    SCOPED_TRACE(localSize);
    const std::string content = MakePattern(1000);
    ScriptedServer server(KeepAlive(Content(content)));
    const TempDir folder;
    WriteFile(folder / "a", content + MakePattern(localSize - 1000, 2));
    ZTransfer transfer;
    EXPECT_THAT(transfer.DownloadFile(Wide(server.Url()), WidePath(folder / "a"), true), IsCode(TRANSFER_S_FINISHED));
    EXPECT_TRUE(FileHolds(folder / "a", content));
    EXPECT_EQ(transfer.GetContentSize(), 1000u);
    EXPECT_EQ(transfer.GetDownloadSize(), 1000u);
  }
}

TEST(ZTransferResume, BehindTheEndOfTheRemoteFileIsRefused) {
  for (const std::size_t localSize : {1032u, 1033u, 5000u}) {
    SCOPED_TRACE(localSize);
    ScriptedServer server(KeepAlive(Content(MakePattern(1000))));
    const TempDir folder;
    const std::string old = MakePattern(localSize, 2);
    WriteFile(folder / "a", old);
    ZTransfer transfer;
    EXPECT_THAT(transfer.DownloadFile(Wide(server.Url("/a")), WidePath(folder / "a"), true),
                IsCode(TRANSFER_E_CONNECT));
    EXPECT_EQ(ErrorOf(transfer),
              "Failed to connect to the specified URL, " + server.Url("/a") + "\n" + HeaderOf(transfer));
    EXPECT_THAT(HeaderOf(transfer), StartsWith("HTTP/1.1 416 "));
    EXPECT_TRUE(FileHolds(folder / "a", old));
  }
}

// --- servers that do not do as asked: what is in the file stays as it is

struct AnswerCase {
  const char* name;
  const char* answer;
  ZResult code;
};

// Each answer's page is longer than the file's tail that would be overwritten.
constexpr const char* kPage40 = "<p>an error page, 40 bytes of it......\r\n";

const AnswerCase kOtherAnswers[] = {
    {"no range support", "HTTP/1.1 200 OK\r\nContent-Length: 40\r\n\r\n", CurlFailure(kRangeError)},
    {"no range support, unknown length", "HTTP/1.1 200 OK\r\nConnection: close\r\n\r\n", CurlFailure(kRangeError)},
    {"a part without its range", "HTTP/1.1 206 Partial Content\r\nContent-Length: 40\r\n\r\n",
     CurlFailure(kRangeError)},
    {"another range", "HTTP/1.1 206 Partial Content\r\nContent-Range: bytes 0-39/1000\r\nContent-Length: 40\r\n\r\n",
     CurlFailure(kRangeError)},
    {"an unsatisfied range in a good answer",
     "HTTP/1.1 200 OK\r\nContent-Range: bytes */40\r\nContent-Length: 40\r\n\r\n", CurlFailure(kRangeError)},
    {"the range asked for, in an answer that is the whole and of another length",
     "HTTP/1.1 200 OK\r\nContent-Range: bytes 168-199/200\r\nContent-Length: 40\r\n\r\n", CurlFailure(kRangeError)},
    {"the range asked for, in an answer that is the whole and of no known length",
     "HTTP/1.1 200 OK\r\nContent-Range: bytes 168-207/208\r\nConnection: close\r\n\r\n", CurlFailure(kRangeError)},
    {"an unsatisfied range in a part",
     "HTTP/1.1 206 Partial Content\r\ncontent-range:bytes */40\r\nContent-Length: 40\r\n\r\n",
     CurlFailure(kRangeError)},
    {"not satisfiable", "HTTP/1.1 416 Range Not Satisfiable\r\nContent-Range: bytes */40\r\nContent-Length: 40\r\n\r\n",
     TRANSFER_E_CONNECT},
    {"not found", "HTTP/1.1 404 Not Found\r\nContent-Length: 40\r\n\r\n", TRANSFER_E_CONNECT},
    {"server error", "HTTP/1.1 500 Internal Server Error\r\nContent-Length: 40\r\n\r\n", TRANSFER_E_CONNECT},
    {"server error with the range asked for",
     "HTTP/1.1 500 Internal Server Error\r\nContent-Range: bytes 168-207/1000\r\nContent-Length: 40\r\n\r\n",
     TRANSFER_E_CONNECT},
    {"not found with the range asked for",
     "HTTP/1.1 404 Not Found\r\nContent-Range: bytes 168-207/1000\r\nContent-Length: 40\r\n\r\n", TRANSFER_E_CONNECT},
    {"redirect with the range asked for",
     "HTTP/1.1 302 Found\r\nLocation: /b\r\nContent-Range: bytes 168-207/1000\r\nContent-Length: 40\r\n\r\n",
     TRANSFER_E_CONNECT},
    {"redirect with an unsatisfied range",
     "HTTP/1.1 302 Found\r\nLocation: /b\r\nContent-Range: bytes */40\r\nContent-Length: 40\r\n\r\n",
     TRANSFER_E_CONNECT},
};

TEST(ZTransferResume, ThatIsNotAnsweredWithTheRangeKeepsTheFile) {
  for (const AnswerCase& c : kOtherAnswers) {
    SCOPED_TRACE(c.name);
    ScriptedServer server(
        OncePerConnection([&](Connection& peer, const Request&) { peer.Send(std::string(c.answer) + kPage40); }));
    const TempDir folder;
    const std::string old = MakePattern(200, 2);
    WriteFile(folder / "a", old);
    ZTransfer transfer;
    EXPECT_THAT(transfer.DownloadFile(Wide(server.Url("/a")), WidePath(folder / "a"), true), IsCode(c.code));
    EXPECT_THAT(transfer.GetStatus(), IsCode(c.code));
    EXPECT_TRUE(FileHolds(folder / "a", old));
    EXPECT_EQ(server.Requests()[0].Header("Range"), "bytes=168-");
    if (c.code == TRANSFER_E_CONNECT) {
      EXPECT_EQ(ErrorOf(transfer),
                "Failed to connect to the specified URL, " + server.Url("/a") + "\n" + HeaderOf(transfer));
    } else {
      EXPECT_THAT(CauseOf(transfer), IsCode(c.code));
      EXPECT_THAT(ErrorOf(transfer), HasSubstr("Cannot resume"));
    }
  }
}

TEST(ZTransferResume, TellsObserversOfAPageThatIsNotTheFile) {
  ScriptedServer server(KeepAlive(Status(500, kPage40, {{"Content-Range", "bytes 168-207/1000"}})));
  const TempDir folder;
  WriteFile(folder / "a", MakePattern(200));
  RecordingObserver observer;
  ZTransfer transfer;
  transfer.Attach(&observer);
  EXPECT_THAT(transfer.DownloadFile(Wide(server.Url()), WidePath(folder / "a"), true), IsCode(TRANSFER_E_CONNECT));
  EXPECT_THAT(observer.Events(), testing::ElementsAre(RecordingObserver::Event(1, TRANSFER_E_CONNECT)));
}

TEST(ZTransferResume, WithoutAnAnswerKeepsTheFile) {
  const PortReservation nobody;
  const TempDir folder;
  const std::string old = MakePattern(200);
  WriteFile(folder / "a", old);
  ZTransfer transfer;
  const std::string url = "http://127.0.0.1:" + std::to_string(nobody.Port()) + "/";
  EXPECT_THAT(transfer.DownloadFile(Wide(url), WidePath(folder / "a"), true), IsCode(TRANSFER_E_CONNECT));
  EXPECT_THAT(CauseOf(transfer), IsCode(CurlFailure(kRefusedConnection)));
  EXPECT_TRUE(FileHolds(folder / "a", old));
}

// A file of up to 64 bytes was truncated for a fresh download, so a refusal removes it like any other.
TEST(ZTransferResume, OfASmallFileThatIsRefusedLeavesNoFile) {
  ScriptedServer server(KeepAlive(Status(404)));
  const TempDir folder;
  WriteFile(folder / "a", MakePattern(64));
  ZTransfer transfer;
  EXPECT_THAT(transfer.DownloadFile(Wide(server.Url()), WidePath(folder / "a"), true), IsCode(TRANSFER_E_CONNECT));
  EXPECT_THAT(NamesIn(folder.Path()), IsEmpty());
}

// Answers in 200 to 299 without any content: none of them says what the rest of the file is.
TEST(ZTransferResume, ThatIsAnsweredWithoutContentKeepsTheFile) {
  const std::pair<const char*, const char*> answers[] = {
      {"empty now, by a server without ranges", "HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n"},
      {"the same, chunked", "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n0\r\n\r\n"},
      {"the same, until the connection closes", "HTTP/1.1 200 OK\r\nConnection: close\r\n\r\n"},
      {"no content", "HTTP/1.1 204 No Content\r\n\r\n"},
      {"an empty part", "HTTP/1.1 206 Partial Content\r\nContent-Length: 0\r\n\r\n"},
      {"an empty part with the range asked for",
       "HTTP/1.1 206 Partial Content\r\nContent-Range: bytes 168-207/208\r\nContent-Length: 0\r\n\r\n"},
  };
  for (const auto& [name, bytes] : answers) {
    SCOPED_TRACE(name);
    const std::string answer = bytes;  // no lambda may capture a structured binding
    ScriptedServer server(OncePerConnection([&](Connection& peer, const Request&) { peer.Send(answer); }));
    const TempDir folder;
    const std::string old = MakePattern(200);
    WriteFile(folder / "a", old);
    ZTransfer transfer;
    EXPECT_THAT(transfer.DownloadFile(Wide(server.Url()), WidePath(folder / "a"), true),
                IsCode(CurlFailure(kRangeError)));
    EXPECT_THAT(ErrorOf(transfer), Not(IsEmpty()));
    EXPECT_TRUE(FileHolds(folder / "a", old));
  }
}

// A server without ranges sends the whole, which ends just where the download was to continue: libcurl takes that for
// complete without looking at the content.
TEST(ZTransferResume, AtTheEndOfAWholeContentIsComplete) {
  const std::string content = MakePattern(168);
  ContentOptions options;
  options.ranges = ContentOptions::Ranges::kIgnored;
  ScriptedServer server(OncePerConnection(Content(content, options)));
  const TempDir folder;
  WriteFile(folder / "a", content + MakePattern(32, 2));
  ZTransfer transfer;
  EXPECT_THAT(transfer.DownloadFile(Wide(server.Url()), WidePath(folder / "a"), true), IsCode(TRANSFER_S_FINISHED));
  EXPECT_TRUE(FileHolds(folder / "a", content));
}

// --- a part of the rest

struct PartCase {
  const char* name;
  const char* range;
  std::size_t sent;       // bytes of the content from 88 on
  const char* framing;    // how the answer tells its length
  std::size_t localSize;  // resumed 32 bytes before its end, which is at 88
  ZResult code;
  std::size_t kept;  // the size of the file afterwards
};

constexpr std::size_t kMissing = 112;  // from 88 to the end of 200 bytes

const PartCase kParts[] = {
    {"the rest", "bytes 88-199/200", kMissing, "", 120, TRANSFER_S_FINISHED, 200},
    {"the rest of a resource that tells no length", "bytes 88-199/*", kMissing, "", 120, TRANSFER_S_FINISHED, 200},
    {"a range that ends early", "bytes 88-97/200", 10, "Content-Length: 10\r\n", 120, CurlFailure(kPartialFile), 120},
    {"a range that ends early, but behind the file", "bytes 88-149/200", 62, "Content-Length: 62\r\n", 120,
     CurlFailure(kPartialFile), 150},
    {"the rest, but the connection closes", "bytes 88-199/200", 10, "", 120, CurlFailure(kPartialFile), 120},
    {"the rest, but the connection closes behind the file", "bytes 88-199/200", 40, "", 120, CurlFailure(kPartialFile),
     128},
    {"the rest, but its length is short", "bytes 88-199/200", 10, "Content-Length: 10\r\n", 120,
     CurlFailure(kPartialFile), 120},
    {"less than announced of an unknown length", "bytes 88-199/*", 10, "", 120, CurlFailure(kPartialFile), 120},
    {"a part of an unknown length that does not reach the file's end", "bytes 88-97/*", 10, "", 120,
     CurlFailure(kRangeError), 120},
    {"nothing but where it begins, and too little", "bytes 88-", 10, "", 120, CurlFailure(kRangeError), 120},
    {"nothing but where it begins", "bytes 88-", kMissing, "", 120, TRANSFER_S_FINISHED, 200},
    {"more than announced", "bytes 88-97/98", kMissing, "", 120, CurlFailure(kRangeError), 120},
    {"two ranges that agree", "bytes 88-199/200\r\nContent-Range: bytes 88-199/200", kMissing, "", 120,
     TRANSFER_S_FINISHED, 200},
    {"two ranges that differ in their end", "bytes 88-97/98\r\nContent-Range: bytes 88-199/200", kMissing, "", 120,
     CurlFailure(kRangeError), 120},
    {"two ranges that differ in their total", "bytes 88-199/200\r\nContent-Range: bytes 88-199/300", kMissing, "", 120,
     CurlFailure(kRangeError), 120},
    {"two ranges that differ in their beginning", "bytes 0-199/200\r\nContent-Range: bytes 88-199/200", kMissing, "",
     120, CurlFailure(kRangeError), 120},
    {"an end before the beginning", "bytes 88-80/200", kMissing, "", 120, CurlFailure(kRangeError), 120},
    {"a total before the end", "bytes 88-199/100", kMissing, "", 120, CurlFailure(kRangeError), 120},
    {"a total out of range", "bytes 88-199/99999999999999999999", kMissing, "", 120, CurlFailure(kRangeError), 120},
};

// Nothing that was good is lost, and only the whole is a success.
TEST(ZTransferResume, OfWhichOnlyAPartComesIsNoSuccessAndLosesNothing) {
  const std::string content = MakePattern(200);
  for (const PartCase& c : kParts) {
    SCOPED_TRACE(c.name);
    const std::string answer = std::string("HTTP/1.1 206 Partial Content\r\nContent-Range: ") + c.range + "\r\n" +
                               c.framing + "Connection: close\r\n\r\n" + content.substr(88, c.sent);
    ScriptedServer server(OncePerConnection([&](Connection& peer, const Request&) { peer.Send(answer); }));
    const TempDir folder;
    WritePartialFile(folder / "a", content, c.localSize);
    ZTransfer transfer;
    EXPECT_THAT(transfer.DownloadFile(Wide(server.Url("/a")), WidePath(folder / "a"), true), IsCode(c.code));
    EXPECT_TRUE(FileHolds(folder / "a", content.substr(0, c.kept)));
    EXPECT_EQ(server.Requests()[0].Header("Range"), "bytes=88-");
    EXPECT_THAT(CauseOf(transfer), IsCode(c.code));
  }
}

// Scripts that hand out files know ranges, and often forget the status.
TEST(ZTransferResume, TakesAPartWithTheStatusOfAWholeWhenItsLengthProvesIt) {
  const std::string content = MakePattern(200);
  for (const char* range : {"bytes 88-199/200", "bytes 88-199/*", "bytes 88-/200"}) {
    SCOPED_TRACE(range);
    ScriptedServer server(OncePerConnection([&](Connection& peer, const Request&) {
      peer.Send(std::string("HTTP/1.1 200 OK\r\nContent-Range: ") + range + "\r\nContent-Length: 112\r\n\r\n" +
                content.substr(88));
    }));
    const TempDir folder;
    WritePartialFile(folder / "a", content, 120);
    ZTransfer transfer;
    EXPECT_THAT(transfer.DownloadFile(Wide(server.Url("/a")), WidePath(folder / "a"), true),
                IsCode(TRANSFER_S_FINISHED));
    EXPECT_TRUE(FileHolds(folder / "a", content));
  }
}

TEST(ZTransferResume, SaysHowMuchOfTheFileHasCome) {
  ScriptedServer server(OncePerConnection([](Connection& peer, const Request&) {
    peer.Send("HTTP/1.1 206 Partial Content\r\nContent-Range: bytes 88-97/200\r\nContent-Length: 10\r\n\r\n0123456789");
  }));
  const TempDir folder;
  WriteFile(folder / "a", MakePattern(120));
  ZTransfer transfer;
  transfer.DownloadFile(Wide(server.Url("/a")), WidePath(folder / "a"), true);
  EXPECT_EQ(ErrorOf(transfer), "The server sent only 98 of the file's 200 bytes. The rest is still missing.");
}

// A server may send large files piece by piece; each run gets further.
TEST(ZTransferResume, OfAServerThatSendsPiecesComesToItsEnd) {
  const std::string content = MakePattern(1000);
  ScriptedServer server(KeepAlive([&](Connection& peer, const Request& request) {
    const std::size_t first = std::stoul(request.Header("Range").value().substr(6));
    const std::string part = content.substr(first, 300);
    peer.Send(FormatHead(206, {{"Content-Range", "bytes " + std::to_string(first) + "-" +
                                                     std::to_string(first + part.size() - 1) + "/1000"},
                               {"Content-Length", std::to_string(part.size())}}) +
              part);
  }));
  const TempDir folder;
  WritePartialFile(folder / "a", content, 100);
  ZTransfer transfer;
  int runs = 1;
  while (transfer.DownloadFile(Wide(server.Url("/a")), WidePath(folder / "a"), true) == CurlFailure(kPartialFile)) {
    ASSERT_LT(++runs, 10);
  }
  EXPECT_THAT(transfer.GetStatus(), IsCode(TRANSFER_S_FINISHED));
  EXPECT_EQ(runs, 4);
  EXPECT_TRUE(FileHolds(folder / "a", content));
}

// --- other schemes

TEST(ZTransferResume, OverFtpContinuesBehindThePosition) {
  const std::string content = MakePattern(1000);
  ScriptedFtpServer server({{"/a", content}});
  const TempDir folder;
  WritePartialFile(folder / "a", content, 500);
  ZTransfer transfer;
  EXPECT_THAT(transfer.DownloadFile(Wide(server.Url("/a")), WidePath(folder / "a"), true), IsCode(TRANSFER_S_FINISHED));
  EXPECT_TRUE(FileHolds(folder / "a", content));
  EXPECT_TRUE(server.HasCommand("REST 468"));
  EXPECT_EQ(transfer.GetContentSize(), content.size());
  EXPECT_EQ(transfer.GetDownloadSize(), content.size());
}

struct FtpSizeCase {
  std::size_t localSize;
  ZResult code;
  bool isKept;  // the old file, else it is the remote one in the end
};

TEST(ZTransferResume, OverFtpOfAShorterRemoteFile) {
  const FtpSizeCase cases[] = {{1000, TRANSFER_S_FINISHED, false},
                               {1016, TRANSFER_S_FINISHED, false},
                               {1031, TRANSFER_S_FINISHED, false},
                               {1032, TRANSFER_S_FINISHED, false},  // nothing is left to fetch
                               {1033, CurlFailure(kBadResume), true}};
  const std::string content = MakePattern(1000);
  for (const FtpSizeCase& c : cases) {
    SCOPED_TRACE(c.localSize);
    ScriptedFtpServer server({{"/a", content}});
    const TempDir folder;
    const std::string old = content + MakePattern(c.localSize - content.size(), 2);
    WriteFile(folder / "a", old);
    ZTransfer transfer;
    EXPECT_THAT(transfer.DownloadFile(Wide(server.Url("/a")), WidePath(folder / "a"), true), IsCode(c.code));
    EXPECT_TRUE(FileHolds(folder / "a", c.isKept ? old : content));
  }
}

// A server that sends nothing has not said that nothing is missing.
TEST(ZTransferResume, OverFtpWithoutABySizeProvenEndIsNoSuccess) {
  const std::string old = MakePattern(1000, 2);
  for (const char* const size : {"213 500", "500 What?", "213 0"}) {
    SCOPED_TRACE(size);
    ScriptedFtpServer server({{"/a", MakePattern(968)}});  // nothing is left to send, but nobody says so
    server.SetReply("SIZE", size);
    const TempDir folder;
    WriteFile(folder / "a", old);
    ZTransfer transfer;
    const ZResult code = transfer.DownloadFile(Wide(server.Url("/a")), WidePath(folder / "a"), true);
    EXPECT_TRUE(IsFailure(code)) << Hex(code);
    EXPECT_TRUE(FileHolds(folder / "a", old));
  }
}

TEST(ZTransferResume, OverFtpOfAFileThatIsGoneKeepsTheLocalOne) {
  ScriptedFtpServer server;
  const TempDir folder;
  const std::string old = MakePattern(200);
  WriteFile(folder / "a", old);
  ZTransfer transfer;
  const ZResult code = transfer.DownloadFile(Wide(server.Url("/a")), WidePath(folder / "a"), true);
  EXPECT_TRUE(IsFailure(code)) << Hex(code);
  EXPECT_THAT(CauseOf(transfer), IsCode(code));
  EXPECT_TRUE(FileHolds(folder / "a", old));
}

TEST(ZTransferResume, OfALocalUrlContinuesBehindThePosition) {
  const std::string content = MakePattern(1000);
  const TempDir folder;
  WriteFile(folder / "source", content);
  WriteFile(folder / "copy", content.substr(0, 468) + std::string(32, '?'));
  ZTransfer transfer;
  EXPECT_THAT(transfer.DownloadFile(Wide("file://" + (folder / "source").string()), WidePath(folder / "copy"), true),
              IsCode(TRANSFER_S_FINISHED));
  EXPECT_TRUE(FileHolds(folder / "copy", content));
}

// --- sizes that 32 bits do not hold

constexpr unsigned long long kHuge = (5ULL << 30) + 12345;

// The byte at each position of a content that is too large to hold.
char SyntheticByte(unsigned long long position) { return static_cast<char>((position * 2654435761ULL) >> 24); }

std::string SyntheticBytes(unsigned long long from, std::size_t count) {
  std::string bytes(count, '\0');
  for (std::size_t i = 0; i < count; ++i) bytes[i] = SyntheticByte(from + i);
  return bytes;
}

// Serves the rest of a content of `total` bytes from the position that the request names.
Responder SyntheticRest(unsigned long long total) {
  return [total](Connection& peer, const Request& request) {
    constexpr std::string_view kPrefix = "bytes=";
    const std::string range = request.Header("Range").value_or("bytes=0-");
    unsigned long long from = 0;
    std::from_chars(range.data() + kPrefix.size(), range.data() + range.size(), from);
    const std::string contentRange =
        "bytes " + std::to_string(from) + "-" + std::to_string(total - 1) + "/" + std::to_string(total);
    peer.Send(FormatHead(206, {{"Content-Length", std::to_string(total - from)}, {"Content-Range", contentRange}}) +
              SyntheticBytes(from, static_cast<std::size_t>(total - from)));
  };
}

TEST(ZTransferResume, ContinuesAFileOfMoreThan4GiB) {
  constexpr std::size_t kRest = 100000;
  ScriptedServer server(KeepAlive(SyntheticRest(kHuge + kRest)));
  const TempDir folder;
  const fs::path file = folder / "huge";
  WriteFile(file, "");
  ASSERT_EQ(truncate(file.c_str(), static_cast<off_t>(kHuge)), 0) << "the file system has no sparse files";
  ZTransfer transfer;
  EXPECT_THAT(transfer.DownloadFile(Wide(server.Url()), WidePath(file), true), IsCode(TRANSFER_S_FINISHED));
  EXPECT_EQ(server.Requests()[0].Header("Range"), "bytes=" + std::to_string(kHuge - 32) + "-");
  EXPECT_EQ(transfer.GetContentSize(), kHuge + kRest);
  EXPECT_EQ(transfer.GetDownloadSize(), kHuge + kRest);
  EXPECT_EQ(FileSize(file), kHuge + kRest);

  const FileDescriptor descriptor(open(file.c_str(), O_RDONLY | O_CLOEXEC));
  std::string tail(kRest + 64, 'x');
  ASSERT_EQ(pread(descriptor.Get(), tail.data(), tail.size(), static_cast<off_t>(kHuge - 64)),
            static_cast<ssize_t>(tail.size()));
  EXPECT_TRUE(tail == std::string(32, '\0') + SyntheticBytes(kHuge - 32, kRest + 32));
  std::string head(4096, 'x');
  ASSERT_EQ(pread(descriptor.Get(), head.data(), head.size(), 0), static_cast<ssize_t>(head.size()));
  EXPECT_EQ(head, std::string(4096, '\0'));
}

TEST(ZTransferResume, CutsOffAFileOfMoreThan4GiB) {
  ScriptedServer server(KeepAlive(SyntheticRest(kHuge - 20)));
  const TempDir folder;
  const fs::path file = folder / "huge";
  WriteFile(file, "");
  ASSERT_EQ(truncate(file.c_str(), static_cast<off_t>(kHuge)), 0) << "the file system has no sparse files";
  ZTransfer transfer;
  EXPECT_THAT(transfer.DownloadFile(Wide(server.Url()), WidePath(file), true), IsCode(TRANSFER_S_FINISHED));
  EXPECT_EQ(FileSize(file), kHuge - 20);
}

}  // namespace
}  // namespace CorvaneTest
