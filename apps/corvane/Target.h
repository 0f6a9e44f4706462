#pragma once

#include <string>
#include <string_view>

#include <Corvane/Base/String.h>

namespace CorvaneCli {

// The URL of a command: complete, checked, and without user and password.
struct Target {
  Corvane::ZString url;  // what the library gets
  std::string display;   // the same in UTF-8, for messages
  std::string scheme;    // "http", "https" or "ftp"

  [[nodiscard]] bool IsHttps() const { return scheme == "https"; }
  // The last part of the path, or the host when the path ends with a slash: a short name for the progress line.
  [[nodiscard]] std::string Label() const;
  // The host alone, an IPv6 address without its brackets.
  [[nodiscard]] std::string Host() const;
};

// Checks `argument`, the URL as it came from the command line, and puts "http://" in front when it has no scheme.
// Throws Failure(kUsage) when the library could not fetch it, and when it holds a user or a password, which other users
// of the machine could read in the list of processes: the text names --user instead.
[[nodiscard]] Target MakeTarget(const std::string& argument);

// `text`, such as the header of an answer, with every user and password in the URLs in it replaced by "***".
[[nodiscard]] std::string HideUserinfoIn(std::string_view text);

// `utf8` with everything that may be a user and password in a URL replaced by "***".
[[nodiscard]] std::string HideSecrets(const std::string& utf8);

}  // namespace CorvaneCli
