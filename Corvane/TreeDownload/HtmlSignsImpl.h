#pragma once

#include <string>
#include <string_view>

#include <Corvane/TreeDownload/PageLinkImpl.h>

namespace Corvane {

// Gathers what tells whether a page is a listing; PageImpl.h has the rule.
class HtmlSigns {
 public:
  // `host` of the page's address; `server`: the value of the field.
  HtmlSigns(std::string_view host, std::string_view server);

  // The text of a title or heading.
  void AddHeading(std::string_view text, bool isTitle);
  void AddLink(const PageLink& link);
  // The text of a link that is no entry.
  void AddLabel(const PageLink& link, std::string_view label);

  // The page is made by a program that shows directories.
  [[nodiscard]] bool SayListing() const noexcept { return m_hasTitle || m_isIis || m_isCaddy || !m_orders.empty(); }
  // There are more such pages of the directory; none of them alone is its listing.
  [[nodiscard]] bool IsPart() const noexcept { return m_isPart; }
  [[nodiscard]] bool IsIis() const noexcept { return m_isIis; }
  [[nodiscard]] bool IsCaddy() const noexcept { return m_isCaddy; }
  // By a column of Apache's: N, M, S, D.
  [[nodiscard]] bool IsOrderedBy(char column) const noexcept { return m_orders.find(column) != m_orders.npos; }
  // No link speaks against it.
  [[nodiscard]] bool AllowListing() const noexcept { return !m_hasOther; }
  [[nodiscard]] bool HasParent() const noexcept { return m_hasParent; }

 private:
  [[nodiscard]] bool IsIisTitle(std::string_view text) const;

  std::string m_host;
  bool m_comesFromIis;
  std::string m_title;
  std::string m_orders;
  bool m_hasTitle = false;
  bool m_isPart = false;
  bool m_isIis = false;
  bool m_isCaddy = false;
  bool m_hasParent = false;
  bool m_hasOther = false;
};

// Whether the text of an anchor is the name of what it leads to: whole, or cut as servers cut long names, with dots at
// its end.
[[nodiscard]] bool ShowsName(std::string_view label, std::string_view name);

}  // namespace Corvane
