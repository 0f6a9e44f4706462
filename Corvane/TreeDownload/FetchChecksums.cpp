#include <algorithm>
#include <set>
#include <utility>

#include <Corvane/TreeDownload/FailureTextImpl.h>
#include <Corvane/TreeDownload/RunImpl.h>

// The lists of checksums that the server keeps beside its files.
namespace Corvane {

using Statistics = ZTreeDownload::Statistics;

namespace {

constexpr std::size_t kMostListBytes = std::size_t{64} << 20;

}  // namespace

class TreeRun::ChecksumsJob final : public Job {
 public:
  ChecksumsJob(TreeRun& run, std::size_t folder, Checksum::Kind kind) : m_run(run), m_folder(folder), m_kind(kind) {}

  Order Ask() override {
    m_text.clear();
    Order order;
    order.url = m_run.m_tree->UrlOf(m_folder, Name());
    return order;
  }

  bool Take(const Reply& /*reply*/, const char* data, std::size_t bytes) override {
    if (bytes > kMostListBytes - m_text.size()) return false;
    m_text.append(data, bytes);
    m_run.m_progress.Update([&](Statistics& statistics) { statistics.listingBytes += bytes; });
    return true;
  }

  Corvane::Next Finish(const Ending& ending) override {
    if (ending.ShouldRepeat()) return Corvane::Next::Later;
    FolderChecksums& checksums = m_run.m_checksums[m_folder];
    checksums.kind = m_kind;
    checksums.isLost = !ending.IsGood();
    if (!checksums.isLost) {
      checksums.list = ParseChecksums(m_text, m_kind);
      return Corvane::Next::Done;
    }
    // It is a file of the tree, too, and is told of as one.
    m_run.Fail(CodeOfFailure(ending),
               ShownPath(m_run.m_tree->PathOf(m_folder, Name())) + L": " + TextOfFailure(ending));
    return Corvane::Next::Done;
  }

 private:
  [[nodiscard]] const char* Name() const { return m_kind == Checksum::Kind::Sha512 ? kSha512List : kSha256List; }

  TreeRun& m_run;
  const std::size_t m_folder;
  const Checksum::Kind m_kind;
  std::string m_text;
};

// One list for each folder that has one and in which, or below which, files are to be fetched; of two the one with the longer sums.
class TreeRun::ChecksumsJobs final : public JobSource {
 public:
  explicit ChecksumsJobs(TreeRun& run) : m_run(run) {
    std::set<std::size_t> folders;
    for (const Wanted& wanted : m_run.m_wanted) {
      // What is above a folder that was seen was seen, too.
      for (std::size_t folder = wanted.folder; folders.insert(folder).second;
           folder = m_run.m_tree->Folder(folder).parent)
        continue;
    }
    m_folders.assign(folders.begin(), folders.end());
  }

  std::unique_ptr<Job> Next() override {
    while (m_next < m_folders.size()) {
      const std::size_t number = m_folders[m_next++];
      const TreeFolder& folder = m_run.m_tree->Folder(number);
      if (folder.hasSha512) return std::make_unique<ChecksumsJob>(m_run, number, Checksum::Kind::Sha512);
      if (folder.hasSha256) return std::make_unique<ChecksumsJob>(m_run, number, Checksum::Kind::Sha256);
    }
    return nullptr;
  }

 private:
  TreeRun& m_run;
  std::vector<std::size_t> m_folders;
  std::size_t m_next = 0;
};

void TreeRun::FetchChecksums() {
  ChecksumsJobs jobs(*this);
  m_connections->Do(jobs);
}

// The nearest list that knows the file counts. One that could not be fetched might.
std::optional<TreeRun::Expected> TreeRun::ExpectedChecksum(const Wanted& wanted) const {
  std::string name = FileOf(wanted).name;
  std::size_t number = wanted.folder;
  while (true) {
    if (const auto found = m_checksums.find(number); found != m_checksums.end()) {
      const FolderChecksums& checksums = found->second;
      if (checksums.isLost) return Expected{checksums.kind, {}, true};
      const auto entry = checksums.list.find(name);
      if (entry != checksums.list.end()) return Expected{checksums.kind, entry->second};
    }
    const TreeFolder& folder = m_tree->Folder(number);
    if (folder.parent == number) return std::nullopt;
    name.insert(0, 1, '/').insert(0, folder.name);
    number = folder.parent;
  }
}

}  // namespace Corvane
