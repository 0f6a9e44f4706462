#include <Corvane/TreeDownload/FolderNamesImpl.h>

#include <dirent.h>
#include <fcntl.h>

#include <memory>
#include <string_view>

namespace Corvane {
namespace {

struct DirectoryDeleter {
  void operator()(DIR* directory) const noexcept { closedir(directory); }
};

}  // namespace

std::vector<std::string> NamesIn(const Descriptor& folder) {
  std::vector<std::string> names;
  // A descriptor of its own: closedir closes it, and reading moves it.
  const int own = openat(folder.Get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  const std::unique_ptr<DIR, DirectoryDeleter> directory(own < 0 ? nullptr : fdopendir(own));
  if (directory == nullptr) return names;
  while (const dirent* const entry = readdir(directory.get())) {
    const std::string_view name(&entry->d_name[0]);
    if (name != "." && name != "..") names.emplace_back(name);
  }
  return names;
}

}  // namespace Corvane
