#pragma once

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tests/support/ScriptedServer.h"

namespace CorvaneTest {

// A small FTP server on 127.0.0.1 over a table of files, with hooks to make it misbehave.
// It answers USER, PASS, EPSV, PASV, TYPE, SIZE, MDTM, REST, RETR, LIST, NLST, CWD, PWD, SYST, NOOP and QUIT; any other
// verb gets 502. Any user and password are accepted unless SetLogin was called.
//
//   ScriptedFtpServer server({{"/pub/a.bin", MakePattern(5000)}});
//   server.CutDataAfter(1000);
//   ... fetch server.Url("/pub/a.bin") ...
//   EXPECT_TRUE(server.HasCommand("REST 1000"));
//
// Thread safety: every member from any thread. A setting takes effect at the next command.
class ScriptedFtpServer {
 public:
  using Files = std::map<std::string, std::string>;  // content by path

  // Called with the control connection and the verb's argument. True: the hook has answered (or closed, or stalled),
  // false: the usual answer follows.
  using Hook = std::function<bool(Connection& control, const std::string& argument)>;

  // files: content by absolute path ("/dir/name"). The folders of these paths exist, and so does "/".
  explicit ScriptedFtpServer(Files files = {}, std::string banner = "220 Ready");

  // The same for a list in braces, which would otherwise be ambiguous with the copy constructor.
  ScriptedFtpServer(std::initializer_list<Files::value_type> files, std::string banner = "220 Ready");

  void Stop() { m_server.Stop(); }

  // --- content

  void SetFile(const std::string& path, std::string content);

  // The exact bytes that LIST of this folder sends (it exists from now on). Without this LIST sends one Unix long
  // format line per file and folder of the table.
  void SetListing(const std::string& folder, std::string listing);

  // The MDTM reply's time stamp, "YYYYMMDDhhmmss" in UTC; without this MDTM gets 550.
  void SetModificationTime(const std::string& path, std::string stamp);

  // From now on only this account gets in, anyone else is told 530.
  void SetLogin(std::string user, std::string password);

  // --- misbehaviour

  // The verb gets this reply (a complete line or lines without the last CR LF) and nothing else happens.
  void SetReply(const std::string& verb, std::string reply);

  // The verb is received and never answered.
  void StallAt(const std::string& verb);

  // Full control over one verb; the last of SetReply, StallAt and OnCommand for a verb counts.
  void OnCommand(const std::string& verb, Hook hook);

  // A data connection that has more to send than this is closed after so many bytes, upon which 426 follows on the
  // control connection, or sends nothing more until the client is gone. The last call counts; nullopt restores the
  // usual behaviour.
  void CutDataAfter(std::optional<std::size_t> bytes);
  void StallDataAfter(std::optional<std::size_t> bytes);

  // --- observation

  std::uint16_t Port() const { return m_server.Port(); }
  std::string Url(std::string_view path = "/") const;  // "ftp://127.0.0.1:PORT/path"

  // The command lines received, in order, without line ends.
  std::vector<std::string> Commands() const;
  bool HasCommand(std::string_view line) const;

  // True as soon as a command line beginning with `prefix` was received; false when the deadline passed first.
  [[nodiscard]] bool WaitForCommand(std::string_view prefix, Deadline deadline) const;
  [[nodiscard]] bool WaitForCommand(std::string_view prefix) const { return WaitForCommand(prefix, After(kPatience)); }

 private:
  class Session;
  struct DataFault {
    std::size_t afterBytes = 0;
    bool isStall = false;
  };

  struct Entry {
    bool isFolder = false;
    std::size_t size = 0;
  };

  void SetDataFault(std::optional<std::size_t> bytes, bool isStall);
  void Record(const std::string& line);
  Hook FindHook(const std::string& verb) const;
  std::optional<DataFault> CurrentDataFault() const;
  bool IsAllowedIn(const std::string& user, const std::string& password) const;
  std::optional<std::string> FindFile(const std::string& path) const;
  std::optional<std::string> FindModificationTime(const std::string& path) const;
  bool IsFolder(const std::string& path) const;
  std::map<std::string, Entry> EntriesOf(const std::string& folder) const;
  std::string MakeListing(const std::string& folder) const;

  mutable std::mutex m_mutex;
  mutable std::condition_variable m_changed;
  std::string m_banner;  // constant after construction
  Files m_files;         // this and the rest: guarded by m_mutex
  std::map<std::string, std::string> m_listings;
  std::map<std::string, std::string> m_modificationTimes;
  std::map<std::string, Hook> m_hooks;
  std::optional<std::pair<std::string, std::string>> m_login;
  std::optional<DataFault> m_dataFault;
  std::vector<std::string> m_commands;
  ScriptedServer m_server;  // last: stopped before what its handlers use goes away
};

}  // namespace CorvaneTest
