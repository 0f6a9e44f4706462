#include <unistd.h>

#include <sstream>
#include <string>
#include <vector>

#include "tests/support/Daemons.h"
#include "tests/support/Sockets.h"

namespace CorvaneTest {

namespace fs = std::filesystem;

VsftpdServer::VsftpdServer(const VsftpdOptions& options) : Daemon("ftp") {
  const std::string program = FindProgram("vsftpd", "vsftpd").string();
  const PortReservation port;
  m_port = port.Port();
  const fs::path emptyFolder = Work("empty");  // where the server shuts its unprivileged processes in
  fs::create_directory(emptyFolder);
  const fs::path configuration = Work("vsftpd.conf");
  WriteFile(configuration, MakeConfiguration(options, emptyFolder));
  ProgramOptions terminal;
  terminal.terminalInput = true;  // where it reports what is wrong with its configuration
  terminal.keepInputOpen = true;
  Launch({program, configuration.string()}, {m_port}, terminal);
}

std::string VsftpdServer::MakeConfiguration(const VsftpdOptions& options, const fs::path& emptyFolder) const {
  std::ostringstream text;
  text << "listen=YES\nlisten_ipv6=NO\nlisten_address=127.0.0.1\nlisten_port=" << m_port << "\nbackground=NO\n"
       << "anonymous_enable=YES\nno_anon_password=YES\nlocal_enable=NO\nwrite_enable=NO\nconnect_from_port_20=NO\n"
       << "ftp_username=ftp\nanon_root=" << RootDir().string() << "\n"
       << "secure_chroot_dir=" << emptyFolder.string() << "\n"
       << "xferlog_enable=YES\nxferlog_std_format=YES\nxferlog_file=" << m_accessLog.string() << "\n"
       << options.lines << "\n";
  // Only root may change the root folder and the account. Clients are in RootDir() at once then, too, but told its whole name.
  if (geteuid() != 0) text << "run_as_launching_user=YES\n";
  return text.str();
}

PyftpdServer::PyftpdServer(const PyftpdOptions& options) : Daemon("ftp") {
  const std::string python = FindProgram("python3", "python3-pyftpdlib").string();
  const PortReservation port;
  m_port = port.Port();
  std::vector<std::string> argv{python,         (fs::path(CORVANE_TEST_SUPPORT_DIR) / "pyftpd_server.py").string(),
                                "--port",       std::to_string(m_port),
                                "--root",       RootDir().string(),
                                "--access-log", m_accessLog.string()};
  if (options.anonymous) argv.push_back("--anonymous");
  if (!options.user.empty()) argv.insert(argv.end(), {"--user", options.user, "--password", options.password});
  Launch(argv, {m_port});
}

}  // namespace CorvaneTest
