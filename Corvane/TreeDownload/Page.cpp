#include <algorithm>
#include <functional>
#include <tuple>
#include <utility>

#include <Corvane/TreeDownload/PageBuilderImpl.h>
#include <Corvane/TreeDownload/PageTextImpl.h>

namespace Corvane {

bool IsPlainName(std::string_view name) noexcept {
  return !name.empty() && name.size() <= kMostNameLength && name != "." && name != ".." &&
         name.find('/') == name.npos && name.find('\0') == name.npos && !IsLowered(name, ".corvane");
}

std::size_t PageBuilder::Add(std::string_view name, bool isFolder) {
  if (!IsPlainName(name)) {
    LeaveOut(name);
    return kNone;
  }
  std::vector<PageEntry>& entries = m_page.entries;
  if (entries.size() > m_uniteAbove) Unite();
  if (IsTooLong()) return kNone;
  // Most repetitions follow at once, as a text after its icon.
  const bool isAgain = !entries.empty() && entries.back().isFolder == isFolder && entries.back().name == name;
  if (isAgain && !entries.back().size && !entries.back().time) return entries.size() - 1;
  PageEntry& entry = entries.emplace_back();
  entry.name = name;
  entry.isFolder = isFolder;
  m_marks.emplace_back();
  return entries.size() - 1;
}

void PageBuilder::LeaveOut(std::string_view name) {
  if (m_page.leftOut > 0 && name == m_lastLeftOut) return;  // once more, by its text after its icon
  m_lastLeftOut = name;
  ++m_page.leftOut;
  if (m_page.leftOutNames.size() < kMostLeftOutPageNames)
    m_page.leftOutNames.emplace_back(name.substr(0, kMostNameLength));
}

void PageBuilder::Finish() {
  if (!IsTooLong()) Unite();
  for (std::size_t i = 0; i < m_page.entries.size(); ++i) {
    PageEntry& entry = m_page.entries[i];
    const Marks& marks = m_marks[i];
    // Of two that differ, neither is to be trusted.
    if (marks.sizesDiffer) entry.size.reset();
    if (marks.timesDiffer) std::tie(entry.time, entry.timeExactness) = std::tuple(std::nullopt, 0U);
    if (marks.hidesFile) LeaveOut(entry.name);
  }
}

bool PageBuilder::IsEachShown() const {
  return std::all_of(m_marks.begin(), m_marks.end(), [](const Marks& marks) { return marks.isShown; });
}

Page PageBuilder::Take(bool isListing) {
  m_page.isListing = isListing;
  return std::move(m_page);
}

// Entries may be united more than once on their way, but only after they have grown by half: all that together takes
// no more time than the last one times a constant.
void PageBuilder::Unite() {
  const std::vector<Key> keys = SortedKeys();
  const std::vector<PageEntry>& entries = m_page.entries;
  for (std::size_t begin = 0, end = 1; begin < keys.size(); begin = end++) {
    const auto isEqual = [&](const Key& key) {
      return key.hash == keys[begin].hash && entries[key.place].name == entries[keys[begin].place].name;
    };
    while (end < keys.size() && isEqual(keys[end])) ++end;
    if (end - begin > 1) UniteEqual(&keys[begin], &keys[begin] + (end - begin));
  }
  RemoveSuperfluous();
  m_page.isTooLong = entries.size() > m_mostEntries;
  if (m_page.isTooLong) {
    m_page.entries.resize(m_mostEntries);
    m_marks.resize(m_mostEntries);
  }
  m_uniteAbove = std::max(m_mostEntries, entries.size() + entries.size() / 2);
}

std::vector<PageBuilder::Key> PageBuilder::SortedKeys() const {
  const std::vector<PageEntry>& entries = m_page.entries;
  std::vector<Key> keys;
  keys.reserve(entries.size());
  for (std::size_t i = 0; i < entries.size(); ++i) keys.push_back({std::hash<std::string_view>()(entries[i].name), i});
  std::sort(keys.begin(), keys.end(), [&](const Key& a, const Key& b) {
    if (a.hash != b.hash) return a.hash < b.hash;
    const int order = entries[a.place].name.compare(entries[b.place].name);
    return order != 0 ? order < 0 : a.place < b.place;
  });
  return keys;
}

// Of entries with the same name the first folder stays, or the first of all.
void PageBuilder::UniteEqual(const Key* begin, const Key* end) {
  const Key* kept = std::find_if(begin, end, [&](const Key& key) { return m_page.entries[key.place].isFolder; });
  if (kept == end) kept = begin;
  for (const Key* key = begin; key != end; ++key) {
    if (key != kept) UniteInto(kept->place, key->place);
  }
}

void PageBuilder::UniteInto(std::size_t kept, std::size_t other) {
  PageEntry& entry = m_page.entries[kept];
  const PageEntry& again = m_page.entries[other];
  Marks& marks = m_marks[kept];
  marks.isShown |= m_marks[other].isShown;
  marks.hidesFile |= m_marks[other].hidesFile;
  m_marks[other].isSuperfluous = true;
  if (entry.isFolder != again.isFolder) {
    marks.hidesFile = true;
    return;
  }
  if (!entry.size) entry.size = again.size;
  if (!entry.time) std::tie(entry.time, entry.timeExactness) = std::tie(again.time, again.timeExactness);
  marks.sizesDiffer |= m_marks[other].sizesDiffer || (again.size && *again.size != *entry.size);
  marks.timesDiffer |= m_marks[other].timesDiffer || (again.time && *again.time != *entry.time);
}

void PageBuilder::RemoveSuperfluous() {
  std::size_t kept = 0;
  for (std::size_t i = 0; i < m_marks.size(); ++i) {
    if (m_marks[i].isSuperfluous) continue;
    if (kept != i) m_page.entries[kept] = std::move(m_page.entries[i]);
    m_marks[kept] = m_marks[i];
    ++kept;
  }
  m_page.entries.resize(kept);
  m_marks.resize(kept);
}

}  // namespace Corvane
