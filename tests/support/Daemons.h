#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tests/support/Pki.h"
#include "tests/support/Process.h"
#include "tests/support/TempDir.h"

// Real servers on 127.0.0.1, each with its configuration, logs and files in a temporary folder of its own and on ports
// that were free. A constructor returns when the server listens and throws std::runtime_error, which fails the test,
// when it is not installed or does not start; the message holds the server's own output.
//
//   NginxServer server;
//   WriteFile(server.RootDir() / "pub/a.bin", MakePattern(5000));
//   ... fetch server.Url("/pub/a.bin") ...
//
// The servers work on behalf of an unprivileged account when the test runs as root, so the files in RootDir() must be
// readable by everyone, as they are under the usual umask 022.
// Thread safety: one thread, which must stay alive as long as the server.
namespace CorvaneTest {

// What the servers have in common.
class Daemon {
 public:
  virtual ~Daemon();  // as Stop()
  Daemon(const Daemon&) = delete;
  Daemon& operator=(const Daemon&) = delete;

  // The folder whose content is served; empty at first.
  const std::filesystem::path& RootDir() const { return m_root; }

  std::uint16_t Port() const { return m_port; }
  std::string Url(std::string_view path = "/") const;  // "http://127.0.0.1:PORT/path" or with ftp
  pid_t Pid() const { return m_program->Pid(); }

  // Ends the server: politely at first, at a deadline by force.
  void Stop();

  // What the server reported: its error log and what it printed. For messages of failed assertions, too.
  std::string Log() const;

  // One line per request (HTTP) or file transferred (FTP); empty when there was none. The servers write it when a
  // request is done, which may be a moment after the client has its answer: use WaitForAccess for certainty.
  std::string AccessLog() const;

  // True as soon as `text` occurs in the access log; false when the deadline passed first.
  [[nodiscard]] bool WaitForAccess(std::string_view text, Deadline deadline) const;
  [[nodiscard]] bool WaitForAccess(std::string_view text) const { return WaitForAccess(text, After(kPatience)); }

 protected:
  explicit Daemon(std::string scheme);

  // The program's path; throws when it is installed in none of the usual places.
  static std::filesystem::path FindProgram(const std::string& name, const std::string& package);

  // Starts argv and waits until it listens on all of `ports`.
  void Launch(const std::vector<std::string>& argv, const std::vector<std::uint16_t>& ports,
              ProgramOptions options = {});

  std::filesystem::path Work(const std::string& name) const { return m_folder / name; }

  TempDir m_folder;
  std::filesystem::path m_root;
  std::filesystem::path m_errorLog;
  std::filesystem::path m_accessLog;
  std::string m_scheme;
  std::uint16_t m_port = 0;
  std::unique_ptr<BackgroundProgram> m_program;
};

struct NginxOptions {
  std::optional<TlsIdentity> tls = {};  // adds a second, encrypted port: see HttpsUrl
  bool autoindex = true;                // folders are listed (in <pre>, sizes after the links)
  std::string serverLines = {};         // directives added to each server block, such as "location /x { return 418; }"
  std::string httpLines = {};           // directives added to the http block
  bool http2 = false;                   // the encrypted port speaks HTTP/2, too
};

class NginxServer : public Daemon {
 public:
  explicit NginxServer(const NginxOptions& options = {});

  // "https://localhost:PORT/path"; throws std::logic_error without NginxOptions::tls.
  std::string HttpsUrl(std::string_view path = "/") const;
  std::uint16_t HttpsPort() const { return m_httpsPort; }

 private:
  std::string MakeConfiguration(const NginxOptions& options) const;

  std::uint16_t m_httpsPort = 0;
};

struct ApacheOptions {
  // Arguments of IndexOptions. "FancyIndexing HTMLTable" gives a table, "None" a plain list.
  std::string indexOptions = "FancyIndexing NameWidth=*";
  bool cgi = false;                       // executable files whose names end in .cgi are run
  std::vector<std::string> modules = {};  // further modules by name, such as "headers"
  std::string serverLines = {};           // directives added at the end
};

class ApacheServer : public Daemon {
 public:
  explicit ApacheServer(const ApacheOptions& options = {});

 private:
  std::string MakeConfiguration(const ApacheOptions& options) const;
};

struct VsftpdOptions {
  std::string lines = {};  // directives added at the end, such as "anon_max_rate=1000"
};

// Anonymous access, reading only, chrooted into RootDir() when root starts it.
class VsftpdServer : public Daemon {
 public:
  explicit VsftpdServer(const VsftpdOptions& options = {});

 private:
  std::string MakeConfiguration(const VsftpdOptions& options, const std::filesystem::path& emptyFolder) const;
};

struct PyftpdOptions {
  bool anonymous = true;
  std::string user = {};  // empty: no account but the anonymous one
  std::string password = {};
};

// pyftpdlib under /usr/bin/python3, reading only. Runs as the test's own account, unlike the others.
class PyftpdServer : public Daemon {
 public:
  explicit PyftpdServer(const PyftpdOptions& options = {});
};

}  // namespace CorvaneTest
