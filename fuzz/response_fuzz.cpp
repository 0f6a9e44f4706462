// A download, with everything that a server sends from the first byte of its answer on. The first line of the input says how it is
// downloaded: "t" as a text, "s" into a sink, "p" into a sink from byte 4 on, "f" into a file, "r" into a file of 100 bytes that is
// continued. The rest is what comes, before the server closes. Whatever it is:
//   - the operation ends by itself, with a status that is the returned code;
//   - a success has as many bytes as were counted, no more than were announced, and comes from an answer in 200 to 299;
//   - what is continued keeps its beginning;
//   - the object downloads something else afterwards.

#include "fuzz/Downloads.h"
#include "fuzz/Input.h"
#include "fuzz/ScriptedSocket.h"

namespace {

using namespace CorvaneFuzz;
using Corvane::ZString;

void RequireUsable(Corvane::ZTransfer& transfer) {
  SetAnswer("HTTP/1.1 200 OK\r\nContent-Length: 4\r\n\r\nfine");
  ZString text;
  const Corvane::ZResult code = transfer.Download(L"http://127.0.0.2/", text);
  Require(code == Corvane::TRANSFER_S_FINISHED && text == L"fine", "the object can be used again");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string_view rest = BytesOf(data, std::min<std::size_t>(size, 65536));
  const std::string_view way = TakeLine(rest);
  SetAnswer(rest);
  Corvane::ZTransfer transfer;
  transfer.SetTimeout(60);
  const Outcome outcome = Download(transfer, way.empty() ? 't' : way[0], L"http://127.0.0.1/");
  Require(transfer.GetStatus() == outcome.code, "the status is the code");
  Require(outcome.code != (Corvane::TRANSFER_E_CURL_BASE | 28U), "the operation ends by itself");
  ZString header;
  Require(transfer.GetHeader(header) == 0 && (header.IsEmpty() || header.StartsWith(L"HTTP/", true)),
          "a header begins so");
  if (!Corvane::IsFailure(outcome.code)) {
    Require(outcome.code == Corvane::TRANSFER_S_FINISHED, "there is one success");
    // libcurl does not count the bytes before a place at which the chunked coding breaks, although it hands them on.
    Require(transfer.GetTransferSize() >= outcome.received, "what came was counted");
    Require(transfer.GetDownloadSize() == outcome.offset + outcome.received, "every byte is counted");
    Require(transfer.GetDownloadSize() <= transfer.GetContentSize(), "no more comes than was announced");
    const long status = transfer.GetHttpStatus();
    Require(outcome.isText || (status >= 200 && status <= 299), "the answer is a success");
  }
  RequireUsable(transfer);
  return 0;
}
