#include <algorithm>
#include <string>
#include <string_view>

#include <Corvane/TreeDownload/HtmlColumnsImpl.h>
#include <Corvane/TreeDownload/HtmlSignsImpl.h>
#include <Corvane/TreeDownload/HtmlTagsImpl.h>
#include <Corvane/TreeDownload/HtmlTextImpl.h>
#include <Corvane/TreeDownload/PageBuilderImpl.h>
#include <Corvane/TreeDownload/PageLinkImpl.h>
#include <Corvane/TreeDownload/PageTextImpl.h>

namespace Corvane {
namespace {

// A title, a heading or the text of an anchor, put together from what stands between tags.
class HtmlLabel {
 public:
  void Begin() {
    m_text.clear();
    m_isOpen = true;
  }
  // What is longer than any name that a page shows is no label.
  void Append(std::string_view text) {
    constexpr std::size_t kMostLength = 4096;
    if (m_isOpen && m_text.size() + text.size() > kMostLength) m_isOpen = false;
    if (m_isOpen) AppendUnreferenced(text, false, m_text);
  }
  // What was shown, once; empty when nothing had begun.
  std::string_view End() {
    const std::string_view text = m_isOpen ? TrimBlanks(m_text) : std::string_view();
    m_isOpen = false;
    return text;
  }

 private:
  std::string m_text;
  bool m_isOpen = false;
};

class HtmlReader {
 public:
  HtmlReader(std::string_view page, std::string_view url, std::string_view server, std::size_t mostEntries)
      : m_page(page), m_tags(page), m_address(url), m_builder(mostEntries), m_signs(m_address.Host(), server) {}

  Page Read() {
    if (!m_address.IsRight()) return {};
    HtmlTag tag;
    std::size_t textBegin = 0;
    while (!m_builder.IsTooLong() && m_tags.Next(tag)) {
      const std::string_view text = m_page.substr(textBegin, tag.begin - textBegin);
      m_label.Append(text);
      m_heading.Append(text);
      textBegin = tag.end;
      ReadTag(tag, text);
    }
    m_builder.Finish();
    return m_builder.Take(!m_signs.IsPart() && (m_signs.SayListing() || IsPlainList()));
  }

 private:
  [[nodiscard]] bool IsPlainList() const {
    return m_signs.AllowListing() && m_builder.IsEachShown() && (m_builder.HasEntries() || m_signs.HasParent());
  }

  // `text` stands before the tag.
  void ReadTag(const HtmlTag& tag, std::string_view text) {
    if (tag.Is("a")) {
      EndAnchor(tag);
      if (!tag.isEnd) BeginAnchor(tag, text);
    } else if (tag.Is("tr")) {
      m_place = PageBuilder::kNone;
    } else if (tag.Is("base")) {
      ReadBase(tag);
    } else if (tag.Is("title") || tag.Is("h1") || tag.Is("h2")) {
      if (tag.isEnd) return m_signs.AddHeading(m_heading.End(), tag.Is("title"));
      m_heading.Begin();
    } else if (m_place != PageBuilder::kNone) {
      m_columns.ReadTag(tag, m_builder.At(m_place));
    }
  }

  void ReadBase(const HtmlTag& tag) {
    const auto href = tag.Attribute("href");
    if (!href || m_hasBase) return;
    m_hasBase = true;  // of several, the first counts
    m_address.SetBase(Decoded(*href));
  }

  void BeginAnchor(const HtmlTag& tag, std::string_view before) {
    m_place = PageBuilder::kNone;
    const auto href = tag.Attribute("href");
    if (!href) return;
    m_address.Resolve(Decoded(*href), m_link);
    m_signs.AddLink(m_link);
    m_isOpen = true;
    if (!m_signs.SayListing()) m_label.Begin();
    if (m_link.kind == PageLink::Kind::Other) return m_builder.LeaveOut(m_link.text);
    if (m_link.kind == PageLink::Kind::Entry) m_place = m_builder.Add(m_link.text, m_link.isFolder);
    if (m_place != PageBuilder::kNone) m_columns.BeginAnchor(before, m_builder.At(m_place));
  }

  // An anchor ends with its end tag, or where the next one begins.
  void EndAnchor(const HtmlTag& tag) {
    if (!m_isOpen) return;
    m_isOpen = false;
    const std::string_view label = m_label.End();
    const std::string_view behind = m_page.substr(tag.end);
    if (m_place != PageBuilder::kNone) {
      if (ShowsName(label, TrimBlanks(m_link.text))) m_builder.SetShown(m_place);
      if (tag.isEnd) m_columns.EndAnchor(behind, m_builder.At(m_place));
    } else if (m_link.kind != PageLink::Kind::Entry) {
      m_signs.AddLabel(m_link, label);
      if (tag.isEnd) m_columns.EndParent(m_page.substr(0, tag.end), behind);
    }
  }

  // The link as a browser has it: blanks around it, and line ends and tabulators within it, do not belong to it. Valid
  // until the next one.
  std::string_view Decoded(std::string_view href) {
    const auto isBreak = [](char c) { return c == '\t' || c == '\n' || c == '\r'; };
    if (href.find('&') != href.npos || std::any_of(href.begin(), href.end(), isBreak)) {
      m_href.clear();
      AppendUnreferenced(href, true, m_href);
      std::erase_if(m_href, isBreak);
      href = m_href;
    }
    return TrimBlanks(href);
  }

  std::string_view m_page;
  HtmlTags m_tags;
  PageAddress m_address;
  PageBuilder m_builder;
  HtmlSigns m_signs;
  HtmlColumns m_columns{m_signs};
  HtmlLabel m_label;
  HtmlLabel m_heading;
  PageLink m_link;                           // of the last anchor
  std::size_t m_place = PageBuilder::kNone;  // of its entry, until its row ends
  bool m_isOpen = false;                     // it has not ended yet
  std::string m_href;
  bool m_hasBase = false;
};

}  // namespace

Page ReadHtmlPage(std::string_view page, std::string_view url, std::string_view server, std::size_t mostEntries) {
  return HtmlReader(page, url, server, mostEntries).Read();
}

}  // namespace Corvane
