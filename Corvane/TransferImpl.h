#pragma once

#include <atomic>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#define CURL_DISABLE_DEPRECATION  // the information values in doubles serve every libcurl since 7.4
#include <curl/curl.h>

#include <Corvane/Base/DateTime.h>
#include <Corvane/Base/Guard.h>
#include <Corvane/Base/Stream.h>
#include <Corvane/Base/Sync.h>
#include <Corvane/PublishedTextImpl.h>
#include <Corvane/Transfer.h>

namespace Corvane {

struct FreeDeleter {
  void operator()(char* text) const noexcept { std::free(text); }
};
// A string handed to libcurl, which keeps the pointer during a transfer: made with strdup, released with free.
using OwnedCString = std::unique_ptr<char, FreeDeleter>;

// The state and the work behind one ZTransfer. The recursive mutex is the object lock: it is held only for the short
// bookkeeping steps (reset, begin and end of an operation, abort), never while a transfer runs.
//
// Members that other threads read during an operation are atomics. The counters are independent of each other and need no
// order; the flags do, and use the default one.
class ZTransfer::ZTransferImpl : public ZRecursiveMutex {
 public:
  ZTransferImpl();
  ~ZTransferImpl();
  ZTransferImpl(const ZTransferImpl&) = delete;
  ZTransferImpl& operator=(const ZTransferImpl&) = delete;

  // Operations.
  ZResult Download(const ZString& url, ZString& result);
  ZResult DownloadFile(const ZString& url, const ZString& fileName, bool resume);
  ZResult Post(const ZString& url, const ZString& name, const ZString& value, ZString* result);
  ZResult Post(const ZString& url, const ZMap<ZString, ZString, ZLtstr>& fields, ZString* result);
  ZResult PostData(const ZString& url, const ZString& data, ZString* result);
  ZResult PostFile(const ZString& url, const ZString& inputFile, const ZString& outputFile);

  // Control.
  ZResult Abort();
  void Reset();
  bool ResetIfIdle();
  bool WaitUntilIdle(unsigned long milliseconds);
  void BeginOperation();
  void EndOperation();

  // Settings and queries.
  ZResult SetSSL(bool verifyHost, bool verifyPeer, const ZString& caFile, const ZString& caDir);
  ZResult SetCredentials(const ZString& user, const ZString& password);
  ZResult Attach(Observer* observer);
  ZResult Detach(Observer* observer);
  void Notify(int event, long value);
  ZResult GetHeader(ZString& header) const;
  ZResult GetCause(ZString& text) const;

  // --- Members in the order of their construction. ---
  std::atomic<unsigned long> m_timeout{300};  // seconds; 0: no limit
  bool m_verifyHost = false;
  bool m_verifyPeer = false;
  OwnedCString m_caFile;  // local encoding
  OwnedCString m_caDir;   // local encoding
  std::atomic<bool> m_useThrottling{true};
  std::atomic<bool> m_inProgress{false};  // set and cleared under the object lock, read anywhere
  ZEvent m_completion{1};                 // signalled while no operation runs
  CURL* m_easy = nullptr;                 // owned by ZTransfer, which cleans it up before this object goes
  std::atomic<bool> m_abort{false};
  std::atomic<bool> m_detectHttpError{false};
  OwnedCString m_credentials;  // "user:password" in UTF-8
  bool m_outputToFile = false;
  std::FILE* m_outputFile = nullptr;  // borrowed from the operation that opened it
  ZDynamicMemoryStream m_body{1};  // reused: after a reset later data overwrites it, and only the download size counts
  OwnedCString m_url;              // UTF-8
  ZString m_header;                // guarded by m_headerMutex
  OwnedCString m_postData;         // UTF-8
  std::atomic<bool> m_contentSizeKnown{false};
  std::atomic<unsigned long long> m_resumePosition{0};
  std::atomic<unsigned long long> m_contentSize{0};
  std::atomic<unsigned long long> m_downloadSize{0};
  std::atomic<unsigned long long> m_transferSize{0};
  std::atomic<unsigned int> m_transferRate{0};
  ZDateTime m_startTime = ZDateTime::Now();
  ZTimeSpan m_transferTime;
  std::atomic<ZResult> m_errorCode{TRANSFER_E_NOT_STARTED};
  PublishedText m_errorText;
  char m_curlError[4096] = {};
  std::vector<Observer*> m_observers;
  bool m_progressNotified = false;

  // The abort flag of the run that this transfer serves, if any. An operation that begins after the run was aborted is
  // aborted from its beginning, so that an abort between two transfers of a run is not lost.
  const std::atomic<bool>* m_runAbort = nullptr;
  std::atomic<std::thread::id> m_runner{};  // the thread of the current or last operation
  bool m_bodyRefused = false;   // a resumed file's request was refused: what comes is not the file's content
  bool m_rangeMissing = false;  // a resumed file's request was answered with something else than the rest of the file
  std::exception_ptr m_pendingException;  // thrown by host code inside a callback; rethrown when libcurl has returned
  std::atomic<ZResult> m_cause{TRANSFER_E_NOT_STARTED};
  PublishedText m_causeText;
  mutable std::mutex m_headerMutex;

 private:
  template <class Steps>
  ZResult RunOperation(Steps steps);

  void DownloadSteps(const ZString& url, ZString& result);
  void DownloadFileSteps(const ZString& url, const ZString& fileName, bool resume);
  void PostDataSteps(const ZString& url, const ZString& data, ZString* result);
  void PostFileSteps(const ZString& url, const ZString& inputFile, const ZString& outputFile);
  ZResult Post(const ZString& url, long size);

  // The transfer procedure.
  ZResult Transfer(const ZString& url, bool post);
  bool SetRequestOptions();
  bool SetHeaderOptions(const ZString& scheme);
  bool SetTimeLimits();
  bool SetAuthentication(const ZString& scheme);
  ZResult ApplyExtraHttpsSettings();
  ZResult ApplyCaPath(const wchar_t* message, CURLoption option, const OwnedCString& path);
  void Perform();
  template <class Value>
  bool SetOption(const char* who, CURLoption option, Value value);

  // Called by libcurl, whose frames no exception may cross.
  static std::size_t WriteCallback(void* data, std::size_t size, std::size_t count, void* object) noexcept;
  static std::size_t HeaderCallback(void* data, std::size_t size, std::size_t count, void* object) noexcept;
  template <class Receive>
  std::size_t CatchAll(std::size_t total, Receive receive) noexcept;
  std::size_t ReceiveBody(const char* data, std::size_t total);
  std::size_t ReceiveHeader(const char* data, std::size_t total);
  void NotifyFirstData();
  std::size_t StoreBlock(const char* data, std::size_t total);
  void ExtendTimeLimit(unsigned long slackSeconds);
  void RepeatAbort(CURLoption limit);

  [[nodiscard]] bool IsHttp() const;
  bool CheckHeader();
  [[nodiscard]] bool HasAskedRange() const;
  bool IsRestMissing();
  void SetResult(ZString& result);
  void UpdateTransferTime();
  void UpdateContentSize();
  void UpdateTransferSize();
  [[nodiscard]] double Info(CURLINFO info, double) const;
  [[nodiscard]] long Info(CURLINFO info, long) const;

  // Results.
  bool HasHandle();
  void SetError(ZResult code, ZString text);
  void SetError(ZResult code);
  ZResult FailOption(const char* who, CURLcode result, CURLoption option);
  void FailRange();
  void RefuseDownloadFile(const ZString& url, const ZString& fileName);
  bool IsRepresentable(const char* localName, const ZString& name, const wchar_t* message);
};

}  // namespace Corvane
