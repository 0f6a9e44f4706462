#include <limits>

#include <Corvane/Base/ErrorDict.h>
#include <Corvane/LogLineImpl.h>
#include <Corvane/MultiDownload/MultiDownloadImpl.h>
#include <Corvane/NumberTextImpl.h>

// The loop over the files: the fetch of each with its verification, and the times in the end.
namespace Corvane {

using Impl = ZMultiDownload::ZMultiDownloadImpl;

ZResult Impl::FetchFiles() {
  CountKnownFiles();
  if (!CheckFreeSpaceAndUpdateCurSize()) return m_status;
  SetStatus(TRANSFER_S_FINISHED, ZGetErrorMsg(TRANSFER_S_FINISHED));
  FileTimeList fetched;  // full path to expected time, where one is known
  for (const auto& [name, expectedSize] : m_fileSizes) {
    if (m_abort || !FetchFile(name, expectedSize, fetched)) break;
  }
  // Also after a failure or an abort, for what was fetched until then.
  for (const auto& [path, time] : fetched) UpdateTimeStamp(path, time);
  UpdateStatus();
  if (m_abort && !IsFailure(m_status)) SetStatus(TRANSFER_E_ABORTED, ZGetErrorMsg(TRANSFER_E_ABORTED));
  return m_status;
}

// False ends the loop.
bool Impl::FetchFile(const ZString& name, unsigned long long expectedSize, FileTimeList& fetched) {
  if (IsIgnored(name)) {
    UpdateStatus();
    return true;
  }
  ZFileInfo local(GetFullPath(name), 0);
  // Decided anew: a file may have changed since the space was checked.
  const FilePlan plan = PlanFor(name, expectedSize, local);
  if (plan.action == FileAction::Keep) {
    EndFile(&Statistics::filesSkipped);
    return true;
  }
  const bool resume = plan.action == FileAction::Continue;
  BeginFile(name, plan.bytesPresent);
  if (plan.action == FileAction::Replace && local.IsValid() && !local.IsRegularFile()) {
    SetStatus(TRANSFER_E_DOWNLOAD,
              ZString(L"Failed to open output file %1: %2").Arg(local.Name()).Arg(ZGetErrorMsg(BASE_E_NOT_A_FILE)));
    return false;
  }
  m_status = m_transfer.DownloadFile((m_url / name).ToString(), local.Name(), resume);
  if (IsFailure(m_status)) {
    m_error.Set(m_transfer.GetError());
    KeepFailure();
    return false;
  }
  // Names come in order: the hint saves the search.
  if (const long time = GetFileTime(name); time != 0) fetched.insert_or_assign(fetched.end(), local.Name(), time);
  if (!VerifyFile(local, expectedSize != 0 ? expectedSize : SizeToldByServer())) return false;
  ZFile::Chmod(local.Name(), 0755, 0);
  EndFile(resume ? &Statistics::filesResumed : &Statistics::filesFetched);
  return true;
}

// 0 when the server has not told it.
unsigned long long Impl::SizeToldByServer() const {
  const unsigned long long size = m_transfer.GetContentSize();
  return size == std::numeric_limits<unsigned long long>::max() ? 0 : size;
}

// A size that differs is reported but does not end the run: the file is kept, and the next file's result replaces the
// status. Only a file that cannot be read ends it.
bool Impl::VerifyFile(ZFileInfo& local, unsigned long long expected) {
  if (expected == 0) return true;
  const ZResult read = local.Update();
  if (IsFailure(read)) {
    SetStatus(TRANSFER_E_SIZE_MISMATCH, ZString(L"%1, cannot get file %2 size: %3")
                                            .Arg(ZGetErrorMsg(TRANSFER_E_SIZE_MISMATCH))
                                            .Arg(local.Name())
                                            .Arg(ZGetErrorMsg(read)));
    return false;
  }
  if (local.Size() == expected) return true;
  {
    const ObjectGuard guard(*this);
    ++m_statistics.filesMismatched;
  }
  SetStatus(TRANSFER_E_SIZE_MISMATCH, ZString(L"%1, File: %2 Size: %3 Expected size: %4")
                                          .Arg(ZGetErrorMsg(TRANSFER_E_SIZE_MISMATCH))
                                          .Arg(local.Name())
                                          .Arg(UnsignedNumber(local.Size()))
                                          .Arg(UnsignedNumber(expected)));
  return true;
}

bool Impl::UpdateTimeStamp(const ZString& path, long time) {
  if (time == 0) return true;
  const ZResult set = ZFile::SetTime(path, time, time);
  if (!IsFailure(set)) return true;
  LogLine(
      ZLogLevel::Critical, kMultiDownloadArea,
      [&] {
        return ZString(L"Failed to set file %1 time (%2, %3).")
            .Arg(path)
            .Arg(UnsignedNumber(set))
            .Arg(ZGetErrorMsg(set));
      },
      1276);
  return false;
}

}  // namespace Corvane
