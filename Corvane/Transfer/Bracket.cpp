#include <Corvane/Transfer/TransferImpl.h>

// Where an operation of the transfer object begins and ends, and what is reset before it.

namespace Corvane {

void ZTransfer::ZTransferImpl::Reset() {
  const ObjectGuard guard(*this);
  ClearFlags();
  m_request.isFirstDataNotified = false;
  m_request.exception = nullptr;
  m_request.header.clear();
  m_request.isHeaderTooLong = false;
  m_request.contentSize = 0;
  m_request.downloadSize = 0;
  m_request.transferSize = 0;
  m_request.transferRate = 0;
  m_request.contentSizeKnown = false;
  m_request.url.reset();  // whoever looks at the answer must not take it for one to the URL before
  m_request.postData.reset();
  m_request.sentBytes = 0;
  m_request.memory.Rewind();
  m_request.StartClocks();
  m_outcome.Reset();
  // No option of an earlier operation survives.
  if (m_request.easy != nullptr && m_request.hasOptions.exchange(false)) curl_easy_reset(m_request.easy);
  SignalIdle();
}

void ZTransfer::ZTransferImpl::BeginOperation() {
  Reset();
  Begin();
}

void ZTransfer::ZTransferImpl::EndOperation() {
  m_request.UpdateTransferTime();
  m_request.trace.reset();
  m_request.traceException = nullptr;
  m_outcome.SetHeader(std::move(m_request.header));
  End();
}

// An operation that another thread has started since the caller looked is refused, not run over.
template <>
bool ZGuardImpl<ZTransfer::ZTransferImpl>::ZDoLock(ZTransfer::ZTransferImpl& transfer) {
  const ObjectGuard guard(transfer);
  if (transfer.IsRunning()) return false;
  transfer.BeginOperation();
  return true;
}

template <>
void ZGuardImpl<ZTransfer::ZTransferImpl>::ZDoUnlock(ZTransfer::ZTransferImpl& transfer) {
  const ObjectGuard guard(transfer);
  transfer.EndOperation();
}

bool ZTransfer::ZTransferImpl::HasHandle() {
  if (m_request.easy != nullptr) return true;
  m_outcome.Set(TRANSFER_E_SYSTEM_INIT);
  return false;
}

bool ZTransfer::ZTransferImpl::ResetIfIdle() {
  const ObjectGuard guard(*this);
  if (IsRunning()) return false;
  Reset();
  return true;
}

}  // namespace Corvane
