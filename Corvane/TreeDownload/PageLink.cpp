#include <Corvane/TreeDownload/PageLinkImpl.h>

#include <algorithm>
#include <new>

#include <Corvane/TreeDownload/PageTextImpl.h>

namespace Corvane {
namespace {

constexpr std::string_view kHexDigits = "0123456789ABCDEF";

int HexValue(char c) noexcept {
  if (IsAsciiDigit(c)) return c - '0';
  const char lower = AsciiLower(c);
  return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

// The byte that the escape at `from` stands for; -1 when there is none.
int EscapedByte(std::string_view text, std::size_t from) noexcept {
  if (from + 2 >= text.size() || text[from] != '%') return -1;
  const int high = HexValue(text[from + 1]);
  const int low = HexValue(text[from + 2]);
  return high < 0 || low < 0 ? -1 : high * 16 + low;
}

void AppendEscaped(unsigned char byte, std::string& text) {
  text += '%';
  text += kHexDigits[byte / 16];
  text += kHexDigits[byte % 16];
}

// The path with all escapes decoded that are not its structure, so that paths are the same text when they are the same
// path. (An escape without its digits gets one, or it could become one.)
std::string Comparable(std::string_view path) {
  std::string text;
  for (std::size_t i = 0; i < path.size(); ++i) {
    const int byte = EscapedByte(path, i);
    if (byte >= 0) i += 2;
    if (byte == '/' || byte == '%' || (byte < 0 && path[i] == '%')) {
      AppendEscaped(byte < 0 ? '%' : static_cast<unsigned char>(byte), text);
    } else {
      text += byte < 0 ? path[i] : static_cast<char>(byte);
    }
  }
  return text;
}

// Whether RFC 3986 sees a scheme before the link's first colon.
std::string_view SchemeOf(std::string_view href) noexcept {
  if (href.empty() || !IsAsciiLetter(href[0])) return {};
  std::size_t length = 1;
  const auto belongs = [](char c) { return IsAsciiLetter(c) || IsAsciiDigit(c) || c == '+' || c == '-' || c == '.'; };
  while (length < href.size() && belongs(href[length])) ++length;
  return length < href.size() && href[length] == ':' ? href.substr(0, length) : std::string_view();
}

// The link as libcurl takes it in every release: what no address may hold is escaped, as browsers do, and an escaped
// dot is a dot, since a segment of these is one that leads upwards.
std::string Prepared(std::string_view href) {
  constexpr std::string_view kNeverPlain = "\"<>\\^`{|}";
  std::string text;
  bool isPath = true;
  for (std::size_t i = 0; i < href.size(); ++i) {
    const auto byte = static_cast<unsigned char>(href[i]);
    if (byte == '?') isPath = false;
    if (byte <= ' ' || byte >= 0x7F || kNeverPlain.find(href[i]) != kNeverPlain.npos) {
      AppendEscaped(byte, text);
    } else if (isPath && EscapedByte(href, i) == '.') {
      text += '.';
      i += 2;
    } else {
      text += href[i];
    }
  }
  return text;
}

// A part of an address; empty when it has none.
std::string PartOf(CURLU* url, CURLUPart part) {
  char* text = nullptr;
  const CURLUcode code = curl_url_get(url, part, &text, part == CURLUPART_PORT ? CURLU_DEFAULT_PORT : 0);
  if (code == CURLUE_OUT_OF_MEMORY) throw std::bad_alloc();
  if (code != CURLUE_OK || text == nullptr) return {};
  const std::unique_ptr<char, void (*)(void*)> owner(text, &curl_free);
  return text;
}

std::string OriginOf(CURLU* url) {
  std::string origin = PartOf(url, CURLUPART_SCHEME) + "://" + PartOf(url, CURLUPART_HOST) + ":";
  std::transform(origin.begin(), origin.end(), origin.begin(), &AsciiLower);
  return origin + PartOf(url, CURLUPART_PORT);
}

// A segment that is nothing but itself wherever it stands in an address.
bool IsPlainSegment(std::string_view segment, bool mayHoldColon) noexcept {
  return std::none_of(segment.begin(), segment.end(), [&](char c) {
    return static_cast<unsigned char>(c) < ' ' || c == '\x7F' || c == '/' || c == '?' || c == '#' ||
           (c == ':' && !mayHoldColon);
  });
}

}  // namespace

void AppendUnescaped(std::string_view text, std::string& decoded) {
  for (;;) {
    const std::size_t mark = text.find('%');
    decoded += text.substr(0, mark);
    if (mark == text.npos) return;
    const int byte = EscapedByte(text, mark);
    decoded += byte < 0 ? '%' : static_cast<char>(byte);
    text.remove_prefix(mark + (byte < 0 ? 1 : 3));
  }
}

PageAddress::PageAddress(std::string_view url) : m_base(curl_url()) {
  if (m_base == nullptr) throw std::bad_alloc();
  if (url.size() > kMostPageUrlLength || !Follow(m_base.get(), url)) return;
  const std::string scheme = PartOf(m_base.get(), CURLUPART_SCHEME);
  if (scheme != "http" && scheme != "https") return;
  m_host = PartOf(m_base.get(), CURLUPART_HOST);
  m_origin = OriginOf(m_base.get());
  const std::string path = PartOf(m_base.get(), CURLUPART_PATH);
  m_path = Comparable(path);
  m_directory = path.substr(0, path.rfind('/') + 1);
  m_comparable = Comparable(m_directory);
  AppendUnescaped(std::string_view(path).substr(m_directory.size()), m_fileName);
  const std::size_t authority = url.find("://");
  if (authority == url.npos) return;
  const std::size_t begin = url.find('/', authority + 3);
  const bool isInPath = begin < url.find_first_of("?#");
  if (isInPath && url.substr(begin).starts_with(m_directory))
    m_directoryUrl = url.substr(0, begin + m_directory.size());
}

void PageAddress::SetBase(std::string_view href) {
  if (href.size() > kMostPageUrlLength) return;
  Url base(curl_url_dup(m_base.get()));
  if (base == nullptr) throw std::bad_alloc();
  if (!Follow(base.get(), href) || OriginOf(base.get()) != m_origin) return;
  const std::string path = PartOf(base.get(), CURLUPART_PATH);
  m_beginsElsewhere = Comparable(path.substr(0, path.rfind('/') + 1)) != m_comparable;
  m_base = std::move(base);
}

void PageAddress::Resolve(std::string_view href, PageLink& link) const {
  if (!ResolveQuickly(href, link)) ResolveByParser(href, link);
}

bool PageAddress::ResolveQuickly(std::string_view href, PageLink& link) const {
  bool isClear = true;  // what comes now cannot be a scheme
  if (href.starts_with('/')) {
    if (!href.starts_with(m_directory) || href.starts_with("//")) return false;  // two begin with a host
    href.remove_prefix(m_directory.size());
  } else if (!m_directoryUrl.empty() && href.starts_with(m_directoryUrl)) {
    href.remove_prefix(m_directoryUrl.size());
  } else if (m_beginsElsewhere) {
    return false;
  } else if (href.starts_with("./")) {
    href.remove_prefix(2);
  } else {
    isClear = false;
  }
  const bool isFolder = href.ends_with('/');
  if (isFolder) href.remove_suffix(1);
  if (href.empty() || !IsPlainSegment(href, isClear)) return false;
  link.text.clear();
  AppendUnescaped(href, link.text);
  if (link.text == "." || link.text == ".." || link.text == m_fileName) return false;
  link.kind = PageLink::Kind::Entry;
  link.isFolder = isFolder;
  return true;
}

void PageAddress::ResolveByParser(std::string_view href, PageLink& link) const {
  link.kind = PageLink::Kind::Away;
  link.text.clear();
  const std::string_view scheme = SchemeOf(href);
  if (!scheme.empty() && !IsLowered(scheme, "http") && !IsLowered(scheme, "https")) return;
  const Url url(curl_url_dup(m_base.get()));
  if (url == nullptr) throw std::bad_alloc();
  if (!Follow(url.get(), href)) {
    link.kind = PageLink::Kind::Other;
    link.text = href;
    return;
  }
  if (OriginOf(url.get()) == m_origin) Classify(url.get(), href.substr(0, href.find('#')).find('?') != href.npos, link);
}

bool PageAddress::Follow(CURLU* url, std::string_view href) {
  href = href.substr(0, href.find('#'));
  if (href.empty()) return true;  // the page itself
  const CURLUcode code = curl_url_set(url, CURLUPART_URL, Prepared(href).c_str(), 0);
  if (code == CURLUE_OUT_OF_MEMORY) throw std::bad_alloc();
  return code == CURLUE_OK;
}

// Whether there is a query is told by the link: releases of libcurl differ in what an empty one is.
void PageAddress::Classify(CURLU* url, bool hasQuery, PageLink& link) const {
  const std::string path = PartOf(url, CURLUPART_PATH);
  const std::string query = PartOf(url, CURLUPART_QUERY);
  const std::string comparable = Comparable(path);
  link.text = query;
  link.kind = PageLink::Kind::Itself;
  if (comparable == m_comparable || comparable == m_path) return;
  link.kind = PageLink::Kind::Above;
  if (comparable.ends_with('/') && m_comparable.starts_with(comparable)) return;
  if (m_comparable.starts_with(comparable) && m_comparable[comparable.size()] == '/') return;

  link.isFolder = path.ends_with('/');
  const std::string_view whole = std::string_view(path).substr(0, path.size() - (link.isFolder ? 1 : 0));
  const std::size_t segment = whole.rfind('/') + 1;
  link.text.clear();
  link.kind = PageLink::Kind::Entry;
  if (!hasQuery && segment < whole.size() && Comparable(whole.substr(0, segment)) == m_comparable) {
    return AppendUnescaped(whole.substr(segment), link.text);
  }
  link.kind = PageLink::Kind::Other;
  link.text = hasQuery ? path + "?" + query : path;
}

}  // namespace Corvane
