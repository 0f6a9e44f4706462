#include "apps/corvane/Mirror/FileModes.h"

#include <dirent.h>
#include <fcntl.h>

#include <memory>

namespace CorvaneCli {
namespace {

constexpr mode_t kLibrarysMode = 0755;
constexpr mode_t kPermissions = 0777;

struct DirectoryCloser {
  void operator()(DIR* directory) const noexcept { closedir(directory); }
};

bool IsSame(const struct stat& a, const struct stat& b) {
  return a.st_dev == b.st_dev && a.st_ino == b.st_ino && a.st_mode == b.st_mode &&
         a.st_ctim.tv_sec == b.st_ctim.tv_sec && a.st_ctim.tv_nsec == b.st_ctim.tv_nsec;
}

// The mode of a file that this process makes. The mask can only be read by changing it; no other thread makes files.
mode_t ModeOfNewFiles() {
  const mode_t mask = umask(0);
  umask(mask);
  return 0666 & ~mask;
}

}  // namespace

FileModes::FileModes(const std::string& directory) : m_directory(directory), m_before(Look(directory)) {}

// Links are followed, as the library does.
FileModes::Files FileModes::Look(const std::string& path) {
  Files files;
  const std::unique_ptr<DIR, DirectoryCloser> directory(opendir(path.c_str()));
  if (directory == nullptr) return files;
  while (const dirent* const entry = readdir(directory.get())) {
    struct stat status {};
    if (fstatat(dirfd(directory.get()), entry->d_name, &status, 0) != 0 || !S_ISREG(status.st_mode)) continue;
    files.emplace(entry->d_name, status);
  }
  return files;
}

void FileModes::Restore(const std::set<std::string>& fetched) const {
  const mode_t usual = ModeOfNewFiles();
  for (const auto& [name, now] : Look(m_directory)) {
    if ((now.st_mode & kPermissions) != kLibrarysMode) continue;
    const auto before = m_before.find(name);
    const bool wasThere = before != m_before.end();
    if (wasThere && IsSame(before->second, now)) continue;
    if (fetched.count(name) == 0 && now.st_size != 0) continue;
    const mode_t most = wasThere ? before->second.st_mode | S_IRUSR | S_IWUSR : kPermissions;
    static_cast<void>(!chmod((m_directory + "/" + name).c_str(), usual & most));
  }
}

}  // namespace CorvaneCli
