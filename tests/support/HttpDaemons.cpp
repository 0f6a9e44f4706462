#include <unistd.h>

#include <stdexcept>
#include <utility>

#include "tests/support/Daemons.h"
#include "tests/support/Sockets.h"

namespace CorvaneTest {

namespace fs = std::filesystem;

namespace {

// Only root can, and must, choose the account that the server works for.
bool IsRoot() { return geteuid() == 0; }

std::string NginxServerBlock(const NginxOptions& options, std::uint16_t port, bool isEncrypted, const fs::path& root) {
  std::string block = "  server {\n    listen 127.0.0.1:" + std::to_string(port) + (isEncrypted ? " ssl" : "") + ";\n";
  block += "    server_name localhost;\n    root " + root.string() + ";\n";
  if (options.autoindex) block += "    autoindex on;\n";
  if (isEncrypted) {
    block += "    ssl_certificate " + options.tls->certificate.string() + ";\n";
    block += "    ssl_certificate_key " + options.tls->key.string() + ";\n";
  }
  return block + options.serverLines + "\n  }\n";
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
  const auto quoted = [this](const char* name) { return " \"" + Work(name).string() + "\";\n"; };
  std::string text = "daemon off;\nworker_processes 1;\npid" + quoted("nginx.pid");
  if (IsRoot()) text += "user www-data;\n";
  text += "error_log" + quoted("error.log") + "events { worker_connections 512; }\nhttp {\n  access_log" +
          quoted("access.log");
  for (const char* kind : {"client_body", "proxy", "fastcgi", "uwsgi", "scgi"}) {
    text += "  " + std::string(kind) + "_temp_path" + quoted(kind);
  }
  text += "  types { text/html html; text/plain txt; }\n  default_type application/octet-stream;\n";
  text += options.httpLines + "\n" + NginxServerBlock(options, m_port, false, RootDir());
  if (options.tls) text += NginxServerBlock(options, m_httpsPort, true, RootDir());
  return text + "}\n";
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
  const auto quoted = [](const fs::path& path) { return " \"" + path.string() + "\"\n"; };
  std::vector<std::string> modules{"mpm_event", "authz_core", "mime", "dir", "alias", "autoindex"};
  if (options.cgi) modules.push_back("cgid");
  modules.insert(modules.end(), options.modules.begin(), options.modules.end());
  std::string text = "ServerName localhost\nListen 127.0.0.1:" + std::to_string(m_port) + "\n";
  text += "DefaultRuntimeDir" + quoted(m_folder.Path()) + "PidFile" + quoted(Work("apache.pid"));
  for (const std::string& module : modules) {
    text += "LoadModule " + module + "_module /usr/lib/apache2/modules/mod_" + module + ".so\n";
  }
  if (IsRoot()) text += "User www-data\nGroup www-data\n";
  if (options.cgi) text += "ScriptSock" + quoted(Work("cgi.sock")) + "AddHandler cgi-script .cgi\n";
  text += "StartServers 1\nErrorLog" + quoted(m_errorLog) + "TypesConfig" + quoted(Work("mime.types"));
  text += "LogFormat \"%h %l %u %t \\\"%r\\\" %>s %b\" plain\nCustomLog \"" + m_accessLog.string() + "\" plain\n";
  text += "DocumentRoot" + quoted(RootDir()) + "<Directory \"" + RootDir().string() + "\">\n";
  text += std::string("  Options Indexes FollowSymLinks") + (options.cgi ? " ExecCGI" : "") + "\n";
  text += "  AllowOverride None\n  Require all granted\n  IndexOptions " + options.indexOptions + "\n</Directory>\n";
  return text + options.serverLines + "\n";
}

}  // namespace CorvaneTest
