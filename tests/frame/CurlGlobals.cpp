#include "tests/frame/CurlGlobals.h"

#include <curl/curl.h>

#include <atomic>
#include <mutex>
#include <thread>

#include "tests/support/NextFunction.h"

namespace CorvaneTest {
namespace {

std::mutex mutex;
std::vector<std::string> calls;  // guarded by mutex
std::atomic<bool> recordHandles{false};
std::atomic<int> initResult{0};
std::atomic<bool> refuseHandles{false};
std::atomic<int> inside{0};
std::atomic<int> mostInside{0};

// Stays inside long enough for a call on another thread to come in as well, if it may.
class Presence {
 public:
  Presence() {
    const int now = ++inside;
    for (int most = mostInside; most < now && !mostInside.compare_exchange_weak(most, now);) continue;
    std::this_thread::yield();
  }
  ~Presence() { --inside; }
  Presence(const Presence&) = delete;
  Presence& operator=(const Presence&) = delete;
};

}  // namespace

void CurlGlobals::Reset() {
  const std::lock_guard<std::mutex> lock(mutex);
  calls.clear();
  calls.reserve(4096);  // the notes are short: none of them allocates, which a test may have made fail
  recordHandles = false;
  initResult = 0;
  refuseHandles = false;
  mostInside = 0;
}

std::vector<std::string> CurlGlobals::Calls() {
  const std::lock_guard<std::mutex> lock(mutex);
  return calls;
}

void CurlGlobals::RecordHandles(bool record) { recordHandles = record; }

void CurlGlobals::Note(const std::string& what) {
  const std::lock_guard<std::mutex> lock(mutex);
  calls.push_back(what);
}

void CurlGlobals::FailInit(int result) { initResult = result; }
void CurlGlobals::RefuseHandles() { refuseHandles = true; }
int CurlGlobals::MostAtOnce() { return mostInside; }

}  // namespace CorvaneTest

using CorvaneTest::CurlGlobals;
using CorvaneTest::NextFunction;

extern "C" {

CORVANE_TEST_REPLACES CURLcode curl_global_init(long flags) {
  const CorvaneTest::Presence presence;
  CurlGlobals::Note("init(" + std::to_string(flags) + ")");
  if (CorvaneTest::initResult != 0) return static_cast<CURLcode>(CorvaneTest::initResult.load());
  return NextFunction<CURLcode(long)>("curl_global_init")(flags);
}

CORVANE_TEST_REPLACES void curl_global_cleanup() {
  const CorvaneTest::Presence presence;
  CurlGlobals::Note("cleanup");
  // What was not initialised has nothing to clean up.
  if (CorvaneTest::initResult == 0) NextFunction<void()>("curl_global_cleanup")();
}

CORVANE_TEST_REPLACES CURL* curl_easy_init() {
  if (CorvaneTest::recordHandles) CurlGlobals::Note("easy_init");
  if (CorvaneTest::refuseHandles) return nullptr;
  return NextFunction<CURL*()>("curl_easy_init")();
}

CORVANE_TEST_REPLACES void curl_easy_cleanup(CURL* handle) {
  if (CorvaneTest::recordHandles) CurlGlobals::Note("easy_cleanup");
  NextFunction<void(CURL*)>("curl_easy_cleanup")(handle);
}

}  // extern "C"
