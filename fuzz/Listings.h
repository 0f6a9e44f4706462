#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>

#include <Corvane/Base/Container.h>
#include <Corvane/Base/Stream.h>
#include <Corvane/MultiDownload/ListingImpl.h>

#include "fuzz/LiteralListings.h"
#include "fuzz/Require.h"

// What the fuzzers of the listing parsers share.
namespace CorvaneFuzz {

using Corvane::Listing;
using Corvane::ZString;
using FileSizeList = Corvane::Container::ZMap<ZString, unsigned long long, std::less<ZString>>;
using Parser = Listing (*)(const ZString&);

// The text that the library makes of bytes it received.
inline ZString TextOf(const std::uint8_t* data, std::size_t size) {
  Corvane::ZDynamicMemoryStream body(4096);
  ZString text;
  Require(body.Write(data, size) == size && body.Seek(0) == Corvane::BASE_S_OK, "the bytes fit into memory");
  Require(body.Read(text, size, Corvane::ZUtf8Encoding()) == Corvane::BASE_S_OK, "bytes decode");
  return text;
}

// The position of the line that is about in the middle.
inline std::size_t MiddleLine(const ZString& text) {
  const std::size_t end = text.Str().find_first_of(L"\r\n", text.Length() / 2);
  return end == ZString::npos ? text.Length() : end;
}

// Adds the files of the listing to `files`, as a mirror does. Every name of an entry is a plain file name.
inline void AddFiles(const Listing& listing, FileSizeList& files) {
  for (const Corvane::ListingEntry& entry : listing.entries) {
    const ZString& name = entry.name;
    Require(!name.IsEmpty() && name != L"." && name != L"..", "a name names a file");
    Require(name.Find(L'/') == ZString::npos && name.Find(L'\0') == ZString::npos, "a name stays inside its folder");
    if (entry.kind == Corvane::ListingKind::File) files.insert_or_assign(name, entry.size);
  }
  Require(listing.leftOutNames.size() == std::min(listing.leftOut, Corvane::kMostLeftOutNames),
          "what is left out is named, up to a bound");
  for (const Corvane::LeftOut& left : listing.leftOutNames) {
    Require(left.name.Length() <= Corvane::kMostLeftOutLength, "no name left out is longer than the bound");
  }
}

inline FileSizeList FilesOf(const Listing& listing) {
  FileSizeList files;
  AddFiles(listing, files);
  return files;
}

// What the rules alone take from a text, as far as the library keeps it: a name is what follows the last slash, and stays inside its
// folder.
inline FileSizeList PlainFiles(const ListedFiles& listed) {
  FileSizeList files;
  for (const auto& [path, size] : listed) {
    const std::wstring name = path.substr(path.rfind(L'/') + 1);
    const bool isPlain = !name.empty() && name != L"." && name != L".." && name.find(L'\0') == std::wstring::npos;
    if (isPlain) files.insert_or_assign(ZString(name), size);
  }
  return files;
}

inline FileSizeList Parse(Parser parser, const ZString& text) { return FilesOf(parser(text)); }

}  // namespace CorvaneFuzz
