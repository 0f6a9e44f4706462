#pragma once

#include <cstddef>
#include <list>
#include <memory>
#include <string>

#include <Corvane/TreeDownload/DecisionImpl.h>
#include <Corvane/TreeDownload/DescriptorImpl.h>
#include <Corvane/TreeDownload/TreeImpl.h>

namespace Corvane {

// The directory here. Every folder is opened from the one above it, by its name and never through a link, so that nothing outside can
// be reached whatever others do to the tree meanwhile. Failures are left in errno.
class LocalTree {
 public:
  using Folder = std::shared_ptr<const Descriptor>;

  // False when it is not there, or cannot be opened or made. The directory itself may be a link: it is the host's choice.
  bool Open(const char* directory, bool create);
  [[nodiscard]] bool IsOpen() const noexcept { return m_top != nullptr; }
  [[nodiscard]] const Folder& Top() const noexcept { return m_top; }

  // Null when it is not there, or cannot be opened or made; ENOTDIR when something else has its name.
  [[nodiscard]] Folder Open(const Tree& tree, std::size_t folder, bool create);

  // The folder `name` in another one. Null as above.
  [[nodiscard]] static Folder OpenIn(const Descriptor& parent, const char* name, bool create);
  [[nodiscard]] static FileHere Look(const Descriptor& folder, const char* name) noexcept;

 private:
  struct Recent {
    std::size_t number;
    Folder folder;
  };

  Folder m_top;
  std::list<Recent> m_recent;  // the last first
};

}  // namespace Corvane
