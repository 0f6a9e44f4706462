#include <algorithm>
#include <ctime>
#include <utility>

#include <Corvane/NumberTextImpl.h>
#include <Corvane/ShownUrlImpl.h>
#include <Corvane/Transfer/AnswerHeaderImpl.h>
#include <Corvane/TreeDownload/AddressImpl.h>
#include <Corvane/TreeDownload/FailureTextImpl.h>
#include <Corvane/TreeDownload/PageImpl.h>
#include <Corvane/TreeDownload/RunImpl.h>

// What the server shows: a request for the page of each folder, which makes more of them.
namespace Corvane {
namespace {

using Statistics = ZTreeDownload::Statistics;

// A tree that goes deeper leads around, or is no tree that anybody has made.
constexpr unsigned int kDeepest = 64;

// Replies of an FTP server that does not know the command (RFC 959, section 4.2; RFC 2389, section 3.2).
bool IsCommandUnknown(long reply) { return reply == 500 || reply == 501 || reply == 502 || reply == 504; }

}  // namespace

class TreeRun::FolderJob final : public Job {
 public:
  FolderJob(TreeRun& run, std::size_t folder) : m_run(run), m_folder(folder) {}

  Order Ask() override {
    m_page.clear();
    Order order;
    order.url = m_run.m_tree->UrlOf(m_folder);
    if (m_folder == 0) order.url += m_run.m_query;
    if (m_run.m_isFtp && !m_run.m_isMlsdUnknown) order.command = "MLSD";
    m_isMlsd = !order.command.empty();
    return order;
  }

  // The directory itself may be elsewhere; what is in it is below it.
  [[nodiscard]] bool Follows(const std::string& url) override {
    return m_folder == 0 || IsBelow(m_run.m_tree->UrlOf(0), url);
  }

  bool Take(const Reply& /*reply*/, const char* data, std::size_t bytes) override {
    if (bytes > m_run.m_settings.mostPageBytes - m_page.size()) m_isTooLong = true;
    if (m_isTooLong) return false;
    m_page.append(data, bytes);
    m_run.m_progress.Update([&](Statistics& statistics) { statistics.listingBytes += bytes; });
    return true;
  }

  Next Finish(const Ending& end) override {
    const Ending ending = WithoutListing(end);
    if (m_isTooLong) {
      Fail(TRANSFER_E_DOWNLOAD,
           ZString(L"The page is longer than %1 bytes.").Arg(UnsignedNumber(m_run.m_settings.mostPageBytes)));
      return Next::Done;
    }
    if (m_isMlsd && ending.code != CURLE_OK && IsCommandUnknown(ending.reply.status)) {
      m_run.m_isMlsdUnknown = true;
      return Next::Again;
    }
    if (ending.ShouldRepeat()) return Next::Later;
    if (!ending.IsGood()) {
      Fail(CodeOfFailure(ending), TextOfFailure(ending), ending.reply.isHttp ? ending.reply.status : 0);
      return Next::Done;
    }
    if (!ending.reply.IsWhole()) {
      // A part of a page, say: what it does not show is not gone.
      Fail(TRANSFER_E_CONNECT,
           ZString(L"The server answered %1, which is not the page.").Arg(Number(ending.reply.status)),
           ending.reply.status);
      return Next::Done;
    }
    TakePage(ending);
    return Next::Done;
  }

 private:
  // To libcurl a listing that is refused with 450 is empty. It is one that did not come (RFC 959, section 4.2.2), and may come later.
  static Ending WithoutListing(Ending ending) {
    constexpr long kNotAvailable = 450;
    if (ending.code != CURLE_OK || ending.reply.isHttp || ending.reply.status != kNotAvailable) return ending;
    ending.code = CURLE_FTP_COULDNT_RETR_FILE;
    ending.text = "The server answered 450 in place of a listing.";
    ending.isPassing = true;
    return ending;
  }

  void Fail(ZResult code, const ZString& text, long httpStatus = 0) {
    m_run.m_isListingWhole = false;
    m_run.FailFolder(m_folder, code, text, Action::Refuse, Reason::NotComparable, httpStatus);
  }

  void TakePage(const Ending& ending) {
    const std::size_t most =
        m_run.m_settings.mostEntries - std::min<std::size_t>(m_run.m_settings.mostEntries, m_run.m_tree->EntryCount());
    Page page = Read(ending, most);
    if (page.isTooLong) {
      Fail(TRANSFER_E_DOWNLOAD,
           ZString(L"The tree has more than %1 entries.").Arg(UnsignedNumber(m_run.m_settings.mostEntries)));
      m_run.m_isStopped = true;
      return;
    }
    if (!page.isListing) return Fail(TRANSFER_E_DOWNLOAD, L"The page is no listing of a directory.");
    m_run.TakePage(m_folder, std::move(page), ending.url);
  }

  [[nodiscard]] Page Read(const Ending& ending, std::size_t most) const {
    if (m_isMlsd) return ReadMlsd(m_page, most);
    if (m_run.m_isFtp) return ReadList(m_page, std::time(nullptr), most);
    return ReadHtmlPage(m_page, ending.url, FieldOf(ending.reply.header, "Server").value_or(""), most);
  }

  TreeRun& m_run;
  const std::size_t m_folder;
  std::string m_page;
  bool m_isMlsd = false;
  bool m_isTooLong = false;
};

// All folders that are known, in the order in which they become so.
class TreeRun::FolderJobs final : public JobSource {
 public:
  explicit FolderJobs(TreeRun& run) : m_run(run) {}
  std::unique_ptr<Job> Next() override {
    while (m_next < m_run.m_tree->FolderCount() && m_run.m_tree->Folder(m_next).isBeyondDepth) ++m_next;
    return m_next < m_run.m_tree->FolderCount() ? std::make_unique<FolderJob>(m_run, m_next++) : nullptr;
  }

 private:
  TreeRun& m_run;
  std::size_t m_next = 0;
};

void TreeRun::ListFolders() {
  m_progress.Update([](Statistics& statistics) { statistics.phase = ZTreeDownload::Phase::Listing; });
  FolderJobs jobs(*this);
  if (!m_connections->Do(jobs)) m_isListingWhole = false;
}

void TreeRun::TakePage(std::size_t number, Page page, const std::string& url) {
  // Where a page came from is where it leads.
  const std::string directory = DirectoryOf(url);
  if (number == 0 || directory != m_tree->UrlOf(number)) m_tree->Folder(number).url = directory;
  const std::size_t leftOut = page.leftOut;
  std::vector<std::string> names = page.leftOutNames;
  m_tree->Take(number, std::move(page), m_filter, m_settings.mostDepth);
  const TreeFolder& folder = m_tree->Folder(number);
  m_progress.Update([&](Statistics& statistics) {
    ++statistics.folders;
    statistics.filesKnown += folder.files.size();
    statistics.leftOut += leftOut;
  });
  for (const std::string& name : names) {
    Item item;
    item.path = m_tree->PathOf(number, name);
    item.action = Action::LeaveOut;
    item.reason = Reason::NotPlain;
    Report(item);
  }
  if (folder.depth >= kDeepest && folder.folderCount != 0) {
    m_isListingWhole = false;
    FailFolder(number, TRANSFER_E_DOWNLOAD, ZString(L"The tree is more than %1 folders deep.").Arg(Number(kDeepest)),
               Action::Refuse, Reason::NotComparable);
  }
  if (m_tree->FolderCount() > m_settings.mostFolders) {
    m_isListingWhole = false;
    m_isStopped = true;
    FailFolder(number, TRANSFER_E_DOWNLOAD,
               ZString(L"The tree has more than %1 folders.").Arg(Number(m_settings.mostFolders)), Action::Refuse,
               Reason::NotComparable);
  }
}

}  // namespace Corvane
