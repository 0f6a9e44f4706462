#include <Corvane/Transfer/ProcessSetupImpl.h>

#include <pthread.h>

#include <cstddef>
#include <memory>
#include <utility>

#include <openssl/crypto.h>

#include <Corvane/Base/Guard.h>
#include <Corvane/Base/Singleton.h>
#include <Corvane/LogLineImpl.h>
#include <Corvane/Transfer/CurlImpl.h>

namespace Corvane {

constinit std::atomic<ZMutex*> sm_mutexGlobalSlot{nullptr};
constinit std::atomic<ZThrottle*> sm_ThrottlingSlot{nullptr};
constinit int sm_nGlobalCounter = 0;
constinit ZMutex* sm_LockArray = nullptr;

namespace {

using MutexGuard = ZGuardImpl<ZMutex>;

ZMutex* singleton_init_sm_mutexGlobal() { return std::make_unique<ZMutex>().release(); }
ZThrottle* singleton_init_sm_Throttling() { return std::make_unique<ZThrottle>().release(); }

// Nothing happens at load: everything is created on first use. As the first of the library's static objects this is the last to
// be destroyed. The lock array stays when objects outlive the library: OpenSSL would still call into it.
struct TransferLifetime {
  constexpr TransferLifetime() noexcept = default;
  ~TransferLifetime() {
    delete sm_mutexGlobalSlot.exchange(nullptr);
    delete sm_ThrottlingSlot.exchange(nullptr);
  }
  TransferLifetime(const TransferLifetime&) = delete;
  TransferLifetime& operator=(const TransferLifetime&) = delete;
};
constinit TransferLifetime sm_TransferLifetime;

// OpenSSL before 1.1 asks the program for its locks through these two callbacks. Since 1.1 it has its own, and the functions that
// install the callbacks are macros without effect.
[[maybe_unused]] void LockingFunctionCallback(int mode, int n, const char* /*file*/, int /*line*/) {
  constexpr int kLock = 1;    // CRYPTO_LOCK
  constexpr int kUnlock = 2;  // CRYPTO_UNLOCK; the read and write bits are ignored, every lock is exclusive
  if ((mode & kLock) != 0) sm_LockArray[n].Lock();
  if ((mode & kUnlock) != 0) sm_LockArray[n].Unlock();
}

[[maybe_unused]] unsigned long IdFunctionCallback() { return static_cast<unsigned long>(pthread_self()); }

// The null that takes a callback away; OpenSSL's macros leave it unused.
template <class Function>
[[maybe_unused]] constexpr Function* kNoCallback = nullptr;

// The set-up that the first object makes. When it throws, nothing is left set up.
ZResult InitialiseProcess() {
  LogLine(ZLogLevel::Information, kTransferArea,
          [] { return ZString(L"%1: Curl and SSL global initiatization\n").Arg(L"CurlGlobalInit"); });
  const CURLcode initialised = curl_global_init(CURL_GLOBAL_ALL);
  const ZResult result = initialised == CURLE_OK ? BASE_S_OK : CodeOf(initialised);
  if (sm_LockArray != nullptr) return result;  // left over from an earlier cycle
  try {
    sm_LockArray = new ZMutex[static_cast<std::size_t>(CRYPTO_num_locks())];
  } catch (...) {
    if (initialised == CURLE_OK) curl_global_cleanup();  // libcurl counts too, and the host's own calls with ours
    throw;
  }
  CRYPTO_set_id_callback(IdFunctionCallback);
  CRYPTO_set_locking_callback(LockingFunctionCallback);
  return result;
}

}  // namespace

ZMutex& sm_mutexGlobal() {
  ZSingleton::CheckInit(sm_mutexGlobalSlot, singleton_init_sm_mutexGlobal);
  return *sm_mutexGlobalSlot.load(std::memory_order_relaxed);
}

ZThrottle& sm_Throttling() {
  ZSingleton::CheckInit(sm_ThrottlingSlot, singleton_init_sm_Throttling);
  return *sm_ThrottlingSlot.load(std::memory_order_relaxed);
}

ZResult CurlGlobalInit() {
  const MutexGuard guard(sm_mutexGlobal());
  if (++sm_nGlobalCounter != 1) return BASE_S_OK;
  try {
    return InitialiseProcess();
  } catch (...) {
    --sm_nGlobalCounter;  // the object will not come to be, so that no cleanup matches this call
    throw;
  }
}

void CurlGlobalCleanup() {
  const MutexGuard guard(sm_mutexGlobal());
  if (sm_nGlobalCounter == 0 || --sm_nGlobalCounter > 0) return;
  WithoutThrowing([] {
    LogLine(ZLogLevel::Information, kTransferArea,
            [] { return ZString(L"%1: Curl and SSL global cleanup").Arg(L"CurlGlobalCleanup"); });
  });
  if (sm_LockArray != nullptr) {
    CRYPTO_set_id_callback(kNoCallback<unsigned long()>);
    CRYPTO_set_locking_callback((kNoCallback<void(int, int, const char*, int)>));
    delete[] std::exchange(sm_LockArray, nullptr);  // destroys from the last to the first
  }
  curl_global_cleanup();
}

}  // namespace Corvane
