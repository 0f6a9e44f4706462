#include <cstdint>
#include <limits>

#include <Corvane/Base/ErrorDict.h>
#include <Corvane/NumberTextImpl.h>
#include <Corvane/ShownUrlImpl.h>
#include <Corvane/Transfer/ResumedSinkImpl.h>
#include <Corvane/Transfer/TransferImpl.h>

// Downloads into memory, and into objects of the host.

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
  if (!m_outcome.IsFailed() && m_settings.detectHttpError && !CheckHeader()) RefusePage(url);
  SetResult(result);  // also after a failure: what was received may be an error page that tells more
}

ZResult ZTransfer::ZTransferImpl::Download(const ZString& url, ZTransferSink& sink, unsigned long long offset) {
  return RunOperation([&] { offset == 0 ? SinkSteps(url, sink) : ResumedSinkSteps(url, sink, offset); });
}

void ZTransfer::ZTransferImpl::SinkSteps(const ZString& url, ZTransferSink& sink) {
  SinkBody body(sink, m_settings.additions.handOnErrorPages);
  const Destination destination(m_request, body);
  Transfer(url, false);
  if (!m_outcome.IsFailed() && !CheckHeader()) RefusePage(url);
}

void ZTransfer::ZTransferImpl::ResumedSinkSteps(const ZString& url, ZTransferSink& sink, unsigned long long offset) {
  if (offset > static_cast<unsigned long long>(std::numeric_limits<curl_off_t>::max())) {
    return FailAs(CURLE_RANGE_ERROR, ZString(L"No file has an offset of %1 bytes.").Arg(UnsignedNumber(offset)));
  }
  ResumedSink body(sink, offset);
  if (m_settings.additions.checkResume) body.Check(m_settings.additions.validator);
  const Destination destination(m_request, body);
  Transfer(url, false);
  if (CheckHeader()) {
    FinishPart(body.Part());
  } else if (!m_outcome.IsFailed() || m_outcome.Code() == CodeOf(CURLE_RANGE_ERROR)) {
    RefusePage(url);  // libcurl refuses the page of a refusal for not being the part
  }
}

// An answer came, but none in 200 to 299.
void ZTransfer::ZTransferImpl::RefusePage(const ZString& url) {
  m_outcome.Set(TRANSFER_E_CONNECT, ZGetErrorMsg(TRANSFER_E_CONNECT) + L", " + ShownUrl(url));
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
