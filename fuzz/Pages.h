#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <set>
#include <string>
#include <string_view>

#include <Corvane/TreeDownload/PageImpl.h>

#include "fuzz/Require.h"

// What the fuzzers of the page readers share.
namespace CorvaneFuzz {

using Corvane::Page;
using Corvane::PageEntry;
using Names = std::set<std::string>;

inline constexpr std::size_t kAnyNumber = static_cast<std::size_t>(-1);

// The names of a page, which is what every page is: plain names, each once, with what is said of them.
inline Names NamesOf(const Page& page) {
  Names names;
  for (const PageEntry& entry : page.entries) {
    Require(Corvane::IsPlainName(entry.name), "a name is a plain one");
    Require(names.insert(entry.name).second, "each name once");
    Require(!entry.isFolder || !entry.size, "folders have no size");
    Require(entry.time.has_value() == (entry.timeExactness != 0), "a time has an exactness");
  }
  Require(page.leftOutNames.size() == std::min(page.leftOut, Corvane::kMostLeftOutPageNames),
          "what is left out is named, up to a bound");
  for (const std::string& name : page.leftOutNames) {
    Require(name.size() <= Corvane::kMostNameLength, "no name left out is longer than the bound");
  }
  return names;
}

inline bool AreSame(const PageEntry& a, const PageEntry& b) {
  return a.name == b.name && a.isFolder == b.isFolder && a.size == b.size && a.time == b.time &&
         a.timeExactness == b.timeExactness;
}

inline bool AreSame(const Page& a, const Page& b) {
  return a.isListing == b.isListing && a.isTooLong == b.isTooLong && a.leftOut == b.leftOut &&
         a.leftOutNames == b.leftOutNames &&
         std::equal(a.entries.begin(), a.entries.end(), b.entries.begin(), b.entries.end(),
                    [](const PageEntry& x, const PageEntry& y) { return AreSame(x, y); });
}

// As many entries as there are may be allowed, but not one less. `read` takes the number allowed.
template <class Read>
void RequireLimit(const Page& page, Read read) {
  Require(!page.isTooLong, "any number is allowed");
  const std::size_t count = page.entries.size();
  Require(AreSame(read(count), page), "a limit that is not passed changes nothing");
  if (count == 0) return;
  const Page cut = read(count - 1);
  Require(cut.isTooLong && cut.entries.size() == count - 1, "a limit that is passed ends the reading");
}

// What must hold of a reader of lines.
using LineReader = Page (*)(std::string_view text, std::size_t mostEntries);
inline void RequireLines(std::string_view text, LineReader read) {
  const Page page = read(text, kAnyNumber);
  const Names names = NamesOf(page);
  RequireLimit(page, [&](std::size_t mostEntries) { return read(text, mostEntries); });

  const std::size_t middle = text.find('\n', text.size() / 2);
  const std::size_t cut = middle == text.npos ? text.size() : middle + 1;
  Names halves = NamesOf(read(text.substr(0, cut), kAnyNumber));
  halves.merge(NamesOf(read(text.substr(cut), kAnyNumber)));
  Require(halves == names, "lines stand for themselves");

  std::string loosened = "\r\n";
  for (const char character : text) loosened += character == '\n' ? std::string("\n\r\n\n") : std::string(1, character);
  Require(AreSame(read(loosened, kAnyNumber), page), "empty lines do not matter");
}

}  // namespace CorvaneFuzz
