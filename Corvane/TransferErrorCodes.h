#pragma once

#include <Corvane/Base/Result.h>
#include <Corvane/Export.h>

// The result codes of the transfer library. Their layout is explained in Corvane/Base/Result.h; their messages are in the
// process-wide dictionary (ZGetErrorMsg in Corvane/Base/ErrorDict.h) as long as the library is loaded.
namespace Corvane {

// The facility of these codes, see FacilityOf.
constexpr unsigned int TRANSFER_FACILITY = 1;

// "Transfer has finished successfully".
constexpr ZResult TRANSFER_S_FINISHED = 0x00010000;
// "System library initialization failure": libcurl gave no handle. Free memory, then make a new object.
constexpr ZResult TRANSFER_E_SYSTEM_INIT = 0x80011000;
// "Download not started yet": nothing has run on the object since its construction or reset.
constexpr ZResult TRANSFER_E_NOT_STARTED = 0x80011001;
// "Download is currently in progress": told to observers, and the status of a ZTreeDownload while it runs; no operation returns it.
constexpr ZResult TRANSFER_E_IN_PROGRESS = 0x80011002;
// "Download aborted by user": Abort was called. Start the operation again when it is wanted after all.
constexpr ZResult TRANSFER_E_ABORTED = 0x80011003;
// "Download is blocked due to client policy settings": for host programs to report; the library itself never does.
constexpr ZResult TRANSFER_E_BLOCKED = 0x80011388;
// "Failed to connect to the specified URL": no answer came, or one outside 200 to 299. The error text and
// ZTransfer::GetCause tell which.
constexpr ZResult TRANSFER_E_CONNECT = 0x80011389;
// "Download failed": the local side failed, the error text says at what.
constexpr ZResult TRANSFER_E_DOWNLOAD = 0x8001138A;
// "Post failed": the server answered a post outside 200 to 299.
constexpr ZResult TRANSFER_E_POST = 0x8001138B;
// "Insufficient disk space": free the amount that the error text names, then resume.
constexpr ZResult TRANSFER_E_DISK_SPACE = 0x8001138C;
// "Invalid URL": correct the URL; nothing was fetched.
constexpr ZResult TRANSFER_E_INVALID_URL = 0x8001138D;
// "Download file size mismatch": the file is not as long as was expected or, of a tree, has another checksum. Fetch it
// afresh, or resume it if it is shorter.
constexpr ZResult TRANSFER_E_SIZE_MISMATCH = 0x8001138E;

// A failure n of libcurl (libcurl-errors(3)) is reported as TRANSFER_E_CURL_BASE | (n & 0xFFFF). These codes have no message in
// the dictionary: an operation that ends with one stores libcurl's own text, or "Download failed", beside it.
constexpr ZResult TRANSFER_E_CURL_BASE = 0x80010000;

// Makes sure that the messages are in the dictionary. Loading the library does so already; a host whose own static
// initialisers run before the library's may force it with this call.
// Thread safety: any thread, any number of times. Throws only std::bad_alloc.
CORVANE_ZN_API void LoadErrorCodes_TRANSFER();

}  // namespace Corvane
