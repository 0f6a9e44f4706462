#include <Corvane/Base/Url.h>

#include <curl/curl.h>
#include <utf8.h>

#include <algorithm>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <utility>

#include <Corvane/Base/StringCoding.h>

namespace Corvane {

namespace {

struct UrlDeleter {
  void operator()(CURLU* url) const noexcept { curl_url_cleanup(url); }
};
struct PartDeleter {
  void operator()(char* part) const noexcept { curl_free(part); }
};

// ASCII only. The classification functions of the C library follow the host's locale, in which "I" may have another
// lower-case letter than "i".
bool IsLetter(wchar_t c) noexcept { return (c >= L'a' && c <= L'z') || (c >= L'A' && c <= L'Z'); }
bool IsDigit(wchar_t c) noexcept { return c >= L'0' && c <= L'9'; }
bool IsSchemeCharacter(wchar_t c) noexcept { return IsLetter(c) || IsDigit(c) || c == L'+' || c == L'-' || c == L'.'; }
bool IsUnreserved(unsigned char c) noexcept {
  return IsLetter(c) || IsDigit(c) || c == '-' || c == '.' || c == '_' || c == '~';
}
wchar_t LowerLetter(wchar_t c) noexcept { return c >= L'A' && c <= L'Z' ? static_cast<wchar_t>(c - L'A' + L'a') : c; }

// The length of the scheme at the beginning of `text`, 0 when there is none. The rule is libcurl's: a scheme is
// followed by ":/", so that "example.com:8080/a" and "localhost:80" begin with a host.
std::size_t SchemeLength(std::wstring_view text) noexcept {
  if (text.empty() || !IsLetter(text[0])) return 0;
  std::size_t length = 1;
  while (length < text.size() && IsSchemeCharacter(text[length])) ++length;
  return text.substr(length, 2) == L":/" ? length : 0;
}

// The position of the authority (user, host and port): behind the scheme, the colon and the slashes, of which libcurl
// takes up to three.
std::size_t AuthorityPosition(std::wstring_view text) noexcept {
  const std::size_t scheme = SchemeLength(text);
  std::size_t position = scheme == 0 ? 0 : scheme + 1;
  for (int slashes = 0; slashes < 3 && position < text.size() && text[position] == L'/'; ++slashes) ++position;
  return position;
}

bool EndsWithDoubledSlash(std::wstring_view text) noexcept {
  if (text.size() < 2 || text.substr(text.size() - 2) != L"//") return false;
  // The path begins behind an authority of at least one character, and ends at a query or a fragment.
  const std::size_t authority = AuthorityPosition(text);
  return text.size() - 2 > authority && text.find_first_of(L"?#", authority) == std::wstring_view::npos;
}

// Whether libcurl, given the text for a request, finds a host in it.
bool HasHost(const char* text) {
  const std::unique_ptr<CURLU, UrlDeleter> url(curl_url());
  if (url == nullptr) throw std::bad_alloc();
  // The flags that a request parses its URL with, so that both find the same texts valid. Blanks are not allowed there.
  const CURLUcode parsed = curl_url_set(url.get(), CURLUPART_URL, text, CURLU_GUESS_SCHEME | CURLU_NON_SUPPORT_SCHEME);
  if (parsed == CURLUE_OUT_OF_MEMORY) throw std::bad_alloc();
  if (parsed != CURLUE_OK) return false;
  char* host = nullptr;
  if (curl_url_get(url.get(), CURLUPART_HOST, &host, 0) != CURLUE_OK) return false;
  const std::unique_ptr<char, PartDeleter> owner(host);
  return host != nullptr && *host != '\0';
}

std::wstring PercentEncode(const ZString& name) {
  const ZStringEncoder utf8(name, ZStringEncoder::Utf8);
  std::wstring encoded;
  encoded.reserve(utf8.Length());
  for (const char character : std::string_view(utf8.CStr(), utf8.Length())) {
    const auto byte = static_cast<unsigned char>(character);
    if (IsUnreserved(byte) || byte == '/') {
      encoded += static_cast<wchar_t>(byte);
    } else {
      encoded += L'%';
      encoded += L"0123456789ABCDEF"[byte >> 4];
      encoded += L"0123456789ABCDEF"[byte & 0xF];
    }
  }
  return encoded;
}

// The value of a hexadecimal digit, -1 for anything else.
int DigitValue(wchar_t c) noexcept {
  if (IsDigit(c)) return c - L'0';
  const wchar_t lower = LowerLetter(c);
  return lower >= L'a' && lower <= L'f' ? lower - L'a' + 10 : -1;
}

// The byte that the escape at the beginning of `text` names, -1 when there is no escape.
int EscapedByte(std::wstring_view text) noexcept {
  if (text.size() < 3 || text[0] != L'%') return -1;
  const int high = DigitValue(text[1]);
  const int low = DigitValue(text[2]);
  return high < 0 || low < 0 ? -1 : high * 16 + low;
}

void AppendDecoded(const std::string& bytes, ZString& decoded) {
  if (utf8::is_valid(bytes.begin(), bytes.end())) {
    AppendUtf8(decoded, bytes.data(), bytes.size());
    return;
  }
  for (const char byte : bytes) decoded.Append(static_cast<wchar_t>(static_cast<unsigned char>(byte)));
}

}  // namespace

ZUrl::ZUrl(ZString text) : m_text(std::move(text)) {
  if (EndsWithDoubledSlash(m_text.Str())) m_text = m_text.Substr(0, m_text.Length() - 1);
}

ZString ZUrl::GetProtocol() const {
  std::wstring scheme = m_text.Str().substr(0, SchemeLength(m_text.Str()));
  for (wchar_t& character : scheme) character = LowerLetter(character);
  return ZString(std::move(scheme));
}

void ZUrl::SetProtocol(const ZString& protocol) {
  const std::size_t scheme = SchemeLength(m_text.Str());
  if (scheme != 0) {
    m_text = protocol + m_text.Substr(scheme);
  } else {
    m_text = protocol + (m_text.StartsWith(L"//") ? L":" : L"://") + m_text;
  }
}

bool ZUrl::IsValid() const {
  if (SchemeLength(m_text.Str()) == 0 || m_text.Str().find(L'\0') != std::wstring::npos) return false;
  return HasHost(ZStringEncoder(m_text, ZStringEncoder::Utf8).CStr());
}

ZUrl ZUrl::operator/(const ZString& name) const {
  ZUrl joined;
  if (m_text.IsEmpty()) {
    joined.m_text = ZString(PercentEncode(name));
    return joined;
  }
  const ZString::size_type nameBegin = name.Str().find_first_not_of(L'/');
  const std::wstring encoded = nameBegin == 0 ? PercentEncode(name) : PercentEncode(name.Substr(nameBegin));
  joined.m_text.Reserve(m_text.Length() + 1 + encoded.size());
  joined.m_text.Append(m_text);
  if (m_text[m_text.Length() - 1] != L'/') joined.m_text.Append(L'/');
  joined.m_text.Append(encoded.data(), encoded.size());
  return joined;
}

bool ZUrl::Decode(const ZString& text, ZString& decoded) {
  const std::wstring_view source = text.Str();
  ZString result;
  result.Reserve(source.size());
  std::string bytes;
  std::size_t position = 0;
  while (position < source.size()) {
    const std::size_t percent = std::min(source.find(L'%', position), source.size());
    result.Append(source.data() + position, percent - position);
    position = percent;

    bytes.clear();
    for (int byte = EscapedByte(source.substr(position)); byte >= 0; byte = EscapedByte(source.substr(position))) {
      bytes += static_cast<char>(byte);
      position += 3;
    }
    AppendDecoded(bytes, result);
    // A "%" that begins no escape.
    if (bytes.empty() && position < source.size()) result.Append(source[position++]);
  }
  decoded = std::move(result);
  return true;
}

}  // namespace Corvane
