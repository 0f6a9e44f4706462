#include "tests/support/ScriptedServer.h"

#include <gtest/gtest.h>
#include <openssl/ssl.h>
#include <poll.h>

#include <array>
#include <exception>
#include <stdexcept>
#include <utility>

#include "tests/support/OpenSsl.h"
#include "tests/support/Sockets.h"

namespace CorvaneTest {

namespace {

constexpr int kBacklog = 128;

ssl_ctx_st* MakeTlsContext(const TlsIdentity& identity) {
  SSL_CTX* context = SSL_CTX_new(TLS_server_method());
  const bool isReady = context != nullptr &&
                       SSL_CTX_use_certificate_chain_file(context, identity.certificate.c_str()) == 1 &&
                       SSL_CTX_use_PrivateKey_file(context, identity.key.c_str(), SSL_FILETYPE_PEM) == 1;
  if (isReady) return context;
  SSL_CTX_free(context);
  throw std::runtime_error("cannot use \"" + identity.certificate.string() + "\": " + TakeOpenSslError());
}

}  // namespace

void ScriptedServer::ContextDeleter::operator()(ssl_ctx_st* context) const noexcept { SSL_CTX_free(context); }

ScriptedServer::ScriptedServer(Handler handler) : m_handler(std::move(handler)) { Start(); }

ScriptedServer::ScriptedServer(Handler handler, const TlsIdentity& identity)
    : m_handler(std::move(handler)), m_tls(MakeTlsContext(identity)) {
  Start();
}

ScriptedServer::~ScriptedServer() { Stop(); }

void ScriptedServer::Start() {
  m_listener = ListenOnLoopback(kBacklog);
  m_port = PortOf(m_listener);
  m_acceptor = std::thread([this] { AcceptLoop(); });
}

void ScriptedServer::Stop() {
  const std::lock_guard lock(m_stopMutex);
  m_stop.Open();
  if (m_acceptor.joinable()) m_acceptor.join();
}

void ScriptedServer::AcceptLoop() {
  std::size_t number = 0;
  while (!m_stop.IsOpen()) {
    std::array<pollfd, 2> events{pollfd{m_listener.Get(), POLLIN, 0}, pollfd{m_stop.PollDescriptor(), POLLIN, 0}};
    if (poll(events.data(), events.size(), -1) < 0 || m_stop.IsOpen()) continue;
    FileDescriptor socket = AcceptFrom(m_listener);
    if (!socket.IsOpen()) continue;
    JoinFinishedWorkers();
    StartWorker(std::move(socket), number++);
  }
  m_listener.Close();
  for (Worker& worker : m_workers) worker.thread.join();
}

// A thread that has ended keeps its stack until it is joined, which adds up over thousands of connections.
void ScriptedServer::JoinFinishedWorkers() {
  m_workers.remove_if([](Worker& worker) {
    if (!worker.hasFinished) return false;
    worker.thread.join();
    return true;
  });
}

void ScriptedServer::StartWorker(FileDescriptor socket, std::size_t number) {
  {
    const std::lock_guard lock(m_mutex);
    ++m_accepted;
  }
  m_changed.notify_all();
  Worker& worker = m_workers.emplace_back();
  worker.thread = std::thread([this, &worker, number, owned = std::move(socket)]() mutable {
    Serve(std::move(owned), number);
    worker.hasFinished = true;
  });
}

void ScriptedServer::Serve(FileDescriptor socket, std::size_t number) {
  Connection connection(std::move(socket), m_stop, number,
                        [this](const Request& request, bool isUpdate) { Record(request, isUpdate); });
  std::string error;
  if (m_tls && !connection.AcceptTls(m_tls.get(), error)) {
    const std::lock_guard lock(m_mutex);
    m_tlsFailures.push_back(error);
    return;
  }
  try {
    m_handler(connection);
  } catch (const std::exception& exception) {
    ADD_FAILURE() << "the handler of a scripted server threw: " << exception.what();
  }
}

void ScriptedServer::Record(const Request& request, bool isUpdate) {
  {
    const std::lock_guard lock(m_mutex);
    auto known = m_requests.rbegin();
    while (isUpdate && known != m_requests.rend() && known->connection != request.connection) ++known;
    if (isUpdate && known != m_requests.rend()) {
      *known = request;
    } else {
      m_requests.push_back(request);
    }
  }
  m_changed.notify_all();
}

std::string ScriptedServer::Url(std::string_view path) const { return UrlFor(m_tls ? "localhost" : "127.0.0.1", path); }

std::string ScriptedServer::UrlFor(std::string_view host, std::string_view path) const {
  std::string url = m_tls ? "https://" : "http://";
  return url.append(host).append(":").append(std::to_string(m_port)).append(path);
}

std::vector<Request> ScriptedServer::Requests() const {
  const std::lock_guard lock(m_mutex);
  return m_requests;
}

std::size_t ScriptedServer::AcceptedConnections() const {
  const std::lock_guard lock(m_mutex);
  return m_accepted;
}

std::vector<std::string> ScriptedServer::TlsFailures() const {
  const std::lock_guard lock(m_mutex);
  return m_tlsFailures;
}

bool ScriptedServer::WaitForRequests(std::size_t count, Deadline deadline) const {
  std::unique_lock lock(m_mutex);
  return m_changed.wait_until(lock, deadline, [&] { return m_requests.size() >= count; });
}

bool ScriptedServer::WaitForConnections(std::size_t count, Deadline deadline) const {
  std::unique_lock lock(m_mutex);
  return m_changed.wait_until(lock, deadline, [&] { return m_accepted >= count; });
}

}  // namespace CorvaneTest
