#include <utility>

#include <Corvane/Base/ErrorDict.h>
#include <Corvane/LogLineImpl.h>
#include <Corvane/NumberTextImpl.h>
#include <Corvane/Transfer/AnswerHeaderImpl.h>
#include <Corvane/Transfer/TransferImpl.h>

namespace Corvane {
namespace {

// The part of a URL that tells its scheme, in lower case.
ZString SchemeOf(const ZString& url) { return url.Substr(0, 5).Lower(); }

}  // namespace

// One request, without any retry, in three steps: what libcurl needs, the request itself, and what became of it.
ZResult ZTransfer::ZTransferImpl::Transfer(const ZString& url, bool /*post*/) {
  if (!Prepare(url)) return m_outcome.Code();
  m_request.LetGoOfOtherPeer(m_settings.credentials.get());
  m_request.RememberPeer(m_settings.credentials.get());
  const CURLcode result = curl_easy_perform(m_request.easy);
  m_request.LetGoOfLostConnection();
  FinishTrace();
  TakeResult(result);
  if (m_request.exception != nullptr) std::rethrow_exception(std::exchange(m_request.exception, nullptr));
  return m_outcome.Code();
}

// The options are set in a fixed order; the first that libcurl refuses ends the procedure before a request is made.
bool ZTransfer::ZTransferImpl::Prepare(const ZString& url) {
  m_outcome.SetCode(TRANSFER_S_FINISHED);
  m_request.url = DuplicateUtf8(url);
  const ZString scheme = SchemeOf(url);
  if (!SetRequestOptions()) return false;
  if (scheme.StartsWith(L"http") && !SetHeaderOptions(scheme)) return false;
  if (!SetTimeLimits()) return false;
  if (m_settings.credentials != nullptr && !SetAuthentication(scheme)) return false;
  return SetAdditions();
}

ZResult ZTransfer::ZTransferImpl::FailOption(const char* who, CURLcode result, CURLoption option) {
  m_outcome.Set(CodeOf(result), ZGetErrorMsg(TRANSFER_E_DOWNLOAD));
  LogLine(ZLogLevel::Error, kTransferArea, [&] {
    return ZString(L"%1: CURL failure %2 on option %3...").Arg(who).Arg(Number(result)).Arg(Number(option));
  });
  return CodeOf(result);
}

bool ZTransfer::ZTransferImpl::SetRequestOptions() {
  constexpr const char* kWho = "Transfer";
  if (!SetOption(kWho, CURLOPT_URL, m_request.url.get())) return false;
  if (!SetOption(kWho, CURLOPT_NOPROGRESS, 1L)) return false;
  if (!SetOption(kWho, CURLOPT_NOSIGNAL, 1L)) return false;  // the library runs on the host's threads
  // Verification is switched on again from the stored settings, for https only.
  if (!SetOption(kWho, CURLOPT_SSL_VERIFYPEER, 0L)) return false;
  if (!SetOption(kWho, CURLOPT_SSL_VERIFYHOST, 0L)) return false;
  if (!SetOption(kWho, CURLOPT_WRITEFUNCTION, &WriteCallback)) return false;
  if (!SetOption(kWho, CURLOPT_WRITEDATA, this)) return false;
  const unsigned long long position = m_request.body->Position();
  if (!SetOption(kWho, CURLOPT_RESUME_FROM_LARGE, static_cast<curl_off_t>(position))) return false;
  m_request.downloadSize = position;
  return SetOption(kWho, CURLOPT_ERRORBUFFER, &m_request.errorText[0]);
}

bool ZTransfer::ZTransferImpl::SetHeaderOptions(const ZString& scheme) {
  if (!SetOption("Transfer", CURLOPT_HEADERFUNCTION, &HeaderCallback)) return false;
  if (!SetOption("Transfer", CURLOPT_HEADERDATA, this)) return false;
  return !scheme.StartsWith(L"https") || !IsFailure(ApplyExtraHttpsSettings());
}

bool ZTransfer::ZTransferImpl::SetTimeLimits() {
  const long timeout = LimitOf(m_settings.timeout, 0);
  if (!SetOption("Transfer", CURLOPT_TIMEOUT, timeout)) return false;
  RepeatAbort(CURLOPT_TIMEOUT);
  if (!SetOption("Transfer", CURLOPT_CONNECTTIMEOUT, timeout)) return false;
  RepeatAbort(CURLOPT_CONNECTTIMEOUT);
  return true;
}

// Basic authentication sends the password in the clear, so it is allowed only over TLS.
bool ZTransfer::ZTransferImpl::SetAuthentication(const ZString& scheme) {
  const char* const stored = m_settings.credentials.get();
  LogLine(ZLogLevel::Information, kTransferArea, [&] {
    const ZString credentials = ZStringDecoder::FromUtf8(stored);
    return ZString(L"%1: Setting curl Authentication set to \"%2:*\"")
        .Arg(L"Transfer")
        .Arg(credentials.Substr(0, credentials.Find(L':')));
  });
  if (!SetOption("Transfer", CURLOPT_USERPWD, stored)) return false;
  const bool overTls = scheme.StartsWith(L"https");
  const unsigned long methods = overTls ? CURLAUTH_NTLM | CURLAUTH_BASIC : CURLAUTH_NTLM;
  if (!SetOption("Transfer", CURLOPT_HTTPAUTH, static_cast<long>(methods))) return false;
  LogLine(ZLogLevel::Information, kTransferArea, [&] {
    return ZString(L"%1: Curl Authentication Type is %2").Arg(L"Transfer").Arg(overTls ? L"NTLM,BASIC" : L"NTLM");
  });
  return !scheme.StartsWith(L"http") || SetOption("Transfer", CURLOPT_MAXREDIRS, 10000L);
}

// libcurl's own words, but where it does not know what it is all about.
ZString ZTransfer::ZTransferImpl::TextOfFailure(CURLcode result) const {
  if (m_request.isHeaderTooLong) return L"The server sent more than 16 MiB of header lines.";
  const bool isRedirected = m_settings.additions.mostRedirects != 0 && StatusOf(m_request.header) / 100 == 3;
  if (result == CURLE_UNSUPPORTED_PROTOCOL && isRedirected) {
    return L"The server redirects to an address that is not followed: only http and https are, and never from https to "
           L"http.";
  }
  return ZString(&m_request.errorText[0]);
}

// Turns libcurl's result into code and text.
void ZTransfer::ZTransferImpl::TakeResult(CURLcode result) {
  m_request.errorText[sizeof(m_request.errorText) - 1] = '\0';
  const ZResult code = result == CURLE_OK ? TRANSFER_S_FINISHED : CodeOf(result);
  // libcurl leaves text in the buffer also when a request on a broken connection was repeated with success.
  if (result == CURLE_OK) {
    m_outcome.Set(code);
    m_outcome.SetCause(code, ZString());
  } else {
    const ZString text = TextOfFailure(result);
    m_outcome.Set(code, text);
    m_outcome.SetCause(code, text);
  }
  m_outcome.SetSource(Source());
  m_request.UpdateTransferTime();
  m_request.UpdateTransferSize();
  // The two ways in which an abort ends a request: the shortened time limit, or a callback that refused its data.
  if (IsAborted() && (result == CURLE_OPERATION_TIMEDOUT || result == CURLE_WRITE_ERROR)) {
    m_outcome.Set(TRANSFER_E_ABORTED);
  }
}

}  // namespace Corvane
