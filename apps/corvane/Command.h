#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "apps/corvane/Console.h"
#include "apps/corvane/ExitCode.h"
#include "apps/corvane/Interrupt.h"
#include "apps/corvane/Logging.h"
#include "apps/corvane/Options.h"
#include "apps/corvane/OutputFile.h"
#include "apps/corvane/Report.h"

namespace CorvaneCli {

// What every command works with.
struct Environment {
  const CommandLine& line;
  Console& console;
  Logging& logging;
  std::optional<Interrupt> interrupt;  // until the transfer is over and what it left is settled
};

// The commands, each in a source of its own. They report everything themselves and throw only std::bad_alloc and the like.
[[nodiscard]] ExitCode RunGet(const GetCommand& command, Environment& environment);
[[nodiscard]] ExitCode RunPost(const PostCommand& command, Environment& environment);
[[nodiscard]] ExitCode RunMirror(const MirrorCommand& command, Environment& environment);
[[nodiscard]] ExitCode RunSync(const SyncCommand& command, Environment& environment);
[[nodiscard]] ExitCode RunResolve(const ResolveCommand& command, Environment& environment);

// Writes to the standard output, as long as somebody reads it or no signal comes. When that fails it tells so, and returns
// kLocal (kInterrupted) instead of `code`.
[[nodiscard]] ExitCode PrintOutput(const std::string& output, ExitCode code, Environment& environment);

// As much as is worth a write of its own.
inline constexpr std::size_t kOutputPieceBytes = std::size_t{1} << 16;

// The same for what comes in pieces of about kOutputPieceBytes: `next` returns one with each call, and nullopt behind the last.
[[nodiscard]] ExitCode PrintPieces(const std::function<std::optional<std::string>()>& next, ExitCode code,
                                   Environment& environment);

// Runs `work`, which does the transfer, fills the report and throws Failure when something fails, and tells what failed and
// `notes` on standard error. The report has its exit code then.
ExitCode RunTold(Report& report, Environment& environment, const std::function<void()>& work);

// What commands of one transfer share: RunTold, and then the JSON object or the body on standard output.
[[nodiscard]] ExitCode RunReported(Report& report, Environment& environment, const std::function<void()>& work);

// Says what is worth knowing but no failure: on the console, unless quiet, and in the log.
void TellNote(Environment& environment, const std::string& text);

// What an address bar shows may have more than the URL of a directory: notes what becomes of it.
void TellOfDirectoryUrl(const Target& target, const std::string& fragment, Environment& environment);

// Begins a report.
[[nodiscard]] Report MakeReport(const char* operation, const Target& target, const std::optional<std::string>& output);

// Puts decoded text into the report as its body, and tells when bytes may have been lost in decoding.
void TakeBody(const Corvane::ZString& text, Report& report, Environment& environment);

// The command of the user as words for the shell, without -o, --resume and --header and with a blank at its end.
[[nodiscard]] std::string CommandWords(const Environment& environment);

// Settles `file` after a failed transfer: records what is kept and adds to the report how to go on.
// canContinue: whether --resume is of any use.
void SettleFailedFile(OutputFile& file, bool canContinue, Report& report, const Environment& environment);

}  // namespace CorvaneCli
