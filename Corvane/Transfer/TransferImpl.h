#pragma once

#include <atomic>
#include <cstddef>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <vector>

#include <Corvane/Transfer.h>
#include <Corvane/Transfer/CurlImpl.h>
#include <Corvane/Transfer/OperationImpl.h>
#include <Corvane/Transfer/OutcomeImpl.h>
#include <Corvane/Transfer/RequestImpl.h>
#include <Corvane/Transfer/RequestedPartImpl.h>
#include <Corvane/TransferOptions.h>

// The area of single transfers: the process-wide set-up (ProcessSetup), the throttle (Throttle), and the transfer object. That one
// has three owners of state, Operation, Outcome and Request, beside the settings of its host, and its steps stand in a source each:
//
//   Settings       what the host sets and attaches
//   Operation      whether an operation runs and was aborted: flags, lock, event
//   Bracket        the beginning and the end of an operation, and what is reset before it
//   Outcome        code, text, cause and header, published together
//   Procedure      the options of a request in their order, the request, its result
//   Verification   the checks on https URLs
//   Additions      what is done only when the host asks for it
//   Receive        what libcurl calls while it runs: header lines and blocks of the body
//   Trace, TraceLines   what it tells of its work, without secrets
//   Request        what libcurl is given, and the sizes and times it tells
//   Body, ResumedFile, ResumedSink   where the body of an answer goes
//   RequestedPart  whether an answer is the rest of a resource, and all of it
//   AnswerHeader, ContentRange, FileVersion   what header lines say, and what stands for a version
//   Download, DownloadFile, Post, Abort   what hosts ask for
//   Transfer       the public class
//
// The area uses the base library, libcurl and OpenSSL's lock callbacks, and no other area.

namespace Corvane {

class ResumedFile;

// ZTransferOptions as requests need them.
struct Additions {
  unsigned int mostRedirects = 0;
  std::vector<std::string> headers;  // as libcurl takes them
  std::string userAgent;
  bool checkResume = false;
  std::string validator;
  bool limitFollowsUpload = false;
  bool askModificationTime = false;
  bool handOnErrorPages = false;
  ZTransferTrace* trace = nullptr;  // the host's
  unsigned long receiveBufferBytes = 0;
};

// What the host has set; it persists from operation to operation.
struct TransferSettings {
  std::atomic<unsigned long> timeout{300};  // seconds; 0: no limit
  bool verifyHost = false;
  bool verifyPeer = false;
  OwnedCString caFile;  // local encoding
  OwnedCString caDir;   // local encoding
  std::atomic<bool> useThrottling{true};
  std::atomic<bool> detectHttpError{false};
  OwnedCString credentials;  // "user:password" in UTF-8
  std::vector<ZTransfer::Observer*> observers;
  Additions additions;
};

// The state and the work behind one ZTransfer.
class ZTransfer::ZTransferImpl : public Operation {
 public:
  ZTransferImpl();
  ~ZTransferImpl();
  ZTransferImpl(const ZTransferImpl&) = delete;
  ZTransferImpl& operator=(const ZTransferImpl&) = delete;

  // Operations.
  ZResult Download(const ZString& url, ZString& result);
  ZResult Download(const ZString& url, ZTransferSink& sink, unsigned long long offset);
  ZResult DownloadFile(const ZString& url, const ZString& fileName, bool resume);
  ZResult Post(const ZString& url, const ZString& name, const ZString& value, ZString* result);
  ZResult Post(const ZString& url, const ZMap<ZString, ZString, ZLtstr>& fields, ZString* result);
  ZResult PostData(const ZString& url, const ZString& data, ZString* result);
  ZResult PostFile(const ZString& url, const ZString& inputFile, const ZString& outputFile);

  // Control.
  ZResult Abort();
  void Reset();
  bool ResetIfIdle();
  void BeginOperation();
  void EndOperation();

  // Settings and queries.
  ZResult SetSSL(bool verifyHost, bool verifyPeer, const ZString& caFile, const ZString& caDir);
  ZResult SetCredentials(const ZString& user, const ZString& password);
  ZResult SetOptions(const ZTransferOptions& options);
  ZResult Attach(Observer* observer);
  ZResult Detach(Observer* observer);
  void Notify(int event, long value);
  ZResult GetHeader(ZString& header) const;
  ZResult GetCause(ZString& text) const;
  [[nodiscard]] long GetHttpStatus() const;
  ZResult GetEffectiveUrl(ZString& url) const;
  [[nodiscard]] long long GetModificationTime() const;
  ZResult GetValidator(ZString& validator) const;

  TransferSettings m_settings;
  Outcome m_outcome;
  Request m_request;

 private:
  template <class Steps>
  ZResult RunOperation(Steps steps);

  void DownloadSteps(const ZString& url, ZString& result);
  void SinkSteps(const ZString& url, ZTransferSink& sink);
  void ResumedSinkSteps(const ZString& url, ZTransferSink& sink, unsigned long long offset);
  void DownloadFileSteps(const ZString& url, const ZString& fileName, bool resume);
  void FetchFile(const ZString& url, OpenFile& file);
  void ContinueFile(const ZString& url, OpenFile& file, ResumedFile& resumed);
  void FinishFile(OpenFile& file, ZResult finished);
  RequestedPart::End FinishPart(const RequestedPart& part);
  void FailAs(CURLcode code, const ZString& text);
  void RefuseFile(const ZString& url);
  void RefusePage(const ZString& url);
  void PostDataSteps(const ZString& url, const ZString& data, ZString* result);
  void PostFileSteps(const ZString& url, const ZString& inputFile, const ZString& outputFile);
  ZResult Post(const ZString& url, long size);

  // The transfer procedure.
  ZResult Transfer(const ZString& url, bool post);
  bool Prepare(const ZString& url);
  void TakeResult(CURLcode result);
  [[nodiscard]] ZString TextOfFailure(CURLcode result) const;
  [[nodiscard]] AnswerSource Source() const;
  [[nodiscard]] std::shared_ptr<const OutcomeSnapshot> ToldAnswer() const;
  bool SetRequestOptions();
  bool SetHeaderOptions(const ZString& scheme);
  bool SetTimeLimits();
  bool SetAuthentication(const ZString& scheme);
  bool SetAdditions();
  bool SetRedirects();
  bool SetProgress();
  bool SetTrace();
  bool SetRequestHeaders();
  void KeepRedirectsSecure(std::string_view line);
  ZResult ApplyExtraHttpsSettings();
  ZResult ApplyCaPath(const wchar_t* message, CURLoption option, const OwnedCString& path);
  template <class Value>
  bool SetOption(const char* who, CURLoption option, Value value);
  template <class Value>
  CURLcode SetEasyOption(CURLoption option, Value value);

  // Called by libcurl, whose frames no exception may cross.
  static std::size_t WriteCallback(void* data, std::size_t size, std::size_t count, void* object) noexcept;
  static std::size_t HeaderCallback(void* data, std::size_t size, std::size_t count, void* object) noexcept;
  static int ProgressCallback(void* object, curl_off_t toReceive, curl_off_t received, curl_off_t toSend,
                              curl_off_t sent) noexcept;
  static int DebugCallback(CURL* handle, curl_infotype type, char* data, std::size_t size, void* object) noexcept;
  template <class Receive>
  std::size_t CatchAll(std::size_t total, Receive receive) noexcept;
  std::size_t ReceiveBody(const char* data, std::size_t total);
  std::size_t ReceiveHeader(const char* data, std::size_t total);
  void NotifyFirstData();
  void ExtendTimeLimit(unsigned long slackSeconds);
  void RepeatAbort(CURLoption limit);
  template <class Tell>
  void Trace(Tell tell) noexcept;
  void FinishTrace() noexcept;
  void RethrowFromTrace();

  bool CheckHeader() { return m_request.IsAnswerAcceptable(); }
  void SetResult(ZString& result);
  void UpdateContentSize();

  // Results.
  bool HasHandle();
  ZResult FailOption(const char* who, CURLcode result, CURLoption option);
  void FailWithReason(ZResult reason);
  bool IsRepresentable(const char* localName, const ZString& name, const wchar_t* message);
};

// The bracket of an operation: its beginning fails when another one has begun since the caller looked.
template <>
bool ZGuardImpl<ZTransfer::ZTransferImpl>::ZDoLock(ZTransfer::ZTransferImpl& transfer);
template <>
void ZGuardImpl<ZTransfer::ZTransferImpl>::ZDoUnlock(ZTransfer::ZTransferImpl& transfer);

// Runs `steps`, which leave their outcome in m_outcome, inside the bracket. Memory that runs out is an outcome like any other; an
// exception of the host's code leaves the object idle and goes on to the caller.
template <class Steps>
ZResult ZTransfer::ZTransferImpl::RunOperation(Steps steps) {
  if (IsRunning()) return BASE_E_IN_USE;
  const ZInitGuard<ZTransferImpl> operation(*this);
  if (!operation.IsHeld()) return BASE_E_IN_USE;
  if (!HasHandle()) return m_outcome.Code();
  try {
    steps();
    RethrowFromTrace();
  } catch (const std::bad_alloc&) {
    m_outcome.Set(TRANSFER_E_DOWNLOAD);
  }
  return m_outcome.Code();
}

template <class Value>
CURLcode ZTransfer::ZTransferImpl::SetEasyOption(CURLoption option, Value value) {
  m_request.hasOptions.store(true, std::memory_order_relaxed);
  return curl_easy_setopt(m_request.easy, option, value);
}

template <class Value>
bool ZTransfer::ZTransferImpl::SetOption(const char* who, CURLoption option, Value value) {
  const CURLcode result = SetEasyOption(option, value);
  if (result == CURLE_OK) return true;
  FailOption(who, result, option);
  return false;
}

}  // namespace Corvane
