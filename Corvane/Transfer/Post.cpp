#include <cstring>
#include <optional>

#include <Corvane/Base/ErrorDict.h>
#include <Corvane/Base/File.h>
#include <Corvane/LogLineImpl.h>
#include <Corvane/ShownUrlImpl.h>
#include <Corvane/Throttle.h>
#include <Corvane/Transfer/ProcessSetupImpl.h>
#include <Corvane/Transfer/TransferImpl.h>

namespace Corvane {
namespace {

constexpr unsigned long kWithoutLimit = 0xFFFFFFFF;  // milliseconds

// The fields as a body, without any escaping.
ZString FormOf(const ZMap<ZString, ZString, ZLtstr>& fields) {
  ZString body;
  for (const auto& [name, value] : fields) {
    if (!body.IsEmpty()) body.Append(L'&');
    body.Append(name).Append(L'=').Append(value);
  }
  return body;
}

}  // namespace

// The bodies are built inside the bracket, so that memory that runs out there is an outcome too.
ZResult ZTransfer::ZTransferImpl::Post(const ZString& url, const ZString& name, const ZString& value, ZString* result) {
  return RunOperation([&] { PostDataSteps(url, FormOf({{name, value}}), result); });
}

ZResult ZTransfer::ZTransferImpl::Post(const ZString& url, const ZMap<ZString, ZString, ZLtstr>& fields,
                                       ZString* result) {
  return RunOperation([&] { PostDataSteps(url, FormOf(fields), result); });
}

// Unlike the other operations this one is not refused while another one runs: it takes its turn after it. On the thread that
// runs the other one, that is in an observer, there is no such turn.
ZResult ZTransfer::ZTransferImpl::PostData(const ZString& url, const ZString& data, ZString* result) {
  for (;;) {
    const ZResult posted = RunOperation([&] { PostDataSteps(url, data, result); });
    if (posted != BASE_E_IN_USE || IsOnItsThread()) return posted;
    WaitUntilIdle(kWithoutLimit);
  }
}

void ZTransfer::ZTransferImpl::PostDataSteps(const ZString& url, const ZString& data, ZString* result) {
  m_request.postData = DuplicateUtf8(data);
  // libcurl measures the string itself, so that what it sends and what the throttle is charged with agree.
  if (!SetOption("PostData", CURLOPT_POSTFIELDS, m_request.postData.get())) return;
  Post(url, static_cast<long>(std::strlen(m_request.postData.get())));
  if (result != nullptr) SetResult(*result);
}

ZResult ZTransfer::ZTransferImpl::PostFile(const ZString& url, const ZString& inputFile, const ZString& outputFile) {
  return RunOperation([&] { PostFileSteps(url, inputFile, outputFile); });
}

void ZTransfer::ZTransferImpl::PostFileSteps(const ZString& url, const ZString& inputFile, const ZString& outputFile) {
  const ZStringEncoder localInput(inputFile, ZStringEncoder::Local);
  const ZStringEncoder localOutput(outputFile, ZStringEncoder::Local);
  if (!IsRepresentable(localInput.CStr(), inputFile, L"%1: Input file name '%2' contains invalid characters")) return;
  if (!IsRepresentable(localOutput.CStr(), outputFile, L"%1: Output file name '%2' contains invalid characters"))
    return;
  const auto failOpen = [&](const wchar_t* text, const ZString& name, ZResult opened) {
    LogLine(ZLogLevel::Error, kTransferArea,
            [&] { return ZString(L"%1: Unable to open file for posting file:%2").Arg(L"PostFile").Arg(name); });
    m_outcome.Set(TRANSFER_E_DOWNLOAD, ZString(text).Arg(name).Arg(ZGetErrorMsg(opened)));
  };

  OpenFile input;
  OpenFile output;
  const ZResult inputOpened = input.Open(localInput.CStr(), "r");
  if (inputOpened != BASE_S_OK) return failOpen(L"Failed to open input file %1: %2", inputFile, inputOpened);
  if (!outputFile.IsEmpty()) {
    const ZResult outputOpened = output.Open(localOutput.CStr(), "w");
    if (outputOpened != BASE_S_OK) return failOpen(L"Failed to open output file %1: %2", outputFile, outputOpened);
  }

  FileBody body(output);
  std::optional<Destination> destination;
  if (output.IsOpen()) destination.emplace(m_request, body);
  unsigned long long size = 0;
  ZFile::GetSize(inputFile, size);
  if (!SetOption("PostFile", CURLOPT_READDATA, input.Get())) return;
  if (!SetOption("PostFile", CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(size))) return;
  Post(url, static_cast<long>(size));
  input.Close();
  FinishFile(output, BASE_S_OK);
}

// The step that all posts share; `size` is the number of body bytes, with which the throttle is charged.
ZResult ZTransfer::ZTransferImpl::Post(const ZString& url, long size) {
  if (!SetOption("Post", CURLOPT_POST, 1L)) return m_outcome.Code();
  Transfer(url, true);
  if (m_settings.useThrottling) sm_Throttling().Throttle(static_cast<unsigned int>(size));
  if (m_outcome.IsFailed() || CheckHeader()) return m_outcome.Code();
  m_outcome.Set(TRANSFER_E_POST, ZGetErrorMsg(TRANSFER_E_POST) + L", " + ShownUrl(url));
  return m_outcome.Code();
}

}  // namespace Corvane
