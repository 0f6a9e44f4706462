#include "tests/abort/Steps.h"

#include <curl/curl.h>
#include <sys/select.h>

#include <cstdarg>
#include <utility>

#include "tests/support/NextFunction.h"

#pragma GCC diagnostic ignored "-Wvarargs"  // the stand-ins are declared as libcurl declares what they stand for

namespace CorvaneTest {
namespace {

thread_local StepHook t_hook;
thread_local bool t_isInHook = false;

bool HasHook() { return t_hook != nullptr && !t_isInHook; }

void Tell(const std::string& step, bool isAfter = false) {
  if (!HasHook()) return;
  t_isInHook = true;
  t_hook(step, isAfter);
  t_isInHook = false;
}

template <class Value>
CURLcode SetOption(CURL* handle, CURLoption option, Value value) {
  static const NextFunction<CURLcode(CURL*, CURLoption, ...)> next("curl_easy_setopt");
  const std::string step = "setopt " + std::to_string(option);
  Tell(step);
  const CURLcode result = next(handle, option, value);
  Tell(step, true);
  return result;
}

}  // namespace

ScopedStepHook::ScopedStepHook(StepHook hook) { t_hook = std::move(hook); }
ScopedStepHook::~ScopedStepHook() { t_hook = nullptr; }

}  // namespace CorvaneTest

#undef curl_easy_setopt

using CorvaneTest::NextFunction;

CORVANE_TEST_STANDS_IN CURLcode curl_easy_setopt(CURL* handle, CURLoption option, ...) {
  std::va_list arguments;
  va_start(arguments, option);
  CURLcode result = CURLE_OK;
  if (option >= CURLOPTTYPE_OFF_T) {  // NOLINT(bugprone-branch-clone): each reads another type
    result = CorvaneTest::SetOption(handle, option, va_arg(arguments, curl_off_t));
  } else if (option >= CURLOPTTYPE_FUNCTIONPOINT) {
    result = CorvaneTest::SetOption(handle, option, va_arg(arguments, void (*)()));
  } else if (option >= CURLOPTTYPE_OBJECTPOINT) {
    result = CorvaneTest::SetOption(handle, option, va_arg(arguments, void*));
  } else {
    result = CorvaneTest::SetOption(handle, option, va_arg(arguments, long));
  }
  va_end(arguments);
  return result;
}

CORVANE_TEST_STANDS_IN CURLcode curl_easy_perform(CURL* handle) {
  static const NextFunction<CURLcode(CURL*)> next("curl_easy_perform");
  CorvaneTest::Tell("perform");
  return next(handle);
}

CORVANE_TEST_STANDS_IN void curl_easy_reset(CURL* handle) {
  static const NextFunction<void(CURL*)> next("curl_easy_reset");
  CorvaneTest::Tell("reset");
  next(handle);
}

CORVANE_TEST_STANDS_IN int select(int count, fd_set* readable, fd_set* writable, fd_set* exceptional,
                                  timeval* timeout) {
  static const NextFunction<int(int, fd_set*, fd_set*, fd_set*, timeval*)> next("select");
  const bool isSleep = count == 0 && CorvaneTest::HasHook();
  if (!isSleep) return next(count, readable, writable, exceptional, timeout);
  CorvaneTest::Tell("sleep");
  return 0;
}
