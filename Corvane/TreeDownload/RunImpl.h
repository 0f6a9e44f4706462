#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include <Corvane/TreeDownload.h>
#include <Corvane/TreeDownload/ChecksumsImpl.h>
#include <Corvane/TreeDownload/ConnectionsImpl.h>
#include <Corvane/TreeDownload/FilterImpl.h>
#include <Corvane/TreeDownload/LocalTreeImpl.h>
#include <Corvane/TreeDownload/PartStoreImpl.h>
#include <Corvane/TreeDownload/ProgressImpl.h>
#include <Corvane/TreeDownload/TreeImpl.h>

namespace Corvane {

// What a host has set, as a run needs it.
struct TreeSettings {
  RequestSettings requests;
  std::vector<std::string> include;
  std::vector<std::string> exclude;
  unsigned int mostDepth = 64;
  bool deleteOthers = false;
  std::optional<unsigned long long> mostDeletes;
  bool verify = false;
  bool stopAtFirstFailure = false;
  unsigned int mostFolders = 100000;
  unsigned int mostEntries = 10000000;
  unsigned long long mostPageBytes = 128ULL << 20;
  std::vector<ZTreeDownload::Observer*> observers;
};

// One run over a tree: what the server shows (ListFolders), what is to be done (CompareFiles, DeletePlan), and what is done (FetchFiles,
// FetchChecksums, DeleteFiles). A plan ends before the last three. Lives on the run's thread.
class TreeRun final : public ConnectionsOwner {
 public:
  using Item = ZTreeDownload::Item;
  using Action = ZTreeDownload::Action;
  using Reason = ZTreeDownload::Reason;

  TreeRun(const TreeSettings& settings, Progress& progress, bool isPlan);
  ~TreeRun() override;

  // Leaves the outcome in the progress.
  void Run(const std::string& url, const char* directory);

  [[nodiscard]] bool IsStopped() const noexcept override;
  void CountRequests(std::size_t inFlight, std::size_t connections, unsigned long long requests) noexcept override;

 private:
  class FolderJob;
  class FolderJobs;
  class AnswerJob;
  class AnswerJobs;
  class ChecksumsJob;
  class ChecksumsJobs;
  class FileJob;
  class FileJobs;
  class SurplusSearch;

  // A file that has to be asked for.
  struct Wanted {
    std::uint32_t folder = 0;
    std::uint32_t file = 0;
    Reason reason = Reason::Missing;
    bool onlyIfModified = false;  // since the time of the file here
  };
  // A file here that the server does not list.
  struct Surplus {
    std::string path;
    unsigned long long size = 0;
  };

  // Run.cpp
  bool Begin(const std::string& url, const char* directory);
  void LetGoOfConnections();
  void Fail(ZResult code, const ZString& text);
  void Report(const Item& item);
  void Finish(const Item& item, std::size_t ZTreeDownload::Statistics::*count);
  void FailFile(Item item, ZResult code, const ZString& text);
  void FailFolder(std::size_t folder, ZResult code, const ZString& text, Action action, Reason reason,
                  long httpStatus = 0);
  [[nodiscard]] Item ItemOf(const Wanted& wanted) const;
  [[nodiscard]] const TreeFile& FileOf(const Wanted& wanted) const;
  [[nodiscard]] bool MayGoOn() const noexcept;

  // ListFolders.cpp
  void ListFolders();
  void TakePage(std::size_t folder, Page page, const std::string& url);

  // CompareFiles.cpp
  void CompareFiles();
  void CompareFolder(std::size_t folder);
  void RefuseFolder(std::size_t folder, int error);
  void RefuseFile(const Wanted& file, Reason reason, const ZString& text);
  void Decide(const Wanted& file, const Decision& decision);
  void TakeAnswer(const Wanted& file, const FileThere& there);
  void KeepFile(const Wanted& file, Reason reason);
  void Want(const Wanted& file);
  void CountWanted();

  // FetchFiles.cpp
  void MakeFolders();
  bool CheckSpace();
  void FetchFiles();

  // FetchChecksums.cpp
  void FetchChecksums();
  struct Expected {
    Checksum::Kind kind = Checksum::Kind::Sha256;
    std::string digits;   // empty: the list contradicts itself
    bool isLost = false;  // there is a list, and it could not be fetched
  };
  [[nodiscard]] std::optional<Expected> ExpectedChecksum(const Wanted& wanted) const;

  // DeleteFiles.cpp
  void PlanDeletes();
  [[nodiscard]] static Item ItemOf(const Surplus& surplus);
  [[nodiscard]] LocalTree::Folder FolderOf(const std::string& path) const;
  void FailSurplusFolder(const std::string& path, int error);
  void DeleteFiles();
  void DeleteFolder(const std::string& path);
  void Tidy();

  const TreeSettings& m_settings;
  Progress& m_progress;
  const bool m_isPlan;
  const Filter m_filter;
  bool m_isFtp = false;
  bool m_isMlsdUnknown = false;
  bool m_isStopped = false;      // by a failure that ends the run
  bool m_isFull = false;         // the disk
  bool m_isListingWhole = true;  // every page came
  std::string m_query;           // of the directory's own page, with its "?"
  ZString m_shownDirectory;
  std::unique_ptr<Tree> m_tree;
  LocalTree m_local;
  PartStore m_store;
  std::vector<Wanted> m_asked;           // to be compared by an answer
  std::vector<Wanted> m_wanted;          // to be fetched
  unsigned long long m_wantedBytes = 0;  // of those whose size is known
  struct FolderChecksums {
    Checksum::Kind kind = Checksum::Kind::Sha256;
    bool isLost = false;
    ChecksumList list;
  };
  std::map<std::size_t, FolderChecksums> m_checksums;
  std::set<std::size_t> m_closedFolders;  // here, and could not be opened, which has been told
  std::vector<Surplus> m_surplus;
  std::vector<std::string> m_surplusFolders;  // the deepest first
  std::set<std::string> m_unfinished;         // paths of files that are not done
  // The last member: what is under way refers to all others.
  std::unique_ptr<Connections> m_connections;
};

[[nodiscard]] ZString ShownPath(const std::string& path);

}  // namespace Corvane
