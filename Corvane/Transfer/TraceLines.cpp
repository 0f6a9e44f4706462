#include <Corvane/Transfer/TraceLinesImpl.h>

#include <algorithm>
#include <utility>

#include <strings.h>

#include <Corvane/Base/StringCoding.h>
#include <Corvane/ShownUrlImpl.h>
#include <Corvane/Transfer/AnswerHeaderImpl.h>

namespace Corvane {
namespace {

constexpr const char* kStruckOut = "***";
constexpr std::array<std::string_view, 4> kSecretFields = {"Authorization", "Proxy-Authorization", "Cookie",
                                                           "Set-Cookie"};
constexpr std::array<std::string_view, 2> kSecretCommands = {"PASS ", "ACCT "};
constexpr std::array<std::string_view, 4> kKnownProtocols = {"http:", "https:", "ftp:", "ftps:"};

bool BeginsWith(std::string_view text, std::string_view prefix) {
  return IsSameName(text.substr(0, prefix.size()), prefix);
}

std::string_view WithoutBlanksBehind(std::string_view text) { return text.substr(0, text.find_last_not_of(" \t") + 1); }

bool IsContinuation(std::string_view line) { return line.starts_with(' ') || line.starts_with('\t'); }

bool IsLocation(std::string_view line) { return FieldOn(line, "Location") || FieldOn(line, "Content-Location"); }

// libcurl quotes what the environment says of a proxy, where a URL needs no scheme.
ZString WithoutProxyPassword(const ZString& line) {
  const std::size_t quote = line.Find(L'\'');
  if (quote == ZString::npos || line.Lower().Find(L"proxy") == ZString::npos) return line;
  return line.Substr(0, quote + 1) + ShownUrl(line.Substr(quote + 1));
}

}  // namespace

TraceLines::TraceLines(ZTransferTrace& trace, std::vector<std::string> secretFields, std::string_view url)
    : m_trace(trace),
      m_secretFields(std::move(secretFields)),
      m_isProtocolKnown(std::any_of(kKnownProtocols.begin(), kKnownProtocols.end(),
                                    [&](std::string_view protocol) { return BeginsWith(url, protocol); })) {}

void TraceLines::Take(Kind kind, std::string_view bytes) {
  std::string& unfinished = StreamOf(kind).unfinished;
  for (std::string_view line; TakeLine(bytes, line);) {
    line.remove_suffix(1);
    if (unfinished.empty()) {
      Tell(kind, line);
    } else {
      const std::string whole = std::exchange(unfinished, std::string()).append(line);
      Tell(kind, whole);
    }
  }
  unfinished.append(bytes);
  // libcurl's own words come whole, with a line end or without.
  if (kind == Kind::Information && !unfinished.empty()) Tell(kind, std::exchange(unfinished, std::string()));
}

void TraceLines::Finish() {
  for (const Kind kind : {Kind::RequestLine, Kind::ResponseLine}) {
    const std::string rest = std::exchange(StreamOf(kind).unfinished, std::string());
    if (!rest.empty()) Tell(kind, rest);
  }
}

void TraceLines::Tell(Kind kind, std::string_view line) {
  if (line.ends_with('\r')) line.remove_suffix(1);
  const std::string shown = WithoutSecrets(kind, line);
  ZString text = ZStringDecoder::FromUtf8(shown.data(), shown.size());
  if (kind == Kind::Information) text = WithoutProxyPassword(text);
  m_trace.Line(kind, ShownUrls(text, IsLocation(line)));
}

std::string TraceLines::WithoutSecrets(Kind kind, std::string_view line) {
  if (kind == Kind::Information) return WithoutSecretPair(line);
  if (kind == Kind::RequestLine) {
    // How other protocols log in, nobody here knows.
    if (!m_isProtocolKnown) return kStruckOut;
    for (const std::string_view command : kSecretCommands) {
      if (BeginsWith(line, command)) return std::string(line.substr(0, command.size())) + kStruckOut;
    }
  }
  return WithoutSecretField(StreamOf(kind), line);
}

std::string TraceLines::WithoutSecretField(Stream& stream, std::string_view line) const {
  if (IsContinuation(line)) return stream.isInSecretField ? std::string(" ") + kStruckOut : std::string(line);
  const std::size_t colon = line.find(':');
  stream.isInSecretField = colon != std::string_view::npos && IsSecret(line.substr(0, colon));
  return stream.isInSecretField ? std::string(line.substr(0, colon)) + ": " + kStruckOut : std::string(line);
}

// Of HTTP/2 and HTTP/3 libcurl tells the fields that it sends also in its own words, each as "[name: value]".
std::string TraceLines::WithoutSecretPair(std::string_view line) const {
  for (std::size_t open = line.find('['); open != std::string_view::npos; open = line.find('[', open + 1)) {
    const std::size_t colon = line.find(':', open);
    if (colon == std::string_view::npos) break;
    if (IsSecret(line.substr(open + 1, colon - open - 1))) {
      return std::string(line.substr(0, colon)) + ": " + kStruckOut + "]";
    }
  }
  return std::string(line);
}

bool TraceLines::IsSecret(std::string_view name) const {
  const auto isIt = [name = WithoutBlanksBehind(name)](std::string_view other) { return IsSameName(name, other); };
  return std::any_of(kSecretFields.begin(), kSecretFields.end(), isIt) ||
         std::any_of(m_secretFields.begin(), m_secretFields.end(), isIt);
}

}  // namespace Corvane
