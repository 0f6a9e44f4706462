#include <Corvane/Base/File.h>
#include <Corvane/LogLineImpl.h>
#include <Corvane/Transfer/TransferImpl.h>

namespace Corvane {

// Switches the checks on that SetSSL asked for. A directory of certificates is preferred to a file; without either the
// transfer goes ahead unverified, with a warning.
ZResult ZTransfer::ZTransferImpl::ApplyExtraHttpsSettings() {
  constexpr const char* kWho = "ApplyExtraHttpsSettings";
  if (m_settings.verifyHost) {
    if (!SetOption(kWho, CURLOPT_SSL_VERIFYHOST, 2L)) return m_outcome.Code();
    LogLine(ZLogLevel::Information, kTransferArea, [] { return ZString(L"%1: Verify Host was specified").Arg(kWho); });
  }
  if (!m_settings.verifyPeer) return BASE_S_OK;
  const ZString caDir = ZStringDecoder::FromLocal(m_settings.caDir.get());
  const ZString caFile = ZStringDecoder::FromLocal(m_settings.caFile.get());
  if (!caDir.IsEmpty() && ZFile::IsDirectory(caDir, 0, nullptr)) {
    return ApplyCaPath(L"%1: Verify Peer specified and CADir was supplied. CADir=%2", CURLOPT_CAPATH, m_settings.caDir);
  }
  if (!caFile.IsEmpty() && ZFile::Exists(caFile, 0, nullptr)) {
    return ApplyCaPath(L"%1: Verify Peer specified and CAFile was supplied. CAFile=%2", CURLOPT_CAINFO,
                       m_settings.caFile);
  }
  LogLine(ZLogLevel::Warning, kTransferArea, [&] {
    return ZString(L"%1: Verify Peer specified, but neither CAFile or CADir supplied. CAFile=%2 CADir=%3")
        .Arg(kWho)
        .Arg(caFile)
        .Arg(caDir);
  });
  return BASE_S_OK;
}

ZResult ZTransfer::ZTransferImpl::ApplyCaPath(const wchar_t* message, CURLoption option, const OwnedCString& path) {
  constexpr const char* kWho = "ApplyExtraHttpsSettings";
  LogLine(ZLogLevel::Information, kTransferArea,
          [&] { return ZString(message).Arg(kWho).Arg(ZStringDecoder::FromLocal(path.get())); });
  if (!SetOption(kWho, CURLOPT_SSL_VERIFYPEER, 1L)) return m_outcome.Code();
  if (!SetOption(kWho, option, path.get())) return m_outcome.Code();
  return BASE_S_OK;
}

}  // namespace Corvane
