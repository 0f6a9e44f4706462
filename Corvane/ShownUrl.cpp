#include <Corvane/ShownUrlImpl.h>

#include <algorithm>
#include <optional>
#include <string>
#include <string_view>

namespace Corvane {
namespace {

constexpr std::wstring_view::size_type npos = std::wstring_view::npos;
constexpr const wchar_t* kStruckOut = L"***";

struct Span {
  std::size_t begin = 0;
  std::size_t end = 0;
};

bool IsPort(std::wstring_view text) {
  return std::all_of(text.begin(), text.end(), [](wchar_t c) { return c >= L'0' && c <= L'9'; });
}

// The password in a URL whose host, or login, begins at `begin`, and whose last "@" is at `lastAt`. A password may hold a slash that
// its author forgot to encode. The URL is wrong then, and is shown in the message that says so: what cannot be a port behind the
// first ":" is taken for the beginning of a password when an "@" follows anywhere.
std::optional<Span> FindPassword(std::wstring_view url, std::size_t begin, std::size_t lastAt) {
  const auto pathBegin = std::min(url.find_first_of(L"/?#", begin), url.size());
  const std::wstring_view authority = url.substr(begin, pathBegin - begin);
  const auto colon = authority.find(L':');
  if (colon == npos) return std::nullopt;
  auto at = authority.rfind(L'@');
  if (at != npos) {
    at += begin;
  } else if (authority[0] != L'[' && !IsPort(authority.substr(colon + 1))) {
    at = lastAt;
  }
  if (at == npos || at < begin + colon) return std::nullopt;
  return Span{begin + colon + 1, at};
}

// Where the host, or the login, of a URL begins. libcurl takes one to three slashes behind a scheme, but for files.
std::size_t HostOf(std::wstring_view url) {
  const auto colon = url.find(L':');
  if (colon == npos || url.find_first_of(L"/?#@[") < colon || url.substr(colon + 1, 1) != L"/") return 0;
  if (url.substr(0, colon) == L"file") return std::min(colon + 3, url.size());
  return std::min(url.find_first_not_of(L'/', colon + 1), url.size());
}

// The same for the next URL in a text, at `from` or behind it: what follows "//" or ":/".
std::size_t NextHost(std::wstring_view text, std::size_t from) {
  for (auto slash = text.find(L'/', from); slash != npos; slash = text.find(L'/', slash + 1)) {
    const bool isDouble = text.substr(slash + 1, 1) == L"/";
    if (isDouble || (slash > 0 && text[slash - 1] == L':')) return text.find_first_not_of(L'/', slash);
  }
  return npos;
}

// Appends `text`, in which several URLs may follow each other without a blank. In time that grows with its length only: a server may
// send anything.
void AppendShown(std::wstring& shown, std::wstring_view text) {
  const std::size_t lastAt = text.rfind(L'@');
  std::size_t done = 0;
  for (std::size_t host = NextHost(text, 0); host != npos; host = NextHost(text, std::max(host, done))) {
    const std::optional<Span> password = FindPassword(text, host, lastAt);
    if (!password) continue;
    shown.append(text.substr(done, password->begin - done)).append(kStruckOut);
    done = password->end;
  }
  shown.append(text.substr(done));
}

}  // namespace

ZString ShownUrl(const ZString& url) {
  const std::wstring_view text = url.Str();
  const std::optional<Span> password = FindPassword(text, HostOf(text), text.rfind(L'@'));
  if (!password) return url;
  return url.Substr(0, password->begin) + kStruckOut + url.Substr(password->end);
}

ZString ShownUrls(const ZString& text, bool withBlanks) {
  std::wstring_view rest = text.Str();
  if (rest.find(L'/') == npos) return text;
  std::wstring shown;
  while (!rest.empty()) {
    const auto blank = withBlanks ? npos : rest.find_first_of(L" \t");
    AppendShown(shown, rest.substr(0, blank));
    if (blank == npos) break;
    shown.push_back(rest[blank]);
    rest.remove_prefix(blank + 1);
  }
  return ZString(shown.data(), shown.size());
}

}  // namespace Corvane
