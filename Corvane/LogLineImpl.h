#pragma once

#include <Corvane/Base/Log.h>

namespace Corvane {

// The areas of the transfer library under whose names lines are logged, wherever in an area they are written.
inline constexpr const char* kTransferArea = "Corvane/Transfer";
inline constexpr const char* kMultiDownloadArea = "Corvane/MultiDownload";
inline constexpr const char* kTreeDownloadArea = "Corvane/TreeDownload";

// Writes a line when its level is enabled; the message is built only then.
template <class Build>
void LogLine(ZLogLevel level, const char* area, Build build, int line = __builtin_LINE()) {
  ZLogger* const logger = ZLog::GetLogger();
  if (logger->IsEnabled(level)) logger->Write(level, build(), area, line);
}

// Runs what a destructor needs although it may write to the host's logger, which may throw.
template <class Step>
void WithoutThrowing(Step step) noexcept {
  try {
    step();
  } catch (...) {  // NOLINT(bugprone-empty-catch): a destructor has nobody to tell
  }
}

}  // namespace Corvane
