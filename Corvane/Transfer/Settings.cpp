#include <algorithm>
#include <vector>

#include <Corvane/Transfer/TransferImpl.h>

namespace Corvane {

ZTransfer::ZTransferImpl::ZTransferImpl() { Reset(); }

// What libcurl was handed goes in this order.
ZTransfer::ZTransferImpl::~ZTransferImpl() {
  m_settings.caFile.reset();
  m_settings.caDir.reset();
  m_request.url.reset();
  m_settings.credentials.reset();
  m_request.postData.reset();
}

ZResult ZTransfer::ZTransferImpl::SetSSL(bool verifyHost, bool verifyPeer, const ZString& caFile,
                                         const ZString& caDir) {
  if (IsRunning()) return BASE_E_BUSY;
  m_settings.caFile.reset();
  m_settings.caDir.reset();
  m_settings.verifyHost = verifyHost;
  m_settings.verifyPeer = verifyPeer;
  m_settings.caFile = DuplicateLocal(caFile);
  m_settings.caDir = DuplicateLocal(caDir);
  return BASE_S_OK;
}

ZResult ZTransfer::ZTransferImpl::SetCredentials(const ZString& user, const ZString& password) {
  if (IsRunning()) return BASE_E_BUSY;
  m_settings.credentials.reset();
  if (!user.IsEmpty()) m_settings.credentials = DuplicateUtf8(user + L":" + password);
  return BASE_S_OK;
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
  header = m_outcome.Snapshot()->header;
  return BASE_S_OK;
}

ZResult ZTransfer::ZTransferImpl::GetCause(ZString& text) const {
  if (IsRunning()) return BASE_E_BUSY;
  const auto outcome = m_outcome.Snapshot();
  text = outcome->causeText;
  return outcome->cause;
}

}  // namespace Corvane
