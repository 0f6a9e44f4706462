// The plugin of load_later.cpp: the part of a program that is linked to the library, behind a C function.

#include <exception>

#include <Corvane/Transfer.h>

#include "examples/host.h"

// Downloads a file; a result code, see TransferErrorCodes.h. Names are in the local encoding.
extern "C" __attribute__((visibility("default"))) unsigned int Fetch(const char* url, const char* file) noexcept {
  try {
    Corvane::ZTransfer transfer;
    if (!VerifyServers(transfer)) return Corvane::TRANSFER_E_BLOCKED;
    const Corvane::ZResult result = transfer.DownloadFile(url, file, /*resume=*/true);
    if (Corvane::IsFailure(result)) TellFailure(transfer, result);
    return result;
  } catch (const std::exception&) {  // out of memory: nothing may pass through a C function
    return Corvane::TRANSFER_E_SYSTEM_INIT;
  }
}
