#include <optional>

#include <Corvane/Base/Dir.h>
#include <Corvane/Base/ErrorDict.h>
#include <Corvane/Base/File.h>
#include <Corvane/Base/Path.h>
#include <Corvane/LogLineImpl.h>
#include <Corvane/NumberTextImpl.h>
#include <Corvane/ShownUrlImpl.h>
#include <Corvane/Transfer/ResumedFileImpl.h>
#include <Corvane/Transfer/TransferImpl.h>

// Downloads into files, afresh or resumed.

namespace Corvane {
namespace {

// What was begun afresh is removed when no good answer came, whatever ends the operation: an error page, or nothing, is no beginning of
// the file.
class FreshFile {
 public:
  explicit FreshFile(const Request& request) : m_request(request) {}
  ~FreshFile() {
    const bool isKept = m_name == nullptr || (m_request.url != nullptr && m_request.IsAnswerAcceptable());
    if (!isKept) WithoutThrowing([&] { ZFile::Remove(*m_name, 0); });
  }
  FreshFile(const FreshFile&) = delete;
  FreshFile& operator=(const FreshFile&) = delete;

  void IsOpenAs(const ZString& name) { m_name = &name; }

 private:
  const Request& m_request;
  const ZString* m_name = nullptr;
};

}  // namespace

ZResult ZTransfer::ZTransferImpl::DownloadFile(const ZString& url, const ZString& fileName, bool resume) {
  return RunOperation([&] { DownloadFileSteps(url, fileName, resume); });
}

void ZTransfer::ZTransferImpl::DownloadFileSteps(const ZString& url, const ZString& fileName, bool resume) {
  const ZStringEncoder localName(fileName, ZStringEncoder::Local);
  if (!IsRepresentable(localName.CStr(), fileName, L"%1: Output file name '%2' contains invalid characters")) return;
  ZDir::CreateR(ZPath::GetDirectory(fileName));
  unsigned long long size = 0;
  ZFile::GetSize(fileName, size);

  FreshFile fresh(m_request);
  OpenFile file;  // closed before it is removed
  ZResult opened = BASE_S_OK;
  std::optional<ResumedFile> resumed;
  if (resume && ResumedFile::IsResumable(size) && (opened = file.Open(localName.CStr(), "r+")) == BASE_S_OK) {
    resumed.emplace(file, size);
    LogLine(ZLogLevel::Information, kTransferArea, [&] {
      return ZString(L"%1: Resuming file \"%2\" at position %3")
          .Arg(L"DownloadFile")
          .Arg(fileName)
          .Arg(UnsignedNumber(resumed->Position()));
    });
  } else {
    opened = file.Open(localName.CStr(), "w");
    if (file.IsOpen()) fresh.IsOpenAs(fileName);
  }
  // Almost always the request replaces the code at once, and nobody asks for the text.
  m_outcome.SetLater(TRANSFER_E_DOWNLOAD, [fileName, opened] {
    return ZString(L"Failed to open output file %1: %2").Arg(fileName).Arg(ZGetErrorMsg(opened));
  });
  if (!file.IsOpen()) return;
  if (resumed && m_settings.additions.checkResume) {
    // A file that cannot be compared ends here: without a request there is no answer to look at.
    const ZResult checked = resumed->Check(m_settings.additions.validator);
    if (checked != BASE_S_OK) return FailWithReason(checked);
  }

  if (resumed) {
    ContinueFile(url, file, *resumed);
  } else {
    FetchFile(url, file);
  }
  if (!CheckHeader()) RefuseFile(url);
}

void ZTransfer::ZTransferImpl::FetchFile(const ZString& url, OpenFile& file) {
  FileBody body(file);
  const Destination destination(m_request, body);
  Transfer(url, false);
  FinishFile(file, BASE_S_OK);
}

void ZTransfer::ZTransferImpl::ContinueFile(const ZString& url, OpenFile& file, ResumedFile& resumed) {
  const Destination destination(m_request, resumed);
  Transfer(url, false);
  ZResult finished = BASE_S_OK;
  if (CheckHeader()) {
    const RequestedPart::End end = FinishPart(resumed.Part());
    if (!m_outcome.IsFailed()) finished = resumed.CutStaleTail(end);
  }
  FinishFile(file, finished);
}

// Fails when what came with an acceptable answer is not the rest of what is there already.
RequestedPart::End ZTransfer::ZTransferImpl::FinishPart(const RequestedPart& part) {
  RequestedPart::End end;
  end.answer = {m_request.IsHttp(), true, m_request.header, Source().fileVersion};
  end.code = m_outcome.Code();
  end.hasContent = m_request.contentSizeKnown;
  if (!IsFailure(end.code) && !end.hasContent) end.contentLength = m_request.Info(kContentLength, 0.0);
  if (const auto refusal = part.Refuse(end)) FailAs(refusal->code, refusal->text);
  return end;
}

// Data that did not reach the disk is never a success. `finished` is what became of the steps before the file is closed.
void ZTransfer::ZTransferImpl::FinishFile(OpenFile& file, ZResult finished) {
  const ZResult closed = file.Close();
  const ZResult failure = finished == BASE_S_OK ? closed : finished;
  if (failure != BASE_S_OK && !m_outcome.IsFailed()) FailWithReason(failure);
}

bool ZTransfer::ZTransferImpl::IsRepresentable(const char* localName, const ZString& name, const wchar_t* message) {
  if (name.IsEmpty() || (localName != nullptr && *localName != '\0')) return true;
  m_outcome.Set(TRANSFER_E_DOWNLOAD, ZString(message).Arg(ZGetErrorMsg(TRANSFER_E_DOWNLOAD)).Arg(name));
  return false;
}

// A failure that libcurl would report if it saw it.
void ZTransfer::ZTransferImpl::FailAs(CURLcode code, const ZString& text) {
  m_outcome.Set(CodeOf(code), text);
  m_outcome.SetCause(CodeOf(code), text);
}

// No good answer came.
void ZTransfer::ZTransferImpl::RefuseFile(const ZString& url) {
  const ZString header = ZStringDecoder::FromUtf8(m_request.header.data(), m_request.header.size());
  m_outcome.Set(TRANSFER_E_CONNECT, ZGetErrorMsg(TRANSFER_E_CONNECT) + L", " + ShownUrl(url) + L"\n" + header);
}

}  // namespace Corvane
