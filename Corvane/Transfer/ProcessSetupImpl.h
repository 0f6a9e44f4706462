#pragma once

#include <atomic>

#include <Corvane/Base/Result.h>
#include <Corvane/Base/Sync.h>
#include <Corvane/Throttle.h>

// What the library sets up once for the process: libcurl and the locks that old releases of OpenSSL ask for, as long as a transfer
// object lives, and the process-wide throttle. Declared here for the transfer objects and for the tests that look inside.

namespace Corvane {

extern std::atomic<ZMutex*> sm_mutexGlobalSlot;
extern std::atomic<ZThrottle*> sm_ThrottlingSlot;
extern int sm_nGlobalCounter;  // CurlGlobalInit calls without their cleanup; guarded by sm_mutexGlobal
extern ZMutex* sm_LockArray;   // one mutex per OpenSSL lock; guarded by sm_mutexGlobal

// Made on first use; they live until the library is unloaded.
ZMutex& sm_mutexGlobal();
ZThrottle& sm_Throttling();

// Counts an object, and for the first one sets up libcurl and the lock callbacks. Returns libcurl's failure, if any, to the first
// caller; the count holds all the same. Throws what allocation or the host's logger throws, and then has counted nothing.
ZResult CurlGlobalInit();
// Takes a count back; the last one undoes the set-up. Without a matching CurlGlobalInit it does nothing.
void CurlGlobalCleanup();

}  // namespace Corvane
