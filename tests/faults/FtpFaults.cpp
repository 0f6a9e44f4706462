#include "tests/faults/FtpFaults.h"

#include <charconv>
#include <utility>

#include "tests/support/Sockets.h"

namespace CorvaneTest {

namespace {

ScriptedFtpServer::Files GoodFiles() {
  return {{"/dir/" + std::string(kFileName), FileContent()}, {"/good/" + std::string(kGoodName), GoodContent()}};
}

}  // namespace

FtpFaultSite::FtpFaultSite(Op op, const std::string& banner, bool isGoodElsewhere)
    : m_op(op),
      m_isArmed(op != Op::kTreeFile),
      m_good(isGoodElsewhere ? std::make_unique<ScriptedFtpServer>(GoodFiles()) : nullptr),
      m_server(GoodFiles(), banner) {
  m_server.SetListing("/dir", ListingOfOneFile());
  if (op != Op::kTreeFile) return;
  // The page is behind once it is being fetched.
  m_server.OnCommand("LIST", [this](Connection&, const std::string&) {
    m_isArmed = true;
    return false;
  });
}

Targets FtpFaultSite::Where() const {
  const ScriptedFtpServer& good = m_good ? *m_good : m_server;
  return {m_server.Url("/dir/"), m_server.Url("/dir/" + std::string(kFileName)), good.Url("/good/"),
          good.Url("/good/" + std::string(kGoodName))};
}

const std::string& FtpFaultSite::WholeContent() const { return IsOnPage(m_op) ? ListingOfOneFile() : FileContent(); }

void FtpFaultSite::Reply(const std::string& verb, const std::string& reply) {
  On(verb, [reply](Connection& control, const std::string&) {
    control.Send(reply + "\r\n");
    return true;
  });
}

void FtpFaultSite::On(const std::string& verb, Hook hook) {
  m_server.OnCommand(verb, [this, hook = std::move(hook)](Connection& control, const std::string& argument) {
    return IsArmed() && hook(control, argument);
  });
}

void FtpFaultSite::OnData(DataHook hook) {
  On("EPSV", [this](Connection& control, const std::string&) {
    const std::lock_guard lock(m_mutex);
    m_listener = ListenOnLoopback(1);
    m_restart = 0;
    return control.Send("229 Entering Extended Passive Mode (|||" + std::to_string(PortOf(m_listener)) + "|)\r\n");
  });
  On("REST", [this](Connection&, const std::string& argument) {
    const std::lock_guard lock(m_mutex);
    std::from_chars(argument.data(), argument.data() + argument.size(), m_restart);
    return false;  // the usual reply will do
  });
  On(FetchVerb(),
     [this, hook = std::move(hook)](Connection& control, const std::string&) { return Serve(control, hook); });
}

bool FtpFaultSite::Serve(Connection& control, const DataHook& hook) {
  const std::lock_guard lock(m_mutex);
  if (!m_listener.IsOpen()) return false;
  const std::unique_ptr<Connection> data = control.AcceptFrom(m_listener);
  m_listener.Close();
  m_hasRecovered = true;  // what a mirror or a tree asks for next is all right
  if (data != nullptr) hook(control, *data, WholeContent().substr(m_restart));
  return true;
}

void FtpFaultSite::NamePort(unsigned int port) {
  Reply("EPSV", "229 Entering Extended Passive Mode (|||" + std::to_string(port) + "|)");
  Reply("PASV",
        "227 Entering Passive Mode (127,0,0,1," + std::to_string(port / 256) + "," + std::to_string(port % 256) + ").");
}

void FtpFaultSite::RefusePassive() {
  Reply("EPSV", "500 No");
  Reply("PASV", "502 No");
}

void FtpFaultSite::FallSilent(Connection& peer) {
  if (peer.WaitUntilPeerHasRead()) m_isSilent.Open();
  peer.WaitUntilPeerCloses(Deadline::max());
}

std::vector<Cell> CellsOf(const std::vector<FtpFault>& faults, const Ops& ops) {
  std::vector<Cell> cells;
  for (const FtpFault& fault : faults) {
    for (const Op op : ops) {
      Cell cell{fault.name, op, fault.told, {}, fault.patience, nullptr};
      for (const Exception& exception : fault.exceptions) {
        if (IsIn(op, exception.ops)) cell.told = exception.told;
      }
      cell.told.status = 200;  // what comes is the resource
      cell.open = [&fault, op] {
        auto site = std::make_unique<FtpFaultSite>(op, fault.banner, fault.isGoodElsewhere);
        fault.arm(*site);
        return site;
      };
      cells.push_back(std::move(cell));
    }
  }
  return cells;
}

}  // namespace CorvaneTest
