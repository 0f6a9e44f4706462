#include "fuzz/ScriptedSocket.h"

#include <curl/curl.h>
#include <dlfcn.h>
#include <sys/socket.h>
#include <unistd.h>

#include <vector>

#include "fuzz/Require.h"

#define CORVANE_FUZZ_REPLACES __attribute__((visibility("default")))

namespace CorvaneFuzz {
namespace {

std::string_view answer;
std::vector<int> peers;  // the other ends of the connections of this request

curl_socket_t Open(void* /*data*/, curlsocktype /*purpose*/, curl_sockaddr* /*address*/) {
  int ends[2];
  Require(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) == 0, "there are sockets");
  Require(
      send(ends[1], answer.data(), answer.size(), MSG_DONTWAIT | MSG_NOSIGNAL) == static_cast<ssize_t>(answer.size()),
      "the answer fits into a socket");
  shutdown(ends[1], SHUT_WR);
  peers.push_back(ends[1]);
  return ends[0];
}

template <class Function>
Function* NextFunction(const char* name) {
  void* const next = dlsym(RTLD_NEXT, name);
  Require(next != nullptr, "the system has the function");
  return reinterpret_cast<Function*>(next);
}

}  // namespace

void SetAnswer(std::string_view bytes) { answer = bytes; }

}  // namespace CorvaneFuzz

// These take the place of libcurl's and the system's for the whole process.

// A request has all its options here.
extern "C" CORVANE_FUZZ_REPLACES CURLcode curl_easy_perform(CURL* easy) {
  using namespace CorvaneFuzz;
  static auto* const perform = NextFunction<CURLcode(CURL*)>("curl_easy_perform");
  curl_easy_setopt(easy, CURLOPT_PROXY, "");
  curl_easy_setopt(easy, CURLOPT_OPENSOCKETFUNCTION, &Open);
  const CURLcode code = perform(easy);
  for (const int peer : peers) close(peer);
  peers.clear();
  return code;
}

// Not every release of libcurl can be told that a socket is connected already, so each may connect it once more.
extern "C" CORVANE_FUZZ_REPLACES int connect(int socket, const sockaddr* address, socklen_t length) {
  using namespace CorvaneFuzz;
  static auto* const next = NextFunction<int(int, const sockaddr*, socklen_t)>("connect");
  int domain = 0;
  socklen_t size = sizeof domain;
  const bool isOurs = getsockopt(socket, SOL_SOCKET, SO_DOMAIN, &domain, &size) == 0 && domain == AF_UNIX;
  return isOurs && address->sa_family != AF_UNIX ? 0 : next(socket, address, length);
}
