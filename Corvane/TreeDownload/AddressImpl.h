#pragma once

#include <optional>
#include <string>

namespace Corvane {

// What is asked for where: decisions over addresses, all parsed by libcurl's own parser (curl_url_set(3)).

// Scheme, host and port, and who is addressed there: what credentials are given for. None for what is no address.
struct Origin {
  std::string scheme;
  std::string host;
  std::string port;
  bool operator==(const Origin& other) const {
    return scheme == other.scheme && host == other.host && port == other.port;
  }
};
[[nodiscard]] std::optional<Origin> OriginOf(const std::string& url);

// Whether a redirect is followed at all: to http and https, never from https to http.
[[nodiscard]] bool MayRedirect(const std::string& from, const std::string& to);

// Whether `url` names something below the directory `top`, or that itself: the same origin, and a path that begins with its path when
// both are read without escapes and dots.
[[nodiscard]] bool IsBelow(const std::string& top, const std::string& url);

// The address without user and password, which are nobody's business.
[[nodiscard]] std::string WithoutLogin(const std::string& url);

// The address of a directory: without query and fragment, and with one slash at its end.
[[nodiscard]] std::string DirectoryOf(const std::string& url);
// With its "?"; empty without one.
[[nodiscard]] std::string QueryOf(const std::string& url);

}  // namespace Corvane
