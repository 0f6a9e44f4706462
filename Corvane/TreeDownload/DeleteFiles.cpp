#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <utility>

#include <Corvane/Base/ErrorDict.h>
#include <Corvane/NumberTextImpl.h>
#include <Corvane/TreeDownload/FolderNamesImpl.h>
#include <Corvane/TreeDownload/RunImpl.h>

// What is here and not on the server.
namespace Corvane {
namespace {

using Statistics = ZTreeDownload::Statistics;

bool IsListed(const Tree& tree, const TreeFolder& folder, const std::string& name) {
  const auto file = std::lower_bound(folder.files.begin(), folder.files.end(), name,
                                     [](const TreeFile& a, const std::string& b) { return a.name < b; });
  if (file != folder.files.end() && file->name == name) return true;
  if (std::binary_search(folder.otherNames.begin(), folder.otherNames.end(), name)) return true;
  // Folders were added by name, too.
  std::size_t first = folder.firstFolder;
  std::size_t count = folder.folderCount;
  while (count != 0) {
    const std::size_t half = count / 2;
    const int order = tree.Folder(first + half).name.compare(name);
    if (order == 0) return true;
    if (order < 0) first += half + 1;
    count = order < 0 ? count - half - 1 : half;
  }
  return false;
}

}  // namespace

// Looks for files here that the server does not list, folder by folder, never through a link.
class TreeRun::SurplusSearch {
 public:
  explicit SurplusSearch(TreeRun& run) : m_run(run) {}

  // A folder that the server lists.
  void Search(std::size_t number) {
    const LocalTree::Folder here = m_run.m_local.Open(*m_run.m_tree, number, false);
    if (here == nullptr && m_run.m_closedFolders.count(number) != 0) return;
    if (here == nullptr) return FailUnlessGone(m_run.m_tree->PathOf(number));
    const TreeFolder& folder = m_run.m_tree->Folder(number);
    const std::optional<std::vector<std::string>> names = NamesIn(*here);
    if (!names) return m_run.FailSurplusFolder(m_run.m_tree->PathOf(number), errno);
    for (const std::string& name : *names) {
      if (number == 0 && name == PartStore::kName) continue;
      const std::string path = m_run.m_tree->PathOf(number, name);
      if (m_run.m_filter.IsExcluded(path)) continue;
      Look({*here, name, path, folder.depth, folder.includesAll, IsListed(*m_run.m_tree, folder, name)});
    }
  }

  [[nodiscard]] unsigned long long FilesHere() const noexcept { return m_filesHere; }

 private:
  struct Entry {
    const Descriptor& folder;
    const std::string& name;
    const std::string& path;
    unsigned int depth;  // of the folder
    bool isAllIncluded;
    bool isListed;
  };

  void Look(const Entry& entry) {
    struct stat status {};
    if (fstatat(entry.folder.Get(), entry.name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0)
      return FailUnlessGone(entry.path);
    if (S_ISDIR(status.st_mode)) {
      const bool isIncluded = entry.isAllIncluded || m_run.m_filter.IncludesAllOf(entry.path);
      if (!entry.isListed && entry.depth < m_run.m_settings.mostDepth) SearchUnlisted(entry, isIncluded);
      return;
    }
    if (!S_ISREG(status.st_mode) && !S_ISLNK(status.st_mode)) return;
    ++m_filesHere;
    const bool isIncluded = entry.isAllIncluded || m_run.m_filter.IsIncluded(entry.path);
    if (!entry.isListed && isIncluded)
      m_run.m_surplus.push_back({entry.path, static_cast<unsigned long long>(status.st_size)});
  }

  // As deep as the depth asked for at most.
  void SearchUnlisted(const Entry& entry, bool isAllIncluded) {
    const LocalTree::Folder here = LocalTree::OpenIn(entry.folder, entry.name.c_str(), false);
    if (here == nullptr) return FailUnlessGone(entry.path);
    const std::optional<std::vector<std::string>> names = NamesIn(*here);
    if (!names) return m_run.FailSurplusFolder(entry.path, errno);
    for (const std::string& name : *names) {
      const std::string path = entry.path + '/' + name;
      if (!m_run.m_filter.IsExcluded(path)) Look({*here, name, path, entry.depth + 1, isAllIncluded, false});
    }
    if (isAllIncluded) m_run.m_surplusFolders.push_back(entry.path);
  }

  // What cannot be looked at may be, or hold, what ought to go.
  void FailUnlessGone(const std::string& path) {
    if (errno != ENOENT && errno != ENOTDIR) m_run.FailSurplusFolder(path, errno);
  }

  TreeRun& m_run;
  unsigned long long m_filesHere = 0;
};

void TreeRun::FailSurplusFolder(const std::string& path, int error) {
  Item item;
  item.path = path + '/';
  item.isFolder = true;
  item.action = Action::Delete;
  item.reason = Reason::NotListed;
  item.result = TRANSFER_E_DOWNLOAD;
  item.text = ZGetErrorMsg(ResultFromErrno(error));
  Fail(item.result, ShownPath(item.path) + L": " + item.text);
  Finish(item, &Statistics::foldersFailed);
}

void TreeRun::PlanDeletes() {
  const auto refuse = [&](const ZString& text) {
    m_surplus.clear();
    m_surplusFolders.clear();
    Fail(TRANSFER_E_DOWNLOAD, L"Nothing is deleted: " + text);
  };
  // Why a page did not come has been told.
  if (!m_isListingWhole || !m_local.IsOpen()) return;
  if (m_progress.Snapshot().filesKnown == 0) return refuse(L"the server lists no file at all.");
  SurplusSearch search(*this);
  for (std::size_t folder = 0; folder < m_tree->FolderCount() && MayGoOn(); ++folder) {
    if (!m_tree->Folder(folder).isListed) continue;
    if (m_tree->Folder(folder).areNamesLost) {
      return refuse(
          ZString(L"the page of \"%1/\" shows too much that is left out.").Arg(ShownPath(m_tree->PathOf(folder))));
    }
    search.Search(folder);
  }
  const unsigned long long most = m_settings.mostDeletes.value_or(search.FilesHere() / 2);
  if (m_surplus.size() > most) {
    return refuse(ZString(L"%1 of %2 files would go, and at most %3 may.")
                      .Arg(UnsignedNumber(m_surplus.size()))
                      .Arg(UnsignedNumber(search.FilesHere()))
                      .Arg(UnsignedNumber(most)));
  }
  if (!m_isPlan) return;
  for (const Surplus& surplus : m_surplus) Finish(ItemOf(surplus), &Statistics::filesDeleted);
}

TreeRun::Item TreeRun::ItemOf(const Surplus& surplus) {
  Item item;
  item.path = surplus.path;
  item.action = Action::Delete;
  item.reason = Reason::NotListed;
  item.size = surplus.size;
  return item;
}

// The folder in which the path's last name stands, opened without following a link; null when that is not possible any more.
LocalTree::Folder TreeRun::FolderOf(const std::string& path) const {
  LocalTree::Folder folder = m_local.Top();
  std::size_t begin = 0;
  for (std::size_t slash = path.find('/'); slash != path.npos && folder != nullptr; slash = path.find('/', begin)) {
    folder = LocalTree::OpenIn(*folder, path.substr(begin, slash - begin).c_str(), false);
    begin = slash + 1;
  }
  return folder;
}

void TreeRun::DeleteFiles() {
  m_progress.Update([](Statistics& statistics) { statistics.phase = ZTreeDownload::Phase::Deleting; });
  for (const Surplus& surplus : m_surplus) {
    if (!MayGoOn()) return;
    const LocalTree::Folder folder = FolderOf(surplus.path);
    const char* const name = surplus.path.c_str() + surplus.path.rfind('/') + 1;  // npos + 1 is 0
    // Without a flag this removes no folder, and of a link the link.
    if (folder != nullptr && unlinkat(folder->Get(), name, 0) == 0) {
      Finish(ItemOf(surplus), &Statistics::filesDeleted);
    } else if (errno != ENOENT) {
      FailFile(ItemOf(surplus), TRANSFER_E_DOWNLOAD, ZGetErrorMsg(ResultFromErrno(errno)));
    }
  }
  for (const std::string& path : m_surplusFolders) DeleteFolder(path);
}

// One that something is left in stays.
void TreeRun::DeleteFolder(const std::string& path) {
  const LocalTree::Folder folder = FolderOf(path);
  if (folder != nullptr && unlinkat(folder->Get(), path.c_str() + path.rfind('/') + 1, AT_REMOVEDIR) == 0) return;
  const int error = errno;
  const bool isRight = error == ENOTEMPTY || error == EEXIST || error == ENOENT || error == ENOTDIR;
  if (!isRight) FailSurplusFolder(path, error);
}

// A file that an unlisted page may still show is kept what there is of it.
void TreeRun::Tidy() {
  const bool isTreeKnown = m_isListingWhole && !m_progress.IsAborted();
  m_store.Tidy([&](const std::string& path) { return !isTreeKnown || m_unfinished.count(path) != 0; });
}

}  // namespace Corvane
