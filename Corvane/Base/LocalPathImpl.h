#pragma once

#include <cerrno>
#include <string>

#include <Corvane/Base/Result.h>
#include <Corvane/Base/StringCoding.h>
#include <Corvane/Base/StringCodingImpl.h>

namespace Corvane {

// Runs `call` on `path` in the local encoding, for a `call` that returns 0 on success and otherwise leaves the reason
// in errno, as the system's calls do.
template <class Call>
ZResult CallOnLocalPath(const ZString& path, Call call) {
  const auto resultOf = [&call](const char* local) { return call(local) == 0 ? BASE_S_OK : ResultFromErrno(errno); };
  // Without memory of its own in the usual case: a mirror comes through here seven times for each file.
  char shortPath[256];
  const std::wstring& text = path.Str();
  if (text.size() < sizeof shortPath && Coding::IsPlainAscii(text)) {
    Coding::CopyAscii(text, shortPath);
    shortPath[text.size()] = '\0';
    return resultOf(shortPath);
  }
  const ZStringEncoder local(path, ZStringEncoder::Local);
  if (local.CStr() == nullptr) return BASE_E_INVALID_NAME;
  return resultOf(local.CStr());
}

}  // namespace Corvane
