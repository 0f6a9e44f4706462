#include <unistd.h>

#include <ostream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/support/Daemons.h"
#include "tests/support/Sockets.h"

namespace CorvaneTest {

namespace fs = std::filesystem;

namespace {

// Only root can, and must, choose the account that the server works for.
bool IsRoot() { return geteuid() == 0; }

// In the configurations below a path is written as std::filesystem does it, in double quotes; both servers take it so.

void WriteServerBlock(std::ostream& text, const NginxOptions& options, std::uint16_t port, bool isEncrypted,
                      const fs::path& root) {
  const char* const protocols = !isEncrypted ? "" : options.http2 ? " ssl http2" : " ssl";
  text << "  server {\n    listen 127.0.0.1:" << port << protocols << ";\n"
       << "    server_name localhost;\n"
       << "    root " << root << ";\n"
       << "    autoindex " << (options.autoindex ? "on" : "off") << ";\n";
  if (isEncrypted) {
    text << "    ssl_certificate " << options.tls->certificate << ";\n"
         << "    ssl_certificate_key " << options.tls->key << ";\n";
  }
  text << options.serverLines << "\n  }\n";
}

}  // namespace

NginxServer::NginxServer(const NginxOptions& options) : Daemon("http") {
  const std::string program = FindProgram("nginx", "nginx-light").string();
  const PortReservation port, httpsPort;
  m_port = port.Port();
  std::vector<std::uint16_t> ports{m_port};
  if (options.tls) {
    m_httpsPort = httpsPort.Port();
    ports.push_back(m_httpsPort);
  }
  const fs::path configuration = Work("nginx.conf");
  WriteFile(configuration, MakeConfiguration(options));
  Launch({program, "-p", m_folder.Path().string(), "-c", configuration.string(), "-e", m_errorLog.string()}, ports);
}

std::string NginxServer::MakeConfiguration(const NginxOptions& options) const {
  std::ostringstream text;
  text << "daemon off;\nworker_processes 1;\n"
       << "pid " << Work("nginx.pid") << ";\n"
       << "error_log " << m_errorLog << ";\n";
  if (IsRoot()) text << "user www-data;\n";
  text << "events { worker_connections 512; }\n"
       << "http {\n"
       << "  access_log " << m_accessLog << ";\n"
       << "  types { text/html html; text/plain txt; }\n  default_type application/octet-stream;\n";
  for (const char* kind : {"client_body", "proxy", "fastcgi", "uwsgi", "scgi"}) {
    text << "  " << kind << "_temp_path " << Work(kind) << ";\n";
  }
  text << options.httpLines << "\n";
  WriteServerBlock(text, options, m_port, false, RootDir());
  if (options.tls) WriteServerBlock(text, options, m_httpsPort, true, RootDir());
  text << "}\n";
  return text.str();
}

std::string NginxServer::HttpsUrl(std::string_view path) const {
  if (m_httpsPort == 0) throw std::logic_error("this NginxServer has no certificate");
  return "https://localhost:" + std::to_string(m_httpsPort) + std::string(path);
}

ApacheServer::ApacheServer(const ApacheOptions& options) : Daemon("http") {
  const std::string program = FindProgram("apache2", "apache2").string();
  const PortReservation port;
  m_port = port.Port();
  const fs::path configuration = Work("apache.conf");
  WriteFile(configuration, MakeConfiguration(options));
  WriteFile(Work("mime.types"), "text/html html\ntext/plain txt\n");
  const std::string folder = m_folder.Path().string();
  Launch({program, "-d", folder, "-f", configuration.string(), "-E", m_errorLog.string(), "-DFOREGROUND"}, {m_port});
}

std::string ApacheServer::MakeConfiguration(const ApacheOptions& options) const {
  std::vector<std::string> modules{"mpm_event", "authz_core", "mime", "dir", "alias", "autoindex"};
  if (options.cgi) modules.emplace_back("cgid");
  modules.insert(modules.end(), options.modules.begin(), options.modules.end());
  std::ostringstream text;
  for (const std::string& module : modules) {
    text << "LoadModule " << module << "_module /usr/lib/apache2/modules/mod_" << module << ".so\n";
  }
  if (IsRoot()) text << "User www-data\nGroup www-data\n";
  text << "ServerName localhost\nListen 127.0.0.1:" << m_port << "\nStartServers 1\n"
       << "DefaultRuntimeDir " << m_folder.Path() << "\n"
       << "PidFile " << Work("apache.pid") << "\n"
       << "ErrorLog " << m_errorLog << "\n"
       << "LogFormat \"%h %l %u %t \\\"%r\\\" %>s %b\" plain\n"
       << "CustomLog " << m_accessLog << " plain\n"
       << "TypesConfig " << Work("mime.types") << "\n";
  if (options.cgi) text << "ScriptSock " << Work("cgi.sock") << "\nAddHandler cgi-script .cgi\n";
  text << "DocumentRoot " << RootDir() << "\n"
       << "<Directory " << RootDir() << ">\n"
       << "  Options Indexes FollowSymLinks" << (options.cgi ? " ExecCGI" : "") << "\n"
       << "  IndexOptions " << options.indexOptions << "\n"
       << "  AllowOverride None\n  Require all granted\n</Directory>\n"
       << options.serverLines << "\n";
  return text.str();
}

}  // namespace CorvaneTest
