#pragma once

#include <filesystem>

#include <Corvane/Base/String.h>
#include <Corvane/Base/StringCoding.h>

namespace Corvane {

// A path of the local file system, separated by "/". It is kept as given; nothing is resolved or looked up.
// Thread safety and errors: as ZString.
class CORVANE_ZPS_API ZPath {
 public:
  ZPath() = default;  // empty
  // The path `path`, as it is.
  ZPath(ZString path) noexcept;  // NOLINT(google-explicit-constructor): assigned from strings everywhere

  // The path whose name in the local multibyte encoding (LC_CTYPE) is that of `path`. A byte of it that this encoding does not
  // decode becomes the character of the same number, which names another file: call setlocale first.
  [[nodiscard]] static ZPath From(const std::filesystem::path& path) { return ZStringDecoder::FromLocal(path.c_str()); }
  // The same path for the standard library; empty when the local encoding cannot express it.
  [[nodiscard]] std::filesystem::path ToStandard() const {
    const ZStringEncoder local(m_path, ZStringEncoder::Local);
    return local.CStr() == nullptr ? std::filesystem::path() : std::filesystem::path(local.CStr());
  }

  // The directory part of `path`: what stands before its last "/", "/" for a name in the root, empty without a "/".
  [[nodiscard]] static ZString GetDirectory(const ZString& path);

  // This path and `name` with one "/" between them: none is added when this path ends with one already, and any that
  // the name begins with are dropped. An empty path gives the name as it is.
  [[nodiscard]] ZPath operator/(const ZString& name) const;
  // The text. Valid until this path is assigned to or destroyed.
  [[nodiscard]] const ZString& ToString() const noexcept { return m_path; }

 private:
  ZString m_path;
};

// As the texts compare: nothing is resolved, so that "a" and "./a" are different paths.
inline bool operator==(const ZPath& a, const ZPath& b) noexcept { return a.ToString() == b.ToString(); }
inline bool operator!=(const ZPath& a, const ZPath& b) noexcept { return !(a == b); }
inline bool operator<(const ZPath& a, const ZPath& b) noexcept { return a.ToString() < b.ToString(); }

}  // namespace Corvane
