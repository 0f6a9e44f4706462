#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include <Corvane/TreeDownload/PageImpl.h>

namespace Corvane {

// Gathers what a reader finds, and sees to it that a page says of each name only one thing.
class PageBuilder {
 public:
  static constexpr std::size_t kNone = static_cast<std::size_t>(-1);

  explicit PageBuilder(std::size_t mostEntries) : m_mostEntries(mostEntries), m_uniteAbove(mostEntries) {}

  // The place of the entry, valid until the next call of Add; kNone when the name was refused and left out.
  std::size_t Add(std::string_view name, bool isFolder);
  PageEntry& At(std::size_t place) { return m_page.entries[place]; }
  // An anchor shows the entry by its name.
  void SetShown(std::size_t place) { m_marks[place].isShown = true; }
  void LeaveOut(std::string_view name);

  // Nothing more is to be read.
  [[nodiscard]] bool IsTooLong() const noexcept { return m_page.isTooLong; }

  // Each name once; to be called when everything is read.
  void Finish();
  [[nodiscard]] bool HasEntries() const noexcept { return !m_page.entries.empty(); }
  [[nodiscard]] bool IsEachShown() const;
  Page Take(bool isListing);

 private:
  // What is known of an entry beside what it tells.
  struct Marks {
    bool isShown = false;
    bool sizesDiffer = false;  // the page shows several
    bool timesDiffer = false;
    bool hidesFile = false;  // of the same name
    bool isSuperfluous = false;
  };
  // What entries are put in order by, so that equal names come to stand together. Names with the same hash are compared:
  // a server that makes such names gains nothing, unlike with a hash table.
  struct Key {
    std::size_t hash;
    std::size_t place;
  };

  void Unite();
  std::vector<Key> SortedKeys() const;
  void UniteEqual(const Key* begin, const Key* end);
  void UniteInto(std::size_t kept, std::size_t other);
  void RemoveSuperfluous();

  const std::size_t m_mostEntries;
  std::size_t m_uniteAbove;  // with more entries, look whether they are too many or the same again
  Page m_page;
  std::vector<Marks> m_marks;  // of each entry
  std::string m_lastLeftOut;
};

}  // namespace Corvane
