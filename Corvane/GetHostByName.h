#pragma once

#include <netdb.h>

#include <memory>

#include <Corvane/Base/String.h>
#include <Corvane/Export.h>

namespace Corvane {

// Resolves a host name with gethostbyname_r(3), using a buffer of its own that grows on demand, from 1,024 to at most 102,400 bytes.
//
//   Corvane::ZGetHostByName lookup("localhost");
//   if (const hostent* const host = lookup.GetHostEnt()) ... host->h_addr_list ...
//
// Thread safety: one object, one thread at a time; different objects may resolve at the same time on different threads.
// Errors: a lookup that failed leaves GetHostEnt null, without a reason. std::bad_alloc passes out of the constructors and
// Init; the object can be used again after it.
class CORVANE_ZN_API ZGetHostByName {
 public:
  ZGetHostByName();  // resolves nothing
  // Resolve `name` at once. A ZString is converted to the local multibyte encoding; a name that it cannot express is not found.
  explicit ZGetHostByName(char const* name);
  explicit ZGetHostByName(ZString const& name);
  virtual ~ZGetHostByName();
  ZGetHostByName(const ZGetHostByName&) = delete;  // the entry points into the object's own buffer
  ZGetHostByName& operator=(const ZGetHostByName&) = delete;

  // Resolve `name` and replace the result of the last lookup.
  void Init(char const* name);
  void Init(ZString const& name);

  // The entry that the last lookup found, or null. It and all that it points to is valid until the next Init or the object's
  // destruction.
  [[nodiscard]] hostent* GetHostEnt() const noexcept;

 private:
  struct CORVANE_ZN_HIDDEN Block;
  std::unique_ptr<Block> m_block;
};

}  // namespace Corvane
