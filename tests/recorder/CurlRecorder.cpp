#include "tests/recorder/CurlRecorder.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdarg>
#include <cstring>
#include <stdexcept>
#include <utility>

#include "tests/recorder/Allocations.h"
#include "tests/support/NextFunction.h"

#pragma GCC diagnostic ignored "-Wvarargs"  // the stand-ins are declared as libcurl declares what they stand for

namespace CorvaneTest {
namespace {

std::atomic<CurlRecorder*> s_current{nullptr};

constexpr std::array kTextOptions = {CURLOPT_URL,    CURLOPT_USERPWD,    CURLOPT_CAINFO,
                                     CURLOPT_CAPATH, CURLOPT_POSTFIELDS, CURLOPT_USERAGENT};

constexpr std::size_t kErrorBufferSize = 4096;  // the library's own, larger than what libcurl asks for

bool TakesText(CURLoption option) {
  return std::find(kTextOptions.begin(), kTextOptions.end(), option) != kTextOptions.end();
}

std::vector<std::string> OptionsIn(const std::vector<std::string>& calls) {
  constexpr std::string_view kPrefix = "setopt ";
  std::vector<std::string> options;
  for (const std::string& call : calls) {
    if (call.starts_with(kPrefix)) options.push_back(call.substr(kPrefix.size()));
  }
  return options;
}

}  // namespace

std::string OptionCall::Describe() const {
  const std::string name = std::to_string(static_cast<int>(option)) + "=";
  if (option >= CURLOPTTYPE_OFF_T || option < CURLOPTTYPE_OBJECTPOINT) return name + std::to_string(number);
  if (option >= CURLOPTTYPE_FUNCTIONPOINT) return name + (function == nullptr ? "null" : "function");
  if (text) return name + "'" + *text + "'";
  return name + (pointer == nullptr ? "null" : "pointer");
}

// ---------------------------------------------------------------------------------------------------------------------
// A handle while it performs
// ---------------------------------------------------------------------------------------------------------------------

OptionCall EasyHandle::Get(CURLoption option) const {
  const std::lock_guard guard(m_recorder.m_mutex);
  const auto& options = m_recorder.m_options[m_handle];
  const auto found = options.find(option);
  if (found == options.end()) throw std::out_of_range("option " + std::to_string(option) + " is not set");
  return found->second;
}

std::size_t EasyHandle::Call(CURLoption function, CURLoption object, std::string_view bytes,
                             std::size_t itemSize) const {
  using Callback = std::size_t (*)(void*, std::size_t, std::size_t, void*);
  const auto callback = reinterpret_cast<Callback>(Get(function).function);
  void* const self = const_cast<void*>(Get(object).pointer);
  std::string buffer(bytes);  // libcurl's buffer is writable, and gone after the call
  const AllocationsCount counted(true);
  return callback(buffer.data(), itemSize, buffer.size() / itemSize, self);
}

std::size_t EasyHandle::Write(std::string_view block, std::size_t itemSize) const {
  return Call(CURLOPT_WRITEFUNCTION, CURLOPT_WRITEDATA, block, itemSize);
}

std::size_t EasyHandle::Header(std::string_view line) const {
  return Call(CURLOPT_HEADERFUNCTION, CURLOPT_HEADERDATA, line, 1);
}

void EasyHandle::SetErrorText(std::string_view text) const {
  auto* const buffer = static_cast<char*>(const_cast<void*>(Get(CURLOPT_ERRORBUFFER).pointer));
  if (text.size() > kErrorBufferSize) throw std::length_error("more text than the error buffer holds");
  std::memcpy(buffer, text.data(), text.size());
  if (text.size() < kErrorBufferSize) buffer[text.size()] = '\0';
}

CURLcode Deliver(const EasyHandle& handle, const Answer& answer) {
  if (answer.status) CurlRecorder::Current()->info[CURLINFO_RESPONSE_CODE] = *answer.status;
  for (const std::string& line : answer.headers) {
    if (handle.Header(line) != line.size()) return CURLE_WRITE_ERROR;
  }
  for (const std::string& block : answer.blocks) {
    if (handle.Write(block) != block.size()) return CURLE_WRITE_ERROR;
  }
  if (!answer.errorText.empty()) handle.SetErrorText(answer.errorText);
  return answer.result;
}

// ---------------------------------------------------------------------------------------------------------------------
// The recorder
// ---------------------------------------------------------------------------------------------------------------------

CurlRecorder::CurlRecorder() {
  if (s_current.exchange(this) != nullptr) throw std::logic_error("there is a recorder already");
}

CurlRecorder::~CurlRecorder() { s_current = nullptr; }

CurlRecorder* CurlRecorder::Current() { return s_current; }

void CurlRecorder::Respond(long status, Answer answer) {
  info[CURLINFO_RESPONSE_CODE] = status;
  perform = [answer = std::move(answer)](const EasyHandle& handle) { return Deliver(handle, answer); };
}

std::vector<std::string> CurlRecorder::Calls() const {
  const std::lock_guard guard(m_mutex);
  return m_calls;
}

std::vector<std::string> CurlRecorder::Options() const { return OptionsIn(Calls()); }

std::vector<std::string> CurlRecorder::OptionsBeforeRequest() const {
  std::vector<std::string> calls = Calls();
  calls.erase(std::find(calls.begin(), calls.end(), "perform"), calls.end());
  return OptionsIn(calls);
}

std::vector<std::string> CurlRecorder::ValuesOf(CURLoption option) const {
  const std::string prefix = std::to_string(static_cast<int>(option)) + "=";
  std::vector<std::string> values;
  for (const std::string& call : Options()) {
    if (call.starts_with(prefix)) values.push_back(call.substr(prefix.size()));
  }
  return values;
}

std::size_t CurlRecorder::Count(std::string_view call) const {
  const std::vector<std::string> calls = Calls();
  return static_cast<std::size_t>(std::count(calls.begin(), calls.end(), call));
}

void CurlRecorder::Note(std::string call) {
  const std::lock_guard guard(m_mutex);
  m_calls.push_back(std::move(call));
}

void CurlRecorder::Clear() {
  const std::lock_guard guard(m_mutex);
  m_calls.clear();
}

CURLcode CurlRecorder::SetOption(const OptionCall& call, const std::function<CURLcode()>& forward) {
  Note("setopt " + call.Describe());
  const CURLcode refused = onOption ? onOption(call) : CURLE_OK;
  if (refused != CURLE_OK) return refused;
  const CURLcode result = forward();
  if (result == CURLE_OK) {
    const std::lock_guard guard(m_mutex);
    m_options[call.handle].insert_or_assign(call.option, call);
  }
  if (afterOption) afterOption(call);
  return result;
}

CURLcode CurlRecorder::Perform(CURL* handle, const std::function<CURLcode()>& forward) {
  Note("perform");
  if (!perform) return forward();
  const EasyHandle performing(*this, handle);
  performing.SetErrorText("");
  return perform(performing);
}

CURLcode CurlRecorder::GetInfo(CURLINFO value, void* result, const std::function<CURLcode()>& forward) {
  Note("getinfo " + std::to_string(static_cast<int>(value)));
  const auto found = info.find(value);
  if (found == info.end()) return forward();
  if (const CURLcode* failure = std::get_if<CURLcode>(&found->second)) return *failure;
  if ((static_cast<int>(value) & CURLINFO_TYPEMASK) == CURLINFO_LONG) {
    *static_cast<long*>(result) = std::get<long>(found->second);
  } else {
    *static_cast<double*>(result) = std::get<double>(found->second);
  }
  return CURLE_OK;
}

void CurlRecorder::ForgetOptions(CURL* handle) {
  const std::lock_guard guard(m_mutex);
  m_options.erase(handle);
}

}  // namespace CorvaneTest

// ---------------------------------------------------------------------------------------------------------------------
// What stands in for libcurl's functions
// ---------------------------------------------------------------------------------------------------------------------

// In libcurl's header these are also macros, which see to the number of arguments.
#undef curl_easy_setopt
#undef curl_easy_getinfo

using CorvaneTest::AllocationsCount;
using CorvaneTest::CurlRecorder;
using CorvaneTest::NextFunction;
using CorvaneTest::OptionCall;

namespace {

// Passes a value on through the dots, and to the recorder.
template <class Value>
CURLcode SetOption(const OptionCall& call, Value value) {
  static const NextFunction<CURLcode(CURL*, CURLoption, ...)> next("curl_easy_setopt");
  CurlRecorder* const recorder = CurlRecorder::Current();
  if (recorder == nullptr) return next(call.handle, call.option, value);
  return recorder->SetOption(call, [&] { return next(call.handle, call.option, value); });
}

CURLcode SetPointer(OptionCall call, void* pointer) {
  call.pointer = pointer;
  if (pointer != nullptr && CorvaneTest::TakesText(call.option)) call.text = static_cast<const char*>(pointer);
  return SetOption(call, pointer);
}

void Note(const std::string& call) {
  if (CurlRecorder* const recorder = CurlRecorder::Current()) recorder->Note(call);
}

}  // namespace

CORVANE_TEST_STANDS_IN CURLcode curl_easy_setopt(CURL* handle, CURLoption option, ...) {
  const AllocationsCount uncounted(false);
  OptionCall call;
  call.handle = handle;
  call.option = option;
  std::va_list arguments;
  va_start(arguments, option);
  CURLcode result = CURLE_OK;
  if (option >= CURLOPTTYPE_OFF_T) {
    const curl_off_t number = va_arg(arguments, curl_off_t);
    call.number = number;
    result = SetOption(call, number);
  } else if (option >= CURLOPTTYPE_FUNCTIONPOINT) {
    call.function = va_arg(arguments, void (*)());
    result = SetOption(call, call.function);
  } else if (option >= CURLOPTTYPE_OBJECTPOINT) {
    result = SetPointer(call, va_arg(arguments, void*));
  } else {
    const long number = va_arg(arguments, long);
    call.number = number;
    result = SetOption(call, number);
  }
  va_end(arguments);
  return result;
}

CORVANE_TEST_STANDS_IN CURLcode curl_easy_getinfo(CURL* handle, CURLINFO value, ...) {
  const AllocationsCount uncounted(false);
  static const NextFunction<CURLcode(CURL*, CURLINFO, ...)> next("curl_easy_getinfo");
  std::va_list arguments;
  va_start(arguments, value);
  void* const result = va_arg(arguments, void*);
  va_end(arguments);
  CurlRecorder* const recorder = CurlRecorder::Current();
  if (recorder == nullptr) return next(handle, value, result);
  return recorder->GetInfo(value, result, [&] { return next(handle, value, result); });
}

CORVANE_TEST_STANDS_IN CURLcode curl_easy_perform(CURL* handle) {
  const AllocationsCount uncounted(false);
  static const NextFunction<CURLcode(CURL*)> next("curl_easy_perform");
  CurlRecorder* const recorder = CurlRecorder::Current();
  if (recorder == nullptr) return next(handle);
  return recorder->Perform(handle, [&] { return next(handle); });
}

CORVANE_TEST_STANDS_IN CURL* curl_easy_init() {
  const AllocationsCount uncounted(false);
  static const NextFunction<CURL*()> next("curl_easy_init");
  Note("init");
  CurlRecorder* const recorder = CurlRecorder::Current();
  return recorder != nullptr && recorder->refuseHandles ? nullptr : next();
}

CORVANE_TEST_STANDS_IN void curl_easy_reset(CURL* handle) {
  const AllocationsCount uncounted(false);
  static const NextFunction<void(CURL*)> next("curl_easy_reset");
  Note("reset");
  if (CurlRecorder* const recorder = CurlRecorder::Current()) recorder->ForgetOptions(handle);
  next(handle);
}

CORVANE_TEST_STANDS_IN void curl_easy_cleanup(CURL* handle) {
  const AllocationsCount uncounted(false);
  static const NextFunction<void(CURL*)> next("curl_easy_cleanup");
  Note("cleanup");
  if (CurlRecorder* const recorder = CurlRecorder::Current()) recorder->ForgetOptions(handle);
  next(handle);
}

CORVANE_TEST_STANDS_IN CURLcode curl_global_init(long flags) {
  const AllocationsCount uncounted(false);
  static const NextFunction<CURLcode(long)> next("curl_global_init");
  Note("global_init " + std::to_string(flags));
  return next(flags);
}

CORVANE_TEST_STANDS_IN void curl_global_cleanup() {
  const AllocationsCount uncounted(false);
  static const NextFunction<void()> next("curl_global_cleanup");
  Note("global_cleanup");
  next();
}
