#pragma once

#include <cerrno>

#include <Corvane/Base/Result.h>
#include <Corvane/Base/StringCoding.h>

namespace Corvane {

// Runs `call` on `path` in the local encoding, for a `call` that returns 0 on success and otherwise leaves the reason
// in errno, as the system's calls do.
template <class Call>
ZResult CallOnLocalPath(const ZString& path, Call call) {
  const ZStringEncoder local(path, ZStringEncoder::Local);
  if (local.CStr() == nullptr) return BASE_E_INVALID_NAME;
  return call(local.CStr()) == 0 ? BASE_S_OK : ResultFromErrno(errno);
}

}  // namespace Corvane
