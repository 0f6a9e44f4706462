#include "apps/corvane/Explain.h"

#include <fmt/core.h>

#include <algorithm>
#include <cerrno>
#include <initializer_list>
#include <optional>
#include <string_view>

#include <Corvane/Base/ErrorDict.h>

#include "apps/corvane/Explain/CurlFailures.h"
#include "apps/corvane/Explain/HttpAnswer.h"
#include "apps/corvane/Explain/WriteFailure.h"
#include "apps/corvane/Files.h"
#include "apps/corvane/Target.h"
#include "apps/corvane/Text.h"

namespace CorvaneCli {
namespace {

// "the proxy proxy.example:3128 (https_proxy)".
std::string Describe(const Proxy& proxy) { return fmt::format("the proxy {} ({})", proxy.name, proxy.variable); }

// What to do about a file of a mirror that the server lists and does not give away, or that cannot be written here.
std::string RemedyForFile(const Circumstances& circumstances) {
  if (!circumstances.leaveOut.empty()) return circumstances.leaveOut;
  return fmt::format("leave the file out with --ignore {}", ShellQuote(circumstances.fileName));
}

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

// Where a redirection leads, without a password in it.
std::string AbsoluteLocation(const Report& report, std::string_view location) {
  std::string place(location);
  if (place[0] == '/' && place.compare(0, 2, "//") != 0) {
    place = report.url.substr(0, report.url.find('/', report.url.find("//") + 2)) + place;
  }
  return HideUserinfoIn(place);
}

std::string RemedyForStatus(int status, const Report& report, const Circumstances& circumstances) {
  if (status >= 300 && status < 400) {
    const std::string_view location = LastHeader(report.header, "location:");
    if (circumstances.redirects != 0) return "it names no place to go on at: check the URL";
    return location.empty()
               ? "redirections are not followed"
               : fmt::format("redirections are not followed: ask for {} instead", AbsoluteLocation(report, location));
  }
  switch (status) {
    case 401:
      return RemedyForLogin(circumstances);
    case 403:
      return circumstances.hasLogin ? "use an account that may have access" : "check the path, or give --user NAME";
    case 404:
    case 410:
      return circumstances.fileName.empty() ? "check the path" : RemedyForFile(circumstances);
    case 407:
      return fmt::format("put user and password of the proxy into {}",
                         circumstances.proxy ? circumstances.proxy->variable : "http_proxy");
    case 408:
    case 429:
      return "wait, then try again";
    case 416:
      return "what the file holds is no beginning of what the server has: " + RemedyForResume(circumstances);
    default:
      return status >= 500 ? "the server has a problem: try again later" : "check the URL";
  }
}

// The status may come from the server or from a proxy before it.
std::string WhoAnswered(int status, const Circumstances& circumstances) {
  if (!circumstances.proxy) return "the server";
  if (status == 407) return Describe(*circumstances.proxy);
  return status >= 500 ? "the server or " + Describe(*circumstances.proxy) : "the server";
}

bool IsAuthenticationStatus(int status) { return status == 401 || status == 403 || status == 407; }

// Whether it is the list of a mirror's files that was being fetched.
bool IsList(const Circumstances& circumstances) { return circumstances.isMirror && circumstances.fileName.empty(); }

// What libcurl's number means here, where more is known than its own text says.
std::string MeaningOf(const CurlFailure& failure, const Circumstances& circumstances) {
  constexpr unsigned int kResolveProxy = 5, kConnect = 7, kTooLarge = 63, kCertificates = 77, kProxy = 97;
  if (failure.number == kCertificates && !circumstances.trust.empty()) {
    return fmt::format("the trusted certificates in {} cannot be read", circumstances.trust);
  }
  if (failure.number == kTooLarge && IsList(circumstances)) return "the listing is too large";
  if (!circumstances.proxy) return failure.meaning;
  const std::string proxy = Describe(*circumstances.proxy);
  switch (failure.number) {
    case kResolveProxy:
      return proxy + " cannot be used";
    case kConnect:
      return "the connection to " + proxy + " failed";
    case kProxy:
      return proxy + " did not let the connection through";
    default:
      return failure.meaning;
  }
}

// Whether a failure may well be that of the proxy, although it is told as one of the connection.
bool MayBeTheProxys(unsigned int number) {
  return number == 28 || number == 35 || number == 52 || number == 55 || number == 56;
}

std::string RemedyFor(const CurlFailure& failure, const Circumstances& circumstances) {
  if (failure.remedy == nullptr) return RemedyForResume(circumstances);
  const bool isMissing = failure.number == 9 || failure.number == 19 || failure.number == 78;
  if (failure.number == 63 && IsList(circumstances)) return "name the files with --sizes FILE";
  if (isMissing && !circumstances.fileName.empty()) return RemedyForFile(circumstances);
  if (circumstances.proxy && (failure.number == 5 || failure.number == 7 || failure.number == 97)) {
    return fmt::format("check {}, and that the proxy is running", circumstances.proxy->variable);
  }
  return failure.remedy;
}

Explanation ExplainStoring(const Circumstances& circumstances) {
  // A list of files is kept in memory; so is everything that does not go into a file.
  if (IsList(circumstances)) return {ExitCode::kLocal, fmt::format("cannot keep the list of files: {}", kMemoryRanOut)};
  if (circumstances.outputPath.empty()) {
    return {ExitCode::kLocal, fmt::format("cannot keep what was received: {}", kMemoryRanOut)};
  }
  return {ExitCode::kLocal, ExplainWriteFailure(circumstances.outputPath)};
}

Explanation ExplainCurl(unsigned int number, const Report& report, const Circumstances& circumstances) {
  constexpr unsigned int kUnsupported = 1;
  if (number == 23) return ExplainStoring(circumstances);
  const CurlFailure& failure = FindCurlFailure(number);
  if (number == kUnsupported && circumstances.redirects != 0 && report.httpStatus / 100 == 3) {
    return {ExitCode::kTransfer, AsClause(report.causeText) + "; ask for the address itself, if you trust it"};
  }
  std::string reason = MeaningOf(failure, circumstances);
  if (!report.causeText.empty()) reason += fmt::format(" ({})", report.causeText);
  if (failure.number == 0 && report.causeText.empty()) reason += fmt::format(" (libcurl's code {})", number);
  const bool hitLimit = number == 28 && circumstances.timeoutSeconds != 0;
  if (hitLimit) reason += fmt::format(", with a limit of {} seconds", circumstances.timeoutSeconds);
  if (circumstances.proxy && MayBeTheProxys(number)) reason += ", through " + Describe(*circumstances.proxy);
  return {failure.code, reason + "; " + RemedyFor(failure, circumstances), failure.remedy != nullptr};
}

bool IsCurlCode(Corvane::ZResult code) {
  return code > Corvane::TRANSFER_E_CURL_BASE && code < Corvane::TRANSFER_E_SYSTEM_INIT;
}

unsigned int CurlNumber(Corvane::ZResult code) { return code & 0xFFFFU; }

bool EndsWith(std::string_view text, std::string_view end) {
  return text.size() >= end.size() && text.substr(text.size() - end.size()) == end;
}

// What to do about a file that could not be opened, told from the system's text at the end of the library's.
std::string RemedyForOpening(const std::string& text, const Circumstances& circumstances) {
  const auto says = [&](std::initializer_list<int> errors) {
    return std::any_of(errors.begin(), errors.end(), [&](int error) { return EndsWith(text, SystemText(error)); });
  };
  const bool isOneOfSeveral = !circumstances.fileName.empty();
  if (!circumstances.isNameExpressible) return "set LC_ALL=C.UTF-8, whose encoding has every character";
  if (says({ENAMETOOLONG, EINVAL, EILSEQ})) {
    return isOneOfSeveral ? "the disk takes no such name: " + RemedyForFile(circumstances) : "choose another name";
  }
  if (says({EISDIR}) && isOneOfSeveral) return "remove the directory, or " + RemedyForFile(circumstances);
  if (says({ENOSPC, EDQUOT})) return "free some space";
  if (says({ENOMEM})) return "free some memory, then try again";
  return "check the disk and the permissions";
}

Explanation ExplainDownload(const std::string& text, const Circumstances& circumstances) {
  // Alone the library's message stands for memory that ran out: every other reason is told behind it.
  static const std::string bare = ToUtf8(Corvane::ZGetErrorMsg(Corvane::TRANSFER_E_DOWNLOAD));
  if (text == bare) return {ExitCode::kLocal, fmt::format("{}: {}", text, kMemoryRanOut)};
  return {ExitCode::kLocal, text + "; " + RemedyForOpening(text, circumstances)};
}

// What the library found out by itself, in its own words.
Explanation ExplainLibraryCode(const Report& report, const Circumstances& circumstances) {
  const std::string text =
      WithoutPeriod(report.libraryText.empty() ? std::string(FindCurlFailure(0).meaning) : report.libraryText);
  switch (report.status) {
    case Corvane::TRANSFER_E_DOWNLOAD:
      return ExplainDownload(text, circumstances);
    case Corvane::TRANSFER_E_DISK_SPACE:
      return {ExitCode::kLocal, text + "; free some space"};
    default:
      return {ExitCode::kTransfer, text + "; " + FindCurlFailure(0).remedy};
  }
}

std::string RemedyForTunnel(int status, const Report& report, const Circumstances& circumstances) {
  if (status == 407) return RemedyForStatus(status, report, circumstances);
  return status >= 500 ? "try again later" : "ask who runs it to let this host through";
}

// The answer is the proxy's: nothing came from the server.
Explanation ExplainTunnel(int status, const Report& report, const Circumstances& circumstances) {
  const std::string answer = LastHttpStatus(fmt::format("HTTP/1.1 {}\r\n", status), status);
  return {IsAuthenticationStatus(status) ? ExitCode::kSecurity : ExitCode::kTransfer,
          fmt::format("{} answered {} and let nothing through; {}", Describe(*circumstances.proxy), answer,
                      RemedyForTunnel(status, report, circumstances))};
}

}  // namespace

Explanation Explain(const Report& report, const Circumstances& circumstances) {
  const std::optional<int> tunnel = TunnelStatusIn(report.causeText);
  if (tunnel && circumstances.proxy) return ExplainTunnel(*tunnel, report, circumstances);
  int status = 0;
  const std::string answer = LastHttpStatus(report.header, status);
  const bool isRefusal = report.status == Corvane::TRANSFER_E_CONNECT || report.status == Corvane::TRANSFER_E_POST;
  // Behind a redirection that was followed came no answer.
  const bool isOnTheWay = status / 100 == 3 && IsCurlCode(report.cause);
  if (isRefusal && status >= 300 && !isOnTheWay) {
    return {IsAuthenticationStatus(status) ? ExitCode::kSecurity : ExitCode::kTransfer,
            fmt::format("{} answered {}; {}", WhoAnswered(status, circumstances), answer,
                        RemedyForStatus(status, report, circumstances)),
            false};
  }
  if (IsCurlCode(report.cause)) return ExplainCurl(CurlNumber(report.cause), report, circumstances);
  if (IsCurlCode(report.status)) return ExplainCurl(CurlNumber(report.status), report, circumstances);
  return ExplainLibraryCode(report, circumstances);
}

}  // namespace CorvaneCli
