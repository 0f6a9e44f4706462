#include "apps/corvane/Command.h"

#include <fmt/core.h>
#include <unistd.h>

#include <cerrno>
#include <limits>
#include <new>
#include <utility>

#include "apps/corvane/Explain/WriteFailure.h"
#include "apps/corvane/Failure.h"
#include "apps/corvane/Files.h"
#include "apps/corvane/JsonReport.h"
#include "apps/corvane/StreamWriter.h"
#include "apps/corvane/Text.h"

namespace CorvaneCli {
namespace {

// Returns 0 or an errno.
int WriteStandardOutput(const std::function<std::optional<std::string>()>& next, const Environment& environment) {
  StreamWriter writer(STDOUT_FILENO, environment.interrupt ? &*environment.interrupt : nullptr);
  while (const std::optional<std::string> piece = next()) {
    const int error = writer.Write(*piece);
    if (error != 0) return error;
  }
  return writer.Finish();
}

void TellFailure(const Report& report, Environment& environment) {
  if (!report.error.empty()) {
    environment.console.Error(report.error);
    environment.logging.RecordError(report.error);
  }
  for (const std::string& note : report.notes) {
    environment.console.Error(note);
    environment.logging.Record(note);
  }
}

// "corvane get URL --user ada -o big.iso --resume".
std::string ContinueCommand(const OutputFile& file, const Environment& environment) {
  if (environment.line.hasUnrepeatableWords) return "the same command and --resume";
  const GetCommand* const get = std::get_if<GetCommand>(&environment.line.command);
  if (get != nullptr && get->placement.usesRemoteName) return CommandWords(environment) + "--resume";
  return CommandWords(environment) + fmt::format("-o {} --resume", ShellQuote(DisplayName(file.Given())));
}

}  // namespace

ExitCode RunReported(Report& report, Environment& environment, const std::function<void()>& work) {
  environment.interrupt.emplace();
  const ExitCode code = RunTold(report, environment, work);
  const bool json = environment.line.common.json;
  const bool prints = code != ExitCode::kUsage && (json || (code == ExitCode::kSuccess && report.body));
  const ExitCode printed = prints ? PrintOutput(json ? FormatJson(report) : *report.body, code, environment) : code;
  environment.interrupt.reset();
  return printed;
}

ExitCode RunTold(Report& report, Environment& environment, const std::function<void()>& work) {
  ExitCode code = ExitCode::kSuccess;
  environment.logging.Tell(fmt::format("corvane {}: {} {}", CORVANE_VERSION, report.operation, report.url));
  try {
    work();
  } catch (const Failure& failure) {
    code = failure.Code();
    report.error = failure.what();
  } catch (const std::bad_alloc&) {
    code = ExitCode::kLocal;
    report.error = fmt::format("cannot {} {}: {}", report.operation, report.url, kMemoryRanOut);
  }
  report.exitCode = code;
  if (code != ExitCode::kSuccess) TellFailure(report, environment);
  return code;
}

ExitCode PrintOutput(const std::string& output, ExitCode code, Environment& environment) {
  environment.logging.Tell(fmt::format("printing {} bytes", output.size()));
  std::optional<std::string> whole(output);
  return PrintPieces([&] { return std::exchange(whole, std::nullopt); }, code, environment);
}

ExitCode PrintPieces(const std::function<std::optional<std::string>()>& next, ExitCode code, Environment& environment) {
  const int error = WriteStandardOutput(next, environment);
  if (error == 0) return code;
  if (error == ECANCELED) {
    if (code != ExitCode::kInterrupted) environment.console.Error("interrupted; not all was printed");
    return ExitCode::kInterrupted;
  }
  if (error == EPIPE) return code == ExitCode::kSuccess ? ExitCode::kLocal : code;  // who closed it knows
  environment.console.Error(
      fmt::format("cannot write to the standard output: {}; check where it goes", SystemText(error)));
  return ExitCode::kLocal;
}

void TellNote(Environment& environment, const std::string& text) {
  environment.console.Note(text);
  environment.logging.Record(text);
}

void TellOfDirectoryUrl(const Target& target, const std::string& fragment, Environment& environment) {
  const std::size_t query = target.display.find('?');
  if (query != std::string::npos) {
    environment.console.Note(fmt::format("\"{}\" is sent when the directory's page is asked for, and with no file",
                                         target.display.substr(query)));
  }
  if (!fragment.empty()) {
    environment.console.Note(fmt::format(
        "\"#{}\" is left out of the URL: it names a place on the page, and all of the directory is fetched", fragment));
  }
}

std::string CommandWords(const Environment& environment) {
  std::string command;
  for (const std::string& word : environment.line.words) command += ShellQuote(DisplayName(word)) + ' ';
  return command;
}

Report MakeReport(const char* operation, const Target& target, const std::optional<std::string>& output) {
  Report report;
  report.operation = operation;
  report.url = target.display;
  if (output) report.file = DisplayName(*output);
  return report;
}

void TakeBody(const Corvane::ZString& text, Report& report, Environment& environment) {
  constexpr wchar_t kReplacement = 0xFFFD;
  const bool mayHaveLost = text.Find(kReplacement) != Corvane::ZString::npos;
  report.body = ToUtf8(text);
  if (Corvane::IsFailure(report.status)) return;
  // The library hands out at most this much as text.
  if (report.downloadSize > std::numeric_limits<unsigned int>::max()) {
    report.body.reset();
    throw Failure(ExitCode::kLocal, fmt::format("cannot print {} as text: that is more than 4 GiB; use -o FILE",
                                                FormatBytes(report.downloadSize)));
  }
  if (mayHaveLost) {
    environment.console.Note(
        "what came is not all UTF-8 text, other bytes are shown as U+FFFD; use -o FILE for binary data");
  }
}

void SettleFailedFile(OutputFile& file, bool canContinue, Report& report, const Environment& environment) {
  const std::optional<OutputFile::Kept> kept = file.Abandon();
  if (!kept) return;
  report.partial = DisplayName(kept->path);
  std::string note = fmt::format("{} are kept in {}", FormatBytes(kept->bytes), *report.partial);
  if (canContinue) note += "; continue with: " + ContinueCommand(file, environment);
  report.notes.push_back(std::move(note));
}

}  // namespace CorvaneCli
