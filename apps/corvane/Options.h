#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include <Corvane/Base/String.h>

#include "apps/corvane/Console.h"
#include "apps/corvane/ExitCode.h"
#include "apps/corvane/Target.h"

namespace CorvaneCli {

// Arguments of ZTransfer::SetThrottling.
struct Throttling {
  unsigned int lowWaterMark = 0;  // bytes per second
  unsigned int limit = 0;         // KiB per second, or a percentage
  bool percent = false;
};

// What a command asks of its requests.
struct RequestOptions {
  unsigned int redirects = 10;                // followed in one request
  unsigned int retries = 3;                   // after the first try; a post has none
  std::chrono::milliseconds retryWait{1000};  // before the first of them
  std::vector<Corvane::ZString> headers;      // "NAME: VALUE"
  Corvane::ZString userAgent;
};

// What every command that transfers understands.
struct CommonOptions {
  unsigned long timeoutSeconds = 300;
  std::optional<Corvane::ZString> user;
  std::optional<std::string> passwordFile;
  std::optional<std::string> caFile;
  std::optional<std::string> caDirectory;
  bool insecure = false;
  std::optional<Throttling> throttling;
  bool noThrottle = false;
  RequestOptions request;
  bool json = false;
  bool quiet = false;
  bool verbose = false;
  std::optional<std::string> logFile;
};

// Where what is downloaded goes.
struct Placement {
  std::optional<std::string> output;     // a file; unset: the standard output, or named by what follows
  bool usesRemoteName = false;           // the URL, or the server, names the file
  std::optional<std::string> directory;  // that it goes into; unset: the working directory
};

struct GetCommand {
  std::vector<Target> targets;  // at least one; with Placement::output exactly one
  Placement placement;
  bool resume = false;
  bool acceptHttpErrors = false;
  bool decodesText = false;
  bool keepsRemoteTime = false;
  std::optional<std::string> sha256;  // of the only target, in lower case
};

struct PostCommand {
  Target target;
  std::optional<std::string> output;
  bool acceptHttpErrors = false;
  bool decodesText = false;
  std::optional<Corvane::ZString> type;                 // the header that tells the content's type
  std::variant<Corvane::ZString, std::string> content;  // text to send as it is, or the path of a file
};

struct MirrorCommand {
  Target target;         // without a fragment
  std::string fragment;  // what stood behind the "#", in UTF-8
  std::string directory;
  bool resume = false;
  std::vector<Corvane::ZString> ignored;
  std::optional<std::string> sizes;
  std::optional<std::string> times;
};

struct SyncCommand {
  Target target;         // without a fragment
  std::string fragment;  // what stood behind the "#", in UTF-8
  std::string directory;
  std::vector<Corvane::ZString> include;
  std::vector<Corvane::ZString> exclude;
  unsigned int depth = 64;
  unsigned int connections = 8;
  bool deletes = false;
  std::optional<unsigned long long> mostDeletes;  // unset: the library's own limit
  bool verifies = false;
  bool isPlan = false;
  bool failsFast = false;
};

struct ResolveCommand {
  Corvane::ZString host;
};

using AnyCommand = std::variant<GetCommand, PostCommand, MirrorCommand, SyncCommand, ResolveCommand>;

struct CommandLine {
  CommonOptions common;
  AnyCommand command;
  // The command as it would be typed again, without -o, --resume and --header: for messages that tell how to go on.
  std::vector<std::string> words;
  // Whether they could not be typed again as they are, or should not.
  bool hasUnrepeatableWords = false;
};

// Understands the command line. Returns the exit status when nothing is left to do: help and version have been printed,
// or what is wrong has been told. Never shows anything that could be a password.
[[nodiscard]] std::variant<CommandLine, ExitCode> ParseCommandLine(int argc, const char* const* argv, Console& console);

}  // namespace CorvaneCli
