#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "tests/faults/HttpFaults.h"
#include "tests/faults/Matrix.h"
#include "tests/support/FileDescriptor.h"
#include "tests/support/ScriptedFtpServer.h"

namespace CorvaneTest {

// Nothing is posted over FTP, and no status is there to be detected.
// All that the server has arrives.
inline const Told kFtpWhole = {.upTo = kContentSize};

inline const Ops kFtpOps = {Op::kGet,        Op::kFile,          Op::kFileResumed, Op::kMirrorPage,
                            Op::kMirrorFile, Op::kMirrorResumed, Op::kTreePage,    Op::kTreeFile};
// A tree's file comes over the connection on which the page came, so that it meets no login.
inline const Ops kFtpOpsWithLogin = Without({Op::kTreeFile}, kFtpOps);

// An FTP server on which something goes wrong while the operation asks for what it is about, and nothing before and after that.
class FtpFaultSite final : public FaultSite {
 public:
  using Hook = ScriptedFtpServer::Hook;
  // Serves the data of one command; `bytes` are those that the client asked for.
  using DataHook = std::function<void(Connection& control, Connection& data, const std::string& bytes)>;

  FtpFaultSite(Op op, const std::string& banner, bool isGoodElsewhere);

  [[nodiscard]] Targets Where() const override;
  [[nodiscard]] const std::string& WholeContent() const override;
  void Recover() override { m_hasRecovered = true; }

  // The verb gets this reply, a complete line or lines without the last CR LF.
  void Reply(const std::string& verb, const std::string& reply);
  void On(const std::string& verb, Hook hook);
  // All that is sent over a connection for data.
  void OnData(DataHook hook);
  // The port that is named for data is this one.
  void NamePort(unsigned int port);
  void RefusePassive();
  // RETR, or for a page LIST.
  [[nodiscard]] std::string FetchVerb() const { return IsOnPage(m_op) ? "LIST" : "RETR"; }
  // Once the client has read everything; returns when it is gone.
  void FallSilent(Connection& peer);
  [[nodiscard]] Op Operation() const { return m_op; }

 private:
  [[nodiscard]] bool IsArmed() const { return m_isArmed && !m_hasRecovered; }
  bool Serve(Connection& control, const DataHook& hook);

  const Op m_op;
  std::atomic<bool> m_isArmed;
  std::atomic<bool> m_hasRecovered{false};
  std::mutex m_mutex;
  FileDescriptor m_listener;  // guarded by m_mutex; for the next connection for data
  std::size_t m_restart = 0;  // guarded by m_mutex
  std::unique_ptr<ScriptedFtpServer> m_good;
  ScriptedFtpServer m_server;  // last: stopped before what its hooks use goes away
};

struct FtpFault {
  std::string name;
  std::function<void(FtpFaultSite&)> arm;
  Told told;
  std::vector<Exception> exceptions = {};
  Patience patience = Patience::kNotNeeded;
  std::string banner = "220 Ready";
  bool isGoodElsewhere = false;  // on another server, where the fault lasts as long as the connection or the server
};

std::vector<Cell> CellsOf(const std::vector<FtpFault>& faults, const Ops& ops);

}  // namespace CorvaneTest
