#include <algorithm>
#include <utility>

#include <Corvane/Base/ErrorDict.h>
#include <Corvane/MultiDownload/MultiDownloadImpl.h>
#include <Corvane/ShownUrlImpl.h>

// The object, and the bracket of a run.
namespace Corvane {

using Impl = ZMultiDownload::ZMultiDownloadImpl;

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
  m_leftOut.clear();
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

ZResult Impl::Download(const ZString& url, const ZString& dir, bool resume) {
  if (m_inProgress) return BASE_E_BUSY;
  const ZInitGuard<Impl> run(*this);
  if (!run.IsHeld()) return BASE_E_BUSY;
  if (IsFailure(Config(url, dir, resume))) return m_status;
  // A list that is there already, the host's or that of an earlier run, is the set of files.
  if (m_fileSizes.empty() && IsFailure(FetchFileList())) return m_status;
  return FetchFiles();
}

// What an address bar shows may end with a query, which orders the directory's page, and with a fragment, which no
// server is sent. The names of files join the path before both.
ZResult Impl::Config(const ZString& url, const ZString& dir, bool resume) {
  m_targetDirectory = dir;
  m_resume = resume;
  const ZString sent = url.Substr(0, url.Find(L'#'));
  const ZString::size_type query = std::min(sent.Find(L'?'), sent.Length());
  m_query = sent.Substr(query);
  m_url = sent.Substr(0, query) + L"/";
  if (m_url.GetProtocol().Length() == 0) m_url.SetProtocol(L"http");
  if (m_url.IsValid() && ZUrl(m_url.ToString() + m_query).IsValid()) return BASE_S_OK;
  SetStatus(TRANSFER_E_INVALID_URL, ZGetErrorMsg(TRANSFER_E_INVALID_URL) + L", " + ShownUrl(url));
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

}  // namespace Corvane
