#include <algorithm>
#include <functional>
#include <tuple>
#include <utility>

#include <Corvane/TreeDownload/PageBuilderImpl.h>
#include <Corvane/TreeDownload/PageTextImpl.h>

namespace Corvane {
namespace {

// Takes from another entry of the same name what this one does not show. Two that differ are both not to be trusted.
void TakeColumns(PageEntry& entry, const PageEntry& other, bool& sizesDiffer, bool& timesDiffer) {
  if (!entry.size) entry.size = other.size;
  if (other.size && *other.size != *entry.size) sizesDiffer = true;
  if (!entry.time) std::tie(entry.time, entry.timeExactness) = std::tie(other.time, other.timeExactness);
  if (other.time && *other.time != *entry.time) timesDiffer = true;
}

}  // namespace

bool IsPlainName(std::string_view name) noexcept {
  return !name.empty() && name.size() <= kMostNameLength && name != "." && name != ".." &&
         name.find('/') == name.npos && name.find('\0') == name.npos && !IsLowered(name, ".corvane");
}

std::size_t PageBuilder::Add(std::string_view name, bool isFolder) {
  if (!IsPlainName(name)) {
    LeaveOut(name);
    return kNone;
  }
  // Most repetitions follow at once, as an icon and a text.
  std::vector<PageEntry>& entries = m_page.entries;
  if (!entries.empty() && entries.back().isFolder == isFolder && entries.back().name == name) return entries.size() - 1;
  PageEntry& entry = entries.emplace_back();
  entry.name = name;
  entry.isFolder = isFolder;
  m_isShown.push_back(false);
  if (entries.size() > m_uniteAbove) Unite();
  // What was united away is nobody's any more: its columns count for little, and its name has been shown before.
  return entries.empty() || entries.back().name != name ? kNone : entries.size() - 1;
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
}

bool PageBuilder::IsEachShown() const {
  return std::all_of(m_isShown.begin(), m_isShown.end(), [](bool isShown) { return isShown; });
}

Page PageBuilder::Take(bool isListing) {
  m_page.isListing = isListing;
  return std::move(m_page);
}

// Entries may be united more than once on their way, but only after they have grown by half: all that together takes
// no more time than the last one times a constant.
void PageBuilder::Unite() {
  const std::vector<Key> keys = SortedKeys();
  std::vector<bool> isSuperfluous(keys.size());
  const auto& entries = m_page.entries;
  for (std::size_t begin = 0, end = 1; begin < keys.size(); begin = end++) {
    while (end < keys.size() && keys[end].hash == keys[begin].hash &&
           entries[keys[end].place].name == entries[keys[begin].place].name)
      ++end;
    if (end - begin > 1) UniteEqual(&keys[begin], &keys[begin] + (end - begin), isSuperfluous);
  }
  Remove(isSuperfluous);
  m_page.isTooLong = entries.size() > m_mostEntries;
  if (m_page.isTooLong) m_page.entries.resize(m_mostEntries);
  m_uniteAbove = std::max(m_mostEntries, entries.size() + entries.size() / 2);
}

std::vector<PageBuilder::Key> PageBuilder::SortedKeys() const {
  const auto& entries = m_page.entries;
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
void PageBuilder::UniteEqual(const Key* begin, const Key* end, std::vector<bool>& isSuperfluous) {
  const auto isFolder = [&](const Key& key) { return m_page.entries[key.place].isFolder; };
  const Key* kept = std::find_if(begin, end, isFolder);
  if (kept == end) kept = begin;
  PageEntry& entry = m_page.entries[kept->place];
  bool sizesDiffer = false;
  bool timesDiffer = false;
  bool anyFile = false;
  for (const Key* key = begin; key != end; ++key) {
    const PageEntry& other = m_page.entries[key->place];
    if (other.isFolder != entry.isFolder) anyFile = true;
    if (other.isFolder == entry.isFolder) TakeColumns(entry, other, sizesDiffer, timesDiffer);
    if (m_isShown[key->place]) m_isShown[kept->place] = true;
    if (key != kept) isSuperfluous[key->place] = true;
  }
  if (sizesDiffer) entry.size.reset();
  if (timesDiffer) std::tie(entry.time, entry.timeExactness) = std::tuple(std::nullopt, 0U);
  if (anyFile) LeaveOut(entry.name);
}

void PageBuilder::Remove(const std::vector<bool>& isSuperfluous) {
  std::size_t kept = 0;
  for (std::size_t i = 0; i < isSuperfluous.size(); ++i) {
    if (isSuperfluous[i]) continue;
    if (kept != i) m_page.entries[kept] = std::move(m_page.entries[i]);
    m_isShown[kept] = m_isShown[i];
    ++kept;
  }
  m_page.entries.resize(kept);
  m_isShown.resize(kept);
}

}  // namespace Corvane
