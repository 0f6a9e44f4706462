#include "tests/frame/LegacyCrypto.h"

#include <atomic>
#include <mutex>

#include <openssl/crypto.h>  // the stand-in

namespace CorvaneTest {
namespace {

std::mutex mutex;
std::vector<std::string> calls;  // guarded by mutex
std::atomic<int> lockCount{41};
std::atomic<LegacyCrypto::LockingCallback*> locking{nullptr};
std::atomic<LegacyCrypto::IdCallback*> id{nullptr};

void Record(const char* call) {
  const std::lock_guard<std::mutex> lock(mutex);
  calls.emplace_back(call);
}

}  // namespace

void LegacyCrypto::Forget() {
  const std::lock_guard<std::mutex> lock(mutex);
  calls.clear();
}

std::vector<std::string> LegacyCrypto::Calls() {
  const std::lock_guard<std::mutex> lock(mutex);
  return calls;
}

void LegacyCrypto::SetLockCount(int count) { lockCount = count; }
LegacyCrypto::LockingCallback* LegacyCrypto::Locking() { return locking; }
LegacyCrypto::IdCallback* LegacyCrypto::Id() { return id; }

}  // namespace CorvaneTest

extern "C" {

CORVANE_LEGACY_CRYPTO_API int CRYPTO_num_locks() {
  CorvaneTest::Record("num_locks");
  return CorvaneTest::lockCount;
}

CORVANE_LEGACY_CRYPTO_API void CRYPTO_set_locking_callback(void (*callback)(int, int, const char*, int)) {
  CorvaneTest::Record(callback != nullptr ? "set_locking" : "clear_locking");
  CorvaneTest::locking = callback;
}

CORVANE_LEGACY_CRYPTO_API void CRYPTO_set_id_callback(unsigned long (*callback)()) {
  CorvaneTest::Record(callback != nullptr ? "set_id" : "clear_id");
  CorvaneTest::id = callback;
}

}  // extern "C"
