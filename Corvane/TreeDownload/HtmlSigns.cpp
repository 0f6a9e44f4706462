#include <Corvane/TreeDownload/HtmlSignsImpl.h>

#include <algorithm>
#include <iterator>

#include <Corvane/TreeDownload/PageTextImpl.h>

namespace Corvane {
namespace {

bool NamesDirectory(std::string_view text) {
  constexpr std::string_view kWords[] = {"index of ", "directory listing for ", "listing of "};
  return std::any_of(std::begin(kWords), std::end(kWords), [&](std::string_view words) {
    return BeginsLowered(text, words) && text.substr(words.size()).starts_with('/');
  });
}

// The column of "C=N;O=D", which orders one of Apache's pages; 0 for any other query.
char ApacheColumn(std::string_view query) {
  constexpr std::string_view kColumns = "NMSD";
  constexpr std::string_view kDirections = "AD";
  const bool isOrder = query.size() == 7 && query.starts_with("C=") && kColumns.find(query[2]) != kColumns.npos &&
                       (query[3] == ';' || query[3] == '&') && query.substr(4, 2) == "O=" &&
                       kDirections.find(query[6]) != kDirections.npos;
  return isOrder ? query[2] : '\0';
}

// What a query asks of the page that it is on.
enum class QueryUse { Order, Part, Other };

QueryUse UseOfKey(std::string_view key) {
  constexpr std::string_view kOrders[] = {"sort", "order", "sortby",    "orderby", "sort_by", "order_by",
                                          "by",   "dir",   "direction", "asc",     "desc",    "c",
                                          "o",    "n",     "m",         "s",       "d"};
  constexpr std::string_view kParts[] = {
      "page", "p",     "pg",     "offset", "start", "skip",        "limit",
      "from", "after", "cursor", "marker", "token", "start-after", "continuation-token"};
  const auto isKey = [&](std::string_view known) { return IsLowered(key, known); };
  if (std::any_of(std::begin(kParts), std::end(kParts), isKey)) return QueryUse::Part;
  return std::any_of(std::begin(kOrders), std::end(kOrders), isKey) ? QueryUse::Order : QueryUse::Other;
}

QueryUse UseOf(std::string_view query) {
  QueryUse use = QueryUse::Order;
  while (!query.empty()) {
    const std::size_t end = query.find_first_of("&;");
    const QueryUse key = UseOfKey(query.substr(0, std::min(end, query.find('='))));
    if (key == QueryUse::Part) return key;
    if (key == QueryUse::Other) use = key;
    query.remove_prefix(end == query.npos ? query.size() : end + 1);
  }
  return use;
}

}  // namespace

HtmlSigns::HtmlSigns(std::string_view host, std::string_view server)
    : m_host(host), m_comesFromIis(BeginsLowered(server, "microsoft-iis")) {}

// "HOST - /PATH/". Behind a proxy the host is another one than that of the page's address; then the field must say it.
bool HtmlSigns::IsIisTitle(std::string_view text) const {
  const std::size_t end = text.find(' ');
  if (end == text.npos || end == 0 || !text.substr(end).starts_with(" - /") || !text.ends_with('/')) return false;
  const std::string_view host = text.substr(0, end);
  const auto isSame = [](char a, char b) { return AsciiLower(a) == AsciiLower(b); };
  return m_comesFromIis || std::equal(host.begin(), host.end(), m_host.begin(), m_host.end(), isSame);
}

void HtmlSigns::AddHeading(std::string_view text, bool isTitle) {
  if (NamesDirectory(text)) m_hasTitle = true;
  if (isTitle) m_title = text;
  if (!isTitle && text == m_title && IsIisTitle(text)) m_isIis = true;
}

void HtmlSigns::AddLink(const PageLink& link) {
  if (link.kind == PageLink::Kind::Other) m_hasOther = true;
  if (link.kind != PageLink::Kind::Itself || link.text.empty()) return;
  const QueryUse use = UseOf(link.text);
  if (use == QueryUse::Part) m_isPart = true;
  if (use == QueryUse::Other) m_hasOther = true;
  // No other page has this word.
  if (link.text.find("sort=namedirfirst") != std::string::npos) m_isCaddy = true;
  const char column = ApacheColumn(link.text);
  if (column != '\0' && !IsOrderedBy(column)) m_orders += column;
}

void HtmlSigns::AddLabel(const PageLink& link, std::string_view label) {
  if (link.kind != PageLink::Kind::Above && link.kind != PageLink::Kind::Itself) return;
  constexpr std::string_view kParents[] = {
      "..", "../", "parent directory", "parent directory/", "[parent directory]", "[to parent directory]"};
  const auto isLabel = [&](std::string_view text) { return IsLowered(label, text); };
  if (std::any_of(std::begin(kParents), std::end(kParents), isLabel)) m_hasParent = true;
}

bool ShowsName(std::string_view label, std::string_view name) {
  if (label == name) return true;
  if (label.ends_with('/')) label.remove_suffix(1);
  if (label == name) return true;
  for (const std::string_view end : {"..>", "...", "..", "\xE2\x80\xA6"}) {
    if (label.size() <= end.size() || !label.ends_with(end)) continue;
    return name.starts_with(label.substr(0, label.size() - end.size()));
  }
  return false;
}

}  // namespace Corvane
