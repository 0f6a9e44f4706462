#include <Corvane/TreeDownload/FailureTextImpl.h>

#include <Corvane/NumberTextImpl.h>
#include <Corvane/ShownUrlImpl.h>
#include <Corvane/TransferErrorCodes.h>

namespace Corvane {

ZResult CodeOfFailure(const Ending& ending) {
  return ending.code == CURLE_OK ? TRANSFER_E_CONNECT : CodeOf(ending.code);
}

ZString TextOfFailure(const Ending& ending) {
  if (ending.code != CURLE_OK) return ShownUrls(ZStringDecoder::FromUtf8(ending.text.c_str()));
  if (!ending.refusedUrl.empty()) {
    return ZString(L"The server redirects to %1, which is not followed.")
        .Arg(ShownUrl(ZStringDecoder::FromUtf8(ending.refusedUrl.c_str())));
  }
  return ZString(L"The server answered %1.").Arg(Number(ending.reply.status));
}

}  // namespace Corvane
