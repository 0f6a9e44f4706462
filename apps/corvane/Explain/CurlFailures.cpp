#include "apps/corvane/Explain/CurlFailures.h"

#include <algorithm>
#include <iterator>

namespace CorvaneCli {
namespace {

constexpr ExitCode kSecurity = ExitCode::kSecurity;
constexpr const char* kTryAgain = "try again";
constexpr const char* kCheckNetwork = "check the host name and the network";
constexpr const char* kCheckCertificate =
    "check the host name, or give the authority that signed the certificate with --cacert FILE (--insecure goes "
    "without checks)";
constexpr const char* kCheckTls = "check that the server speaks TLS on this port, and which versions of it";
constexpr const char* kCheckTrust =
    "check what --cacert or --capath names or, without them, that the package ca-certificates is installed";
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
    {47, "there were too many redirections", "check the URL, or allow more with --redirects N"},
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

}  // namespace

const CurlFailure& FindCurlFailure(unsigned int number) {
  const auto* const found = std::find_if(std::begin(kCurlFailures), std::end(kCurlFailures),
                                         [number](const CurlFailure& failure) { return failure.number == number; });
  return found == std::end(kCurlFailures) ? kOtherFailure : *found;
}

}  // namespace CorvaneCli
