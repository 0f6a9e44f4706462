#pragma once

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "tests/servers/FtpDelay.h"
#include "tests/support/Daemons.h"
#include "tests/support/Gate.h"
#include "tests/support/ScriptedFtpServer.h"
#include "tests/support/TempDir.h"

// What the tests of mirrors from real servers share: the files to serve, how a mirror is compared with them, and the
// servers. Knows nothing of the library, so that the tests of the program can use it too.
namespace CorvaneTest {

// The plain files of one directory: content by name.
using Files = std::map<std::string, std::string>;

// So many files of 0 bytes to some 100 KiB and a few of some MiB, with names of several kinds that the pages of all
// servers show in full; the same for the same seed.
Files MakeFiles(std::size_t count, std::uint64_t seed = 1);

void WriteFiles(const std::filesystem::path& folder, const Files& files);

// Whether the folder holds regular files with these names and contents and nothing else.
testing::AssertionResult HoldsExactly(const std::filesystem::path& folder, const Files& files);

// Whether every entry of the folder is a regular file whose content is the beginning of that of `files`, or all of it.
testing::AssertionResult HoldsBeginningsOf(const std::filesystem::path& folder, const Files& files);

// The entry itself, not what a link points to. Fails the test and returns zeros when there is none.
struct stat StatusOf(const std::filesystem::path& path);

// Everything that tells whether an entry was touched, by path: kind, mode, number, times, size and content or target.
// The folder `without` is left out with what is in it.
using Traces = std::map<std::string, std::string>;
Traces TracesOf(const std::filesystem::path& folder, const std::filesystem::path& without = {});

// A list for --sizes or --times of the program.
void WriteNumberList(const std::filesystem::path& path, const std::map<std::string, unsigned long long>& numbers);

std::map<std::string, unsigned long long> SizesOf(const Files& files);

// --- servers

enum class ServerKind { kNginx, kApache, kVsftpd, kPyftpdlib };

// A daemon as the tests see it; those for FTP behind an FtpDelay.
class RemoteServer {
 public:
  explicit RemoteServer(ServerKind kind);

  const std::filesystem::path& RootDir() const { return m_daemon->RootDir(); }
  std::string Url(std::string_view path) const { return m_delay ? m_delay->Url(path) : m_daemon->Url(path); }
  std::string Log() const { return m_daemon->Log(); }

  // Ends the server and the connections to it. (Sessions of vsftpd outlive their server, so the relay cuts them.)
  void Stop();

 private:
  std::unique_ptr<Daemon> m_daemon;
  std::unique_ptr<FtpDelay> m_delay;
};

std::string NameOf(ServerKind kind);
inline bool IsFtp(ServerKind kind) { return kind == ServerKind::kVsftpd || kind == ServerKind::kPyftpdlib; }

// How slowly a server is to send.
struct WatchedOptions {
  unsigned int bytesPerSecond = 0;  // of one file; 0: as fast as it can
};

// nginx with a line "CONNECTION STATUS PATH" for each request.
class WatchedNginx {
 public:
  explicit WatchedNginx(const WatchedOptions& options = {});

  const std::filesystem::path& RootDir() const { return m_server->RootDir(); }
  std::string Url(std::string_view path) const { return m_server->Url(path); }

  // The lines written so far; those of all requests that were answered before.
  std::vector<std::string> Requests();

 private:
  TempDir m_folder{TempDir::Access::kPublic};
  std::unique_ptr<NginxServer> m_server;
  int m_marks = 0;
};

// vsftpd with its commands logged.
class WatchedVsftpd {
 public:
  explicit WatchedVsftpd(const WatchedOptions& options = {});

  const std::filesystem::path& RootDir() const { return m_server->RootDir(); }
  std::string Url(std::string_view path) const { return m_delay->Url(path); }

  // The commands received so far, such as "RETR a b", in order.
  std::vector<std::string> Commands() const;
  std::size_t CountCommands(std::string_view verb) const;
  std::size_t CountConnections() const;

 private:
  TempDir m_folder{TempDir::Access::kPublic};
  std::unique_ptr<VsftpdServer> m_server;
  std::unique_ptr<FtpDelay> m_delay;
};

// From now on the server says nothing more to whoever has fetched a listing and wants files, until it is stopped: its
// connection is cut then. Opens `listed` when it comes to that; `listed` must outlive the server.
void StallAfterTheListing(ScriptedFtpServer& server, Gate& listed);

}  // namespace CorvaneTest
