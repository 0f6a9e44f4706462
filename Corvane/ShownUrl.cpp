#include <Corvane/ShownUrlImpl.h>

#include <algorithm>
#include <string_view>

namespace Corvane {
namespace {

constexpr std::wstring_view::size_type npos = std::wstring_view::npos;

bool IsPort(std::wstring_view text) {
  return std::all_of(text.begin(), text.end(), [](wchar_t c) { return c >= L'0' && c <= L'9'; });
}

}  // namespace

// A password may hold a slash that its author forgot to encode. The URL is wrong then, and is shown in the message that says so: what
// cannot be a port behind the first ":" is taken for the beginning of a password when an "@" follows anywhere.
ZString ShownUrl(const ZString& url) {
  const std::wstring_view text = url.Str();
  const auto scheme = text.find(L"://");
  const auto begin = scheme == npos ? 0 : scheme + 3;
  const auto pathBegin = std::min(text.find_first_of(L"/?#", begin), text.size());
  const auto colon = text.find(L':', begin);
  if (colon == npos || colon >= pathBegin) return url;
  auto at = text.substr(0, pathBegin).rfind(L'@');
  if (at == npos && text[begin] != L'[' && !IsPort(text.substr(colon + 1, pathBegin - colon - 1)))
    at = text.rfind(L'@');
  if (at == npos || at < colon) return url;
  return url.Substr(0, colon + 1) + L"***" + url.Substr(at);
}

}  // namespace Corvane
