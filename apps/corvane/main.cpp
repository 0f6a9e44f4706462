#include <fcntl.h>
#include <malloc.h>
#include <unistd.h>

#include <cerrno>
#include <clocale>
#include <csignal>
#include <exception>
#include <new>
#include <optional>
#include <variant>

#include "apps/corvane/Command.h"
#include "apps/corvane/Console.h"
#include "apps/corvane/ExitCode.h"
#include "apps/corvane/Explain/WriteFailure.h"
#include "apps/corvane/Failure.h"
#include "apps/corvane/Logging.h"
#include "apps/corvane/Options.h"

namespace CorvaneCli {
namespace {

// A standard stream that the caller closed would be replaced by the next file that is opened, and messages would end up in
// it. What stands in for it here cannot be written (read), so that the program still notices.
void OccupyStandardStreams() {
  for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (fcntl(stream, F_GETFD) != -1 || errno != EBADF) continue;
    static_cast<void>(open("/dev/null", stream == STDIN_FILENO ? O_WRONLY : O_RDONLY));
  }
}

// Closed pipes and exceeded file sizes are to be reported like any other failed write, not to kill the program.
void IgnoreWriteSignals() {
  std::signal(SIGPIPE, SIG_IGN);
  std::signal(SIGXFSZ, SIG_IGN);
}

// The few threads share one heap. The C library would make one for each of them, already to take back what a thread was given
// at its start: four system calls a thread.
void ShareOneHeap() {
#ifdef M_ARENA_MAX
  mallopt(M_ARENA_MAX, 1);
#endif
}

struct Runner {
  Environment& environment;

  ExitCode operator()(const GetCommand& command) const { return RunGet(command, environment); }
  ExitCode operator()(const PostCommand& command) const { return RunPost(command, environment); }
  ExitCode operator()(const MirrorCommand& command) const { return RunMirror(command, environment); }
  ExitCode operator()(const SyncCommand& command) const { return RunSync(command, environment); }
  ExitCode operator()(const ResolveCommand& command) const { return RunResolve(command, environment); }
};

ExitCode Run(const CommandLine& line, Console& console) {
  console.SetQuiet(line.common.quiet);
  std::optional<Logging> logging;
  try {
    logging.emplace(line.common.verbose, line.common.logFile, console);
  } catch (const Failure& failure) {
    console.Error(failure.what());
    return failure.Code();
  }
  Environment environment{line, console, *logging, std::nullopt};
  return std::visit(Runner{environment}, line.command);
}

ExitCode Main(int argc, const char* const* argv) {
  ShareOneHeap();
  OccupyStandardStreams();
  IgnoreWriteSignals();
  // When they name a locale that is not there, the "C" locale stays. The other categories take time and are of no use.
  std::setlocale(LC_CTYPE, "");
  std::setlocale(LC_MESSAGES, "");
  Console console;
  try {
    const std::variant<CommandLine, ExitCode> parsed = ParseCommandLine(argc, argv, console);
    const CommandLine* const line = std::get_if<CommandLine>(&parsed);
    return line == nullptr ? std::get<ExitCode>(parsed) : Run(*line, console);
  } catch (const std::bad_alloc&) {
    console.Error(kMemoryRanOut);
    return ExitCode::kLocal;
  } catch (const std::exception& problem) {
    console.Error(std::string(problem.what()) + "; free some memory and other resources, then try again");
    return ExitCode::kTransfer;
  }
}

}  // namespace
}  // namespace CorvaneCli

int main(int argc, char** argv) { return static_cast<int>(CorvaneCli::Main(argc, argv)); }
