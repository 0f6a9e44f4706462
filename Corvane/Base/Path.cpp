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
  ZString joined;
  joined.Reserve(m_path.Length() + 1 + name.Length());
  joined.Append(m_path);
  if (m_path[m_path.Length() - 1] != L'/') joined.Append(L'/');
  const ZString::size_type nameBegin = name.Str().find_first_not_of(L'/');
  return ZPath(std::move(nameBegin == 0 ? joined.Append(name) : joined.Append(name.Substr(nameBegin))));
}

}  // namespace Corvane
