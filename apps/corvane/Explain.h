#pragma once

#include <optional>
#include <string>

#include "apps/corvane/ExitCode.h"
#include "apps/corvane/Proxy.h"
#include "apps/corvane/Report.h"

namespace CorvaneCli {

// What the program knows about a failed transfer beside the report.
struct Circumstances {
  bool isHttps = false;
  bool hasLogin = false;
  unsigned long timeoutSeconds = 0;
  unsigned int redirects = 0;  // that are followed
  std::string outputPath;      // the file being written, for the system; empty when there is none
  bool isMirror = false;       // the file is one of several, which --resume leaves as they are
  // Of a mirror, the name of the file that was being fetched, in UTF-8; empty when it was the list of them.
  std::string fileName;
  std::string leaveOut;           // how to go on without that file; empty: as a mirror does
  bool isNameExpressible = true;  // in the locale
  std::string trust;              // where the trusted certificates are, in UTF-8; empty when nothing is verified
  std::optional<Proxy> proxy;
};

struct Explanation {
  ExitCode code;
  std::string text;       // UTF-8: "the reason; the remedy", never empty
  bool canResume = true;  // whether a file that was begun can be continued with --resume
};

// Why the transfer failed, in words, and what to do about it.
[[nodiscard]] Explanation Explain(const Report& report, const Circumstances& circumstances);

}  // namespace CorvaneCli
