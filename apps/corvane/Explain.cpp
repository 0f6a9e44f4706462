#include "apps/corvane/Explain.h"

#include <fmt/core.h>

#include <string_view>

#include "apps/corvane/Explain/CurlFailures.h"
#include "apps/corvane/Explain/HttpAnswer.h"
#include "apps/corvane/Explain/WriteFailure.h"
#include "apps/corvane/Text.h"

namespace CorvaneCli {
namespace {

// What a server that cannot resume needs is a file that is not there.
std::string RemedyForResume(const Circumstances& circumstances) {
  if (!circumstances.isMirror) return "run again without --resume";
  return fmt::format("remove {}, which has to be fetched from its beginning", DisplayName(circumstances.outputPath));
}

std::string RemedyForLogin(const Circumstances& circumstances) {
  if (!circumstances.hasLogin) return "give --user NAME";
  if (circumstances.isHttps) return "check the user name and the password";
  return "check the user name and the password; over plain http only NTLM is used, so that the password never travels "
         "in the clear, and an https URL allows Basic too";
}

std::string RemedyForStatus(int status, const Report& report, const Circumstances& circumstances) {
  if (status >= 300 && status < 400) {
    const std::string_view location = LastHeader(report.header, "location:");
    return location.empty() ? "redirections are not followed"
                            : fmt::format("redirections are not followed: ask for {} instead", location);
  }
  switch (status) {
    case 401:
      return RemedyForLogin(circumstances);
    case 403:
      return circumstances.hasLogin ? "use an account that may have access" : "check the path, or give --user NAME";
    case 404:
    case 410:
      return "check the path";
    case 407:
      return "put user and password of the proxy into http_proxy";
    case 408:
    case 429:
      return "wait, then try again";
    case 416:
      return "what the file holds is no beginning of what the server has: " + RemedyForResume(circumstances);
    default:
      return status >= 500 ? "the server has a problem: try again later" : "check the URL";
  }
}

bool IsAuthenticationStatus(int status) { return status == 401 || status == 403 || status == 407; }

Explanation ExplainCurl(unsigned int number, const Report& report, const Circumstances& circumstances) {
  if (number == 23 && !circumstances.outputPath.empty()) {
    return {ExitCode::kLocal, ExplainWriteFailure(circumstances.outputPath)};
  }
  const CurlFailure& failure = FindCurlFailure(number);
  std::string reason = failure.meaning;
  if (!report.causeText.empty()) reason += fmt::format(" ({})", report.causeText);
  if (failure.number == 0 && report.causeText.empty()) reason += fmt::format(" (libcurl's code {})", number);
  const bool hitLimit = number == 28 && circumstances.timeoutSeconds != 0;
  if (hitLimit) reason += fmt::format(", with a limit of {} seconds", circumstances.timeoutSeconds);
  const bool canResume = failure.remedy != nullptr;
  return {failure.code, reason + "; " + (canResume ? failure.remedy : RemedyForResume(circumstances)), canResume};
}

bool IsCurlCode(Corvane::ZResult code) {
  return code > Corvane::TRANSFER_E_CURL_BASE && code < Corvane::TRANSFER_E_SYSTEM_INIT;
}

unsigned int CurlNumber(Corvane::ZResult code) { return code & 0xFFFFU; }

// What the library found out by itself, in its own words.
Explanation ExplainLibraryCode(const Report& report) {
  std::string text = report.libraryText.empty() ? FindCurlFailure(0).meaning : report.libraryText;
  while (!text.empty() && (text.back() == '.' || text.back() == '\n')) text.pop_back();
  switch (report.status) {
    case Corvane::TRANSFER_E_DOWNLOAD:
      return {ExitCode::kLocal, text + "; check the disk and the permissions"};
    case Corvane::TRANSFER_E_DISK_SPACE:
      return {ExitCode::kLocal, text + "; free some space"};
    default:
      return {ExitCode::kTransfer, text + "; " + FindCurlFailure(0).remedy};
  }
}

}  // namespace

Explanation Explain(const Report& report, const Circumstances& circumstances) {
  int status = 0;
  const std::string answer = LastHttpStatus(report.header, status);
  const bool isRefusal = report.status == Corvane::TRANSFER_E_CONNECT || report.status == Corvane::TRANSFER_E_POST;
  if (isRefusal && status >= 300) {
    return {IsAuthenticationStatus(status) ? ExitCode::kSecurity : ExitCode::kTransfer,
            fmt::format("the server answered {}; {}", answer, RemedyForStatus(status, report, circumstances)), false};
  }
  if (IsCurlCode(report.cause)) return ExplainCurl(CurlNumber(report.cause), report, circumstances);
  if (IsCurlCode(report.status)) return ExplainCurl(CurlNumber(report.status), report, circumstances);
  return ExplainLibraryCode(report);
}

}  // namespace CorvaneCli
