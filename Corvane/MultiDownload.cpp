#include <Corvane/MultiDownload.h>

#include <limits>
#include <utility>

#include <Corvane/Base/Dir.h>
#include <Corvane/Base/ErrorDict.h>
#include <Corvane/LogLineImpl.h>
#include <Corvane/MultiDownloadImpl.h>

// This source holds, in this order: the object and its run guard, the fetch of the listing, the check of what is there and of the disk
// space, the fetch loop with its verification, and the public class.

namespace Corvane {
namespace {

using ObjectGuard = ZGuardImpl<ZRecursiveMutex>;
using Impl = ZMultiDownload::ZMultiDownloadImpl;

ZString UnsignedNumber(unsigned long long number) { return ZString().SetNum(number, 'u'); }

// Sizes come from servers: a sum that would wrap stays at its largest value, so that no listing can talk the space check out.
unsigned long long AddSaturated(unsigned long long a, unsigned long long b) noexcept {
  return a + b < a ? std::numeric_limits<unsigned long long>::max() : a + b;
}

}  // namespace

// ---------------------------------------------------------------------------------------------------------------------
// Object and run guard
// ---------------------------------------------------------------------------------------------------------------------

Impl::ZMultiDownloadImpl() {
  m_transfer.DetectHttpError(true);  // an error page is no listing
  m_transfer.FollowAbort(m_abort);
  Reset();
}

void Impl::Reset() {
  const ObjectGuard guard(*this);
  m_resumeOffset = 0;
  m_completedBytes = 0;
  m_transferredBytes = 0;
  m_transferRate = 0;
  m_resume = false;
  m_abort = false;
  m_listing = false;
  m_statistics = Statistics();
  m_failure = Failure();
  m_startTime = ZDateTime::Now();
  m_elapsed.Set(0, 0, 0, 0, 0);
  SetStatus(TRANSFER_E_NOT_STARTED, ZGetErrorMsg(TRANSFER_E_NOT_STARTED));
  m_idle.Set();
  m_inProgress = false;
  m_transfer.Reset();
}

// A run that another thread has started since the caller looked is refused, not run over.
template <>
bool ZGuardImpl<Impl>::ZDoLock(Impl& run) {
  const ObjectGuard guard(run);
  if (run.m_inProgress) return false;
  run.Reset();
  run.m_inProgress = true;
  run.m_idle.Reset();
  run.m_startTime = ZDateTime::Now();
  return true;
}

template <>
void ZGuardImpl<Impl>::ZDoUnlock(Impl& run) {
  const ObjectGuard guard(run);
  run.m_idle.Set();
  run.m_inProgress = false;
}

template <class Set>
ZResult Impl::WhenIdle(Set set) {
  const ObjectGuard guard(*this);
  return m_inProgress ? BASE_E_BUSY : set();
}

ZResult Impl::Download(const ZString& url, const ZString& dir, bool resume) {
  if (m_inProgress) return BASE_E_BUSY;
  const ZInitGuard<Impl> run(*this);
  if (!run.IsHeld()) return BASE_E_BUSY;
  if (IsFailure(Config(url, dir, resume))) return m_status;
  // A list that is there already, the host's or that of an earlier run, is the set of files.
  if (m_fileSizes.empty() && IsFailure(FetchFileList())) return m_status;
  return FetchFiles();
}

ZResult Impl::Config(const ZString& url, const ZString& dir, bool resume) {
  m_targetDirectory = dir;
  m_resume = resume;
  m_url = url + L"/";
  if (m_url.GetProtocol().Length() == 0) m_url.SetProtocol(L"http");
  if (m_url.IsValid()) return BASE_S_OK;
  SetStatus(TRANSFER_E_INVALID_URL, ZGetErrorMsg(TRANSFER_E_INVALID_URL) + L", " + url);
  return m_status;
}

void Impl::Abort() {
  const ObjectGuard guard(*this);
  m_abort = true;
  m_transfer.Abort();
}

bool Impl::WaitUntilIdle(unsigned long milliseconds) {
  if (m_idle.Wait(milliseconds) != BASE_S_OK) return false;
  // The running thread may still hold the lock in its end step. Once it has let go it does not touch the object again.
  const ObjectGuard handshake(*this);
  return true;
}

void Impl::SetStatus(ZResult status, ZString text) {
  m_status = status;
  m_error.Set(std::move(text));
}

void Impl::AddCompleted(unsigned long long bytes) {
  const ObjectGuard guard(*this);
  m_completedBytes += bytes;
}

// What the running transfer has received of a file, without the part that was there.
unsigned long long Impl::BytesReceivedByTransfer() const {
  const unsigned long long size = m_listing ? 0 : m_transfer.GetDownloadSize();
  return size > m_resumeOffset ? size - m_resumeOffset : 0;
}

ZMultiDownload::Statistics Impl::GetStatistics() {
  const ObjectGuard guard(*this);
  Statistics statistics = m_statistics;
  statistics.receivedBytes += BytesReceivedByTransfer();
  return statistics;
}

// Keeps what is lost when the bookkeeping resets the transfer.
void Impl::KeepFailure() {
  const ObjectGuard guard(*this);
  m_failure.cause = m_transfer.GetCause(m_failure.text);
  m_transfer.GetHeader(m_failure.header);
}

// The bookkeeping after each transfer; the transfer's counters start from 0 again.
void Impl::UpdateStatus() {
  const ObjectGuard guard(*this);
  const ZDateTime now = ZDateTime::Now();
  m_elapsed = now.Compare(m_startTime) > 0 ? now - m_startTime : ZTimeSpan();
  m_transferredBytes += m_transfer.GetTransferSize();
  const auto elapsed = static_cast<long double>(m_elapsed.GetTotalMicroSeconds());
  const long double rate =
      elapsed > 0 ? static_cast<long double>(m_transferredBytes) / elapsed / 1024 * 1000 * 1000 : 0;  // KiB per second
  // Of a rate beyond the 64-bit range nothing is kept, of one beyond 32 bits the low half.
  m_transferRate = rate < 9223372036854775808.0L ? static_cast<unsigned int>(static_cast<long long>(rate)) : 0;
  m_statistics.receivedBytes += BytesReceivedByTransfer();
  if (!m_listing) m_completedBytes += m_transfer.GetDownloadSize();
  // A resumed transfer counts the part that was there, which CheckFreeSpaceAndUpdateCurSize has counted already.
  m_completedBytes -= m_resumeOffset;
  m_resumeOffset = 0;
  m_transfer.Reset();
}

// ---------------------------------------------------------------------------------------------------------------------
// Listing, decisions and disk space
// ---------------------------------------------------------------------------------------------------------------------

ZResult Impl::FetchFileList() {
  m_fileSizes.clear();
  m_listing = true;
  ZString body;
  const ZResult fetched = m_transfer.Download(m_url.ToString(), body);
  if (IsFailure(fetched)) {
    KeepFailure();
    // An aborted listing leaves the status as it is: nothing has been started.
    if (!m_abort) SetStatus(fetched, L"Failed to obtain the list of files to download: " + m_transfer.GetError());
  } else if (!m_abort) {
    if (IsHttp()) {
      ZString page;
      m_transfer.GetHeader(page);
      TakeFiles(ParseHttpListing(page.Append(body)));
    } else {
      TakeFiles(ParseFtpListing(body));
    }
  }
  UpdateStatus();
  m_listing = false;
  return fetched;
}

void Impl::TakeFiles(Listing listing) {
  for (ListingEntry& entry : listing.entries) {
    // Most listings are sorted; the hint then saves the search.
    if (entry.kind == ListingKind::File) {
      m_fileSizes.insert_or_assign(m_fileSizes.end(), std::move(entry.name), entry.size);
    }
  }
}

FileState Impl::GetFileState(const ZFileInfo& local, unsigned long long expectedSize, long expectedTime) {
  if (!local.IsValid()) return FILE_REFETCH;
  if (expectedTime > 0 && expectedTime > local.ModTime()) return FILE_REFETCH;
  if (local.Size() > expectedSize) return FILE_REFETCH;
  if (expectedSize == 0) return FILE_REFETCH;
  if (local.Size() == expectedSize) return FILE_COMPLETE;
  return FILE_PARTIAL;
}

// "https" too.
bool Impl::IsHttp() const { return m_url.GetProtocol().StartsWith(L"http", false); }

bool Impl::IsIgnored(const ZString& name) const {
  for (const ZString& ignored : m_ignoreList) {
    if (ignored.Compare(name) == 0) return true;
  }
  return false;
}

long Impl::GetFileTime(const ZString& name) const {
  const auto found = m_fileTimes.find(name);
  return found == m_fileTimes.end() ? 0 : found->second;
}

ZString Impl::GetFullPath(const ZString& name) const { return (m_targetDirectory / name).ToString(); }

// For the statistics. 0 stands for a size that is not known, but over FTP for that of an empty file.
void Impl::CountKnownFiles() {
  std::size_t files = 0;
  std::optional<unsigned long long> bytes = 0;
  const bool isHttp = IsHttp();
  for (const auto& [name, size] : m_fileSizes) {
    if (IsIgnored(name)) continue;
    ++files;
    if (size == 0 && isHttp) bytes.reset();
    if (bytes) bytes = AddSaturated(*bytes, size);
  }
  const ObjectGuard guard(*this);
  m_statistics.filesKnown = files;
  m_statistics.totalBytes = bytes;
}

// Counts what is present already, removes what is stale, and compares the space that the rest needs with what is free.
bool Impl::CheckFreeSpaceAndUpdateCurSize() {
  const ZString& directory = m_targetDirectory.ToString();
  ZDir::CreateR(directory);
  unsigned long long required = 0;
  for (const auto& [name, expectedSize] : m_fileSizes) {
    if (m_abort) return true;
    if (!IsIgnored(name)) required = AddSaturated(required, PrepareFile(name, expectedSize));
  }
  unsigned long long availableKb = 0;
  const ZResult asked = ZDir::GetFreeSpace(directory, availableKb);
  if (IsFailure(asked)) {
    SetStatus(TRANSFER_E_DISK_SPACE, ZString(L"Cannot obtain disk space required for downloading %1 to %2 (%3, %4)")
                                         .Arg(m_url.ToString())
                                         .Arg(directory)
                                         .Arg(UnsignedNumber(asked))
                                         .Arg(ZGetErrorMsg(asked)));
    return false;
  }
  const unsigned long long requiredKb = required >> 10;
  if (requiredKb <= availableKb) return true;
  SetStatus(TRANSFER_E_DISK_SPACE,
            ZString(L"Insufficient disk space to download %1 to %2. Required: %3 Kb. Available: %4 Kb.")
                .Arg(m_url.ToString())
                .Arg(directory)
                .Arg(UnsignedNumber(requiredKb))
                .Arg(UnsignedNumber(availableKb)));
  return false;
}

// The space in bytes that the file will need. A complete file stays in any case: without resume it is overwritten in place.
unsigned long long Impl::PrepareFile(const ZString& name, unsigned long long expectedSize) {
  const ZFileInfo local(GetFullPath(name), 0);
  const FileState state = GetFileState(local, expectedSize, GetFileTime(name));
  if (state == FILE_COMPLETE) {
    if (m_resume) AddCompleted(local.Size());
    return 0;
  }
  if (state == FILE_PARTIAL && m_resume) {
    AddCompleted(local.Size());
    return expectedSize - local.Size();
  }
  ZFile::Remove(local.Name(), 0);
  return expectedSize;
}

// ---------------------------------------------------------------------------------------------------------------------
// Fetch loop
// ---------------------------------------------------------------------------------------------------------------------

ZResult Impl::FetchFiles() {
  CountKnownFiles();
  if (!CheckFreeSpaceAndUpdateCurSize()) return m_status;
  SetStatus(TRANSFER_S_FINISHED, ZGetErrorMsg(TRANSFER_S_FINISHED));
  FileTimeList fetched;  // full path to expected time
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
  FileState state = FILE_REFETCH;
  const ZString path = GetFullPath(name);
  ZFileInfo local(path, 0);
  const long time = GetFileTime(name);
  if (m_resume) state = GetFileState(local, expectedSize, time);
  if (state == FILE_COMPLETE) {
    EndFile(&Statistics::filesSkipped);
    return true;
  }
  BeginFile(name, state == FILE_PARTIAL ? local.Size() : 0);
  m_status = m_transfer.DownloadFile((m_url / name).ToString(), path, state == FILE_PARTIAL);
  if (IsFailure(m_status)) {
    m_error.Set(m_transfer.GetError());
    KeepFailure();
    return false;
  }
  fetched.insert_or_assign(fetched.end(), path, time);  // the hint saves the search: names come in order
  if (!VerifyFile(local, expectedSize != 0 ? expectedSize : SizeToldByServer())) return false;
  ZFile::Chmod(path, 0755, 0);
  EndFile(state == FILE_PARTIAL ? &Statistics::filesResumed : &Statistics::filesFetched);
  return true;
}

void Impl::BeginFile(const ZString& name, unsigned long long resumeOffset) {
  const ObjectGuard guard(*this);
  m_statistics.fileName = name;
  m_resumeOffset = resumeOffset;
}

// Counts a file that is done.
void Impl::EndFile(std::size_t Statistics::*count) {
  const ObjectGuard guard(*this);
  ++(m_statistics.*count);
  m_statistics.fileName = ZString();
  UpdateStatus();
}

// 0 when the server has not told it.
unsigned long long Impl::SizeToldByServer() const {
  const unsigned long long size = m_transfer.GetContentSize();
  return size == std::numeric_limits<unsigned long long>::max() ? 0 : size;
}

// A size that differs is reported but does not end the run: the file is kept, and the next file's result replaces the status. Only a
// file that cannot be read ends it.
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

// ---------------------------------------------------------------------------------------------------------------------
// Public class
// ---------------------------------------------------------------------------------------------------------------------

ZMultiDownload::ZMultiDownload() : m_impl(std::make_unique<ZMultiDownloadImpl>()) {}

ZMultiDownload::~ZMultiDownload() {
  Abort();
  // An abort that met a run at its very beginning is lost; asking again once a second keeps the wait short.
  while (!Wait(1000)) Abort();
}

ZResult ZMultiDownload::SetCredentials(const ZString& user, const ZString& password) {
  return m_impl->WhenIdle([&] { return m_impl->m_transfer.SetCredentials(user, password); });
}

ZResult ZMultiDownload::Attach(ZTransfer::Observer* observer) {
  return m_impl->WhenIdle([&] { return m_impl->m_transfer.Attach(observer); });
}

ZResult ZMultiDownload::Detach(ZTransfer::Observer* observer) {
  return m_impl->WhenIdle([&] { return m_impl->m_transfer.Detach(observer); });
}

void ZMultiDownload::Notify(int event, long value) { m_impl->m_transfer.Notify(event, value); }

ZResult ZMultiDownload::UseThrottling(bool use) {
  return m_impl->WhenIdle([&] { return m_impl->m_transfer.UseThrottling(use); });
}

ZResult ZMultiDownload::SetTimeout(unsigned long seconds) {
  return m_impl->WhenIdle([&] { return m_impl->m_transfer.SetTimeout(seconds); });
}

// Takes no lock: it only looks at the flag, as ZTransfer::SetSSL does.
ZResult ZMultiDownload::SetSSL(bool verifyHost, bool verifyPeer, const ZString& caFile, const ZString& caDir) {
  if (m_impl->m_inProgress) return BASE_E_BUSY;
  return m_impl->m_transfer.SetSSL(verifyHost, verifyPeer, caFile, caDir);
}

ZResult ZMultiDownload::SetIgnoreList(const Container::ZStringList& names) {
  return m_impl->WhenIdle([&] {
    m_impl->m_ignoreList = names;
    return BASE_S_OK;
  });
}

ZResult ZMultiDownload::SetFileSizeList(const FileSizeList& sizes) {
  return m_impl->WhenIdle([&] {
    m_impl->m_fileSizes = sizes;
    return BASE_S_OK;
  });
}

ZResult ZMultiDownload::SetFileSizeList(const Container::ZMap<ZString, ZString, ZLtstr>& sizes) {
  return m_impl->WhenIdle([&] {
    m_impl->m_fileSizes.clear();
    for (const auto& [name, size] : sizes) m_impl->m_fileSizes[name] = size.ToULongLong(10);
    return BASE_S_OK;
  });
}

ZResult ZMultiDownload::SetFileTimeList(const FileTimeList& times) {
  return m_impl->WhenIdle([&] {
    m_impl->m_fileTimes = times;
    return BASE_S_OK;
  });
}

ZResult ZMultiDownload::SetFileTimeList(const Container::ZMap<ZString, ZString, ZLtstr>& times) {
  return m_impl->WhenIdle([&] {
    m_impl->m_fileTimes.clear();
    for (const auto& [name, time] : times) m_impl->m_fileTimes[name] = static_cast<long>(time.ToULong(10));
    return BASE_S_OK;
  });
}

long long ZMultiDownload::GetDownloadTime() const {
  const ObjectGuard guard(*m_impl);
  return static_cast<long long>(static_cast<double>(m_impl->m_elapsed.GetTotalMicroSeconds()) / 1000.0);
}

// While the transfer has counted fewer bytes than the file that it resumes holds, that file counts as it is.
unsigned long long ZMultiDownload::GetDownloadSize() const {
  const ObjectGuard guard(*m_impl);
  const unsigned long long downloaded = m_impl->m_transfer.GetDownloadSize();
  const unsigned long long offset = m_impl->m_resumeOffset;
  return m_impl->m_completedBytes + (downloaded >= offset ? downloaded - offset : offset);
}

unsigned long long ZMultiDownload::GetTransferSize() const {
  const ObjectGuard guard(*m_impl);
  return m_impl->m_transfer.GetTransferSize() + m_impl->m_transferredBytes;
}

unsigned int ZMultiDownload::GetTransferRate() const {
  const ObjectGuard guard(*m_impl);
  return m_impl->m_transferRate;
}

ZResult ZMultiDownload::GetStatus() const { return m_impl->m_status; }
const ZString& ZMultiDownload::GetError() const { return m_impl->m_error.ForThisThread(); }

ZResult ZMultiDownload::Abort() {
  m_impl->Abort();
  return BASE_S_OK;
}

ZMultiDownload::Statistics ZMultiDownload::GetStatistics() const { return m_impl->GetStatistics(); }

ZResult ZMultiDownload::GetCause(ZString& text, ZString& header) const {
  const ObjectGuard guard(*m_impl);
  text = m_impl->m_failure.text;
  header = m_impl->m_failure.header;
  return m_impl->m_failure.cause;
}

bool ZMultiDownload::Wait(unsigned long milliseconds) { return m_impl->WaitUntilIdle(milliseconds); }

ZResult ZMultiDownload::Download(const ZString& url, const ZString& dir, bool resume) {
  return m_impl->Download(url, dir, resume);
}

}  // namespace Corvane
