#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>
#include <string_view>
#include <vector>

#include <Corvane/TreeDownload/DecisionImpl.h>
#include <Corvane/TreeDownload/FilterImpl.h>
#include <Corvane/TreeDownload/PageImpl.h>

namespace Corvane {

inline constexpr const char* kSha256List = "SHA256SUMS";
inline constexpr const char* kSha512List = "SHA512SUMS";

struct TreeFile {
  std::string name;
  FileThere there;  // as the listing shows it
};

struct TreeFolder {
  std::size_t parent = 0;  // of the top its own number
  std::string name;        // empty for the top
  unsigned int depth = 0;
  bool isListed = false;       // its page came whole
  bool isBeyondDepth = false;  // it is known by name only
  bool includesAll = false;    // a pattern makes everything in it wanted
  bool areNamesLost = false;   // more was left out than the page's reader tells the names of
  bool hasSha256 = false;      // it shows a list of checksums
  bool hasSha512 = false;
  std::string url;                      // where a redirect led; else it is made of the parent's
  std::vector<TreeFile> files;          // wanted ones, by name
  std::vector<std::string> otherNames;  // what the page shows beside these and folders, by name
  // The folders in it follow each other.
  std::size_t firstFolder = 0;
  std::size_t folderCount = 0;
};

// What a server shows of a tree. Paths and addresses are put together when they are asked for: a tree of 10 million files is a list of
// names. Numbers of folders and files never change; 0 is the top.
class Tree {
 public:
  // `url` is the top's, with a final slash and without a query.
  explicit Tree(std::string url);

  [[nodiscard]] const TreeFolder& Folder(std::size_t folder) const { return m_folders[folder]; }
  [[nodiscard]] TreeFolder& Folder(std::size_t folder) { return m_folders[folder]; }
  [[nodiscard]] std::size_t FolderCount() const noexcept { return m_folders.size(); }
  [[nodiscard]] std::size_t EntryCount() const noexcept { return m_entryCount; }

  // Below the directory, "/" between names; of the top empty.
  [[nodiscard]] std::string PathOf(std::size_t folder) const;
  [[nodiscard]] std::string PathOf(std::size_t folder, std::string_view name) const;
  // With a final slash.
  [[nodiscard]] std::string UrlOf(std::size_t folder) const;
  [[nodiscard]] std::string UrlOf(std::size_t folder, std::string_view name) const;

  // Takes what the folder's page shows, as far as it is wanted. Folders at `mostDepth` become known by name only.
  void Take(std::size_t folder, Page page, const Filter& filter, unsigned int mostDepth);

 private:
  void AddFolder(std::size_t parent, std::string name, bool isBeyondDepth, bool includesAll);

  std::deque<TreeFolder> m_folders;
  std::size_t m_entryCount = 0;
};

}  // namespace Corvane
