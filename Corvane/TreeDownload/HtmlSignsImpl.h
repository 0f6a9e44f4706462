#pragma once

#include <string>
#include <string_view>

#include <Corvane/TreeDownload/PageLinkImpl.h>

namespace Corvane {

// Gathers what tells whether a page is a listing; PageImpl.h has the rule.
class HtmlSigns {
 public:
  void AddHeading(std::string_view text, bool isTitle);
  void AddLink(const PageLink& link);
  // The text of a link that is no entry.
  void AddLabel(const PageLink& link, std::string_view label);

  // The page is made by a program that shows directories.
  [[nodiscard]] bool SayListing() const noexcept { return m_hasTitle || m_hasOrder; }
  // No link speaks against it.
  [[nodiscard]] bool AllowListing() const noexcept { return !m_hasOther; }
  [[nodiscard]] bool HasParent() const noexcept { return m_hasParent; }

 private:
  std::string m_title;
  bool m_hasTitle = false;
  bool m_hasOrder = false;
  bool m_hasParent = false;
  bool m_hasOther = false;
};

// Whether the text of an anchor is the name of what it leads to: whole, or cut as servers cut long names, with a dot or
// more at the end.
[[nodiscard]] bool ShowsName(std::string_view label, std::string_view name);

}  // namespace Corvane
