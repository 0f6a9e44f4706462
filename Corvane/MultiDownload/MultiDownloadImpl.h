#pragma once

#include <atomic>
#include <limits>
#include <vector>

#include <Corvane/Base/DateTime.h>
#include <Corvane/Base/File.h>
#include <Corvane/Base/Guard.h>
#include <Corvane/Base/Path.h>
#include <Corvane/Base/Sync.h>
#include <Corvane/Base/Url.h>
#include <Corvane/MultiDownload.h>
#include <Corvane/MultiDownload/FileStateImpl.h>
#include <Corvane/MultiDownload/ListingImpl.h>
#include <Corvane/PublishedTextImpl.h>

// This area mirrors one remote directory into one local directory. It owns the run over the list of files, what is
// counted on the way, and every decision about a local file. It uses the base library and one ZTransfer, of which it
// knows the public interface alone (and that it follows the run's abort); nothing else of the library uses it.
//
// Its rooms, from the bottom up:
//   ListingImpl.h      what servers show of a directory: functions over values (HttpListing, FtpListing, Listing)
//   FileStateImpl.h    what is to be done about one file: functions over values
//   LocalFilesImpl.h   what the file system says of one file
//   this header        FileList: the list of files and what it says of a name
//                      FreeSpace: what is there, and what room the rest needs
//                      FetchFiles: the loop over the files
//                      Counters: what the getters tell
//                      Run: the object and the bracket of a run
//                      MultiDownload: the public class
namespace Corvane {

using FileSizeList = Container::ZMap<ZString, unsigned long long, std::less<ZString>>;
using FileTimeList = Container::ZMap<ZString, long, std::less<ZString>>;
using ObjectGuard = ZGuardImpl<ZRecursiveMutex>;

// The state and the work behind one ZMultiDownload. The recursive mutex is held for short bookkeeping steps only, never
// across a network transfer.
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
  ZResult WhenIdle(Set set) {
    const ObjectGuard guard(*this);
    return m_inProgress ? BASE_E_BUSY : set();
  }

  ZResult Download(const ZString& url, const ZString& dir, bool resume);
  void Abort();
  bool WaitUntilIdle(unsigned long milliseconds);
  void Reset();

  // What the counters say, under the lock.
  [[nodiscard]] long long GetDownloadTime();
  [[nodiscard]] unsigned long long GetDownloadSize();
  [[nodiscard]] unsigned long long GetTransferSize();
  [[nodiscard]] unsigned int GetTransferRate();
  [[nodiscard]] Statistics GetStatistics();
  [[nodiscard]] std::vector<LeftOut> GetLeftOut();
  ZResult GetCause(ZString& text, ZString& header);

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
  std::vector<LeftOut> m_leftOut;      // guarded by the lock
  ZString m_query;                     // of the directory's page, with its "?"; empty without

 private:
  // Run.cpp
  ZResult Config(const ZString& url, const ZString& dir, bool resume);
  void SetStatus(ZResult status, ZString text);

  // FileList.cpp
  ZResult FetchFileList();
  ZResult FetchListing(Listing& listing);
  ZResult FailListing(ZResult code, const ZString& text);
  void TakeFiles(Listing listing);
  [[nodiscard]] bool IsHttp() const;
  [[nodiscard]] bool IsIgnored(const ZString& name) const;
  [[nodiscard]] long GetFileTime(const ZString& name) const;
  [[nodiscard]] ZString GetFullPath(const ZString& name) const;
  [[nodiscard]] FilePlan PlanFor(const ZString& name, unsigned long long expectedSize, const ZFileInfo& local) const;

  // FreeSpace.cpp
  bool CheckFreeSpaceAndUpdateCurSize();
  unsigned long long PrepareFile(const ZString& name, unsigned long long expectedSize);

  // FetchFiles.cpp
  ZResult FetchFiles();
  bool FetchFile(const ZString& name, unsigned long long expectedSize, FileTimeList& fetched);
  [[nodiscard]] unsigned long long SizeToldByServer() const;
  bool VerifyFile(ZFileInfo& local, unsigned long long expected);
  static bool UpdateTimeStamp(const ZString& path, long time);

  // Counters.cpp
  void CountListing(const Listing& listing);
  void CountKnownFiles();
  void AddCompleted(unsigned long long bytes);
  void BeginFile(const ZString& name, unsigned long long resumeOffset);
  void EndFile(std::size_t Statistics::*count);
  void UpdateStatus();
  void KeepFailure();
  void SetFailure(ZResult cause, const ZString& text);
  [[nodiscard]] unsigned long long BytesReceivedByTransfer() const;
};

// --- What the sources of the area share. ---

// Sizes come from servers: a sum that would wrap stays at its largest value, so that no listing can talk the space
// check out.
inline unsigned long long AddSaturated(unsigned long long a, unsigned long long b) noexcept {
  return a + b < a ? std::numeric_limits<unsigned long long>::max() : a + b;
}

}  // namespace Corvane
