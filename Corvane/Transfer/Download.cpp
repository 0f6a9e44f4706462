#include <cstdint>

#include <Corvane/Base/ErrorDict.h>
#include <Corvane/Transfer/TransferImpl.h>

// Downloads into memory.

namespace Corvane {

ZResult ZTransfer::ZTransferImpl::Download(const ZString& url, ZString& result) {
  return RunOperation([&] { DownloadSteps(url, result); });
}

void ZTransfer::ZTransferImpl::DownloadSteps(const ZString& url, ZString& result) {
  Transfer(url, false);
  if (!m_outcome.IsFailed() && m_settings.detectHttpError && !CheckHeader()) {
    m_outcome.Set(TRANSFER_E_CONNECT, ZGetErrorMsg(TRANSFER_E_CONNECT) + L", " + url);
  }
  SetResult(result);  // also after a failure: what was received may be an error page that tells more
}

void ZTransfer::ZTransferImpl::SetResult(ZString& result) {
  const auto length = static_cast<std::uint32_t>(m_request.downloadSize);
  const ZResult read = m_request.memory.Read(result, length);
  if (read != BASE_S_OK) FailWithReason(read);
}

void ZTransfer::ZTransferImpl::FailWithReason(ZResult reason) {
  m_outcome.Set(TRANSFER_E_DOWNLOAD, ZGetErrorMsg(TRANSFER_E_DOWNLOAD) + L": " + ZGetErrorMsg(reason));
}

}  // namespace Corvane
