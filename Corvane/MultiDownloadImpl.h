#pragma once

#include <atomic>

#include <Corvane/Base/DateTime.h>
#include <Corvane/Base/File.h>
#include <Corvane/Base/Guard.h>
#include <Corvane/Base/Path.h>
#include <Corvane/Base/Sync.h>
#include <Corvane/Base/Url.h>
#include <Corvane/MultiDownload.h>
#include <Corvane/MultiDownload/ListingImpl.h>
#include <Corvane/PublishedTextImpl.h>

namespace Corvane {

using FileSizeList = Container::ZMap<ZString, unsigned long long, std::less<ZString>>;
using FileTimeList = Container::ZMap<ZString, long, std::less<ZString>>;

// What is to be done about one file.
enum FileState {
  FILE_COMPLETE = 0,  // as large as expected and not stale
  FILE_PARTIAL = 1,   // smaller than expected: to be continued when resuming
  FILE_REFETCH = 2    // missing, stale, too large or of unknown size: to be fetched from its beginning
};

// The state and the work behind one ZMultiDownload. The recursive mutex is held for short bookkeeping steps only, never across a
// network transfer.
class ZMultiDownload::ZMultiDownloadImpl : public ZRecursiveMutex {
 public:
  // What is known of the transfer that ended a run.
  struct Failure {
    ZResult cause = TRANSFER_E_NOT_STARTED;
    ZString text;
    ZString header;
  };

  ZMultiDownloadImpl();
  ZMultiDownloadImpl(const ZMultiDownloadImpl&) = delete;
  ZMultiDownloadImpl& operator=(const ZMultiDownloadImpl&) = delete;

  // Runs `set` under the lock unless a Download runs.
  template <class Set>
  ZResult WhenIdle(Set set);

  ZResult Download(const ZString& url, const ZString& dir, bool resume);
  void Abort();
  bool WaitUntilIdle(unsigned long milliseconds);
  void Reset();

  [[nodiscard]] Statistics GetStatistics();

  [[nodiscard]] static FileState GetFileState(const ZFileInfo& local, unsigned long long expectedSize,
                                              long expectedTime);

  // --- Members in the order of their construction. ---
  ZTransfer m_transfer;                       // for the listing and every file, one after the other
  std::atomic<bool> m_inProgress{false};      // changed under the lock, read anywhere
  ZEvent m_idle{1};                           // signalled while no Download runs
  unsigned long long m_resumeOffset = 0;      // guarded by the lock; size of the partial file that is being resumed
  unsigned long long m_completedBytes = 0;    // guarded by the lock; present before or downloaded in this run
  unsigned long long m_transferredBytes = 0;  // guarded by the lock; moved by the finished transfers of this run
  unsigned int m_transferRate = 0;            // guarded by the lock; KiB per second
  Container::ZStringList m_ignoreList;
  FileSizeList m_fileSizes;  // the files to fetch; 0: size unknown
  FileTimeList m_fileTimes;
  std::atomic<ZResult> m_status{TRANSFER_E_NOT_STARTED};
  PublishedText m_error;
  ZUrl m_url;  // ends with "/"
  ZPath m_targetDirectory;
  bool m_resume = false;
  ZDateTime m_startTime = ZDateTime::Now();
  ZTimeSpan m_elapsed;
  std::atomic<bool> m_abort{false};
  std::atomic<bool> m_listing{false};  // the listing, not a file, is being fetched
  Statistics m_statistics;             // guarded by the lock; receivedBytes without those of the running transfer
  Failure m_failure;                   // guarded by the lock

 private:
  ZResult Config(const ZString& url, const ZString& dir, bool resume);
  ZResult FetchFileList();
  ZResult FetchFiles();
  bool FetchFile(const ZString& name, unsigned long long expectedSize, FileTimeList& fetched);
  bool CheckFreeSpaceAndUpdateCurSize();
  void CountKnownFiles();
  void KeepFailure();
  unsigned long long PrepareFile(const ZString& name, unsigned long long expectedSize);
  [[nodiscard]] unsigned long long SizeToldByServer() const;
  bool VerifyFile(ZFileInfo& local, unsigned long long expected);
  static bool UpdateTimeStamp(const ZString& path, long time);
  void UpdateStatus();
  [[nodiscard]] unsigned long long BytesReceivedByTransfer() const;

  [[nodiscard]] bool IsHttp() const;
  [[nodiscard]] bool IsIgnored(const ZString& name) const;
  [[nodiscard]] long GetFileTime(const ZString& name) const;
  [[nodiscard]] ZString GetFullPath(const ZString& name) const;
  void AddCompleted(unsigned long long bytes);
  void BeginFile(const ZString& name, unsigned long long resumeOffset);
  void EndFile(std::size_t Statistics::*count);
  void TakeFiles(Listing listing);
  void SetStatus(ZResult status, ZString text);
};

}  // namespace Corvane
