#include <Corvane/Base/Path.h>

#include <utility>

namespace Corvane {

ZPath::ZPath(ZString path) noexcept : m_path(std::move(path)) {}

ZString ZPath::GetDirectory(const ZString& path) {
  const ZString::size_type slash = path.FindR(L'/');
  if (slash == ZString::npos) return ZString();
  return slash == 0 ? ZString(L"/") : path.Substr(0, slash);
}

ZPath ZPath::operator/(const ZString& name) const {
  if (m_path.IsEmpty()) return ZPath(name);
  const bool endsWithSlash = m_path[m_path.Length() - 1] == L'/';
  const ZString::size_type nameBegin = name.FindFirstNotOf(L"/");
  return ZPath((endsWithSlash ? m_path : m_path + L"/") + name.Substr(nameBegin));
}

}  // namespace Corvane
