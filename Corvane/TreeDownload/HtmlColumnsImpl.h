#pragma once

#include <string_view>

#include <Corvane/TreeDownload/HtmlSignsImpl.h>
#include <Corvane/TreeDownload/HtmlTagsImpl.h>
#include <Corvane/TreeDownload/PageImpl.h>

namespace Corvane {

// Reads sizes and times beside anchors, from the servers that are known to show them exactly: see docs/listings.md.
// What a server is follows from the shape of its pages, to the character where something hangs on it, since proxies
// hide its name, and other servers show rounded sizes and local times in columns that look much the same.
class HtmlColumns {
 public:
  explicit HtmlColumns(const HtmlSigns& signs) : m_signs(signs) {}

  // The anchor of an entry begins; `before` is the text between the last tag and it.
  void BeginAnchor(std::string_view before, PageEntry& entry);
  // It has ended; `behind` is the rest of the page.
  void EndAnchor(std::string_view behind, PageEntry& entry) const;
  // A tag within the row of the entry.
  void ReadTag(const HtmlTag& tag, PageEntry& entry);
  // A link to a folder above has ended; `until` is the page up to there, `behind` the rest.
  void EndParent(std::string_view until, std::string_view behind);

 private:
  const HtmlSigns& m_signs;
  bool m_isNginx = false;
  bool m_isLink = true;  // what the row is of may be a symbolic link; for all that is known until its icon comes
};

}  // namespace Corvane
