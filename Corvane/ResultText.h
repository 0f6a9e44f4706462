#pragma once

#include <Corvane/Base/Result.h>
#include <Corvane/Base/String.h>
#include <Corvane/Export.h>

namespace Corvane {

// What a log or an error report shows of a result code: its number, its name where it has one, and what it means.
//
//   std::cerr << Corvane::ZDescribeResult(transfer.GetStatus()) << '\n';
//
//   0x80011389 TRANSFER_E_CONNECT: Failed to connect to the specified URL
//   0x80010006 libcurl 6: Couldn't resolve host name
//   0x8000101C ENOSPC: No space left on device
//   0x00000000 BASE_S_OK: Success
//
// The messages are those of the dictionary (ZGetErrorMsg), for libcurl's failures those of curl_easy_strerror(3). What an operation said of
// its own failure, such as the name of a file, is in the object's GetError.
// Thread safety: any thread, any time. Throws only std::bad_alloc.
[[nodiscard]] CORVANE_ZN_API ZString ZDescribeResult(ZResult code);

}  // namespace Corvane
