#include "tests/support/ScriptedFtpServer.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstdio>
#include <memory>
#include <utility>

#include "tests/support/Sockets.h"

namespace CorvaneTest {

namespace {

std::string ToUpper(std::string text) {
  for (char& c : text) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return text;
}

std::string ParentOf(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  return slash == 0 || slash == std::string::npos ? "/" : path.substr(0, slash);
}

// Folds ".", ".." and repeated slashes of an absolute path; the result ends with a slash only if it is "/".
std::string Normalize(const std::string& path) {
  std::string result = "/";
  std::size_t begin = 0;
  while (begin < path.size()) {
    const std::size_t end = std::min(path.find('/', begin), path.size());
    const std::string segment = path.substr(begin, end - begin);
    begin = end + 1;
    if (segment == "..") {
      result = ParentOf(result);
    } else if (!segment.empty() && segment != ".") {
      result += (result == "/" ? "" : "/") + segment;
    }
  }
  return result;
}

std::string FormatListLine(bool isFolder, std::size_t size, const std::string& name) {
  char start[80];
  std::snprintf(start, sizeof start, "%s   1 ftp      ftp      %12zu Jan 01  2020 ",
                isFolder ? "drwxr-xr-x" : "-rw-r--r--", size);
  return start + name + "\r\n";
}

}  // namespace

// One control connection.
class ScriptedFtpServer::Session {
 public:
  Session(ScriptedFtpServer& server, Connection& control) : m_server(server), m_control(control) {}

  void Run() {
    Reply(m_server.m_banner);
    while (const std::optional<std::string> line = m_control.ReadLine()) {
      m_server.Record(*line);
      const std::size_t blank = std::min(line->find(' '), line->size());
      const std::string verb = ToUpper(line->substr(0, blank));
      const std::string argument = line->substr(std::min(blank + 1, line->size()));
      const Hook hook = m_server.FindHook(verb);
      if (!hook || !hook(m_control, argument)) Answer(verb, argument);
      if (verb != "REST") m_restart = 0;  // an offset is for the next command alone, whoever answers that
    }
  }

 private:
  using Verb = void (Session::*)(const std::string& argument);

  void Reply(const std::string& line) { m_control.Send(line + "\r\n"); }

  void Answer(const std::string& verb, const std::string& argument) {
    static const std::map<std::string, Verb> kVerbs = {
        {"USER", &Session::User}, {"PASS", &Session::Pass}, {"EPSV", &Session::Epsv}, {"PASV", &Session::Pasv},
        {"TYPE", &Session::Type}, {"SIZE", &Session::Size}, {"MDTM", &Session::Mdtm}, {"REST", &Session::Rest},
        {"RETR", &Session::Retr}, {"LIST", &Session::List}, {"NLST", &Session::Nlst}, {"CWD", &Session::Cwd},
        {"PWD", &Session::Pwd},   {"SYST", &Session::Syst}, {"NOOP", &Session::Noop}, {"QUIT", &Session::Quit},
    };
    const auto found = kVerbs.find(verb);
    if (found == kVerbs.end()) return Reply("502 Command not implemented.");
    const bool isOpenToAll = verb == "USER" || verb == "PASS" || verb == "QUIT";
    if (!m_isLoggedIn && !isOpenToAll) return Reply("530 Please log in with USER and PASS.");
    (this->*found->second)(argument);
  }

  void User(const std::string& argument) {
    m_user = argument;
    Reply("331 Please specify the password.");
  }

  void Pass(const std::string& argument) {
    m_isLoggedIn = m_server.IsAllowedIn(m_user, argument);
    Reply(m_isLoggedIn ? "230 Login successful." : "530 Login incorrect.");
  }

  void Type(const std::string& argument) { Reply("200 Type is " + argument + "."); }
  void Syst(const std::string&) { Reply("215 UNIX Type: L8"); }
  void Noop(const std::string&) { Reply("200 Done."); }
  void Pwd(const std::string&) { Reply("257 \"" + m_folder + "\" is the current directory"); }

  void Quit(const std::string&) {
    Reply("221 Goodbye.");
    m_control.Close();
  }

  void Cwd(const std::string& argument) {
    const std::string folder = Resolve(argument);
    if (!m_server.IsFolder(folder)) return Reply("550 Failed to change directory.");
    m_folder = folder;
    Reply("250 Directory successfully changed.");
  }

  void Epsv(const std::string&) {
    m_listener = ListenOnLoopback(1);
    Reply("229 Entering Extended Passive Mode (|||" + std::to_string(PortOf(m_listener)) + "|)");
  }

  void Pasv(const std::string&) {
    m_listener = ListenOnLoopback(1);
    const std::uint16_t port = PortOf(m_listener);
    Reply("227 Entering Passive Mode (127,0,0,1," + std::to_string(port / 256) + "," + std::to_string(port % 256) +
          ").");
  }

  void Size(const std::string& argument) {
    const std::optional<std::string> content = m_server.FindFile(Resolve(argument));
    Reply(content ? "213 " + std::to_string(content->size()) : "550 Could not get file size.");
  }

  void Mdtm(const std::string& argument) {
    const std::optional<std::string> stamp = m_server.FindModificationTime(Resolve(argument));
    Reply(stamp ? "213 " + *stamp : "550 Could not get file modification time.");
  }

  void Rest(const std::string& argument) {
    m_restart = 0;
    std::from_chars(argument.data(), argument.data() + argument.size(), m_restart);
    Reply("350 Restart position accepted (" + std::to_string(m_restart) + ").");
  }

  void Retr(const std::string& argument) {
    const std::size_t restart = std::exchange(m_restart, 0);
    const std::optional<std::string> content = m_server.FindFile(Resolve(argument));
    if (!content) return Reply("550 Failed to open file.");
    if (restart > content->size()) return Reply("554 Restart position is beyond the end of the file.");
    Transfer(std::string_view(*content).substr(restart));
  }

  void List(const std::string& argument) {
    const std::string folder = ResolveFolder(argument);
    if (!m_server.IsFolder(folder)) return Reply("550 No such directory.");
    Transfer(m_server.MakeListing(folder));
  }

  void Nlst(const std::string& argument) {
    std::string names;
    for (const auto& [name, entry] : m_server.EntriesOf(ResolveFolder(argument))) names += name + "\r\n";
    Transfer(names);
  }

  std::string Resolve(const std::string& argument) const {
    return Normalize(argument.substr(0, 1) == "/" ? argument : m_folder + "/" + argument);
  }

  // LIST may come with options of the program ls, which are no folder.
  std::string ResolveFolder(const std::string& argument) const {
    return argument.substr(0, 1) == "-" ? m_folder : Resolve(argument);
  }

  // Sends the bytes over the data connection that the client has made, and says so over the control connection.
  void Transfer(std::string_view bytes) {
    if (!m_listener.IsOpen()) return Reply("425 Use PASV or EPSV first.");
    Reply("150 Opening data connection.");
    const std::unique_ptr<Connection> data = m_control.AcceptFrom(m_listener);
    m_listener.Close();
    if (!data) return m_control.Close();
    std::optional<DataFault> fault = m_server.CurrentDataFault();
    if (fault && fault->afterBytes >= bytes.size()) fault.reset();
    const bool isSent = data->Send(fault ? bytes.substr(0, fault->afterBytes) : bytes);
    if (fault && fault->isStall) m_control.WaitUntilPeerCloses(Deadline::max());
    data->Close();
    Reply(isSent && !fault ? "226 Transfer complete." : "426 Connection closed; transfer aborted.");
  }

  ScriptedFtpServer& m_server;
  Connection& m_control;
  FileDescriptor m_listener;  // for the next data connection; empty when there was no EPSV or PASV
  std::string m_user;
  std::string m_folder = "/";
  std::size_t m_restart = 0;
  bool m_isLoggedIn = false;
};

ScriptedFtpServer::ScriptedFtpServer(std::initializer_list<Files::value_type> files, std::string banner)
    : ScriptedFtpServer(Files(files), std::move(banner)) {}

ScriptedFtpServer::ScriptedFtpServer(Files files, std::string banner)
    : m_banner(std::move(banner)),
      m_files(std::move(files)),
      m_server([this](Connection& control) { Session(*this, control).Run(); }) {}

// --- content

void ScriptedFtpServer::SetFile(const std::string& path, std::string content) {
  const std::lock_guard lock(m_mutex);
  m_files[path] = std::move(content);
}

void ScriptedFtpServer::SetListing(const std::string& folder, std::string listing) {
  const std::lock_guard lock(m_mutex);
  m_listings[Normalize(folder)] = std::move(listing);
}

void ScriptedFtpServer::SetModificationTime(const std::string& path, std::string stamp) {
  const std::lock_guard lock(m_mutex);
  m_modificationTimes[path] = std::move(stamp);
}

void ScriptedFtpServer::SetLogin(std::string user, std::string password) {
  const std::lock_guard lock(m_mutex);
  m_login.emplace(std::move(user), std::move(password));
}

// --- misbehaviour

void ScriptedFtpServer::SetReply(const std::string& verb, std::string reply) {
  OnCommand(verb, [line = std::move(reply) + "\r\n"](Connection& control, const std::string&) {
    control.Send(line);
    return true;
  });
}

void ScriptedFtpServer::StallAt(const std::string& verb) {
  OnCommand(verb, [](Connection& control, const std::string&) {
    control.WaitUntilPeerCloses(Deadline::max());
    return true;
  });
}

void ScriptedFtpServer::OnCommand(const std::string& verb, Hook hook) {
  const std::lock_guard lock(m_mutex);
  m_hooks[ToUpper(verb)] = std::move(hook);
}

void ScriptedFtpServer::CutDataAfter(std::optional<std::size_t> bytes) { SetDataFault(bytes, false); }

void ScriptedFtpServer::StallDataAfter(std::optional<std::size_t> bytes) { SetDataFault(bytes, true); }

void ScriptedFtpServer::SetDataFault(std::optional<std::size_t> bytes, bool isStall) {
  const std::lock_guard lock(m_mutex);
  m_dataFault.reset();
  if (bytes) m_dataFault = DataFault{*bytes, isStall};
}

// --- observation

std::string ScriptedFtpServer::Url(std::string_view path) const {
  return "ftp://127.0.0.1:" + std::to_string(Port()) + std::string(path);
}

std::vector<std::string> ScriptedFtpServer::Commands() const {
  const std::lock_guard lock(m_mutex);
  return m_commands;
}

bool ScriptedFtpServer::HasCommand(std::string_view line) const {
  const std::lock_guard lock(m_mutex);
  return std::find(m_commands.begin(), m_commands.end(), line) != m_commands.end();
}

bool ScriptedFtpServer::WaitForCommand(std::string_view prefix, Deadline deadline) const {
  const auto begins = [&](const std::string& line) { return line.compare(0, prefix.size(), prefix) == 0; };
  std::unique_lock lock(m_mutex);
  return m_changed.wait_until(lock, deadline,
                              [&] { return std::any_of(m_commands.begin(), m_commands.end(), begins); });
}

// --- what the sessions ask for

void ScriptedFtpServer::Record(const std::string& line) {
  {
    const std::lock_guard lock(m_mutex);
    m_commands.push_back(line);
  }
  m_changed.notify_all();
}

ScriptedFtpServer::Hook ScriptedFtpServer::FindHook(const std::string& verb) const {
  const std::lock_guard lock(m_mutex);
  const auto found = m_hooks.find(verb);
  return found != m_hooks.end() ? found->second : nullptr;
}

std::optional<ScriptedFtpServer::DataFault> ScriptedFtpServer::CurrentDataFault() const {
  const std::lock_guard lock(m_mutex);
  return m_dataFault;
}

bool ScriptedFtpServer::IsAllowedIn(const std::string& user, const std::string& password) const {
  const std::lock_guard lock(m_mutex);
  return !m_login || *m_login == std::pair(user, password);
}

std::optional<std::string> ScriptedFtpServer::FindFile(const std::string& path) const {
  const std::lock_guard lock(m_mutex);
  const auto found = m_files.find(path);
  return found != m_files.end() ? std::optional(found->second) : std::nullopt;
}

std::optional<std::string> ScriptedFtpServer::FindModificationTime(const std::string& path) const {
  const std::lock_guard lock(m_mutex);
  const auto found = m_modificationTimes.find(path);
  return found != m_modificationTimes.end() ? std::optional(found->second) : std::nullopt;
}

bool ScriptedFtpServer::IsFolder(const std::string& path) const {
  const std::lock_guard lock(m_mutex);
  const std::string prefix = path == "/" ? path : path + "/";
  const auto lies = [&](const auto& entry) { return entry.first.compare(0, prefix.size(), prefix) == 0; };
  return path == "/" || m_listings.count(path) > 0 || std::any_of(m_files.begin(), m_files.end(), lies) ||
         std::any_of(m_listings.begin(), m_listings.end(), lies);
}

std::map<std::string, ScriptedFtpServer::Entry> ScriptedFtpServer::EntriesOf(const std::string& folder) const {
  const std::lock_guard lock(m_mutex);
  const std::string prefix = folder == "/" ? folder : folder + "/";
  std::map<std::string, Entry> entries;
  for (const auto& [path, content] : m_files) {
    if (path.compare(0, prefix.size(), prefix) != 0) continue;
    const std::size_t slash = path.find('/', prefix.size());
    const bool isFolder = slash != std::string::npos;
    entries[path.substr(prefix.size(), isFolder ? slash - prefix.size() : slash)] = {isFolder, content.size()};
  }
  return entries;
}

std::string ScriptedFtpServer::MakeListing(const std::string& folder) const {
  {
    const std::lock_guard lock(m_mutex);
    const auto found = m_listings.find(folder);
    if (found != m_listings.end()) return found->second;
  }
  std::string listing;
  for (const auto& [name, entry] : EntriesOf(folder)) {
    listing += FormatListLine(entry.isFolder, entry.isFolder ? 4096 : entry.size, name);
  }
  return listing;
}

}  // namespace CorvaneTest
