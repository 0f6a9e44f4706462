#include "apps/corvane/Mirror/Outcome.h"

#include <fmt/core.h>
#include <sys/stat.h>

#include "apps/corvane/Text.h"

namespace CorvaneCli {
namespace {

std::string Count(std::size_t number, const char* thing) {
  return fmt::format("{} {}{}", number, thing, number == 1 ? "" : "s");
}

// The library's text is that of the last file whose size differs. Continuing would not help: what came is complete.
Explanation ExplainMismatch(const Report& report, const MirrorCommand& command) {
  std::string text = report.libraryText;
  const std::size_t count = report.files.filesMismatched;
  if (count > 1) text += fmt::format(" (and {} more)", count - 1);
  const std::string remedy =
      command.sizes
          ? fmt::format("check the sizes in {}, or run again without --resume when the files have just changed",
                        DisplayName(*command.sizes))
          : "the server lists another size than it sends: run again without --resume in case the file has just "
            "changed; if that does not help, give its true size with --sizes FILE, or leave it out with --ignore NAME";
  return {ExitCode::kTransfer, fmt::format("{}; {}", text, remedy)};
}

bool HoldsBeginning(const std::string& path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) && status.st_size > 0;
}

// "3 files and the beginning of b.iso are"; empty when nothing is.
std::string WhatIsKept(const Report& report, const Circumstances& circumstances) {
  const Corvane::ZMultiDownload::Statistics& files = report.files;
  const std::size_t complete = files.filesFetched + files.filesResumed + files.filesSkipped - files.filesMismatched;
  const bool hasBeginning = !circumstances.fileName.empty() && HoldsBeginning(circumstances.outputPath);
  const std::string beginning = "the beginning of " + circumstances.fileName;
  if (complete == 0) return hasBeginning ? beginning + " is" : "";
  if (hasBeginning) return fmt::format("{} and {} are", Count(complete, "file"), beginning);
  return Count(complete, "file") + (complete == 1 ? " is" : " are");
}

}  // namespace

Explanation ExplainMirror(const Report& report, const MirrorCommand& command, const Circumstances& circumstances) {
  if (!Corvane::IsFailure(report.status) || report.status == Corvane::TRANSFER_E_SIZE_MISMATCH) {
    return ExplainMismatch(report, command);
  }
  Explanation explanation = Explain(report, circumstances);
  if (!circumstances.fileName.empty()) {
    explanation.text = fmt::format("file {}: {}", circumstances.fileName, explanation.text);
  }
  return explanation;
}

std::string DescribeKept(const Report& report, const MirrorCommand& command, const Circumstances& circumstances,
                         const std::string& again) {
  if (report.status == Corvane::TRANSFER_E_SIZE_MISMATCH || !Corvane::IsFailure(report.status)) return {};
  const std::string what = WhatIsKept(report, circumstances);
  if (what.empty()) return {};
  const std::string kept = fmt::format("{} kept in {}", what, DisplayName(command.directory));
  // A listing over FTP tells all sizes; an empty file counts as one whose size is not known, and costs nothing.
  const bool tellsSizes = command.target.scheme == "ftp" || command.sizes || report.files.totalBytes;
  if (tellsSizes) return fmt::format("{}; continue with: {}--resume", kept, again);
  return kept +
         ", but the server's page tells no sizes: another run, also with --resume, removes them and begins anew; "
         "to continue, list the sizes with --sizes FILE";
}

}  // namespace CorvaneCli
