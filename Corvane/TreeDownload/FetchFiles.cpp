#include <sys/statvfs.h>

#include <cerrno>
#include <memory>

#include <Corvane/Base/ErrorDict.h>
#include <Corvane/NumberTextImpl.h>
#include <Corvane/ShownUrlImpl.h>
#include <Corvane/TreeDownload/FileJobImpl.h>

// The folders, the room for what is to come, and the files.
namespace Corvane {

using Statistics = ZTreeDownload::Statistics;

class TreeRun::FileJobs final : public JobSource {
 public:
  explicit FileJobs(TreeRun& run) : m_run(run) {}
  std::unique_ptr<Job> Next() override {
    return m_next < m_run.m_wanted.size() ? std::make_unique<FileJob>(m_run, m_run.m_wanted[m_next++]) : nullptr;
  }

 private:
  TreeRun& m_run;
  std::size_t m_next = 0;
};

// Empty ones, too; with patterns of what is wanted only those that get a file.
void TreeRun::MakeFolders() {
  for (std::size_t number = 0; number < m_tree->FolderCount() && MayGoOn(); ++number) {
    const TreeFolder& folder = m_tree->Folder(number);
    const bool isWanted = folder.isListed && (m_settings.include.empty() || folder.includesAll);
    // Of one that cannot be entered has been told.
    if (!isWanted || m_closedFolders.count(number) != 0 || m_local.Open(*m_tree, number, true) != nullptr) continue;
    FailFolder(number, TRANSFER_E_DOWNLOAD, ZGetErrorMsg(ResultFromErrno(errno)), Action::Refuse, Reason::None);
  }
}

// For what the server tells the size of.
bool TreeRun::CheckSpace() {
  unsigned long long present = 0;
  for (const Wanted& wanted : m_wanted) {
    m_unfinished.insert(m_tree->PathOf(wanted.folder, FileOf(wanted).name));
  }
  for (const std::string& path : m_unfinished) present += m_store.SizeOf(path);
  const unsigned long long required = m_wantedBytes > present ? m_wantedBytes - present : 0;
  struct statvfs status {};
  if (fstatvfs(m_local.Top()->Get(), &status) != 0) return true;  // a file that does not fit will tell
  unsigned long long available = 0;
  if (__builtin_mul_overflow(static_cast<unsigned long long>(status.f_bavail), status.f_frsize, &available))
    available = ~0ULL;
  if (required <= available) return true;
  m_progress.Fail(TRANSFER_E_DISK_SPACE,
                  ZString(L"Insufficient disk space to download %1 to %2. Required: %3 Kb. Available: %4 Kb.")
                      .Arg(ShownUrl(ShownPath(m_tree->UrlOf(0))))
                      .Arg(m_shownDirectory)
                      .Arg(UnsignedNumber(required >> 10U))
                      .Arg(UnsignedNumber(available >> 10U)));
  return false;
}

void TreeRun::FetchFiles() {
  m_progress.Update([](Statistics& statistics) { statistics.phase = ZTreeDownload::Phase::Fetching; });
  FileJobs jobs(*this);
  m_connections->Do(jobs);
}

}  // namespace Corvane
