#pragma once

#include <Corvane/Base/Sync.h>
#include <Corvane/TreeDownload.h>
#include <Corvane/TreeDownload/ProgressImpl.h>
#include <Corvane/TreeDownload/RunImpl.h>

// The area of whole trees: makes a local directory hold what a remote one holds. It uses the base library, libcurl's multi interface,
// OpenSSL's digests, and of the area Transfer what is said of answers (AnswerHeader, RequestedPart, FileVersion), what hosts may send
// (RequestHeaders) and the process-wide set-up and throttle; nothing else of the library uses it.
//
// Its rooms, from the bottom up. Pure, functions over values:
//   Page and its readers     what a server's page shows of a directory
//   Tree                     what all pages show, and the paths and addresses in it
//   Decision, Filter, Retry, Checksums, PartRecord, Address, Escaping, FailureText
// What is here:
//   LocalTree, FolderNames   folders, opened without following a link, and what stands in them
//   PartStore                the folder .corvane: its lock and the files that are under way
// What is asked for:
//   Job                      something to ask for, and what it says to the answer
//   Exchange, Connections    one request, and all of them on libcurl's multi handle
// A run:
//   Progress                 what other threads see of it, and how they end it
//   Run                      the order of its steps: ListFolders, CompareFiles, DeleteFiles (its plan), FetchChecksums, FetchFiles with
//                            FileJob, and DeleteFiles again
//   TreeDownload             the public class and its settings

namespace Corvane {

// The state behind one ZTreeDownload.
class ZTreeDownload::ZTreeDownloadImpl {
 public:
  ZTreeDownloadImpl();
  ~ZTreeDownloadImpl();
  ZTreeDownloadImpl(const ZTreeDownloadImpl&) = delete;
  ZTreeDownloadImpl& operator=(const ZTreeDownloadImpl&) = delete;

  ZResult SetOptions(const ZTreeOptions& options);
  ZResult SetSSL(bool verifyHost, bool verifyPeer, const ZString& caFile, const ZString& caDir);
  ZResult Run(const ZString& url, const ZString& dir, bool isPlan);
  bool Wait(unsigned long milliseconds);

  TreeSettings m_settings;
  Progress m_progress;

 private:
  void RunWithin(const ZString& url, const ZString& dir, bool isPlan);

  ZEvent m_idle{1};  // signalled while no run is on
  ZMutex m_endStep;  // held while a run begins and ends, so that who has waited may destroy the object
};

}  // namespace Corvane
