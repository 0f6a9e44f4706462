#pragma once

#include <array>
#include <chrono>
#include <exception>
#include <memory>
#include <string>

#include <Corvane/Transfer/CurlImpl.h>
#include <Corvane/TreeDownload/JobImpl.h>

namespace Corvane {

class Connections;

struct EasyDeleter {
  void operator()(CURL* easy) const noexcept { curl_easy_cleanup(easy); }
};

// A job and how often it was tried.
struct Errand {
  std::unique_ptr<Job> job;
  unsigned int repetitions = 0;
};

// One request under way: libcurl's handle, which serves one after the other, and what it has to find unchanged meanwhile.
class Exchange {
 public:
  // The handle belongs to `connections`, which outlive this object. Throws std::bad_alloc.
  explicit Exchange(Connections& connections);
  Exchange(const Exchange&) = delete;
  Exchange& operator=(const Exchange&) = delete;

  [[nodiscard]] CURL* Easy() const noexcept { return m_easy.get(); }
  [[nodiscard]] bool IsBusy() const noexcept { return errand.job != nullptr; }

  // Readies the handle for a request.
  void Prepare(const Order& order);
  // Of a request that has ended, as long as its connection is known to the handle.
  void LetGoOfLostConnection() const noexcept;
  // How it ended; the redirect that the answer asks for in `redirect`.
  [[nodiscard]] Ending TakeEnding(CURLcode code, std::string& redirect);
  // Whether no byte has moved for this long since the request was sent.
  [[nodiscard]] bool IsIdleFor(std::chrono::seconds limit, std::chrono::steady_clock::time_point now) const;

  Errand errand;
  Order order;                 // of the request that is under way
  unsigned int redirects = 0;  // followed for that order
  bool isTimedOut = false;
  std::exception_ptr exception;  // thrown by the host's code in a callback
  bool isShort = false;          // memory ran out in one

 private:
  static std::size_t WriteCallback(char* data, std::size_t size, std::size_t count, void* object) noexcept;
  static std::size_t HeaderCallback(char* data, std::size_t size, std::size_t count, void* object) noexcept;
  static int ProgressCallback(void* object, curl_off_t toReceive, curl_off_t received, curl_off_t toSend,
                              curl_off_t sent) noexcept;
  template <class Receive>
  std::size_t CatchAll(std::size_t total, Receive receive) noexcept;
  std::size_t ReceiveContent(const char* data, std::size_t total);
  std::size_t ReceiveHeader(const char* data, std::size_t total);
  void SetCredentials();
  void SetHeaders();
  template <class Value>
  void Set(CURLoption option, Value value);
  [[nodiscard]] Reply CurrentReply() const;
  [[nodiscard]] std::optional<unsigned long long> ContentLength() const;

  Connections& m_connections;
  std::unique_ptr<CURL, EasyDeleter> m_easy;
  OwnedList m_headers;
  std::string m_header;  // the lines of the last answer
  std::array<char, CURL_ERROR_SIZE> m_errorText{};
  std::optional<Reply> m_reply;  // once content comes
  unsigned long long m_refusedBytes = 0;
  bool m_isHttp = false;
  bool m_isHeaderTooLong = false;
  bool m_isHeaderWhole = false;  // with the empty line
  bool m_isCut = false;
  std::chrono::steady_clock::time_point m_lastByte;
};

}  // namespace Corvane
