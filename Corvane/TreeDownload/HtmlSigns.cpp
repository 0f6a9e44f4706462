#include <Corvane/TreeDownload/HtmlSignsImpl.h>

#include <algorithm>

#include <Corvane/TreeDownload/PageTextImpl.h>

namespace Corvane {
namespace {

// "HOST - /PATH/"
bool IsIisTitle(std::string_view text) {
  const std::size_t host = text.find(' ');
  return host != text.npos && host > 0 && text.substr(host).starts_with(" - /") && text.ends_with('/');
}

bool NamesDirectory(std::string_view text) {
  constexpr std::string_view kWords[] = {"index of ", "directory listing for ", "listing of "};
  return std::any_of(std::begin(kWords), std::end(kWords), [&](std::string_view words) {
    return BeginsLowered(text, words) && TrimBlanks(text.substr(words.size())).starts_with('/');
  });
}

// "C=N;O=D": by which column, and in which direction.
bool IsApacheOrder(std::string_view query) {
  constexpr std::string_view kColumns = "NMSD";
  constexpr std::string_view kDirections = "AD";
  return query.size() == 7 && query.starts_with("C=") && kColumns.find(query[2]) != kColumns.npos &&
         (query[3] == ';' || query[3] == '&') && query.substr(4, 2) == "O=" &&
         kDirections.find(query[6]) != kDirections.npos;
}

}  // namespace

bool ShowsName(std::string_view label, std::string_view name) {
  if (label.ends_with('/')) label.remove_suffix(1);
  if (label == name) return true;
  for (const std::string_view end : {"..>", "...", "..", "\xE2\x80\xA6"}) {
    if (label.size() > end.size() && label.ends_with(end))
      return name.starts_with(label.substr(0, label.size() - end.size()));
  }
  return false;
}

void HtmlSigns::AddHeading(std::string_view text, bool isTitle) {
  if (NamesDirectory(text)) m_hasTitle = true;
  if (!IsIisTitle(text)) return;
  if (isTitle) m_title = text;
  if (!isTitle && text == m_title) m_hasTitle = true;
}

void HtmlSigns::AddLink(const PageLink& link) {
  if (link.kind == PageLink::Kind::Other) m_hasOther = true;
  if (link.kind == PageLink::Kind::Itself &&
      (IsApacheOrder(link.text) || link.text.find("sort=namedirfirst") != std::string::npos))
    m_hasOrder = true;
}

void HtmlSigns::AddLabel(const PageLink& link, std::string_view label) {
  if (link.kind != PageLink::Kind::Above && link.kind != PageLink::Kind::Itself) return;
  constexpr std::string_view kParents[] = {"..", "../", "parent directory", "[parent directory]",
                                           "[to parent directory]"};
  if (std::any_of(std::begin(kParents), std::end(kParents),
                  [&](std::string_view text) { return IsLowered(label, text); }))
    m_hasParent = true;
}

}  // namespace Corvane
