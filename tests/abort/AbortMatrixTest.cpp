#include <gmock/gmock.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <functional>
#include <string>

#include "tests/abort/AbortTesting.h"
#include "tests/support/Pki.h"
#include "tests/support/ScriptedFtpServer.h"
#include "tests/support/ScriptedServer.h"
#include "tests/support/StalledListener.h"
#include "tests/support/TempDir.h"

// An abort in each phase of an operation, on a server that holds the operation in that phase. The time-out is 300
// seconds, as it is in a new object, so that an operation which ends within kAbortLimit was ended by the abort.
namespace CorvaneTest {
namespace {

using namespace Corvane;

namespace fs = std::filesystem;

constexpr std::size_t kBodySize = 1000;  // of a body that stalls half way

// The time between two pieces of an answer that trickles: the operation is never quite without data.
void Pause(Connection& peer) {
  const Gate never;
  peer.WaitFor(never, After(std::chrono::milliseconds(20)));
}

class AbortMatrix : public testing::Test {
 protected:
  using Reached = std::function<bool()>;
  enum class Answer { kNone, kGood };

  // Aborts a download into memory when `reached` tells that it is in the phase.
  void AbortDownload(const std::string& phase, const std::string& url, const Reached& reached) {
    ZTransfer transfer;
    ZString result;
    RunningOperation download(transfer, [&] { return transfer.Download(Wide(url), result); });
    m_transfer = &transfer;
    ASSERT_TRUE(reached()) << phase;
    ExpectAbortEnds(phase, transfer, download);
  }

  // The same for a download into a file. `answer` is what has come by then: without a good answer the download counts
  // as one that could not connect, and leaves no file.
  void AbortDownloadIntoFile(const std::string& phase, const std::string& url, const Reached& reached, Answer answer) {
    ZTransfer transfer;
    const ZString file = WidePath(m_folder / "file");
    RunningOperation download(transfer, [&] { return transfer.DownloadFile(Wide(url), file, false); });
    m_transfer = &transfer;
    ASSERT_TRUE(reached()) << phase;
    ExpectAbortEnds(phase + ", into a file", transfer, download,
                    answer == Answer::kNone ? AbortedWithoutAnswer(url) : AbortedOutcome());
    EXPECT_EQ(fs::exists(m_folder / "file"), answer == Answer::kGood) << phase;
  }

  void AbortDownloads(const std::string& phase, const std::string& url, const Reached& reached, Answer answer) {
    AbortDownload(phase, url, reached);
    AbortDownloadIntoFile(phase, url, reached, answer);
  }

  // The same for posting a file that is too large for the buffers of the sockets.
  void AbortPost(const std::string& phase, const std::string& url, const Reached& reached) {
    WriteFile(m_folder / "large", "");
    fs::resize_file(m_folder / "large", 64 << 20);
    ZTransfer transfer;
    RunningOperation post(transfer, [&] { return transfer.PostFile(Wide(url), WidePath(m_folder / "large")); });
    m_transfer = &transfer;
    ASSERT_TRUE(reached()) << phase;
    ExpectAbortEnds(phase, transfer, post);
  }

  // True once the running transfer has received so much of the body.
  [[nodiscard]] bool HasReceived(std::size_t bytes) const {
    return WaitUntil([&] { return m_transfer->GetDownloadSize() >= bytes; });
  }

  // True once one more connection attempt to the port than before is unanswered.
  static bool IsConnecting(unsigned int port, int before) {
    return WaitUntil([&] { return PendingConnections(port) > before; });
  }

  const TempDir m_folder;
  const ZTransfer* m_transfer = nullptr;  // the transfer that is being aborted
};

// Counts how often a handler has come to its phase, so that the second operation is not taken for the first.
class Arrivals {
 public:
  void Count() { ++m_count; }
  bool Next() {
    ++m_awaited;
    return WaitUntil([&] { return m_count >= m_awaited; });
  }

 private:
  std::atomic<int> m_count{0};
  int m_awaited = 0;
};

// --- connecting

TEST_F(AbortMatrix, WhileConnecting) {
  const StalledListener listener;
  const int before = PendingConnections(listener.Port());
  AbortDownloads(
      "connecting", listener.Url(), [&] { return IsConnecting(listener.Port(), before); }, Answer::kNone);
}

// The server takes the first message of the handshake and never says anything.
TEST_F(AbortMatrix, WithinTheTlsHandshake) {
  Arrivals hellos;
  ScriptedServer server([&](Connection& peer) {
    if (!peer.ReadSome().empty()) hellos.Count();
    peer.WaitUntilStopped();
  });
  const std::string url = "https://127.0.0.1:" + std::to_string(server.Port()) + "/";
  AbortDownloads(
      "TLS handshake", url, [&] { return hellos.Next(); }, Answer::kNone);
}

// --- the answer

TEST_F(AbortMatrix, WaitingForTheAnswer) {
  Arrivals requests;
  ScriptedServer server([&](Connection& peer) {
    if (peer.ReadRequest()) requests.Count();
    peer.WaitUntilStopped();
  });
  AbortDownloads(
      "waiting for the answer", server.Url(), [&] { return requests.Next(); }, Answer::kNone);
}

TEST_F(AbortMatrix, WaitingForTheAnswerOverTls) {
  const Pki pki = MakePki(m_folder.Path());
  Arrivals requests;
  ScriptedServer server(
      [&](Connection& peer) {
        if (peer.ReadRequest()) requests.Count();
        peer.WaitUntilStopped();
      },
      pki.server);
  AbortDownloads(
      "waiting for the answer over TLS", server.Url(), [&] { return requests.Next(); }, Answer::kNone);
}

// Sends `piece` again and again, in the middle of the head, and counts an arrival when the client has had the time to
// read the status. Whether it has nobody can tell, so that only downloads into memory, to which that is all the same,
// are aborted here.
ScriptedServer::Handler TricklingHead(Arrivals& arrivals, const std::string& piece) {
  return [&arrivals, piece](Connection& peer) {
    peer.ReadRequest();
    peer.Send("HTTP/1.1 200 OK\r\n");
    for (int sent = 0; peer.Send(piece); ++sent) {
      if (sent == 5) arrivals.Count();
      Pause(peer);
    }
  };
}

TEST_F(AbortMatrix, WhileHeaderLinesTrickle) {
  Arrivals lines;
  ScriptedServer server(TricklingHead(lines, "X: y\r\n"));
  AbortDownload("header lines trickling", server.Url(), [&] { return lines.Next(); });
}

// No line ever ends, so that no callback is called.
TEST_F(AbortMatrix, WhileTheBytesOfOneHeaderLineTrickle) {
  Arrivals bytes;
  ScriptedServer server(TricklingHead(bytes, "x"));
  AbortDownload("header bytes trickling", server.Url(), [&] { return bytes.Next(); });
}

// --- the body

TEST_F(AbortMatrix, WhileTheBodyStalls) {
  ContentOptions options;
  options.stopAfter = kBodySize;
  options.ending = ContentOptions::Ending::kStall;
  ScriptedServer server(KeepAlive(Content(std::string(2 * kBodySize, 'x'), options)));
  AbortDownloads(
      "body stalled", server.Url(), [&] { return HasReceived(kBodySize); }, Answer::kGood);
}

TEST_F(AbortMatrix, WhileTheBodyTrickles) {
  ScriptedServer server([](Connection& peer) {
    peer.ReadRequest();
    peer.Send(FormatHead(200, {{"Content-Length", "1000000"}}));
    while (peer.Send("x")) Pause(peer);
  });
  AbortDownloads(
      "body trickling", server.Url(), [&] { return HasReceived(1); }, Answer::kGood);
}

void StreamBody(Connection& peer) {
  peer.ReadRequest();
  peer.Send(FormatHead(200, {{"Transfer-Encoding", "chunked"}}));
  const std::string chunk = FormatChunk(std::string(16384, 'x'));
  while (peer.Send(chunk)) {
  }
}

TEST_F(AbortMatrix, WhileTheBodyComesAtFullSpeed) {
  ScriptedServer server(StreamBody);
  AbortDownloads(
      "body at full speed", server.Url(), [&] { return HasReceived(1 << 20); }, Answer::kGood);
}

TEST_F(AbortMatrix, WhileTheBodyComesAtFullSpeedOverTls) {
  const Pki pki = MakePki(m_folder.Path());
  ScriptedServer server(StreamBody, pki.server);
  AbortDownloads(
      "body at full speed over TLS", server.Url(), [&] { return HasReceived(1 << 20); }, Answer::kGood);
}

// --- uploads

TEST_F(AbortMatrix, WhileTheServerDoesNotReadAnUpload) {
  Arrivals uploads;
  ScriptedServer server([&](Connection& peer) {
    peer.ReadRequest(Body::kLeave);
    peer.Send("HTTP/1.1 100 Continue\r\n\r\n");
    if (!peer.ReadSome().empty()) uploads.Count();  // the body has begun
    peer.WaitUntilStopped();
  });
  AbortPost("upload stalled", server.Url(), [&] { return uploads.Next(); });
}

TEST_F(AbortMatrix, WhileTheServerReadsAnUploadSlowly) {
  Arrivals uploads;
  ScriptedServer server([&](Connection& peer) {
    peer.ReadRequest(Body::kLeave);
    peer.Send("HTTP/1.1 100 Continue\r\n\r\n");
    while (!peer.ReadSome(4096).empty()) {
      uploads.Count();
      Pause(peer);
    }
  });
  AbortPost("upload crawling", server.Url(), [&] { return uploads.Next(); });
}

TEST_F(AbortMatrix, WhileTheServerIsAskedWhetherToContinue) {
  ScriptedServer server([](Connection& peer) {
    peer.ReadRequest(Body::kLeave);
    peer.WaitUntilStopped();
  });
  AbortPost("100-continue pending", server.Url(), [&] { return server.WaitForRequests(1); });
  EXPECT_EQ(server.Requests().at(0).Header("Expect"), "100-continue");
}

// The answer to a post that has been sent completely.
TEST_F(AbortMatrix, WaitingForTheAnswerToAPost) {
  ScriptedServer server([](Connection& peer) {
    peer.ReadRequest();
    peer.WaitUntilStopped();
  });
  ZTransfer transfer;
  RunningOperation post(transfer, [&] { return transfer.PostData(Wide(server.Url()), L"data"); });
  ASSERT_TRUE(WaitUntil([&] { return !server.Requests().empty() && server.Requests()[0].isBodyComplete; }));
  ExpectAbortEnds("waiting for the answer to a post", transfer, post);
}

// --- FTP. There is no status that a download into a file could miss, so that each is simply aborted.

TEST_F(AbortMatrix, BeforeTheBannerOfAnFtpServer) {
  Arrivals clients;
  ScriptedServer server([&](Connection& peer) {
    clients.Count();
    peer.WaitUntilStopped();
  });
  const std::string url = "ftp://127.0.0.1:" + std::to_string(server.Port()) + "/a";
  AbortDownloads(
      "FTP before the banner", url, [&] { return clients.Next(); }, Answer::kGood);
}

TEST_F(AbortMatrix, AfterTheUserNameOfAnFtpLogin) {
  Arrivals logins;
  ScriptedFtpServer server({{"/a", MakePattern(kBodySize)}});
  server.OnCommand("USER", [&](Connection& control, const std::string&) {
    logins.Count();
    control.WaitUntilStopped();
    return true;
  });
  AbortDownloads(
      "FTP after USER", server.Url("/a"), [&] { return logins.Next(); }, Answer::kGood);
}

// The server names a port for the data where nobody answers.
TEST_F(AbortMatrix, WhileConnectingForTheDataOfAnFtpDownload) {
  const StalledListener listener;
  const int before = PendingConnections(listener.Port());
  ScriptedFtpServer server({{"/a", MakePattern(kBodySize)}});
  server.SetReply("EPSV", "229 Entering Extended Passive Mode (|||" + std::to_string(listener.Port()) + "|)");
  AbortDownloads(
      "FTP connecting for data", server.Url("/a"), [&] { return IsConnecting(listener.Port(), before); },
      Answer::kGood);
}

TEST_F(AbortMatrix, WhileTheDataOfAnFtpDownloadStalls) {
  ScriptedFtpServer server({{"/a", MakePattern(2 * kBodySize)}});
  server.StallDataAfter(kBodySize);
  AbortDownloads(
      "FTP data stalled", server.Url("/a"), [&] { return HasReceived(kBodySize); }, Answer::kGood);
}

// There is a connection for the data, on which nothing comes.
TEST_F(AbortMatrix, BeforeTheDataOfAnFtpDownload) {
  Arrivals downloads;
  ScriptedFtpServer server({{"/a", MakePattern(kBodySize)}});
  server.OnCommand("RETR", [&](Connection& control, const std::string&) {
    if (control.Send("150 Here it comes\r\n")) downloads.Count();
    control.WaitUntilStopped();
    return true;
  });
  AbortDownloads(
      "FTP before the data", server.Url("/a"), [&] { return downloads.Next(); }, Answer::kGood);
}

}  // namespace
}  // namespace CorvaneTest
