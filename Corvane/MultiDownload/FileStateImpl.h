#pragma once

namespace Corvane {

// What is to be done about one file, decided from values alone: what is there, what is expected, and whether to resume.

enum FileState {
  FILE_COMPLETE = 0,  // as large as expected and not stale
  FILE_PARTIAL = 1,   // smaller than expected: to be continued when resuming
  FILE_REFETCH = 2    // missing, stale, too large or of unknown size: to be fetched from its beginning
};

struct LocalFile {
  bool exists = false;
  unsigned long long size = 0;  // bytes
  long modTime = 0;             // seconds since the epoch
};

struct ExpectedFile {
  unsigned long long size = 0;  // bytes; 0: not known
  long time = 0;                // seconds since the epoch; 0: not known
};

// The first rule that applies decides.
[[nodiscard]] FileState GetFileState(const LocalFile& local, const ExpectedFile& expected) noexcept;

enum class FileAction {
  Keep,       // nothing to do
  Continue,   // fetch what is missing
  Overwrite,  // fetch all, over what is there
  Replace     // remove what is there, if anything, and fetch all
};

struct FilePlan {
  FileAction action = FileAction::Replace;
  unsigned long long bytesPresent = 0;  // that stay
  unsigned long long bytesNeeded = 0;   // on the disk, beyond what is there
};

[[nodiscard]] FilePlan PlanFile(const LocalFile& local, const ExpectedFile& expected, bool resume) noexcept;

}  // namespace Corvane
