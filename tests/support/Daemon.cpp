#include <dirent.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <set>
#include <stdexcept>
#include <system_error>
#include <thread>
#include <utility>

#include "tests/support/Daemons.h"

namespace CorvaneTest {

namespace fs = std::filesystem;

namespace {

constexpr std::chrono::milliseconds kPollInterval{5};

// The inodes of the sockets that listen on the port of 127.0.0.1.
std::set<std::string> FindListeningSockets(std::uint16_t port) {
  char local[16];
  std::snprintf(local, sizeof local, "0100007F:%04X", port);
  std::set<std::string> inodes;
  std::ifstream table("/proc/net/tcp");
  std::string slot, address, peer, state, queues, timer, retransmits, user, timeout, inode, rest;
  std::getline(table, rest);  // the captions
  while (table >> slot >> address >> peer >> state >> queues >> timer >> retransmits >> user >> timeout >> inode) {
    std::getline(table, rest);
    if (address == local && state == "0A") inodes.insert(inode);
  }
  return inodes;
}

// A connection would tell that somebody listens; this tells that it is the process we started, and leaves no trace in
// its logs.
bool IsListening(pid_t process, std::uint16_t port) {
  const std::set<std::string> sockets = FindListeningSockets(port);
  if (sockets.empty()) return false;
  std::error_code error;
  const fs::path folder = "/proc/" + std::to_string(process) + "/fd";
  for (fs::directory_iterator entry(folder, error), end; !error && entry != end; entry.increment(error)) {
    std::error_code isGone;
    const std::string target = fs::read_symlink(entry->path(), isGone).string();  // "socket:[INODE]"
    if (target.size() > 9 && sockets.count(target.substr(8, target.size() - 9)) > 0) return true;
  }
  return false;
}

std::string ReadFileIfAny(const fs::path& path) { return fs::exists(path) ? ReadFile(path) : ""; }

}  // namespace

Daemon::Daemon(std::string scheme)
    : m_folder(TempDir::Access::kPublic),
      m_root(m_folder / "root"),
      m_errorLog(m_folder / "error.log"),
      m_accessLog(m_folder / "access.log"),
      m_scheme(std::move(scheme)) {
  fs::create_directory(m_root);
  fs::permissions(m_root, fs::perms(0755));
}

Daemon::~Daemon() { Stop(); }

void Daemon::Stop() {
  if (!m_program) return;
  m_program->Kill(SIGTERM);
  if (!m_program->Wait(After(std::chrono::seconds(10)))) m_program->Kill(SIGKILL);
  m_program->Wait();
}

std::string Daemon::Url(std::string_view path) const {
  return m_scheme + "://127.0.0.1:" + std::to_string(m_port) + std::string(path);
}

std::string Daemon::Log() const {
  std::string log = ReadFileIfAny(m_errorLog);
  if (m_program) log += m_program->Output() + m_program->ErrorOutput() + m_program->TerminalOutput();
  return log;
}

std::string Daemon::AccessLog() const { return ReadFileIfAny(m_accessLog); }

bool Daemon::WaitForAccess(std::string_view text, Deadline deadline) const {
  while (AccessLog().find(text) == std::string::npos) {
    if (Clock::now() >= deadline) return false;
    std::this_thread::sleep_for(kPollInterval);  // a file cannot be waited for
  }
  return true;
}

fs::path Daemon::FindProgram(const std::string& name, const std::string& package) {
  for (const char* folder : {"/usr/sbin", "/usr/bin", "/usr/local/sbin", "/usr/local/bin", "/sbin", "/bin"}) {
    fs::path candidate = fs::path(folder) / name;
    if (access(candidate.c_str(), X_OK) == 0) return candidate;
  }
  throw std::runtime_error("the server \"" + name + "\" is not installed (Debian package " + package + ")");
}

void Daemon::Launch(const std::vector<std::string>& argv, const std::vector<std::uint16_t>& ports,
                    ProgramOptions options) {
  options.signalAtParentsDeath = SIGTERM;  // so that it ends its own children, too
  options.environment["LC_ALL"] = "C.UTF-8";
  m_program = std::make_unique<BackgroundProgram>(argv, options);
  const auto isListening = [this](std::uint16_t port) { return IsListening(m_program->Pid(), port); };
  const Deadline deadline = After(kPatience);
  while (!std::all_of(ports.begin(), ports.end(), isListening)) {
    if (m_program->Wait(After(kPollInterval))) {
      const std::optional<ProgramResult> end = m_program->Wait(deadline);  // with time for all that it said before
      throw std::runtime_error(argv[0] + " ended: " + end->Describe() + "\n" + ReadFileIfAny(m_errorLog));
    }
    if (Clock::now() >= deadline) throw std::runtime_error(argv[0] + " does not listen:\n" + Log());
  }
}

}  // namespace CorvaneTest
