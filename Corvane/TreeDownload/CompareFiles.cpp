#include <algorithm>
#include <cerrno>
#include <utility>

#include <Corvane/Base/ErrorDict.h>
#include <Corvane/TreeDownload/DecisionImpl.h>
#include <Corvane/TreeDownload/FailureTextImpl.h>
#include <Corvane/TreeDownload/RunImpl.h>

// What is to be done about each file: by what its listing shows, and where that shows too little by what the server answers for it.
namespace Corvane {

using Statistics = ZTreeDownload::Statistics;

// Asks for a file without its content.
class TreeRun::AnswerJob final : public Job {
 public:
  AnswerJob(TreeRun& run, const Wanted& file) : m_run(run), m_file(file) {}

  Order Ask() override {
    Order order;
    order.url = m_run.m_tree->UrlOf(m_file.folder, m_run.FileOf(m_file).name);
    order.withoutContent = true;
    return order;
  }
  // An FTP server's answer is told as lines of content by libcurl.
  bool Take(const Reply& /*reply*/, const char* /*data*/, std::size_t /*bytes*/) override { return true; }

  Next Finish(const Ending& ending) override {
    if (ending.ShouldRepeat()) return Next::Later;
    if (ending.code != CURLE_OK) {
      m_run.FailFile(m_run.ItemOf(m_file), CodeOfFailure(ending), TextOfFailure(ending));
      return Next::Done;
    }
    FileThere there;
    // A server that refuses the question may answer the request itself.
    if (ending.reply.IsAcceptable()) there = {ending.reply.contentLength, ending.reply.time};
    m_run.TakeAnswer(m_file, there);
    return Next::Done;
  }

 private:
  TreeRun& m_run;
  const Wanted m_file;
};

class TreeRun::AnswerJobs final : public JobSource {
 public:
  explicit AnswerJobs(TreeRun& run) : m_run(run) {}
  std::unique_ptr<Job> Next() override {
    return m_next < m_run.m_asked.size() ? std::make_unique<AnswerJob>(m_run, m_run.m_asked[m_next++]) : nullptr;
  }

 private:
  TreeRun& m_run;
  std::size_t m_next = 0;
};

void TreeRun::CompareFiles() {
  m_progress.Update([](Statistics& statistics) { statistics.phase = ZTreeDownload::Phase::Comparing; });
  for (std::size_t folder = 0; folder < m_tree->FolderCount() && MayGoOn(); ++folder) {
    if (m_tree->Folder(folder).isListed) CompareFolder(folder);
  }
  AnswerJobs jobs(*this);
  if (MayGoOn()) m_connections->Do(jobs);
  m_asked = {};
  CountWanted();
}

void TreeRun::CompareFolder(std::size_t number) {
  const LocalTree::Folder here = m_local.IsOpen() ? m_local.Open(*m_tree, number, false) : nullptr;
  const int error = here == nullptr && m_local.IsOpen() ? errno : 0;
  if (error != 0 && error != ENOENT) return RefuseFolder(number, error);
  const TreeFolder& folder = m_tree->Folder(number);
  for (std::size_t i = 0; i < folder.files.size() && MayGoOn(); ++i) {
    const TreeFile& file = folder.files[i];
    const FileHere local = here != nullptr ? LocalTree::Look(*here, file.name.c_str()) : FileHere();
    const Wanted wanted{static_cast<std::uint32_t>(number), static_cast<std::uint32_t>(i)};
    if (local.error != 0) {
      RefuseFile(wanted, Reason::None, ZGetErrorMsg(ResultFromErrno(local.error)));
    } else {
      Decide(wanted, DecideByListing(local, file.there));
    }
  }
}

// One that cannot be entered. Its files are told, too: they are on the server, and will not be here.
void TreeRun::RefuseFolder(std::size_t number, int error) {
  const bool isInTheWay = error == ENOTDIR;
  const Reason reason = isInTheWay ? Reason::InTheWay : Reason::None;
  const ZString cause = ZGetErrorMsg(ResultFromErrno(error));
  m_closedFolders.insert(number);
  FailFolder(number, TRANSFER_E_DOWNLOAD, isInTheWay ? L"Something that is no folder stands in its place." : cause,
             Action::Refuse, reason);
  const ZString text = isInTheWay ? ZString(L"Something that is no folder stands in the place of its folder.")
                                  : ZString(L"Its folder cannot be entered: %1").Arg(cause);
  const std::size_t count = m_tree->Folder(number).files.size();
  for (std::size_t i = 0; i < count && MayGoOn(); ++i)
    RefuseFile({static_cast<std::uint32_t>(number), static_cast<std::uint32_t>(i)}, reason, text);
}

void TreeRun::RefuseFile(const Wanted& file, Reason reason, const ZString& text) {
  Item item = ItemOf(file);
  item.action = Action::Refuse;
  item.reason = reason;
  FailFile(std::move(item), TRANSFER_E_DOWNLOAD, text);
}

void TreeRun::Decide(const Wanted& file, const Decision& decision) {
  Wanted wanted = file;
  wanted.reason = decision.reason;
  switch (decision.verdict) {
    case Verdict::Keep:
      return KeepFile(wanted, decision.reason);
    case Verdict::Ask:
      m_asked.push_back(wanted);
      return;
    case Verdict::AskWhetherModified:
      wanted.onlyIfModified = true;
      return Want(wanted);
    case Verdict::Fetch:
      // A plan tells sizes; a run learns them when the files come.
      if (m_isPlan && !FileOf(wanted).there.size) {
        m_asked.push_back(wanted);
        return;
      }
      return Want(wanted);
    case Verdict::Refuse:
      return RefuseFile(wanted, decision.reason, L"Something that is no file stands in its place.");
  }
}

// What the server answered holds for the file's fetching, too.
void TreeRun::TakeAnswer(const Wanted& file, const FileThere& there) {
  const std::string& name = FileOf(file).name;
  if (there.size) m_tree->Folder(file.folder).files[file.file].there.size = there.size;
  const LocalTree::Folder folder = m_local.IsOpen() ? m_local.Open(*m_tree, file.folder, false) : nullptr;
  const FileHere here = folder != nullptr ? LocalTree::Look(*folder, name.c_str()) : FileHere();
  if (here.kind != FileHere::Kind::File) return Want(file);
  Wanted wanted = file;
  const Decision decision = DecideByAnswer(here, there);
  wanted.reason = decision.reason;
  if (decision.verdict == Verdict::Keep) return KeepFile(wanted, decision.reason);
  wanted.onlyIfModified = decision.verdict == Verdict::AskWhetherModified;
  Want(wanted);
}

void TreeRun::KeepFile(const Wanted& file, Reason reason) {
  Item item = ItemOf(file);
  item.action = Action::Keep;
  item.reason = reason;
  Finish(item, &Statistics::filesKept);
}

void TreeRun::Want(const Wanted& file) {
  m_wanted.push_back(file);
  if (!m_isPlan) return;
  Item item = ItemOf(file);
  item.action = m_store.Holds(item.path) ? Action::Continue : Action::Fetch;
  Report(item);
}

void TreeRun::CountWanted() {
  // As the listings have them, whatever order the answers came in.
  std::sort(m_wanted.begin(), m_wanted.end(), [](const Wanted& a, const Wanted& b) {
    return a.folder != b.folder ? a.folder < b.folder : a.file < b.file;
  });
  bool areSizesKnown = true;
  m_wantedBytes = 0;
  for (const Wanted& wanted : m_wanted) {
    const std::optional<unsigned long long>& size = FileOf(wanted).there.size;
    areSizesKnown = areSizesKnown && size;
    // Sizes come from servers: a sum that would wrap stays at its largest value.
    if (__builtin_add_overflow(m_wantedBytes, size.value_or(0), &m_wantedBytes)) m_wantedBytes = ~0ULL;
  }
  m_progress.Update([&](Statistics& statistics) {
    statistics.filesToFetch = m_wanted.size();
    if (areSizesKnown) statistics.totalBytes = m_wantedBytes;
  });
}

}  // namespace Corvane
