#include <algorithm>
#include <cerrno>
#include <memory>
#include <new>
#include <utility>
#include <vector>

#include <Corvane/ShownUrlImpl.h>
#include <Corvane/Transfer/AnswerHeaderImpl.h>
#include <Corvane/Transfer/TransferImpl.h>

namespace Corvane {
namespace {

// Whether a name that was given has no copy, because the local encoding cannot express it.
bool IsLost(const ZString& name, const OwnedCString& copy) {
  return !name.IsEmpty() && (copy == nullptr || *copy == '\0');
}

// What `store` returns, or the code of memory that ran out in it.
template <class Store>
ZResult WithoutMemoryException(Store store) {
  try {
    return store();
  } catch (const std::bad_alloc&) {
    return ResultFromErrno(ENOMEM);
  }
}

}  // namespace

ZTransfer::ZTransferImpl::ZTransferImpl() { Reset(); }

// What libcurl was handed goes in this order.
ZTransfer::ZTransferImpl::~ZTransferImpl() {
  m_settings.caFile.reset();
  m_settings.caDir.reset();
  m_request.url.reset();
  m_settings.credentials.reset();
  m_request.postData.reset();
}

// The copies are made before anything changes: an object that verifies a server never stops to because a setting failed.
ZResult ZTransfer::ZTransferImpl::SetSSL(bool verifyHost, bool verifyPeer, const ZString& caFile,
                                         const ZString& caDir) {
  if (IsRunning()) return BASE_E_BUSY;
  return WithoutMemoryException([&] {
    OwnedCString file = DuplicateLocal(caFile);
    OwnedCString dir = DuplicateLocal(caDir);
    if (IsLost(caFile, file) || IsLost(caDir, dir)) return BASE_E_INVALID_NAME;
    m_settings.caFile = std::move(file);
    m_settings.caDir = std::move(dir);
    m_settings.verifyHost = verifyHost;
    m_settings.verifyPeer = verifyPeer;
    return BASE_S_OK;
  });
}

ZResult ZTransfer::ZTransferImpl::SetCredentials(const ZString& user, const ZString& password) {
  if (IsRunning()) return BASE_E_BUSY;
  return WithoutMemoryException([&] {
    OwnedCString credentials = user.IsEmpty() ? nullptr : DuplicateUtf8(user + L":" + password);
    m_settings.credentials = std::move(credentials);
    return BASE_S_OK;
  });
}

ZResult ZTransfer::ZTransferImpl::Attach(Observer* observer) {
  if (IsRunning() || observer == nullptr) return BASE_E_BUSY;
  std::vector<Observer*>& observers = m_settings.observers;
  if (std::find(observers.begin(), observers.end(), observer) == observers.end()) observers.push_back(observer);
  return BASE_S_OK;
}

ZResult ZTransfer::ZTransferImpl::Detach(Observer* observer) {
  if (IsRunning()) return BASE_E_BUSY;
  std::vector<Observer*>& observers = m_settings.observers;
  observers.erase(std::remove(observers.begin(), observers.end(), observer), observers.end());
  return BASE_S_OK;
}

// Without a running operation an observer may attach and detach here. So a copy is walked, and whoever is not attached any
// more is not called: it may be gone.
void ZTransfer::ZTransferImpl::Notify(int event, long value) {
  const std::vector<Observer*>& current = m_settings.observers;
  const std::vector<Observer*> observers = current;
  for (Observer* const observer : observers) {
    const bool attached = std::find(current.begin(), current.end(), observer) != current.end();
    if (attached) observer->Update(event, value);
  }
}

ZResult ZTransfer::ZTransferImpl::GetHeader(ZString& header) const {
  if (IsRunning()) return BASE_E_BUSY;
  const auto outcome = m_outcome.Snapshot();
  header = ZStringDecoder::FromUtf8(outcome->header.data(), outcome->header.size());
  return BASE_S_OK;
}

// The answer that the getters below tell of: that of the last operation; while one runs, the one that is just coming in, which only
// the thread that receives it may look at. Null for other threads.
std::shared_ptr<const OutcomeSnapshot> ZTransfer::ZTransferImpl::ToldAnswer() const {
  if (!IsRunning()) return m_outcome.Snapshot();
  if (!IsOnItsThread()) return nullptr;
  auto coming = std::make_shared<OutcomeSnapshot>();
  coming->header = m_request.header;
  coming->source = Source();
  return coming;
}

// A status line that is none by the book may still be one to libcurl, and decides. What a proxy refused has only the lines.
long ZTransfer::ZTransferImpl::GetHttpStatus() const {
  const auto answer = ToldAnswer();
  if (answer == nullptr) return 0;
  return answer->source.httpStatus != 0 ? answer->source.httpStatus : StatusOf(answer->header);
}

ZResult ZTransfer::ZTransferImpl::GetEffectiveUrl(ZString& url) const {
  const auto answer = ToldAnswer();
  if (answer == nullptr) return BASE_E_BUSY;
  url = ShownUrl(ZStringDecoder::FromUtf8(answer->source.effectiveUrl.c_str()));
  return BASE_S_OK;
}

long long ZTransfer::ZTransferImpl::GetModificationTime() const {
  const auto answer = ToldAnswer();
  if (answer == nullptr) return -1;
  const auto field = FieldOf(answer->header, "Last-Modified");
  return field ? static_cast<long long>(curl_getdate(std::string(*field).c_str(), nullptr)) : answer->source.fileTime;
}

ZResult ZTransfer::ZTransferImpl::GetValidator(ZString& validator) const {
  const auto answer = ToldAnswer();
  if (answer == nullptr) return BASE_E_BUSY;
  const std::string& fileVersion = answer->source.fileVersion;
  validator = ZStringDecoder::FromUtf8((fileVersion.empty() ? ValidatorOf(answer->header) : fileVersion).c_str());
  return BASE_S_OK;
}

ZResult ZTransfer::ZTransferImpl::GetCause(ZString& text) const {
  if (IsRunning()) return BASE_E_BUSY;
  const auto outcome = m_outcome.Snapshot();
  text = outcome->causeText;
  return outcome->cause;
}

}  // namespace Corvane
