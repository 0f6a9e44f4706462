#include <Corvane/TreeDownload/HtmlColumnsImpl.h>

#include <algorithm>

#include <Corvane/NumberTextImpl.h>
#include <Corvane/TreeDownload/PageTextImpl.h>
#include <Corvane/TreeDownload/PageTimeImpl.h>

namespace Corvane {
namespace {

// Takes `text` away from the beginning of `rest` when that begins with it.
bool Take(std::string_view& rest, std::string_view text) {
  if (!rest.starts_with(text)) return false;
  rest.remove_prefix(text.size());
  return true;
}

void TakeBlanks(std::string_view& rest) { rest.remove_prefix(std::min(rest.find_first_not_of(' '), rest.size())); }

// "22-Nov-2026 04:50"
constexpr std::size_t kDateLength = 17;
std::optional<long long> TimeInMonthNames(std::string_view text) {
  if (text.size() != kDateLength || text[2] != '-' || text[6] != '-' || text[11] != ' ' || text[14] != ':') {
    return std::nullopt;
  }
  PageTime time;
  time.SetDay(text.substr(0, 2));
  time.SetMonthName(text.substr(3, 3));
  time.SetYear(text.substr(7, 4));
  time.SetHour(text.substr(12, 2));
  time.SetMinute(text.substr(15, 2));
  return time.ToSeconds();
}

// "2026-11-22T04:50:30Z"
std::optional<long long> TimeInUtc(std::string_view text) {
  if (text.size() != 20 || text[4] != '-' || text[7] != '-' || text[10] != 'T' || text[13] != ':' || text[16] != ':' ||
      text[19] != 'Z') {
    return std::nullopt;
  }
  PageTime time;
  time.SetYear(text.substr(0, 4));
  time.SetMonth(text.substr(5, 2));
  time.SetDay(text.substr(8, 2));
  time.SetHour(text.substr(11, 2));
  time.SetMinute(text.substr(14, 2));
  time.SetSecond(text.substr(17, 2));
  return time.ToSeconds();
}

void SetTime(PageEntry& entry, std::optional<long long> time, unsigned int exactness) {
  entry.time = time;
  entry.timeExactness = time ? exactness : 0;
}

void SetSize(PageEntry& entry, std::string_view digits) {
  if (!entry.isFolder) entry.size = NumberOf(digits);
}

// Blanks, the date, one blank, and the size at the right of a field of 19 characters, or of 7 when sizes are rounded:
// nothing else shows all that. Digits alone are bytes even then: what is rounded has a letter.
void ReadNginx(std::string_view behind, PageEntry& entry) {
  constexpr std::size_t kExactField = 19;
  constexpr std::size_t kRoundedField = 7;
  TakeBlanks(behind);
  const std::optional<long long> time = TimeInMonthNames(behind.substr(0, kDateLength));
  const std::string_view field = behind.substr(std::min(kDateLength, behind.size())).substr(0, kExactField + 2);
  const std::size_t end = field.find_first_of("\r\n");
  if (!time || end == field.npos || (end != kExactField + 1 && end != kRoundedField + 1)) return;
  SetTime(entry, time, 60);
  SetSize(entry, TrimBlanks(field.substr(0, end)));
}

// "2026-11-22 04:50" or "22-Nov-2026 04:50", in the server's zone; only where the size stands hangs on it.
bool TakeApacheDate(std::string_view& rest) {
  constexpr std::size_t kLength = 16;
  const bool isNew = rest.size() > kLength && rest[4] == '-' && rest[10] == ' ' && rest[13] == ':';
  const bool isOld = rest.size() > kDateLength && rest[2] == '-' && rest[11] == ' ' && rest[14] == ':';
  if (isNew || isOld) rest.remove_prefix(isNew ? kLength : kDateLength);
  return isNew || isOld;
}

// Four characters; a number in the first three is bytes, what is rounded has a letter in the fourth.
void ReadApacheSize(std::string_view rest, PageEntry& entry) {
  if (rest.size() >= 4 && rest[3] == ' ') SetSize(entry, TrimBlanks(rest.substr(0, 3)));
}

void ReadApacheTable(std::string_view behind, PageEntry& entry) {
  constexpr std::string_view kCell = "<td align=\"right\">";
  if (!Take(behind, "</td>") || !Take(behind, kCell)) return;
  if (TakeApacheDate(behind) && (!Take(behind, "  </td>") || !Take(behind, kCell))) return;
  if (behind.substr(std::min<std::size_t>(4, behind.size())).starts_with("</td>")) ReadApacheSize(behind, entry);
}

}  // namespace

// The number before the anchor, behind the date and at least one blank. A folder shows "<dir>" there.
void HtmlColumns::BeginAnchor(std::string_view before, PageEntry& entry) {
  m_isLink = true;
  if (!m_signs.IsIis() || !before.ends_with(' ')) return;
  before.remove_suffix(1);
  const std::size_t blank = before.rfind(' ');
  if (blank == before.npos || before.substr(0, blank).find(':') == before.npos) return;
  if (IsAllDigits(before.substr(blank + 1))) SetSize(entry, before.substr(blank + 1));
}

void HtmlColumns::EndAnchor(std::string_view behind, PageEntry& entry) const {
  if (m_isNginx) return ReadNginx(behind, entry);
  if (!m_signs.SayListing()) return;
  const bool isTable = behind.starts_with('<');
  TakeBlanks(behind);
  if (isTable || behind.starts_with('<')) return ReadApacheTable(behind, entry);
  // In a text a description may stand in the place of a size that is not shown.
  if (m_signs.IsOrderedBy('S') && TakeApacheDate(behind) && Take(behind, "  ")) ReadApacheSize(behind, entry);
}

// Caddy shows of a symbolic link the size of what it leads to, but its own time.
void HtmlColumns::ReadTag(const HtmlTag& tag, PageEntry& entry) {
  if (!m_signs.IsCaddy() || tag.isEnd) return;
  if (tag.Is("use")) {
    const std::string_view icon = tag.Attribute("xlink:href").value_or("");
    m_isLink = icon != "#file" && icon != "#folder";
  } else if (m_isLink) {
    return;
  } else if (tag.Is("td")) {
    const auto size = tag.Attribute("data-order");
    if (size) SetSize(entry, *size);
  } else if (tag.Is("time")) {
    SetTime(entry, TimeInUtc(TrimBlanks(tag.Attribute("datetime").value_or(""))), 1);
  }
}

void HtmlColumns::EndParent(std::string_view until, std::string_view behind) {
  if (m_signs.SayListing() && until.ends_with("<hr><pre><a href=\"../\">../</a>") &&
      (behind.starts_with("\r\n") || behind.starts_with('\n')))
    m_isNginx = true;
}

}  // namespace Corvane
