#include "tests/soak/SoakSite.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <optional>
#include <set>
#include <utility>
#include <vector>

#include "tests/support/TempDir.h"

namespace CorvaneTest {
namespace {

constexpr std::chrono::seconds kStall{6};  // longer than the clients' time limits

std::map<std::string, std::string> MakeFiles() {
  std::map<std::string, std::string> files;
  for (const char* const folder : {"", "a/", "a/b/", "c d/", "e/"}) {
    for (const std::size_t size : {0U, 1U, 33U, 100U, 5000U, 70000U}) {
      const std::string path = folder + std::to_string(size) + " bytes.bin";
      files[path] = MakePattern(size, std::hash<std::string>{}(path));
    }
  }
  files["large.bin"] = MakePattern(1U << 20, 7);
  return files;
}

std::map<std::string, std::string> FtpFiles() {
  std::map<std::string, std::string> files;
  for (const auto& [path, content] : SoakFiles()) files.emplace("/" + path, content);
  return files;
}

std::string Unescaped(const std::string& path) {
  std::string text;
  for (std::size_t i = 0; i < path.size(); ++i) {
    const bool isEscape = path[i] == '%' && i + 2 < path.size();
    text += isEscape ? static_cast<char>(std::stoi(path.substr(i + 1, 2), nullptr, 16)) : path[i];
    if (isEscape) i += 2;
  }
  return text;
}

std::string Escaped(std::string name) {
  for (std::size_t blank = name.find(' '); blank != name.npos; blank = name.find(' ', blank))
    name.replace(blank, 1, "%20");
  return name;
}

// nullopt for what is no folder.
std::optional<std::string> PageOf(const std::string& folder) {
  std::set<std::string> names;
  for (const auto& [path, content] : SoakFiles()) {
    if (!path.starts_with(folder)) continue;
    const std::string rest = path.substr(folder.size());
    names.insert(rest.substr(0, rest.find('/') + 1).empty() ? rest : rest.substr(0, rest.find('/') + 1));
  }
  if (names.empty() || (!folder.empty() && folder.back() != '/')) return std::nullopt;
  std::string page = "<html><head><title>Index of /" + folder + "</title></head><body><pre><a href=\"../\">../</a>\n";
  for (const std::string& name : names) page += "<a href=\"" + Escaped(name) + "\">" + name + "</a>\n";
  return page + "</pre></body></html>\n";
}

void Stall(Connection& peer) {
  peer.WaitUntilPeerCloses(After(kStall));
  peer.Reset();
}

void Trickle(Connection& peer, const std::string& content) {
  constexpr std::size_t kPieces = 20;
  const Gate never;
  peer.Send(FormatHead(200, {{"Content-Length", std::to_string(content.size())}}));
  const std::size_t step = content.size() / kPieces + 1;
  for (std::size_t at = 0; at < content.size() && peer.Send(content.substr(at, step)); at += step) {
    peer.WaitFor(never, After(std::chrono::milliseconds(2)));
  }
}

// The answer with a body that may be taken in part, or not be whole.
Responder Spoiled(const std::string& content, ContentOptions options, Random& random) {
  switch (random.Below(7)) {
    case 0:
      options.ranges = ContentOptions::Ranges::kIgnored;
      break;
    case 1:
      options.framing = ContentOptions::Framing::kChunked;
      break;
    case 2:
      options.framing = ContentOptions::Framing::kUntilClose;  // whole, since nobody could see the difference
      break;
    case 3:
      options.stopAfter = random.Below(static_cast<unsigned int>(content.size()) + 1);
      break;
    case 4:
      options.stopAfter = random.Below(static_cast<unsigned int>(content.size()) + 1);
      options.ending = ContentOptions::Ending::kReset;
      break;
    case 5:
      return [content](Connection& peer, const Request&) { Trickle(peer, content); };
    default:
      return [content](Connection& peer, const Request&) {
        peer.Send(FormatHead(200, {{"Content-Length", std::to_string(content.size() + 1)}}) + content);
        Stall(peer);
      };
  }
  return Content(content, options);
}

// False when nothing went wrong, so that there is still an answer to be given.
bool SpoilAnswer(Connection& peer, const Request& request, Random& random) {
  switch (random.Below(5)) {
    case 0:
      peer.Close();
      return true;
    case 1:
      peer.Reset();
      return true;
    case 2:
      Stall(peer);
      return true;
    case 3:
      Status(503, kBusyPage)(peer, request);
      return true;
    default:
      return false;
  }
}

}  // namespace

const std::map<std::string, std::string>& SoakFiles() {
  static const std::map<std::string, std::string> files = MakeFiles();
  return files;
}

SoakServers::SoakServers(const TlsIdentity& identity, std::uint64_t seed)
    : m_seed(seed),
      m_http(KeepAlive([this](Connection& peer, const Request& request) { Respond(peer, request); })),
      m_tls(KeepAlive([this](Connection& peer, const Request& request) { Respond(peer, request); }), identity),
      m_ftp(FtpFiles()) {
  for (const auto& [path, content] : SoakFiles()) m_ftp.SetModificationTime("/" + path, "20250102030405");
  m_ftp.OnCommand("RETR", [this](Connection& control, const std::string&) { return SpoilFtpFile(control); });
}

void SoakServers::Respond(Connection& peer, const Request& request) {
  Random random = NextRandom();
  const bool isSpoiled = random.OneIn(8);
  if (isSpoiled && SpoilAnswer(peer, request, random)) return;
  if (request.method == "POST") return Status(200, request.body)(peer, request);
  const std::string path = Unescaped(request.Path()).substr(1);
  const auto file = SoakFiles().find(path);
  if (file == SoakFiles().end()) {
    const std::optional<std::string> page = PageOf(path);
    return (page ? Status(200, *page, {{"Content-Type", "text/html"}}) : Status(404, kBusyPage))(peer, request);
  }
  ContentOptions options;
  options.headers = {{"Last-Modified", "Thu, 02 Jan 2025 03:04:05 GMT"},
                     {"Date", "Fri, 03 Jan 2025 03:04:05 GMT"},
                     {"ETag", "\"" + std::to_string(file->second.size()) + "\""}};
  // Half an answer to a request for the head alone would be taken for the beginning of the next one.
  const bool mayBeSpoiled = isSpoiled && request.method == "GET";
  (mayBeSpoiled ? Spoiled(file->second, options, random) : Content(file->second, options))(peer, request);
}

bool SoakServers::SpoilFtpFile(Connection& control) {
  Random random = NextRandom();
  if (!random.OneIn(8)) return false;
  switch (random.Below(4)) {
    case 0:
      control.Send("450 Later\r\n");
      return true;
    case 1:
      control.Close();
      return true;
    case 2:
      control.Reset();
      return true;
    default:
      Stall(control);
      return true;
  }
}

void SoakServers::ChangeFtpFault() {
  Random random = NextRandom();
  if (random.OneIn(4)) {
    m_ftp.CutDataAfter(random.Below(80000));
  } else {
    m_ftp.CutDataAfter(std::nullopt);
  }
}

}  // namespace CorvaneTest
