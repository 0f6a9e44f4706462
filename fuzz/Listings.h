#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include <Corvane/Base/Stream.h>
#include <Corvane/MultiDownloadImpl.h>

// What the fuzzers of the listing parsers share.
namespace CorvaneFuzz {

using Corvane::FileSizeList;
using Corvane::ZString;
using Impl = Corvane::ZMultiDownload::ZMultiDownloadImpl;
using Parser = void (Impl::*)(const ZString&);

// Ends the process, which a fuzzer takes for a crash, unless the property holds. Not assert: the checks stay in every build.
inline void Require(bool holds, const char* property) {
  if (holds) return;
  std::fprintf(stderr, "does not hold: %s\n", property);
  std::abort();
}

// The text that the library makes of bytes it received.
inline ZString TextOf(const std::uint8_t* data, std::size_t size) {
  Corvane::ZDynamicMemoryStream body(4096);
  ZString text;
  Require(body.Write(data, size) == size && body.Seek(0) == Corvane::BASE_S_OK, "the bytes fit into memory");
  Require(body.Read(text, size, Corvane::ZUtf8Encoding()) == Corvane::BASE_S_OK, "bytes decode");
  return text;
}

// The entries that `run` holds after the text was parsed on top of those that it had. Every name is a plain file name.
inline const FileSizeList& Parse(Impl& run, Parser parser, const ZString& text) {
  (run.*parser)(text);
  for (const auto& [name, size] : run.m_fileSizes) {
    Require(!name.IsEmpty() && name != L"." && name != L"..", "a name names a file");
    Require(name.Find(L'/') == ZString::npos && name.Find(L'\0') == ZString::npos, "a name stays inside its folder");
  }
  Require(run.m_status == Corvane::TRANSFER_E_NOT_STARTED, "a listing is never an error");
  return run.m_fileSizes;
}

}  // namespace CorvaneFuzz
