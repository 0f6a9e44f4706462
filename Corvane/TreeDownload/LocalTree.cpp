#include <Corvane/TreeDownload/LocalTreeImpl.h>

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <utility>

namespace Corvane {
namespace {

// More are open only while a path is walked.
constexpr std::size_t kMostRecent = 16;
constexpr mode_t kFolderMode = 0777;  // what the umask leaves of it
constexpr int kOpenFolder = O_RDONLY | O_DIRECTORY | O_CLOEXEC;

LocalTree::Folder Own(int number) {
  Descriptor descriptor(number);
  return descriptor.IsOpen() ? std::make_shared<const Descriptor>(std::move(descriptor)) : nullptr;
}

// The directories above the last one, too.
bool MakeDirectories(std::string path) {
  for (std::size_t slash = path.find('/', 1); slash != path.npos; slash = path.find('/', slash + 1)) {
    path[slash] = '\0';
    if (mkdir(path.c_str(), kFolderMode) != 0 && errno != EEXIST) return false;
    path[slash] = '/';
  }
  return mkdir(path.c_str(), kFolderMode) == 0 || errno == EEXIST;
}

}  // namespace

bool LocalTree::Open(const char* directory, bool create) {
  m_recent.clear();
  m_top = Own(open(directory, kOpenFolder));
  if (m_top == nullptr && errno == ENOENT && create && MakeDirectories(directory))
    m_top = Own(open(directory, kOpenFolder));
  return IsOpen();
}

LocalTree::Folder LocalTree::OpenIn(const Descriptor& parent, const char* name, bool create) {
  constexpr int kNoLink = kOpenFolder | O_NOFOLLOW;
  int number = openat(parent.Get(), name, kNoLink);
  if (number < 0 && errno == ENOENT && create && (mkdirat(parent.Get(), name, kFolderMode) == 0 || errno == EEXIST))
    number = openat(parent.Get(), name, kNoLink);
  if (number < 0 && errno == ELOOP) errno = ENOTDIR;
  return Own(number);
}

LocalTree::Folder LocalTree::Open(const Tree& tree, std::size_t folder, bool create) {
  if (folder == 0) return m_top;
  const auto found =
      std::find_if(m_recent.begin(), m_recent.end(), [&](const Recent& recent) { return recent.number == folder; });
  if (found != m_recent.end()) {
    m_recent.splice(m_recent.begin(), m_recent, found);
    return found->folder;
  }
  // As deep as the tree at most, which has a limit.
  const Folder parent = Open(tree, tree.Folder(folder).parent, create);
  if (parent == nullptr) return nullptr;
  Folder opened = OpenIn(*parent, tree.Folder(folder).name.c_str(), create);
  if (opened == nullptr) return nullptr;
  m_recent.push_front({folder, opened});
  if (m_recent.size() > kMostRecent) m_recent.pop_back();
  return opened;
}

FileHere LocalTree::Look(const Descriptor& folder, const char* name) noexcept {
  struct stat status {};
  if (fstatat(folder.Get(), name, &status, AT_SYMLINK_NOFOLLOW) != 0) {
    if (errno == ENOENT) return {};
    FileHere unseen{FileHere::Kind::Other};
    unseen.error = errno;
    return unseen;
  }
  if (!S_ISREG(status.st_mode)) return {FileHere::Kind::Other};
  return {FileHere::Kind::File, static_cast<unsigned long long>(status.st_size), status.st_mtim.tv_sec};
}

}  // namespace Corvane
