#include <algorithm>
#include <string_view>
#include <utility>

#include <Corvane/Base/Url.h>
#include <Corvane/LogLineImpl.h>
#include <Corvane/MultiDownload/ListingImpl.h>

namespace Corvane {
namespace {

constexpr ZString::size_type npos = ZString::npos;

// The character as ZString::Lower maps it.
wchar_t LowerOf(wchar_t character) {
  if (character >= L'A' && character <= L'Z') return static_cast<wchar_t>(character - L'A' + L'a');
  return character >= 0 && character < 0x80 ? character : ZString(&character, 1).Lower()[0];
}

bool BeginsLowered(std::wstring_view text, std::wstring_view pattern) {
  return text.size() >= pattern.size() &&
         std::equal(pattern.begin(), pattern.end(), text.begin(), [](wchar_t a, wchar_t b) { return a == LowerOf(b); });
}

// The next place at or after `from` where `text`, in lower case, has `pattern`. A page may be very large, so it is not
// copied for that: what the system's search looks for is the pattern's punctuation mark, which no other character maps
// to.
ZString::size_type FindLowered(std::wstring_view text, std::wstring_view pattern, ZString::size_type from) {
  const ZString::size_type mark = pattern.find_first_of(L"<:");
  for (from = text.find(pattern[mark], from + mark); from != npos; from = text.find(pattern[mark], from + 1)) {
    if (BeginsLowered(text.substr(from - mark), pattern)) return from - mark;
  }
  return npos;
}

// Finds the next occurrence of one character at or after positions that only grow. The last find is remembered, so that
// all searches together scan the text once, also for a character that does not occur.
class ForwardFinder {
 public:
  ForwardFinder(std::wstring_view text, wchar_t character) : m_text(text), m_character(character) {}

  ZString::size_type At(ZString::size_type from) {
    if (!m_searched || (m_found != npos && m_found < from)) m_found = m_text.find(m_character, from);
    m_searched = true;
    return m_found;
  }

 private:
  std::wstring_view m_text;
  wchar_t m_character;
  ZString::size_type m_found = 0;
  bool m_searched = false;
};

struct Anchor {
  ZString::size_type begin = 0;  // of "<a"
  ZString::size_type end = 0;    // of "</a>"
  std::wstring_view target;      // the first quoted value, decoded; valid until the next anchor is read
  std::wstring_view label;       // the text
};

// Walks over the anchors between the first "<pre>" and the first "</pre>" of a directory page. Tags are found in any
// case; what is taken comes from the text as received. Nothing is copied but a target that has something to decode.
class AnchorReader {
 public:
  explicit AnchorReader(std::wstring_view text) : m_text(text), m_doubleQuote(text, L'"'), m_singleQuote(text, L'\'') {
    m_position = FindLowered(text, L"<pre>", 0);
    m_end = FindLowered(text, L"</pre>", 0);
  }

  [[nodiscard]] bool HasListing() const noexcept { return m_position != npos && m_end != npos; }

  // False at the end, and at an anchor that is not quoted as directory pages quote them.
  bool Next(Anchor& anchor) {
    anchor.begin = FindLowered(m_text, L"<a", m_position);
    if (anchor.begin == npos || anchor.begin > m_end) return false;
    m_broken = true;
    anchor.end = FindLowered(m_text, L"</a>", anchor.begin);
    if (anchor.end == npos || anchor.end > m_end) return false;
    m_position = anchor.end;
    const ZString::size_type quote = std::min(m_doubleQuote.At(anchor.begin), m_singleQuote.At(anchor.begin));
    if (quote == npos || quote > anchor.end) return false;
    const ZString::size_type quoteEnd = m_text.find(m_text[quote], quote + 1);
    if (quoteEnd == npos || quoteEnd > anchor.end) return false;
    const ZString::size_type tagEnd = m_text.find(L'>', quoteEnd);
    if (tagEnd == npos || tagEnd > anchor.end) return false;
    m_broken = false;
    anchor.target = Decoded(m_text.substr(quote + 1, quoteEnd - quote - 1));
    anchor.label = m_text.substr(tagEnd + 1, anchor.end - tagEnd - 1);
    return true;
  }

  // What stands from an anchor on that ended the walk before the end; empty when none did.
  [[nodiscard]] std::wstring_view Unread(const Anchor& last) const {
    return m_broken ? m_text.substr(last.begin, m_end - last.begin) : std::wstring_view();
  }

 private:
  // Only a "%" begins what decodes to something else.
  std::wstring_view Decoded(std::wstring_view target) {
    if (target.find(L'%') == npos) return target;
    ZUrl::Decode(ZString(target.data(), target.size()), m_decoded);
    return m_decoded.Str();
  }

  std::wstring_view m_text;
  ForwardFinder m_doubleQuote;
  ForwardFinder m_singleQuote;
  ZString m_decoded;
  ZString::size_type m_position = 0;
  ZString::size_type m_end = 0;
  bool m_broken = false;
};

// The label shows the target's name, with or without its extension. Sort links, parent links and shortened labels do
// not.
bool IsFileLink(const Anchor& anchor) {
  return anchor.target.ends_with(anchor.label) ||
         anchor.target.substr(0, anchor.target.rfind(L'.')).ends_with(anchor.label);
}

constexpr bool IsDigit(wchar_t character) noexcept { return character >= L'0' && character <= L'9'; }

// The digits of the size that an IIS page shows in the column before the anchor at `anchor`; empty when it shows none.
// The column is the 14 characters that end two places before the anchor. The result lies in `column`, which keeps its
// memory from call to call.
std::wstring_view IisSize(std::wstring_view text, ZString::size_type anchor, ZString& column) {
  constexpr ZString::size_type kColumn = 14;
  const std::wstring_view shown =
      anchor < kColumn + 2 ? text.substr(0, anchor - 1) : text.substr(anchor - kColumn - 1, kColumn);
  const std::wstring_view trimmed = column.Clear().Append(shown.data(), shown.size()).TrimLeft().TrimRight().Str();
  const auto last = std::find_if_not(trimmed.rbegin(), trimmed.rend(), IsDigit);
  return last == trimmed.rend() ? std::wstring_view() : trimmed.substr(static_cast<std::size_t>(trimmed.rend() - last));
}

// The number that `text` begins with. `memory` saves an allocation for each call.
unsigned long long NumberIn(std::wstring_view text, ZString& memory) {
  return memory.Clear().Append(text.data(), text.size()).ToULongLong(10);
}

void LogEntry(const wchar_t* message, std::wstring_view name, int line) {
  LogLine(
      ZLogLevel::Information, kMultiDownloadArea,
      [&] { return ZString(message).Arg(ZString(name.data(), name.size())); }, line);
}

bool NamesIis(std::wstring_view text) { return FindLowered(text, L"server: microsoft-iis", 0) != npos; }

// Reads a page into a listing.
class HttpListingReader {
 public:
  HttpListingReader(std::wstring_view text, bool isIis) : m_text(text), m_anchors(text), m_isIis(isIis) {}

  Listing Read() {
    if (!m_anchors.HasListing()) return {};
    Anchor anchor;
    while (m_anchors.Next(anchor)) ReadAnchor(anchor);
    const std::wstring_view unread = m_anchors.Unread(anchor);
    if (!unread.empty()) LeaveOut(m_listing, unread, LeftOutReason::Unreadable);
    m_listing.recognised = m_anyKnownLink || SaysThatItIsAListing();
    return std::move(m_listing);
  }

 private:
  void ReadAnchor(const Anchor& anchor) {
    const bool isFile = IsFileLink(anchor) && !FileNameOf(anchor.target).empty();
    if (!isFile) return ReadOtherAnchor(anchor);
    const std::wstring_view name = FileNameOf(anchor.target);
    const unsigned long long size = ReadSize(anchor, name);
    m_anyKnownLink = true;
    if (name != L"." && name != L"..") AddEntry(m_listing, anchor.target, size, ListingKind::File);
  }

  unsigned long long ReadSize(const Anchor& anchor, std::wstring_view name) {
    std::wstring_view size;
    if (!m_isIis) {
      LogEntry(L"Found valid non IIS HTTP directory entry. Name = %1. Size = unknown (will determine from header)",
               name, 1413);
    } else if ((size = IisSize(m_text, anchor.begin, m_column)).empty()) {
      LogEntry(L"Found valid IIS HTTP directory entry. Name = %1. Size = unknown (will determine from header)", name,
               1432);
    }
    return NumberIn(size, m_number);
  }

  // A link that is no file's: a folder's, one that leads around, or one whose text hides the name of what it leads to.
  void ReadOtherAnchor(const Anchor& anchor) {
    std::wstring_view path = anchor.target;
    const bool isFolder = path.ends_with(L'/');
    if (isFolder) path.remove_suffix(1);
    const std::wstring_view name = FileNameOf(path);
    const bool leadsAround = !IsPlainFileName(name) || path.starts_with(L'?');
    if (path == L".." || path.starts_with(L"?C=")) m_anyKnownLink = true;  // no other page has these
    if (leadsAround) return;
    const std::wstring_view shown = ShownName(anchor.label);
    const bool isShortened = shown.ends_with(L"..") && name.starts_with(shown.substr(0, shown.size() - 2));
    if (!isFolder) {
      return LeaveOut(m_listing, name, isShortened ? LeftOutReason::NameShortened : LeftOutReason::NameDiffers);
    }
    // A folder under another text is the parent directory.
    if (!isShortened && shown != name && !shown.empty()) return;
    m_anyKnownLink = true;
    AddEntry(m_listing, path, 0, ListingKind::Folder);
  }

  // What a link's text shows of a name, without the mark of a folder and without the arrow behind a shortened name.
  static std::wstring_view ShownName(std::wstring_view label) {
    for (const std::wstring_view end : {std::wstring_view(L"/"), std::wstring_view(L"&gt;"), std::wstring_view(L">")}) {
      if (label.ends_with(end)) label.remove_suffix(end.size());
    }
    return label;
  }

  // For a page that links nothing at all.
  [[nodiscard]] bool SaysThatItIsAListing() const {
    return m_isIis || FindLowered(m_text, L"<title>index of ", 0) != npos ||
           FindLowered(m_text, L"<h1>index of ", 0) != npos;
  }

  std::wstring_view m_text;
  AnchorReader m_anchors;
  const bool m_isIis;
  Listing m_listing;
  ZString m_column;
  ZString m_number;
  bool m_anyKnownLink = false;
};

}  // namespace

Listing ParseHttpListing(const ZString& text) { return HttpListingReader(text.Str(), NamesIis(text.Str())).Read(); }

// Everything that is looked for begins with a "<" or stands within one line. So nothing begins in a header that has no
// "<" and ends with a line, and the page is read where it is. (Nor does such a header show in the column of an IIS
// page, of which only what stands behind the "<pre>" counts.)
Listing ParseHttpListing(const ZString& header, const ZString& page) {
  const bool isApart = header.IsEmpty() || (header.Str().back() == L'\n' && header.Find(L'<') == npos);
  if (!isApart) return ParseHttpListing(header + page);
  return HttpListingReader(page.Str(), NamesIis(header.Str()) || NamesIis(page.Str())).Read();
}

}  // namespace Corvane
