#include "tests/abort/StressServer.h"

#include <chrono>
#include <utility>

#include "tests/loopback/TransferTesting.h"

namespace CorvaneTest {
namespace {

constexpr std::chrono::seconds kStall{20};
constexpr std::chrono::seconds kUnreadStall{5};  // shorter: a peer that left shows only when its data is read
constexpr std::size_t kBodySize = 50000;
constexpr unsigned int kEmptyReply = 52;
constexpr unsigned int kSendError = 55;

struct Row {
  const char* name;
  std::vector<unsigned int> failures;
  bool maySucceed;
};

const Row& RowOf(Behaviour behaviour) {
  static const Row rows[kBehaviours] = {
      {"answer", {}, true},
      {"trickle", {}, true},
      {"stream", {}, false},
      {"reset", {kPartialFile, kEmptyReply, kSendError, kReceiveError}, false},
      {"close-early", {kPartialFile, kEmptyReply, kReceiveError}, false},
      {"stall-head", {kReceiveError}, false},
      {"stall-body", {kReceiveError}, false},
      {"unread", {kSendError, kReceiveError}, false},
      {"no-connect", {}, false},
      {"no-hello", {}, false},
      {"no-banner", {}, false},
  };
  return rows[static_cast<std::size_t>(behaviour)];
}

void Pause(Connection& peer, std::chrono::milliseconds time) {
  const Gate never;
  peer.WaitFor(never, After(time));
}

void SendPart(Connection& peer) {
  peer.Send(FormatHead(200, {{"Content-Length", std::to_string(kBodySize)}}) + std::string(kBodySize / 2, 'x'));
}

void Trickle(Connection& peer) {
  constexpr int kPieces = 50;
  peer.Send(FormatHead(200, {{"Content-Length", std::to_string(kPieces)}}));
  for (int i = 0; i < kPieces && peer.Send("x"); ++i) Pause(peer, std::chrono::milliseconds(2));
}

void Stream(Connection& peer) {
  peer.Send(FormatHead(200, {{"Transfer-Encoding", "chunked"}}));
  const std::string chunk = FormatChunk(std::string(4096, 'x'));
  while (peer.Send(chunk)) Pause(peer, std::chrono::milliseconds(1));  // no need to fill the memory of the client
}

void Stall(Connection& peer) {
  peer.WaitUntilPeerCloses(After(kStall));
  peer.Reset();
}

void StallForGood(Connection& peer) { peer.WaitUntilPeerCloses(After(std::chrono::minutes(10))); }

}  // namespace

const char* NameOf(Behaviour behaviour) { return RowOf(behaviour).name; }
const std::vector<unsigned int>& FailuresOf(Behaviour behaviour) { return RowOf(behaviour).failures; }
bool MaySucceed(Behaviour behaviour) { return RowOf(behaviour).maySucceed; }

StressServer::StressServer()
    : m_content(Content(std::string(kBodySize, 'x'))),
      m_silent(StallForGood),
      m_server([this](Connection& peer) { Serve(peer); }) {}

std::string StressServer::Url(Behaviour behaviour) const {
  const std::string silent = "://127.0.0.1:" + std::to_string(m_silent.Port()) + "/";
  switch (behaviour) {
    case Behaviour::kNoConnect:
      return m_noConnect.Url();
    case Behaviour::kNoHello:
      return "https" + silent;
    case Behaviour::kNoBanner:
      return "ftp" + silent + "file";
    default:
      return m_server.Url("/" + std::to_string(static_cast<std::size_t>(behaviour)));
  }
}

void StressServer::Serve(Connection& peer) const {
  while (peer.IsOpen()) {
    auto request = peer.ReadRequest(Body::kLeave);
    if (!request) return;
    Answer(peer, *request);
  }
}

void StressServer::Answer(Connection& peer, Request& request) const {
  const auto behaviour = static_cast<Behaviour>(std::stoul(request.target.substr(1)));
  if (behaviour == Behaviour::kUnread) {
    Pause(peer, kUnreadStall);
    return peer.Reset();
  }
  if (!peer.ReadBody(request, Body::kCount)) return peer.Close();
  switch (behaviour) {
    case Behaviour::kTrickle:
      return Trickle(peer);
    case Behaviour::kStream:
      Stream(peer);
      return peer.Close();
    case Behaviour::kReset:
      SendPart(peer);
      return peer.Reset();
    case Behaviour::kCloseEarly:
      if (peer.Number() % 2 == 0) SendPart(peer);
      return peer.Close();
    case Behaviour::kStallBody:
      SendPart(peer);
      return Stall(peer);
    case Behaviour::kStallHead:
      return Stall(peer);
    default:
      return m_content(peer, request);
  }
}

}  // namespace CorvaneTest
