#include "tests/faults/HttpFaults.h"

#include <charconv>
#include <mutex>
#include <optional>
#include <utility>

namespace CorvaneTest {

namespace {

constexpr std::string_view kPagePath = "/dir/";
constexpr std::string_view kGoodPagePath = "/good/";

std::string Joined(std::string_view folder, std::string_view name) { return std::string(folder).append(name); }

// The page and the file on which nothing is wrong, of either directory.
Responder GoodContents() {
  return Routes({{Joined(kPagePath, ""), Content(PageOfOneFile(kFileName))},
                 {Joined(kPagePath, kFileName), Content(FileContent())},
                 {Joined(kGoodPagePath, ""), Content(PageOfOneFile(kGoodName))},
                 {Joined(kGoodPagePath, kGoodName), Content(GoodContent())}});
}

}  // namespace

class HttpFaultSite final : public FaultSite {
 public:
  HttpFaultSite(const HttpFault& fault, Op op, Tls tls, const TlsIdentity* identity)
      : m_fault(fault), m_op(op), m_good(GoodContents()) {
    const ScriptedServer::Handler handler = [this](Connection& peer) { Serve(peer); };
    m_isTls = tls != Tls::kNone;
    if (tls == Tls::kUsed || tls == Tls::kDistrusted) {
      m_server.emplace(handler, *identity);
    } else {
      m_server.emplace(handler);
    }
    if (tls == Tls::kInterrupted) m_goodServer.emplace(KeepAlive(m_good), *identity);
    if (tls == Tls::kDistrusted) m_goodServer.emplace(KeepAlive(m_good));
  }

  [[nodiscard]] Targets Where() const override {
    const std::string port = std::to_string(m_server->Port());
    const std::string bad = m_isTls ? "https://localhost:" + port : "http://127.0.0.1:" + port;
    const std::string good = m_goodServer ? m_goodServer->Url("") : bad;
    return {Joined(bad, kPagePath), Joined(bad, Joined(kPagePath, kFileName)), Joined(good, kGoodPagePath),
            Joined(good, Joined(kGoodPagePath, kGoodName))};
  }

  [[nodiscard]] std::optional<std::string> HeaderSent() const override {
    const std::lock_guard lock(m_mutex);
    return m_fault.hasTrailers ? std::nullopt : std::optional(m_sent);
  }

  [[nodiscard]] const std::string& WholeContent() const override {
    return IsOnPage(m_op) ? PageOfOneFile(kFileName) : FileContent();
  }
  void FallSilent() { m_isSilent.Open(); }
  void Record(const std::string& bytes) {
    const std::lock_guard lock(m_mutex);
    constexpr std::size_t kMost = 64 << 20;
    if (m_sent.size() < kMost) m_sent += bytes;
  }

 private:
  void Serve(Connection& peer) {
    // A tree has asked for the page on a connection before.
    if (m_fault.isAtAccept && peer.Number() == (m_op == Op::kTreeFile ? 1U : 0U)) {
      Answer answer(peer, *this, nullptr);
      m_fault.answer(answer);
    }
    while (peer.IsOpen()) {
      const std::optional<Request> request = peer.ReadRequest();
      if (!request) return;
      Respond(peer, *request);
    }
  }

  void Respond(Connection& peer, const Request& request) {
    const bool isPage = request.Path() == kPagePath;
    const bool isFile = request.Path() == Joined(kPagePath, kFileName);
    if (!m_fault.isAtAccept && (IsOnPage(m_op) ? isPage : isFile)) {
      Answer answer(peer, *this, &request);
      return m_fault.answer(answer);
    }
    if (m_op != Op::kTreeFile || !isPage) return m_good(peer, request);
    // The file is then asked for on a connection of its own: libcurl asks again by itself when a used one breaks.
    ContentOptions options;
    options.headers = {{"Connection", "close"}};
    Content(PageOfOneFile(kFileName), options)(peer, request);
  }

  const HttpFault& m_fault;
  const Op m_op;
  const Responder m_good;
  bool m_isTls = false;
  mutable std::mutex m_mutex;
  std::string m_sent;  // guarded by m_mutex
  std::optional<ScriptedServer> m_goodServer;
  std::optional<ScriptedServer> m_server;  // last: stopped before what its handlers use goes away
};

// --- Answer

Answer::Answer(Connection& peer, HttpFaultSite& site, const Request* request) : m_peer(peer), m_site(site) {
  if (request == nullptr) return;
  constexpr std::string_view kUnit = "bytes=";
  const std::string range = request->Header("Range").value_or("");
  m_isRanged = range.compare(0, kUnit.size(), kUnit) == 0;
  if (m_isRanged) std::from_chars(range.data() + kUnit.size(), range.data() + range.size(), m_position);
  m_target = request->target;
}

std::string Answer::StatusLine() const {
  if (!m_isRanged) return "HTTP/1.1 200 OK\r\n";
  return "HTTP/1.1 206 Partial Content\r\nContent-Range: bytes " + std::to_string(m_position) + "-" +
         std::to_string(kContentSize - 1) + "/" + std::to_string(kContentSize) + "\r\n";
}

std::string Answer::Head(std::initializer_list<std::string> lines) const {
  std::string head = StatusLine();
  for (const std::string& line : lines) head += line + "\r\n";
  return head + "\r\n";
}

std::string Answer::Length() const { return "Content-Length: " + std::to_string(kContentSize - m_position); }

std::string Answer::Body(std::size_t upTo) const { return m_site.WholeContent().substr(m_position, upTo - m_position); }

bool Answer::Send(const std::string& bytes) {
  m_site.Record(bytes);
  return m_peer.Send(bytes);
}

void Answer::SendAndClose(const std::string& bytes) {
  Send(bytes);
  m_peer.Close();
}

void Answer::SendAndReset(const std::string& bytes) {
  Send(bytes);
  m_peer.WaitUntilPeerHasRead();
  m_peer.Reset();
}

void Answer::Stall() {
  if (m_peer.WaitUntilPeerHasRead()) m_site.FallSilent();
  m_peer.WaitUntilPeerCloses(Deadline::max());
  m_peer.Close();
}

void Answer::SendAndStall(const std::string& bytes) {
  Send(bytes);
  Stall();
}

void Answer::Trickle(const std::string& piece) {
  const Gate never;
  for (int sent = 0; Send(piece); ++sent) {
    if (sent == 1 && m_peer.WaitUntilPeerHasRead()) m_site.FallSilent();
    m_peer.WaitFor(never, After(std::chrono::milliseconds(20)));
  }
  m_peer.Close();
}

// --- the table

std::vector<Cell> CellsOf(const std::vector<HttpFault>& faults, const Ops& ops, Tls tls, const TlsIdentity* identity) {
  std::vector<Cell> cells;
  for (const HttpFault& fault : faults) {
    for (const Op op : ops) {
      Cell cell{fault.name, op, fault.told, fault.conditions, fault.patience, nullptr};
      for (const Exception& exception : fault.exceptions) {
        if (IsIn(op, exception.ops)) cell.told = exception.told;
      }
      cell.open = [&fault, op, tls, identity] { return std::make_unique<HttpFaultSite>(fault, op, tls, identity); };
      cells.push_back(std::move(cell));
    }
  }
  return cells;
}

}  // namespace CorvaneTest
