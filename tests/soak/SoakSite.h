#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <random>
#include <string>

#include "tests/support/ScriptedFtpServer.h"
#include "tests/support/ScriptedServer.h"

namespace CorvaneTest {

// Reproducible for a seed and a stream, whatever the machine.
class Random {
 public:
  Random(std::uint64_t seed, std::uint64_t stream) : m_engine(seed * 0x9E3779B97F4A7C15U + stream) {}

  unsigned int Below(unsigned int limit) { return static_cast<unsigned int>(m_engine() % limit); }
  bool OneIn(unsigned int count) { return Below(count) == 0; }

 private:
  std::mt19937_64 m_engine;
};

// What is served, and what has to come: content by path, without the first slash.
const std::map<std::string, std::string>& SoakFiles();

// The body of an answer that refuses.
inline constexpr const char* kBusyPage = "busy\n";

// Servers of HTTP, TLS and FTP that serve SoakFiles() and, now and then, something goes wrong: they break off, reset, stall, refuse, do
// without ranges or lengths. What they send as a whole is always right. A post is answered with its body.
// Thread safety: one thread.
class SoakServers {
 public:
  SoakServers(const TlsIdentity& identity, std::uint64_t seed);

  std::string HttpUrl() const { return m_http.Url(); }
  std::string TlsUrl() const { return m_tls.Url(); }
  std::string FtpUrl() const { return m_ftp.Url(); }

  // Changes what goes wrong with the data connections of FTP; to be called now and then.
  void ChangeFtpFault();

 private:
  void Respond(Connection& peer, const Request& request);
  bool SpoilFtpFile(Connection& control);
  Random NextRandom() { return {m_seed, ++m_requests}; }

  const std::uint64_t m_seed;
  std::atomic<std::uint64_t> m_requests{0};
  ScriptedServer m_http;
  ScriptedServer m_tls;
  ScriptedFtpServer m_ftp;
};

}  // namespace CorvaneTest
