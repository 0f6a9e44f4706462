#pragma once

#include <netdb.h>

#include <memory>

#include <Corvane/Base/String.h>
#include <Corvane/Export.h>

namespace Corvane {

// Resolves a host name with gethostbyname_r(3): to addresses of IP version 4 only, from wherever the system takes them.
// For version 6 use getaddrinfo(3).
//
//   Corvane::ZGetHostByName lookup("localhost");
//   if (const hostent* const host = lookup.GetHostEnt()) ... host->h_addr_list ...
//
// The entry lies in a buffer of the object's own, 1,024 bytes at first. It grows by as much, up to 102,400 bytes, while
// the resolver stores 34 (ERANGE) in its host-error output; it never shrinks. The C library of GNU says ERANGE in its
// return value only, and so is asked once: a host whose names, aliases and addresses do not fit into the buffer is not
// found there.
//
// A lookup takes as long as the system's resolver does, which has time limits of its own (resolv.conf(5)); nothing ends
// it early.
//
// Thread safety: one object, one thread at a time; different objects may resolve at the same time on different threads.
// Errors: a lookup that failed, for whatever reason, leaves GetHostEnt null and tells no reason. std::bad_alloc passes
// out of the constructors and Init; after Init the object has no entry and can be used again.
class CORVANE_ZN_API ZGetHostByName {
 public:
  ZGetHostByName();  // resolves nothing
  // Resolve `name` at once, as it is; null is not found. A ZString is converted to the local multibyte encoding first;
  // a name that it cannot express is not found. Neither asks the resolver.
  explicit ZGetHostByName(char const* name);
  explicit ZGetHostByName(ZString const& name);
  virtual ~ZGetHostByName();                       // takes the entry along
  ZGetHostByName(const ZGetHostByName&) = delete;  // the entry points into the object's own buffer
  ZGetHostByName& operator=(const ZGetHostByName&) = delete;

  // Resolve `name`, as the constructors do, and replace the result of the last lookup.
  void Init(char const* name);
  void Init(ZString const& name);

  // The entry that the last lookup found; null when it failed, and before the first one. It and all that it points to
  // belong to the object, and are valid until its next Init or its destruction.
  [[nodiscard]] hostent* GetHostEnt() const noexcept;

 private:
  struct CORVANE_ZN_HIDDEN Block;
  std::unique_ptr<Block> m_block;
};

}  // namespace Corvane
