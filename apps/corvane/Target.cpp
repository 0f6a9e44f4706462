#include "apps/corvane/Target.h"

#include <fmt/core.h>

#include <algorithm>
#include <optional>
#include <string_view>

#include <Corvane/Base/Url.h>

#include "apps/corvane/Failure.h"
#include "apps/corvane/Text.h"

namespace CorvaneCli {
namespace {

using Corvane::ZString;
using Corvane::ZUrl;

[[noreturn]] void Refuse(const std::string& argument, std::string_view reason) {
  throw Failure(ExitCode::kUsage, fmt::format("cannot use the URL {}: {}", HideSecrets(DisplayName(argument)), reason));
}

// User, password, host and port of a URL with a scheme.
std::string_view AuthorityOf(std::string_view url) {
  const std::size_t begin = url.find_first_not_of('/', url.find(':') + 1);
  if (begin == std::string_view::npos) return {};
  url.remove_prefix(begin);
  return url.substr(0, url.find_first_of("/?#"));
}

void CheckScheme(const std::string& argument, const std::string& scheme) {
  if (scheme == "http" || scheme == "https" || scheme == "ftp") return;
  Refuse(argument, fmt::format("the scheme \"{}\" is not supported; use http, https or ftp", scheme));
}

// A password may hold a slash that its author forgot to encode: what cannot be a port belongs to one when an "@" follows.
bool IsPort(std::string_view text) {
  return std::all_of(text.begin(), text.end(), [](char character) { return character >= '0' && character <= '9'; });
}

// In time that grows with the length only: a server may send anything.
void AppendWithoutUserinfo(std::string& shown, std::string_view line) {
  const std::size_t lastAt = line.rfind('@');
  std::size_t done = 0;
  for (std::size_t begin = line.find("//"); begin != std::string_view::npos && lastAt != std::string_view::npos;
       begin = line.find("//", std::max(begin, done))) {
    begin += 2;
    const std::size_t end = std::min(line.find_first_of("/?#\"'<>\\ \t\r\n", begin), line.size());
    const std::string_view authority = line.substr(begin, end - begin);
    std::size_t at = authority.rfind('@');
    const std::size_t colon = authority.find(':');
    const bool isCut = at == std::string_view::npos && colon != std::string_view::npos && authority[0] != '[' &&
                       !IsPort(authority.substr(colon + 1)) && lastAt >= end;
    if (isCut) at = lastAt - begin;
    if (at == std::string_view::npos) continue;
    shown.append(line.substr(done, begin - done)).append("***");
    done = begin + at;
  }
  shown.append(line.substr(done));
}

}  // namespace

std::string HideSecrets(const std::string& utf8) {
  const std::size_t at = utf8.rfind('@');
  if (at == std::string::npos) return utf8;
  // From behind the scheme: a password may hold any character, so that nothing before the "@" is safe to show.
  const std::size_t scheme = utf8.find("//");
  const std::size_t begin = scheme == std::string::npos || scheme > at ? 0 : scheme + 2;
  return utf8.substr(0, begin) + "***" + utf8.substr(at);
}

std::string Target::Label() const {
  std::string path = display.substr(0, display.find_first_of("?#"));
  const std::size_t slash = path.rfind('/');
  if (slash + 1 < path.size() && slash > path.find("//") + 1) return path.substr(slash + 1);
  return std::string(AuthorityOf(display));
}

std::string Target::Host() const {
  const std::string_view authority = AuthorityOf(display);
  const bool isAddress = !authority.empty() && authority.front() == '[';
  const std::string_view host =
      isAddress ? authority.substr(1, authority.find(']') - 1) : authority.substr(0, authority.find(':'));
  return std::string(host);
}

std::string HideUserinfoIn(std::string_view text) {
  std::string shown;
  while (!text.empty()) {
    const std::size_t line = std::min(text.find('\n'), text.size() - 1) + 1;
    AppendWithoutUserinfo(shown, text.substr(0, line));
    text.remove_prefix(line);
  }
  return shown;
}

Target MakeTarget(const std::string& argument) {
  const std::optional<ZString> text = DecodeLocal(argument);
  if (!text) Refuse(argument, "the locale cannot express it; set LC_ALL=C.UTF-8, or percent-encode what is not ASCII");
  if (text->IsEmpty()) Refuse("\"\"", "it is empty; give one such as http://example.com/file");

  ZUrl url(*text);
  if (url.GetProtocol().IsEmpty()) url.SetProtocol(L"http");
  Target target{url.ToString(), ToUtf8(url.ToString()), ToUtf8(url.GetProtocol())};
  CheckScheme(argument, target.scheme);
  if (AuthorityOf(target.display).find('@') != std::string_view::npos) {
    Refuse(argument,
           "it holds a user name or password, which others can see in the list of processes; "
           "use --user NAME, which takes the password from elsewhere");
  }
  if (!url.IsValid()) {
    Refuse(argument,
           "it is malformed; give SCHEME://HOST[:PORT]/PATH with blanks and other special characters "
           "percent-encoded (a blank is %20)");
  }
  return target;
}

}  // namespace CorvaneCli
