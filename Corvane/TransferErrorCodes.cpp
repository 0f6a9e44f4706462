#include <Corvane/TransferErrorCodes.h>

#include <atomic>
#include <memory>

#include <Corvane/Base/Container.h>
#include <Corvane/Base/ErrorDict.h>
#include <Corvane/Base/Singleton.h>

namespace Corvane {
namespace {

using TransferErrorMap = ZErrorMap;

struct ErrorMapHolder {
  static void InitMap(TransferErrorMap& map);
};

void ErrorMapHolder::InitMap(TransferErrorMap& map) {
  map[TRANSFER_S_FINISHED] = L"Transfer has finished successfully";
  map[TRANSFER_E_SYSTEM_INIT] = L"System library initialization failure";
  map[TRANSFER_E_NOT_STARTED] = L"Download not started yet";
  map[TRANSFER_E_IN_PROGRESS] = L"Download is currently in progress";
  map[TRANSFER_E_ABORTED] = L"Download aborted by user";
  map[TRANSFER_E_BLOCKED] = L"Download is blocked due to client policy settings";
  map[TRANSFER_E_CONNECT] = L"Failed to connect to the specified URL";
  map[TRANSFER_E_DOWNLOAD] = L"Download failed";
  map[TRANSFER_E_POST] = L"Post failed";
  map[TRANSFER_E_DISK_SPACE] = L"Insufficient disk space";
  map[TRANSFER_E_INVALID_URL] = L"Invalid URL";
  map[TRANSFER_E_SIZE_MISMATCH] = L"Download file size mismatch";
}

constinit std::atomic<TransferErrorMap*> sm_ErrorMap{nullptr};

TransferErrorMap* singleton_init_LoadErrors() {
  auto map = std::make_unique<TransferErrorMap>();
  ErrorMapHolder::InitMap(*map);
  ZErrorDict::Register(TRANSFER_FACILITY, map.get());
  return map.release();
}

TransferErrorMap* LoadErrors() {
  ZSingleton::CheckInit(sm_ErrorMap, singleton_init_LoadErrors);
  return sm_ErrorMap.load(std::memory_order_relaxed);
}

// Registers the messages when the library is loaded and withdraws them when it is unloaded. Of the library's load-time steps
// this is the last, of its unload steps the first: TransferErrorCodes.cpp stands behind the other sources in the link order.
struct ErrorCodesLifetime {
  ErrorCodesLifetime() { LoadErrors(); }
  ~ErrorCodesLifetime() {
    const std::unique_ptr<TransferErrorMap> map(sm_ErrorMap.load(std::memory_order_relaxed));
    if (map == nullptr) return;
    ZErrorDict::Unregister(TRANSFER_FACILITY, map.get());  // not a table that the host has put in its place
    sm_ErrorMap.store(nullptr, std::memory_order_relaxed);
  }
  ErrorCodesLifetime(const ErrorCodesLifetime&) = delete;
  ErrorCodesLifetime& operator=(const ErrorCodesLifetime&) = delete;
};
const ErrorCodesLifetime sm_ErrorCodesLifetime;

}  // namespace

void LoadErrorCodes_TRANSFER() { LoadErrors(); }

}  // namespace Corvane
