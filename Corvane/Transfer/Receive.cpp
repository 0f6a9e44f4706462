#include <exception>
#include <new>

#include <Corvane/Throttle.h>
#include <Corvane/Transfer/ProcessSetupImpl.h>
#include <Corvane/Transfer/TransferImpl.h>

// What libcurl calls while a request runs: for each header line, and for each block of the body.

namespace Corvane {
namespace {

// libcurl limits a header line and the interim answers, but not the trailers that may come after a body.
constexpr std::size_t kMostHeaderBytes = std::size_t{16} << 20;

}  // namespace

std::size_t ZTransfer::ZTransferImpl::WriteCallback(void* data, std::size_t size, std::size_t count,
                                                    void* object) noexcept {
  auto* const self = static_cast<ZTransferImpl*>(object);
  const std::size_t total = size * count;
  return self->CatchAll(total, [=] { return self->ReceiveBody(static_cast<const char*>(data), total); });
}

std::size_t ZTransfer::ZTransferImpl::HeaderCallback(void* data, std::size_t size, std::size_t count,
                                                     void* object) noexcept {
  auto* const self = static_cast<ZTransferImpl*>(object);
  const std::size_t total = size * count;
  return self->CatchAll(total, [=] { return self->ReceiveHeader(static_cast<const char*>(data), total); });
}

// No exception may cross libcurl's frames. Memory that ran out counts as a short write; an exception of the host's code is
// kept until libcurl has returned.
template <class Receive>
std::size_t ZTransfer::ZTransferImpl::CatchAll(std::size_t total, Receive receive) noexcept {
  const std::size_t refused = total == 0 ? 1 : 0;  // anything but `total` ends the transfer
  try {
    return receive();
  } catch (const std::bad_alloc&) {
    return refused;
  } catch (...) {
    m_request.exception = std::current_exception();
    return refused;
  }
}

std::size_t ZTransfer::ZTransferImpl::ReceiveBody(const char* data, std::size_t total) {
  if (IsAborted()) {
    m_outcome.Set(TRANSFER_E_ABORTED);
    return 0;
  }
  if (!m_request.contentSizeKnown) {
    UpdateContentSize();
    m_request.contentSizeKnown = true;
    Body& body = *m_request.body;
    if (body.WantsAnswer()) {
      const AnswerSource source = Source();
      body.Judge({m_request.IsHttp(), CheckHeader(), m_request.header, source.fileVersion, source.httpStatus});
    }
  }
  if (!m_settings.observers.empty() && !m_request.isFirstDataNotified && total != 0) NotifyFirstData();

  const std::size_t written = m_request.body->Write(data, total);
  const std::size_t accepted = written >= total ? total : 0;
  m_request.downloadSize += written;
  m_request.UpdateTransferTime();
  m_request.UpdateTransferSize();
  // Each block moves the overall limit, so that it acts as a limit on inactivity. The ten seconds more hold only while
  // the throttle does not set the limit again after its sleep.
  ExtendTimeLimit(10);
  if (!m_settings.useThrottling) return accepted;

  sm_Throttling().Throttle(static_cast<unsigned int>(written));
  m_request.UpdateTransferTime();
  m_request.UpdateTransferSize();
  ExtendTimeLimit(0);
  return accepted;
}

std::size_t ZTransfer::ZTransferImpl::ReceiveHeader(const char* data, std::size_t total) {
  if (IsAborted()) {
    m_outcome.Set(TRANSFER_E_ABORTED);
    return 0;
  }
  if (total > kMostHeaderBytes - m_request.header.size()) {
    m_request.isHeaderTooLong = true;
    return 0;
  }
  m_request.header.append(data, total);
  KeepRedirectsSecure({data, total});
  return total;
}

void ZTransfer::ZTransferImpl::NotifyFirstData() {
  const ZResult value = CheckHeader() ? TRANSFER_E_IN_PROGRESS : TRANSFER_E_CONNECT;
  Notify(1, static_cast<long>(value));
  m_request.isFirstDataNotified = true;
}

// Counted from the beginning on a clock that never goes back, as libcurl counts: a host's clock that is set ends no transfer.
void ZTransfer::ZTransferImpl::ExtendTimeLimit(unsigned long slackSeconds) {
  const unsigned long timeout = m_settings.timeout;
  // A limit that cannot be moved stays where it is.
  SetEasyOption(CURLOPT_TIMEOUT, timeout == 0 ? 0 : LimitOf(timeout, m_request.ElapsedSeconds() + slackSeconds));
  RepeatAbort(CURLOPT_TIMEOUT);
}

// An abort on another thread raises its flag and then shortens the limits. Whoever writes a limit looks at the flag afterwards.
void ZTransfer::ZTransferImpl::RepeatAbort(CURLoption limit) {
  if (IsAbortedAfterWrites()) SetEasyOption(limit, 1L);
}

void ZTransfer::ZTransferImpl::UpdateContentSize() {
  if (m_outcome.Code() == TRANSFER_S_FINISHED) {
    m_request.ReadContentSize();
  } else {
    m_request.contentSize = 0;
  }
}

}  // namespace Corvane
