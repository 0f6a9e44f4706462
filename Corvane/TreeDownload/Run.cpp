#include <Corvane/TreeDownload/RunImpl.h>

#include <cerrno>
#include <utility>

#include <Corvane/Base/ErrorDict.h>
#include <Corvane/LogLineImpl.h>
#include <Corvane/NumberTextImpl.h>
#include <Corvane/ShownUrlImpl.h>
#include <Corvane/TreeDownload/AddressImpl.h>

// The order of a run's steps, and what all of them report by.
namespace Corvane {

using Statistics = ZTreeDownload::Statistics;
using Phase = ZTreeDownload::Phase;

ZString ShownPath(const std::string& path) { return ZStringDecoder::FromUtf8(path.data(), path.size()); }

TreeRun::TreeRun(const TreeSettings& settings, Progress& progress, bool isPlan)
    : m_settings(settings), m_progress(progress), m_isPlan(isPlan), m_filter(settings.include, settings.exclude) {}

TreeRun::~TreeRun() { LetGoOfConnections(); }

// An abort wakes them up, on another thread.
void TreeRun::LetGoOfConnections() {
  m_progress.SetWakeUp(nullptr);
  m_connections.reset();
}

bool TreeRun::IsStopped() const noexcept { return m_isStopped || m_progress.IsAborted(); }

void TreeRun::CountRequests(std::size_t inFlight, std::size_t connections, unsigned long long requests) noexcept {
  m_progress.Update([&](Statistics& statistics) {
    statistics.inFlight = inFlight;
    statistics.connections = connections;
    statistics.requests = requests;
  });
}

void TreeRun::Run(const std::string& url, const char* directory) {
  if (!Begin(url, directory)) return;
  ListFolders();
  if (MayGoOn()) CompareFiles();
  if (MayGoOn() && m_settings.deleteOthers) PlanDeletes();
  if (!m_isPlan) {
    if (MayGoOn()) MakeFolders();
    const bool isRoomThere = MayGoOn() && CheckSpace();
    if (isRoomThere && m_settings.verify) FetchChecksums();
    if (isRoomThere && MayGoOn()) FetchFiles();
    if (isRoomThere && MayGoOn()) DeleteFiles();
    // Before another run may come.
    LetGoOfConnections();
    Tidy();
  }
  if (m_progress.IsAborted()) m_progress.Fail(TRANSFER_E_ABORTED, ZGetErrorMsg(TRANSFER_E_ABORTED));
}

bool TreeRun::MayGoOn() const noexcept { return !IsStopped(); }

bool TreeRun::Begin(const std::string& url, const char* directory) {
  const std::string top = DirectoryOf(url);
  const std::optional<Origin> origin = OriginOf(top);
  const bool isKnown = origin && (origin->scheme == "http" || origin->scheme == "https" || origin->scheme == "ftp");
  if (!isKnown || origin->host.empty()) {
    m_progress.Fail(TRANSFER_E_INVALID_URL, ZGetErrorMsg(TRANSFER_E_INVALID_URL) + L", " + ShownUrl(ShownPath(url)));
    return false;
  }
  m_isFtp = origin->scheme == "ftp";
  m_shownDirectory = ZStringDecoder::FromLocal(directory);
  if (!m_local.Open(directory, !m_isPlan) && !(m_isPlan && errno == ENOENT)) {
    const ZResult reason = ResultFromErrno(errno);
    m_progress.Fail(TRANSFER_E_DOWNLOAD, m_shownDirectory + L": " + ZGetErrorMsg(reason));
    return false;
  }
  const ZResult opened = m_isPlan ? BASE_S_OK : m_store.Open(*m_local.Top());
  if (IsFailure(opened)) {
    const ZString text =
        opened == BASE_E_IN_USE ? ZString(L"Another run is on in this directory") : ZGetErrorMsg(opened);
    m_progress.Fail(opened == BASE_E_IN_USE ? opened : TRANSFER_E_DOWNLOAD, m_shownDirectory + L": " + text);
    return false;
  }
  if (m_isPlan && m_local.IsOpen()) m_store.OpenToLook(*m_local.Top());
  m_tree = std::make_unique<Tree>(top);
  m_query = QueryOf(url);
  m_connections = std::make_unique<Connections>(m_settings.requests, *this);
  m_connections->Trust(url);
  m_progress.SetWakeUp([this] { m_connections->WakeUp(); });
  return true;
}

void TreeRun::Fail(ZResult code, const ZString& text) {
  LogLine(ZLogLevel::Warning, kTreeDownloadArea, [&] { return text; });
  m_progress.Fail(code, text);
  if (m_settings.stopAtFirstFailure) m_isStopped = true;
}

void TreeRun::Report(const Item& item) {
  const std::vector<ZTreeDownload::Observer*> observers = m_settings.observers;
  for (ZTreeDownload::Observer* const observer : observers) observer->Update(item);
}

void TreeRun::Finish(const Item& item, std::size_t Statistics::*count) {
  m_progress.Update([&](Statistics& statistics) { ++(statistics.*count); });
  Report(item);
}

void TreeRun::FailFile(Item item, ZResult code, const ZString& text) {
  item.result = code;
  item.text = text;
  Fail(code, ShownPath(item.path) + L": " + text);
  Finish(item, &Statistics::filesFailed);
}

void TreeRun::FailFolder(std::size_t folder, ZResult code, const ZString& text, Action action, Reason reason,
                         long httpStatus) {
  Item item;
  item.path = m_tree->PathOf(folder) + '/';
  item.isFolder = true;
  item.action = action;
  item.reason = reason;
  item.result = code;
  item.text = text;
  item.httpStatus = httpStatus;
  Fail(code, (folder == 0 ? ShownUrl(ShownPath(m_tree->UrlOf(0))) : ShownPath(item.path)) + L": " + text);
  Finish(item, &Statistics::foldersFailed);
}

const TreeFile& TreeRun::FileOf(const Wanted& wanted) const { return m_tree->Folder(wanted.folder).files[wanted.file]; }

TreeRun::Item TreeRun::ItemOf(const Wanted& wanted) const {
  const TreeFile& file = FileOf(wanted);
  Item item;
  item.path = m_tree->PathOf(wanted.folder, file.name);
  item.reason = wanted.reason;
  item.size = file.there.size;
  return item;
}

}  // namespace Corvane
