#include <cstdint>
#include <limits>

#include <Corvane/Base/ErrorDict.h>
#include <Corvane/NumberTextImpl.h>
#include <Corvane/ShownUrlImpl.h>
#include <Corvane/Transfer/TransferImpl.h>

// Downloads into memory.

namespace Corvane {
namespace {

// Bytes. A longer body is refused as a whole: a text that is cut without a word would be taken for the body.
constexpr unsigned long long kLargestText = std::numeric_limits<std::uint32_t>::max();

}  // namespace

ZResult ZTransfer::ZTransferImpl::Download(const ZString& url, ZString& result) {
  return RunOperation([&] { DownloadSteps(url, result); });
}

void ZTransfer::ZTransferImpl::DownloadSteps(const ZString& url, ZString& result) {
  Transfer(url, false);
  if (!m_outcome.IsFailed() && m_settings.detectHttpError && !CheckHeader()) {
    m_outcome.Set(TRANSFER_E_CONNECT, ZGetErrorMsg(TRANSFER_E_CONNECT) + L", " + ShownUrl(url));
  }
  SetResult(result);  // also after a failure: what was received may be an error page that tells more
}

ZResult ZTransfer::ZTransferImpl::Download(const ZString& url, ZTransferSink& sink) {
  return RunOperation([&] { SinkSteps(url, sink); });
}

void ZTransfer::ZTransferImpl::SinkSteps(const ZString& url, ZTransferSink& sink) {
  SinkBody body(sink, m_settings.additions.handOnErrorPages);
  const Destination destination(m_request, body);
  Transfer(url, false);
  if (!m_outcome.IsFailed() && !CheckHeader()) {
    m_outcome.Set(TRANSFER_E_CONNECT, ZGetErrorMsg(TRANSFER_E_CONNECT) + L", " + ShownUrl(url));
  }
}

void ZTransfer::ZTransferImpl::SetResult(ZString& result) {
  const unsigned long long length = m_request.downloadSize;
  if (length > kLargestText) {
    result.Clear();
    m_outcome.Set(TRANSFER_E_DOWNLOAD,
                  ZGetErrorMsg(TRANSFER_E_DOWNLOAD) +
                      ZString(L": The body of %1 bytes is too large for a text. Download it into a file.")
                          .Arg(UnsignedNumber(length)));
    return;
  }
  const ZResult read = m_request.memory.Read(result, length);
  if (read != BASE_S_OK) FailWithReason(read);
}

void ZTransfer::ZTransferImpl::FailWithReason(ZResult reason) {
  m_outcome.Set(TRANSFER_E_DOWNLOAD, ZGetErrorMsg(TRANSFER_E_DOWNLOAD) + L": " + ZGetErrorMsg(reason));
}

}  // namespace Corvane
