#pragma once

#include <cstddef>
#include <optional>
#include <string_view>

namespace Corvane {

// A tag of a page; all views lie in the page.
struct HtmlTag {
  std::size_t begin = 0;  // of its "<"
  std::size_t end = 0;    // behind its ">"
  bool isEnd = false;     // "</a>"
  std::string_view name;  // in the page's case
  std::string_view attributes;

  // `lowered` in lower case.
  [[nodiscard]] bool Is(std::string_view lowered) const noexcept;
  // The value of the first attribute of that name, as the page has it, references not decoded; empty without a value,
  // nothing when there is no such attribute.
  [[nodiscard]] std::optional<std::string_view> Attribute(std::string_view lowered) const noexcept;
};

// Walks over the tags of a page as browsers find them (HTML Living Standard, 13.2.5): comments, and what a script, a
// style or a title holds, have none; neither has a tag that the page's end cuts off. Each byte is looked at a fixed
// number of times, whatever is not closed.
class HtmlTags {
 public:
  explicit HtmlTags(std::string_view page) noexcept : m_page(page) {}

  // False at the end of the page.
  bool Next(HtmlTag& tag) noexcept;

 private:
  bool ReadTag(std::size_t begin, HtmlTag& tag) noexcept;
  void SkipTo(std::string_view end, std::size_t from) noexcept;
  void SkipRawText(std::string_view name) noexcept;

  std::string_view m_page;
  std::size_t m_position = 0;
};

}  // namespace Corvane
