#pragma once

#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <Corvane/Base/Result.h>
#include <Corvane/MultiDownload.h>
#include <Corvane/TransferErrorCodes.h>

#include "apps/corvane/ExitCode.h"

namespace CorvaneCli {

// How often each event came with each value.
using EventCounts = std::map<std::pair<int, unsigned int>, unsigned long long>;

// What is known of one run of a command when it has ended: what --json tells, and what messages are made from. Texts
// are UTF-8.
struct Report {
  std::string operation;  // "get", "post", "mirror", "sync"
  std::string url;
  std::optional<std::string> file;       // as the user named it
  std::optional<std::string> directory;  // of a mirror or a tree, whose report tells less about the single transfers
  ExitCode exitCode = ExitCode::kSuccess;
  std::string effectiveUrl;   // behind all redirects; empty when nothing was asked for
  long httpStatus = 0;        // of the last answer; 0 when there was none
  unsigned int attempts = 0;  // requests for the content that were made, the first included
  Corvane::ZResult status = Corvane::TRANSFER_E_NOT_STARTED;
  std::string libraryText;                                   // the library's text for `status`
  Corvane::ZResult cause = Corvane::TRANSFER_E_NOT_STARTED;  // see ZTransfer::GetCause
  std::string causeText;
  std::string error;               // what was printed; empty after a success
  std::vector<std::string> notes;  // printed behind the error: what is kept, and how to go on
  std::optional<unsigned long long> contentSize;
  unsigned long long downloadSize = 0;
  unsigned long long transferSize = 0;
  unsigned int transferRate = 0;  // KiB per second
  long long transferTimeMs = 0;
  std::string header;
  std::vector<std::pair<int, unsigned int>> events;  // of a single transfer
  EventCounts eventCounts;                           // of a mirror
  Corvane::ZMultiDownload::Statistics files;         // of a mirror
  std::vector<Corvane::LeftOut> leftOut;             // what a mirror did not take, the first of them
  std::optional<std::string> partial;                // where an incomplete download was kept
  std::optional<std::string> body;                   // what a command without -o received; unset when it has -o
};

}  // namespace CorvaneCli
