#pragma once

#include <climits>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>

#include <curl/curl.h>

#include <Corvane/Base/Result.h>
#include <Corvane/Base/String.h>
#include <Corvane/Base/StringCoding.h>
#include <Corvane/TransferErrorCodes.h>

// What the area's sources share of the way in which libcurl wants its strings and tells its results.

namespace Corvane {

// What newer libcurls call deprecated and we keep; the compiler tells of everything else. The sizes in doubles serve every libcurl,
// and so do the masks of protocols: the lists of names that are to replace them came with 7.85, and a libcurl that was built
// without one of the protocols refuses such a list as a whole.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
constexpr CURLINFO kContentLength = CURLINFO_CONTENT_LENGTH_DOWNLOAD;
constexpr CURLINFO kDownloadedSize = CURLINFO_SIZE_DOWNLOAD;
constexpr CURLINFO kUploadedSize = CURLINFO_SIZE_UPLOAD;
constexpr CURLoption kProtocolsOption = CURLOPT_PROTOCOLS;
constexpr CURLoption kRedirectProtocolsOption = CURLOPT_REDIR_PROTOCOLS;
#pragma GCC diagnostic pop

constexpr ZResult CodeOf(CURLcode result) noexcept {
  return TRANSFER_E_CURL_BASE | (static_cast<unsigned int>(result) & 0xFFFFu);
}

// A time limit as libcurl takes it: `seconds` and what is added, but at most what it does not refuse.
inline long LimitOf(unsigned long seconds, unsigned long added) noexcept {
  constexpr unsigned long kLargest = INT_MAX / 1000;  // it counts in milliseconds
  return static_cast<long>(seconds < kLargest && added < kLargest - seconds ? seconds + added : kLargest);
}

struct FreeDeleter {
  void operator()(char* text) const noexcept { std::free(text); }
};
// A string handed to libcurl, which keeps the pointer during a transfer: made with strdup, released with free.
using OwnedCString = std::unique_ptr<char, FreeDeleter>;

struct ListDeleter {
  void operator()(curl_slist* list) const noexcept { curl_slist_free_all(list); }
};
using OwnedList = std::unique_ptr<curl_slist, ListDeleter>;

// Null for null. Throws std::bad_alloc.
inline OwnedCString Duplicate(const char* text) {
  if (text == nullptr) return nullptr;
  OwnedCString copy(strdup(text));
  if (copy == nullptr) throw std::bad_alloc();
  return copy;
}

inline OwnedCString DuplicateUtf8(const ZString& text) {
  return Duplicate(ZStringEncoder(text, ZStringEncoder::Utf8).CStr());
}

// Null for a name that the local encoding cannot express, and for an empty one.
inline OwnedCString DuplicateLocal(const ZString& name) {
  return name.IsEmpty() ? nullptr : Duplicate(ZStringEncoder(name, ZStringEncoder::Local).CStr());
}

}  // namespace Corvane
