#pragma once

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "tests/support/Connection.h"
#include "tests/support/FileDescriptor.h"
#include "tests/support/Gate.h"
#include "tests/support/HttpResponders.h"
#include "tests/support/Pki.h"

namespace CorvaneTest {

// A TCP server on 127.0.0.1, on a port the system chose, inside the test's own process. Each accepted connection runs
// the handler on a thread of its own; what the handler does is up to the test (see also HttpResponders.h):
//
//   ScriptedServer server(KeepAlive(Content(MakePattern(100000))));
//   ... fetch server.Url("/file.bin") ...
//   ASSERT_EQ(server.Requests().size(), 1u);
//   EXPECT_EQ(server.Requests()[0].Header("Range"), "bytes=500-");
//
// An exception that leaves a handler fails the test.
// Thread safety: every member from any thread, except destruction.
class ScriptedServer {
 public:
  using Handler = std::function<void(Connection&)>;

  // Listens and accepts from now on. Throws std::system_error or std::runtime_error when it cannot.
  explicit ScriptedServer(Handler handler);

  // The same with TLS: the handler sees connections whose handshake succeeded.
  ScriptedServer(Handler handler, const TlsIdentity& identity);

  ~ScriptedServer();  // as Stop()
  ScriptedServer(const ScriptedServer&) = delete;
  ScriptedServer& operator=(const ScriptedServer&) = delete;

  // Stops listening, unblocks every call of a Connection, and returns when all handlers have returned. A handler that
  // waits for anything but its connection (see Connection::WaitFor) must be released by the test first.
  void Stop();

  std::uint16_t Port() const { return m_port; }

  // "http://127.0.0.1:PORT/path", with TLS "https://localhost:PORT/path". `path` begins with a slash and is taken as
  // it is.
  std::string Url(std::string_view path = "/") const;

  // The same for another host name or address of this machine, such as "127.0.0.1" with TLS.
  std::string UrlFor(std::string_view host, std::string_view path = "/") const;

  // Copies of the requests read so far, in the order in which their heads came, on whatever connection.
  std::vector<Request> Requests() const;
  std::size_t AcceptedConnections() const;

  // Reasons of failed TLS handshakes so far, such as a client that does not trust the certificate.
  // A client that merely dislikes the host name closes after the handshake: that is no failure here.
  std::vector<std::string> TlsFailures() const;

  // True as soon as there are at least `count`; false when the deadline passed first.
  [[nodiscard]] bool WaitForRequests(std::size_t count, Deadline deadline) const;
  [[nodiscard]] bool WaitForRequests(std::size_t count) const { return WaitForRequests(count, After(kPatience)); }
  [[nodiscard]] bool WaitForConnections(std::size_t count, Deadline deadline) const;
  [[nodiscard]] bool WaitForConnections(std::size_t count) const { return WaitForConnections(count, After(kPatience)); }

 private:
  struct ContextDeleter {
    void operator()(ssl_ctx_st* context) const noexcept;
  };

  // The thread of one connection.
  struct Worker {
    std::thread thread;
    std::atomic<bool> hasFinished{false};
  };

  void Start();
  void AcceptLoop();
  void JoinFinishedWorkers();
  void StartWorker(FileDescriptor socket, std::size_t number);
  void Serve(FileDescriptor socket, std::size_t number);
  void Record(const Request& request, bool isUpdate);

  Handler m_handler;
  std::unique_ptr<ssl_ctx_st, ContextDeleter> m_tls;  // null without TLS
  FileDescriptor m_listener;
  std::uint16_t m_port = 0;
  Gate m_stop;
  mutable std::mutex m_mutex;
  mutable std::condition_variable m_changed;
  std::vector<Request> m_requests;         // guarded by m_mutex
  std::vector<std::string> m_tlsFailures;  // guarded by m_mutex
  std::size_t m_accepted = 0;              // guarded by m_mutex
  std::mutex m_stopMutex;                  // serialises Stop()
  std::list<Worker> m_workers;             // touched by the acceptor only
  std::thread m_acceptor;
};

}  // namespace CorvaneTest
