#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include <curl/curl.h>

namespace CorvaneTest {

// One call of curl_easy_setopt. What its value is follows from the range of the option's number.
struct OptionCall {
  CURL* handle = nullptr;
  CURLoption option{};
  long long number = 0;             // options below 10000 and those from 30000 on
  const void* pointer = nullptr;    // options from 10000 on: objects and texts
  std::optional<std::string> text;  // a copy of the text, for the options that take one and got one
  void (*function)() = nullptr;     // options from 20000 on

  // "13=300", "10002='http://host/'", "10001=pointer", "20011=function"; "null" for either kind of null pointer.
  [[nodiscard]] std::string Describe() const;
};

class CurlRecorder;

// One easy handle while it performs: its options, and what libcurl does with them.
// Thread safety: as the recorder's.
class EasyHandle {
 public:
  EasyHandle(CurlRecorder& recorder, CURL* handle) : m_recorder(recorder), m_handle(handle) {}

  // The option as it was set last since the handle's reset. Throws std::out_of_range when it was not.
  [[nodiscard]] OptionCall Get(CURLoption option) const;
  [[nodiscard]] long long Number(CURLoption option) const { return Get(option).number; }

  // Hand the bytes to the write or header function as libcurl does, in one call, and return what it returned.
  std::size_t Write(std::string_view block) const { return Write(block, 1); }
  std::size_t Write(std::string_view block, std::size_t itemSize) const;
  std::size_t Header(std::string_view line) const;

  // Leaves the text in the error buffer, terminated when there is room for the zero byte.
  void SetErrorText(std::string_view text) const;

 private:
  std::size_t Call(CURLoption function, CURLoption object, std::string_view bytes, std::size_t itemSize) const;

  CurlRecorder& m_recorder;
  CURL* m_handle;
};

// What a scripted request does: receives the header lines and the blocks, and ends with `result`. A callback that
// accepts fewer bytes than it got ends it at once with CURLE_WRITE_ERROR, as in libcurl.
struct Answer {
  std::vector<std::string> headers{};
  std::vector<std::string> blocks{};
  CURLcode result = CURLE_OK;
  std::string errorText{};
  std::optional<long> status{};  // that libcurl tells from the header on; none: the one before
};

// Stands between the library and libcurl while it exists. The program defines libcurl's easy functions itself, which
// preempts libcurl's own in every library of the process; each call is noted in order and with its value, and forwarded
// to libcurl unless the script below says something else. Without a recorder the calls just pass.
// Thread safety: the functions of libcurl that are recorded may be called on any thread. The script is set while no
// operation runs.
class CurlRecorder {
 public:
  CurlRecorder();
  ~CurlRecorder();
  CurlRecorder(const CurlRecorder&) = delete;
  CurlRecorder& operator=(const CurlRecorder&) = delete;

  // --- The script. ---

  // Replaces curl_easy_perform; when empty the request is made. The error buffer is emptied before, as libcurl does.
  std::function<CURLcode(const EasyHandle&)> perform;
  // Called before an option goes to libcurl, without any lock. A result other than CURLE_OK is given to the library, and
  // libcurl does not see the option.
  std::function<CURLcode(const OptionCall&)> onOption;
  // Called after an option went to libcurl.
  std::function<void(const OptionCall&)> afterOption;
  // What curl_easy_getinfo gives for a value: a number, or the failure. Values without an entry are asked from libcurl.
  std::map<CURLINFO, std::variant<long, double, CURLcode>> info;
  // curl_easy_init returns null.
  bool refuseHandles = false;

  // Makes `perform` act out the answer; the response code is then `status`.
  void Respond(long status, Answer answer);

  // --- The record. ---

  // Every call since Clear: "global_init 3", "init", "reset", "setopt 13=300", "perform", "getinfo 2097154", "cleanup",
  // "global_cleanup", and the notes of the test.
  [[nodiscard]] std::vector<std::string> Calls() const;
  // The options alone, as OptionCall::Describe puts them.
  [[nodiscard]] std::vector<std::string> Options() const;
  // The options alone that came before the first request.
  [[nodiscard]] std::vector<std::string> OptionsBeforeRequest() const;
  // The values that one option got, as Describe puts them behind the "=".
  [[nodiscard]] std::vector<std::string> ValuesOf(CURLoption option) const;
  // How often `call` occurs in Calls().
  [[nodiscard]] std::size_t Count(std::string_view call) const;
  void Note(std::string call);
  void Clear();

  // --- For the functions that stand in for libcurl's. ---

  static CurlRecorder* Current();
  CURLcode SetOption(const OptionCall& call, const std::function<CURLcode()>& forward);
  CURLcode Perform(CURL* handle, const std::function<CURLcode()>& forward);
  CURLcode GetInfo(CURLINFO value, void* result, const std::function<CURLcode()>& forward);
  void ForgetOptions(CURL* handle);

 private:
  friend class EasyHandle;

  mutable std::mutex m_mutex;
  std::vector<std::string> m_calls;                             // guarded by m_mutex
  std::map<CURL*, std::map<CURLoption, OptionCall>> m_options;  // guarded by m_mutex
};

// Acts out `answer` on `handle`.
CURLcode Deliver(const EasyHandle& handle, const Answer& answer);

}  // namespace CorvaneTest
