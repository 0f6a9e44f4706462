#pragma once

#include <Corvane/Base/String.h>

namespace Corvane {

// A path of the local file system, separated by "/". It is kept as given; nothing is resolved or looked up.
// Thread safety and errors: as ZString.
class CORVANE_ZPS_API ZPath {
 public:
  ZPath() = default;
  ZPath(ZString path) noexcept;  // NOLINT(google-explicit-constructor): assigned from strings everywhere

  // The directory part of `path`: what stands before its last "/", "/" for a name in the root, empty without a "/".
  [[nodiscard]] static ZString GetDirectory(const ZString& path);

  // This path and `name` with one "/" between them: none is added when this path ends with one already, and any that
  // the name begins with are dropped. An empty path gives the name as it is.
  [[nodiscard]] ZPath operator/(const ZString& name) const;
  [[nodiscard]] const ZString& ToString() const noexcept { return m_path; }

 private:
  ZString m_path;
};

}  // namespace Corvane
