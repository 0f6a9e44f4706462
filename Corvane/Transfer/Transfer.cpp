#include <Corvane/Transfer.h>

#include <limits>
#include <utility>

#include <Corvane/LogLineImpl.h>
#include <Corvane/Throttle.h>
#include <Corvane/Transfer/ProcessSetupImpl.h>
#include <Corvane/Transfer/TransferImpl.h>

namespace Corvane {

ZTransfer::ZTransfer() : m_impl(std::make_unique<ZTransferImpl>()) {
  ZThrottle& throttle = sm_Throttling();      // made here, where a failure leaves nothing to undo
  CurlGlobalInit();                           // when libcurl refuses, the operations will tell
  m_impl->m_request.easy = curl_easy_init();  // every operation checks for null
  throttle.StartTransfer();
}

ZTransfer::~ZTransfer() {
  // An abort that met an operation at its very beginning is lost; asking again once a second keeps the wait short.
  do {
    WithoutThrowing([&] { Abort(); });
  } while (!Wait(1000));
  sm_Throttling().FinishTransfer();
  m_impl->m_request.LetGoOfKeptConnection();
  if (m_impl->m_request.easy != nullptr) curl_easy_cleanup(std::exchange(m_impl->m_request.easy, nullptr));
  m_impl.reset();
  CurlGlobalCleanup();
}

void ZTransfer::FollowAbort(const std::atomic<bool>& abort) { m_impl->FollowAbort(abort); }

ZResult ZTransfer::SetTimeout(unsigned long seconds) {
  m_impl->m_settings.timeout = seconds;
  return BASE_S_OK;
}

ZResult ZTransfer::SetSSL(bool verifyHost, bool verifyPeer, const ZString& caFile, const ZString& caDir) {
  return m_impl->SetSSL(verifyHost, verifyPeer, caFile, caDir);
}

ZResult ZTransfer::SetCredentials(const ZString& user, const ZString& password) {
  return m_impl->SetCredentials(user, password);
}

ZResult ZTransfer::DetectHttpError(bool detect) {
  if (m_impl->IsRunning()) return BASE_E_BUSY;
  m_impl->m_settings.detectHttpError = detect;
  return BASE_S_OK;
}

ZResult ZTransfer::UseThrottling(bool use) {
  if (m_impl->IsRunning()) return BASE_E_BUSY;
  m_impl->m_settings.useThrottling = use;
  return BASE_S_OK;
}

ZResult ZTransfer::SetThrottling(unsigned int lowWaterMark, unsigned int limit, bool percent) {
  sm_Throttling().SetThrottling(lowWaterMark, limit, percent);
  return BASE_S_OK;
}

ZResult ZTransfer::StartMulti() {
  sm_Throttling().StartTransfer();
  return BASE_S_OK;
}

ZResult ZTransfer::FinishMulti() {
  sm_Throttling().FinishTransfer();
  return BASE_S_OK;
}

ZResult ZTransfer::SetOptions(const ZTransferOptions& options) { return m_impl->SetOptions(options); }

ZResult ZTransfer::Attach(Observer* observer) { return m_impl->Attach(observer); }
ZResult ZTransfer::Detach(Observer* observer) { return m_impl->Detach(observer); }
void ZTransfer::Notify(int event, long value) { m_impl->Notify(event, value); }
ZResult ZTransfer::GetHeader(ZString& header) const { return m_impl->GetHeader(header); }

unsigned long long ZTransfer::GetContentSize() const {
  return m_impl->m_request.contentSizeKnown ? m_impl->m_request.contentSize.load()
                                            : std::numeric_limits<unsigned long long>::max();
}

unsigned long long ZTransfer::GetDownloadSize() const { return m_impl->m_request.downloadSize; }
unsigned long long ZTransfer::GetTransferSize() const { return m_impl->m_request.transferSize; }
unsigned int ZTransfer::GetTransferRate() const { return m_impl->m_request.transferRate; }
const ZDateTime& ZTransfer::GetTransferStartTime() const { return m_impl->m_request.startTime; }

long long ZTransfer::GetTransferTime() const {
  return m_impl->IsRunning() ? 0 : m_impl->m_request.transferTime.GetTotalMicroSeconds() / 1000;
}

ZResult ZTransfer::GetStatus() const { return m_impl->m_outcome.Code(); }
const ZString& ZTransfer::GetError() const { return m_impl->m_outcome.TextForThisThread(); }
ZResult ZTransfer::GetCause(ZString& text) const { return m_impl->GetCause(text); }
long ZTransfer::GetHttpStatus() const { return m_impl->GetHttpStatus(); }
ZResult ZTransfer::GetEffectiveUrl(ZString& url) const { return m_impl->GetEffectiveUrl(url); }
long long ZTransfer::GetModificationTime() const { return m_impl->GetModificationTime(); }
ZResult ZTransfer::GetValidator(ZString& validator) const { return m_impl->GetValidator(validator); }

ZResult ZTransfer::Reset() {
  do {
    Abort();
    while (!Wait(1000)) Abort();
  } while (!m_impl->ResetIfIdle());  // another thread may have begun an operation meanwhile
  return BASE_S_OK;
}

ZResult ZTransfer::Abort() {
  m_impl->Abort();
  return BASE_S_OK;
}

bool ZTransfer::Wait(unsigned long milliseconds) { return m_impl->WaitUntilIdle(milliseconds); }

ZResult ZTransfer::Download(const ZString& url, ZTransferSink& sink) { return m_impl->Download(url, sink, 0); }

ZResult ZTransfer::Download(const ZString& url, ZTransferSink& sink, unsigned long long offset) {
  return m_impl->Download(url, sink, offset);
}

ZResult ZTransfer::Download(const ZString& url, ZString& result) { return m_impl->Download(url, result); }

ZResult ZTransfer::DownloadFile(const ZString& url, const ZString& fileName, bool resume) {
  return m_impl->DownloadFile(url, fileName, resume);
}

ZResult ZTransfer::Post(const ZString& url, const ZString& name, const ZString& value) {
  return m_impl->Post(url, name, value, nullptr);
}

ZResult ZTransfer::Post(const ZString& url, const ZString& name, const ZString& value, ZString& result) {
  return m_impl->Post(url, name, value, &result);
}

ZResult ZTransfer::Post(const ZString& url, const ZMap<ZString, ZString, ZLtstr>& fields) {
  return m_impl->Post(url, fields, nullptr);
}

ZResult ZTransfer::Post(const ZString& url, const ZMap<ZString, ZString, ZLtstr>& fields, ZString& result) {
  return m_impl->Post(url, fields, &result);
}

ZResult ZTransfer::PostData(const ZString& url, const ZString& data) { return m_impl->PostData(url, data, nullptr); }

ZResult ZTransfer::PostData(const ZString& url, const ZString& data, ZString& result) {
  return m_impl->PostData(url, data, &result);
}

ZResult ZTransfer::PostFile(const ZString& url, const ZString& inputFile) {
  return m_impl->PostFile(url, inputFile, ZString());
}

ZResult ZTransfer::PostFile(const ZString& url, const ZString& inputFile, const ZString& outputFile) {
  return m_impl->PostFile(url, inputFile, outputFile);
}

}  // namespace Corvane
