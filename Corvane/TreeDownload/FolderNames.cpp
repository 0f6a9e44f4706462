#include <Corvane/TreeDownload/FolderNamesImpl.h>

#include <dirent.h>
#include <fcntl.h>

#include <cerrno>
#include <memory>
#include <string_view>

namespace Corvane {
namespace {

struct DirectoryDeleter {
  void operator()(DIR* directory) const noexcept { closedir(directory); }
};

}  // namespace

std::optional<std::vector<std::string>> NamesIn(const Descriptor& folder) {
  // A descriptor of its own: reading moves it, and closedir closes it.
  Descriptor own(openat(folder.Get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  const std::unique_ptr<DIR, DirectoryDeleter> directory(own.IsOpen() ? fdopendir(own.Get()) : nullptr);
  if (directory == nullptr) return std::nullopt;
  own.Release();
  std::vector<std::string> names;
  errno = 0;  // only this tells the end from a failure
  while (const dirent* const entry = readdir(directory.get())) {
    const std::string_view name(&entry->d_name[0]);
    if (name != "." && name != "..") names.emplace_back(name);
    errno = 0;
  }
  return errno == 0 ? std::optional(std::move(names)) : std::nullopt;
}

}  // namespace Corvane
