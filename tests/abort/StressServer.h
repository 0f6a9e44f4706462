#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "tests/support/Gate.h"
#include "tests/support/ScriptedServer.h"
#include "tests/support/StalledListener.h"

namespace CorvaneTest {

// How the other side behaves towards an operation.
enum class Behaviour : std::size_t {
  kAnswer,      // answers at once
  kTrickle,     // answers bit by bit
  kStream,      // sends without end
  kReset,       // resets the connection within the body
  kCloseEarly,  // closes the connection before the answer or within the body
  kStallHead,   // never answers
  kStallBody,   // stops within the body
  kUnread,      // does not read what is posted
  kNoConnect,   // does not accept the connection
  kNoHello,     // does not answer the TLS handshake
  kNoBanner,    // does not greet an FTP client
};
inline constexpr std::size_t kBehaviours = 11;

const char* NameOf(Behaviour behaviour);

// The codes of libcurl with which an operation may fail that nobody aborted.
const std::vector<unsigned int>& FailuresOf(Behaviour behaviour);

// Whether an operation may succeed.
bool MaySucceed(Behaviour behaviour);

// The servers behind the behaviours. They end what stalls by themselves, but only long after any abort should have.
// Thread safety: every member from any thread.
class StressServer {
 public:
  StressServer();

  std::string Url(Behaviour behaviour) const;

 private:
  void Serve(Connection& peer) const;
  void Answer(Connection& peer, Request& request) const;

  Responder m_content;
  StalledListener m_noConnect;
  ScriptedServer m_silent;
  ScriptedServer m_server;
};

}  // namespace CorvaneTest
