#include <Corvane/TreeDownload/TreeImpl.h>

#include <algorithm>
#include <utility>

#include <Corvane/TreeDownload/EscapingImpl.h>

namespace Corvane {

Tree::Tree(std::string url) { m_folders.emplace_back().url = std::move(url); }

std::string Tree::PathOf(std::size_t folder) const {
  std::vector<const std::string*> names;
  for (; folder != 0; folder = m_folders[folder].parent) names.push_back(&m_folders[folder].name);
  std::string path;
  for (auto name = names.rbegin(); name != names.rend(); ++name) path.append(path.empty() ? "" : "/").append(**name);
  return path;
}

std::string Tree::PathOf(std::size_t folder, std::string_view name) const {
  std::string path = PathOf(folder);
  return path.append(path.empty() ? "" : "/").append(name);
}

std::string Tree::UrlOf(std::size_t folder) const {
  std::vector<const std::string*> names;
  for (; m_folders[folder].url.empty(); folder = m_folders[folder].parent) names.push_back(&m_folders[folder].name);
  std::string url = m_folders[folder].url;
  for (auto name = names.rbegin(); name != names.rend(); ++name) url.append(Escaped(**name)).append("/");
  return url;
}

std::string Tree::UrlOf(std::size_t folder, std::string_view name) const { return UrlOf(folder) + Escaped(name); }

void Tree::AddFolder(std::size_t parent, std::string name, bool isBeyondDepth, bool includesAll) {
  TreeFolder& folder = m_folders.emplace_back();
  folder.parent = parent;
  folder.name = std::move(name);
  folder.depth = m_folders[parent].depth + 1;
  folder.isBeyondDepth = isBeyondDepth;
  folder.includesAll = includesAll;
}

void Tree::Take(std::size_t number, Page page, const Filter& filter, unsigned int mostDepth) {
  std::sort(page.entries.begin(), page.entries.end(),
            [](const PageEntry& a, const PageEntry& b) { return a.name < b.name; });
  m_entryCount += page.entries.size();
  const std::string prefix = number == 0 ? std::string() : PathOf(number) + '/';
  m_folders[number].firstFolder = m_folders.size();
  for (PageEntry& entry : page.entries) {
    const std::string path = prefix + entry.name;
    if (entry.name == kSha256List) m_folders[number].hasSha256 = !entry.isFolder;
    if (entry.name == kSha512List) m_folders[number].hasSha512 = !entry.isFolder;
    if (filter.IsExcluded(path)) continue;
    TreeFolder& folder = m_folders[number];  // the list grows, and leaves it where it is
    if (entry.isFolder) {
      const bool includesAll = folder.includesAll || filter.IncludesAllOf(path);
      AddFolder(number, std::move(entry.name), folder.depth >= mostDepth, includesAll);
    } else if (folder.includesAll || filter.IsIncluded(path)) {
      folder.files.push_back({std::move(entry.name), {entry.size, entry.time, std::max(entry.timeExactness, 1U)}});
    }
  }
  TreeFolder& folder = m_folders[number];
  folder.folderCount = m_folders.size() - folder.firstFolder;
  folder.areNamesLost = page.leftOut > page.leftOutNames.size();
  folder.otherNames = std::move(page.leftOutNames);
  std::sort(folder.otherNames.begin(), folder.otherNames.end());
  folder.files.shrink_to_fit();
  folder.isListed = true;
}

}  // namespace Corvane
