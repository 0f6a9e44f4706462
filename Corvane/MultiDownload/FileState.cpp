#include <Corvane/MultiDownload/FileStateImpl.h>

namespace Corvane {

FileState GetFileState(const LocalFile& local, const ExpectedFile& expected) noexcept {
  if (!local.exists) return FILE_REFETCH;
  if (expected.time > 0 && expected.time > local.modTime) return FILE_REFETCH;
  if (local.size > expected.size) return FILE_REFETCH;
  if (expected.size == 0) return FILE_REFETCH;
  if (local.size == expected.size) return FILE_COMPLETE;
  return FILE_PARTIAL;
}

FilePlan PlanFile(const LocalFile& local, const ExpectedFile& expected, bool resume) noexcept {
  const FileState state = GetFileState(local, expected);
  // A complete file needs no space, also when it is written again.
  if (state == FILE_COMPLETE)
    return resume ? FilePlan{FileAction::Keep, local.size, 0} : FilePlan{FileAction::Overwrite};
  if (state == FILE_PARTIAL && resume) return {FileAction::Continue, local.size, expected.size - local.size};
  return {FileAction::Replace, 0, expected.size};
}

}  // namespace Corvane
