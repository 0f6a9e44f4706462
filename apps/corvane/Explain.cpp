#include "apps/corvane/Explain.h"

#include <fmt/core.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/statvfs.h>

#include <algorithm>
#include <cctype>
#include <iterator>
#include <string_view>

#include "apps/corvane/Text.h"

namespace CorvaneCli {
namespace {

// A failure code of libcurl, by its number in libcurl-errors(3), which never changes: the program sees libcurl only through
// the library's codes.
struct CurlFailure {
  unsigned int number;
  const char* meaning;
  const char* remedy;
  ExitCode code = ExitCode::kTransfer;
};

constexpr ExitCode kSecurity = ExitCode::kSecurity;
constexpr const char* kTryAgain = "try again";
constexpr const char* kCheckNetwork = "check the host name and the network";
constexpr const char* kCheckCertificate =
    "check the host name, or give the authority that signed the certificate with --cacert FILE (--insecure goes "
    "without checks)";
constexpr const char* kCheckTls = "check that the server speaks TLS on this port, and which versions of it";
constexpr const char* kCheckTrust = "check the files given with --cacert or --capath";
// The remedy is made for the case, see RemedyForResume.
constexpr const char* kNotResumable = nullptr;
constexpr const char* kCheckPath = "check the path";

constexpr CurlFailure kCurlFailures[] = {
    {1, "this libcurl does not support the protocol", "use an http, https or ftp URL"},
    {3, "the URL is malformed", "percent-encode its special characters"},
    {5, "the name of the proxy cannot be resolved", "check http_proxy and its kin in the environment"},
    {6, "the host name cannot be resolved", kCheckNetwork},
    {7, "the connection failed", "check the host and the port, and that the server is running"},
    {8, "the FTP server gave a strange answer", "check the host and the port"},
    {9, "the FTP server denies access to the directory", kCheckPath},
    {16, "the HTTP/2 connection failed", kTryAgain},
    {18, "the connection ended before the whole content had come", kTryAgain},
    {19, "the FTP server does not have the file, or does not give it away", kCheckPath},
    {23, "what was received could not be stored", "free some memory"},
    {26, "the file to post could not be read", "check the file"},
    {27, "memory ran out, or the answer's header is too long", "free some memory, or ask the server's operator"},
    {28, "it took too long", "raise the limit with --timeout SECONDS (0: none), or try again"},
    {30, "the FTP server would not open a data connection", "check the firewall between here and there"},
    {31, "the FTP server cannot resume", kNotResumable},
    {33, "the server cannot resume: it sends only the whole content", kNotResumable},
    {34, "the server could not handle the post", kTryAgain},
    {35, "the TLS connection could not be set up", kCheckTls, kSecurity},
    {36, "the download could not be resumed", kNotResumable},
    {43, "libcurl refused one of the settings", "check the numbers in the options"},
    {47, "there were too many redirections", "check the URL"},
    {51, "the server's certificate was not accepted", kCheckCertificate, kSecurity},
    {52, "the server closed the connection without an answer", "check the port, or try again"},
    {53, "the TLS engine was not found", "check the OpenSSL configuration", kSecurity},
    {54, "the TLS engine failed", "check the OpenSSL configuration", kSecurity},
    {55, "the connection broke while sending", kTryAgain},
    {56, "the connection broke while receiving", kTryAgain},
    {58, "there is a problem with the local certificate", "check the OpenSSL configuration", kSecurity},
    {59, "the TLS cipher could not be used", "check the OpenSSL configuration", kSecurity},
    {60, "the server's certificate was not accepted", kCheckCertificate, kSecurity},
    {61, "the content's encoding is not known", "ask the server's operator"},
    {63, "the file is too large", "fetch a smaller one"},
    {64, "the FTP server does not offer TLS", "use another server", kSecurity},
    {66, "the TLS engine could not be set up", "check the OpenSSL configuration", kSecurity},
    {67, "the server does not accept the login", "check the user name and the password (--user NAME)", kSecurity},
    {70, "the server's disk is full", "ask the server's operator"},
    {77, "the trusted certificates cannot be read", kCheckTrust, kSecurity},
    {78, "the server does not have the file", kCheckPath},
    {80, "the TLS connection could not be shut down", kTryAgain, kSecurity},
    {82, "the list of revoked certificates cannot be read", "check the OpenSSL configuration", kSecurity},
    {83, "the issuer of the certificate was not accepted", kCheckCertificate, kSecurity},
    {90, "the server's public key was not accepted", kCheckCertificate, kSecurity},
    {91, "the server's certificate status was not accepted", kCheckCertificate, kSecurity},
    {92, "the HTTP/2 stream failed", kTryAgain},
    {94, "the authentication failed", "check the user name and the password (--user NAME)", kSecurity},
    {97, "the proxy did not let the connection through", "check http_proxy and its kin in the environment"},
};
constexpr CurlFailure kOtherFailure = {0, "the transfer failed", "try again, with -v for more information"};

struct ReasonPhrase {
  int status;
  const char* phrase;
};
constexpr ReasonPhrase kReasonPhrases[] = {
    {301, "Moved Permanently"},   {302, "Found"},
    {303, "See Other"},           {304, "Not Modified"},
    {307, "Temporary Redirect"},  {308, "Permanent Redirect"},
    {400, "Bad Request"},         {401, "Unauthorized"},
    {403, "Forbidden"},           {404, "Not Found"},
    {405, "Method Not Allowed"},  {407, "Proxy Authentication Required"},
    {408, "Request Timeout"},     {410, "Gone"},
    {413, "Content Too Large"},   {416, "Range Not Satisfiable"},
    {429, "Too Many Requests"},   {500, "Internal Server Error"},
    {501, "Not Implemented"},     {502, "Bad Gateway"},
    {503, "Service Unavailable"}, {504, "Gateway Timeout"},
};

const CurlFailure& FindCurlFailure(unsigned int number) {
  const auto* const found = std::find_if(std::begin(kCurlFailures), std::end(kCurlFailures),
                                         [number](const CurlFailure& failure) { return failure.number == number; });
  return found == std::end(kCurlFailures) ? kOtherFailure : *found;
}

std::string_view TrimmedLine(std::string_view text) {
  text = text.substr(0, text.find_first_of("\r\n"));
  const std::size_t begin = text.find_first_not_of(' ');
  if (begin == std::string_view::npos) return {};
  return text.substr(begin, text.find_last_not_of(' ') + 1 - begin);
}

// The value of the last header `name` (in lower case, with its colon).
std::string_view LastHeader(std::string_view header, std::string_view name) {
  std::string_view value;
  while (!header.empty()) {
    const std::size_t end = std::min(header.find('\n'), header.size() - 1) + 1;
    const std::string_view line = header.substr(0, end);
    const auto matches = [](char a, char b) { return std::tolower(static_cast<unsigned char>(a)) == b; };
    if (line.size() >= name.size() &&
        std::equal(name.begin(), name.end(), line.begin(), [&](char b, char a) { return matches(a, b); })) {
      value = TrimmedLine(line.substr(name.size()));
    }
    header.remove_prefix(end);
  }
  return value;
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
         "in the "
         "clear, and an https URL allows Basic too";
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
      return kCheckPath;
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

std::string FreeSpaceOf(const std::string& path) {
  struct statvfs status {};
  const std::string directory = path.substr(0, path.rfind('/') + 1);
  if (statvfs(directory.empty() ? "." : directory.c_str(), &status) != 0) return "how much is unknown";
  return FormatBytes(static_cast<unsigned long long>(status.f_bavail) * status.f_frsize);
}

// libcurl only knows that a block was not stored, and the library's code does not keep the errno, so the reason is looked for
// in what the system tells now.
std::string ExplainWriteFailure(const std::string& path) {
  struct stat status {};
  const bool isThere = stat(path.c_str(), &status) == 0;
  const bool isRegular = isThere && S_ISREG(status.st_mode);
  const std::string name = DisplayName(path);
  if (isThere && S_ISDIR(status.st_mode)) {
    return fmt::format("cannot write into {}: the file system has {} left; free some space", name,
                       FreeSpaceOf(path + "/"));
  }
  if (!isRegular)
    return fmt::format("cannot write {}: it takes no more data; check that it has room, or that somebody reads from it",
                       name);
  rlimit limit{};
  if (getrlimit(RLIMIT_FSIZE, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY &&
      static_cast<rlim_t>(status.st_size) >= limit.rlim_cur) {
    return fmt::format("cannot write {}: the limit for the size of files is {}; raise it (ulimit -f)", name,
                       FormatBytes(limit.rlim_cur));
  }
  return fmt::format("cannot write {} beyond {}: the file system has {} left; free some space", name,
                     FormatBytes(static_cast<unsigned long long>(status.st_size)), FreeSpaceOf(path));
}

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
  const bool canResume = failure.remedy != kNotResumable;
  return {failure.code, reason + "; " + (canResume ? failure.remedy : RemedyForResume(circumstances)), canResume};
}

bool IsCurlCode(Corvane::ZResult code) {
  return code > Corvane::TRANSFER_E_CURL_BASE && code < Corvane::TRANSFER_E_SYSTEM_INIT;
}

unsigned int CurlNumber(Corvane::ZResult code) { return code & 0xFFFFU; }

// What the library found out by itself, in its own words.
Explanation ExplainLibraryCode(const Report& report) {
  std::string text = report.libraryText.empty() ? kOtherFailure.meaning : report.libraryText;
  while (!text.empty() && (text.back() == '.' || text.back() == '\n')) text.pop_back();
  switch (report.status) {
    case Corvane::TRANSFER_E_DOWNLOAD:
      return {ExitCode::kLocal, text + "; check the disk and the permissions"};
    case Corvane::TRANSFER_E_DISK_SPACE:
      return {ExitCode::kLocal, text + "; free some space"};
    default:
      return {ExitCode::kTransfer, text + "; " + kOtherFailure.remedy};
  }
}

}  // namespace

std::string LastHttpStatus(const std::string& header, int& status) {
  status = 0;
  std::string_view text;
  for (std::size_t line = 0; line != std::string::npos && line < header.size();) {
    const std::string_view rest = std::string_view(header).substr(line);
    if (rest.substr(0, 5) == "HTTP/") text = TrimmedLine(rest.substr(std::min(rest.find(' '), rest.size())));
    line = header.find('\n', line);
    if (line != std::string::npos) ++line;
  }
  const std::optional<unsigned long long> number = ParseNumber(text.substr(0, 3));
  if (!number) return {};
  status = static_cast<int>(*number);
  if (text.size() > 4) return std::string(text);
  for (const ReasonPhrase& entry : kReasonPhrases) {
    if (entry.status == status) return fmt::format("{} {}", status, entry.phrase);
  }
  return std::to_string(status);
}

Explanation Explain(const Report& report, const Circumstances& circumstances) {
  int status = 0;
  const std::string answer = LastHttpStatus(report.header, status);
  const bool isRefusal = report.status == Corvane::TRANSFER_E_CONNECT || report.status == Corvane::TRANSFER_E_POST;
  if (isRefusal && status >= 300) {
    return {IsAuthenticationStatus(status) ? kSecurity : ExitCode::kTransfer,
            fmt::format("the server answered {}; {}", answer, RemedyForStatus(status, report, circumstances)), false};
  }
  if (IsCurlCode(report.cause)) return ExplainCurl(CurlNumber(report.cause), report, circumstances);
  if (IsCurlCode(report.status)) return ExplainCurl(CurlNumber(report.status), report, circumstances);
  return ExplainLibraryCode(report);
}

}  // namespace CorvaneCli
