#include <Corvane/TreeDownload.h>

#include <algorithm>
#include <cerrno>
#include <new>
#include <utility>

#include <Corvane/Base/Dir.h>
#include <Corvane/Base/ErrorDict.h>
#include <Corvane/Base/File.h>
#include <Corvane/Base/Guard.h>
#include <Corvane/Base/Url.h>
#include <Corvane/Transfer/ProcessSetupImpl.h>
#include <Corvane/Transfer/RequestHeadersImpl.h>
#include <Corvane/TreeDownload/TreeDownloadImpl.h>

namespace Corvane {
namespace {

constexpr unsigned int kMostConnections = 64;
constexpr unsigned int kMostDepth = 64;
constexpr unsigned int kMostRetries = 100;
constexpr unsigned int kMostRedirects = 50;

using MutexGuard = ZGuardImpl<ZMutex>;

// A pattern that is empty, or nothing but slashes, names nothing.
std::optional<std::vector<std::string>> PatternsOf(const ZStringList& given) {
  std::vector<std::string> patterns;
  for (const ZString& pattern : given) {
    std::string text = Utf8Of(pattern);
    if (text.find_first_not_of('/') == text.npos || text.find('\0') != text.npos) return std::nullopt;
    patterns.push_back(std::move(text));
  }
  return patterns;
}

bool AreNumbersGood(const ZTreeOptions& options) {
  return options.mostConnections >= 1 && options.mostConnections <= kMostConnections &&
         options.mostDepth <= kMostDepth && options.mostRetries <= kMostRetries &&
         options.mostRedirects <= kMostRedirects && options.mostFolders != 0 && options.mostEntries != 0 &&
         options.mostPageBytes != 0;
}

// None when something is refused. What the options do not say stays as in `current`.
std::optional<TreeSettings> SettingsOf(const ZTreeOptions& options, const TreeSettings& current) {
  std::optional<std::vector<std::string>> include = PatternsOf(options.include);
  std::optional<std::vector<std::string>> exclude = PatternsOf(options.exclude);
  std::optional<std::vector<std::string>> headers = RequestHeadersOf(options.headers);
  std::string userAgent = Utf8Of(options.userAgent);
  if (!include || !exclude || !headers || !IsFieldValue(userAgent) || !AreNumbersGood(options)) return std::nullopt;
  TreeSettings settings = current;
  settings.include = *std::move(include);
  settings.exclude = *std::move(exclude);
  settings.mostDepth = options.mostDepth;
  settings.deleteOthers = options.deleteOthers;
  settings.mostDeletes = options.mostDeletes;
  settings.verify = options.verify;
  settings.stopAtFirstFailure = options.stopAtFirstFailure;
  settings.mostFolders = options.mostFolders;
  settings.mostEntries = options.mostEntries;
  settings.mostPageBytes = options.mostPageBytes;
  settings.requests.headers = *std::move(headers);
  settings.requests.userAgent = std::move(userAgent);
  settings.requests.mostConnections = options.mostConnections;
  settings.requests.mostRedirects = options.mostRedirects;
  settings.requests.mostRepetitions = options.mostRetries;
  settings.requests.firstWait = std::chrono::milliseconds(options.retryWaitMs);
  return settings;
}

template <class Step>
ZResult WithoutMemoryException(Step step) {
  try {
    return step();
  } catch (const std::bad_alloc&) {
    return ResultFromErrno(ENOMEM);
  }
}

// libcurl is set up, and the throttle knows of a transfer, while this lives.
class ProcessShare {
 public:
  ProcessShare() : m_throttle(sm_Throttling()) {
    CurlGlobalInit();
    m_throttle.StartTransfer();
  }
  ~ProcessShare() {
    m_throttle.FinishTransfer();
    CurlGlobalCleanup();
  }
  ProcessShare(const ProcessShare&) = delete;
  ProcessShare& operator=(const ProcessShare&) = delete;

 private:
  ZThrottle& m_throttle;
};

}  // namespace

using Impl = ZTreeDownload::ZTreeDownloadImpl;

Impl::ZTreeDownloadImpl() { CurlGlobalInit(); }
Impl::~ZTreeDownloadImpl() { CurlGlobalCleanup(); }

ZResult Impl::SetOptions(const ZTreeOptions& options) {
  if (m_progress.IsOn()) return BASE_E_BUSY;
  return WithoutMemoryException([&] {
    std::optional<TreeSettings> settings = SettingsOf(options, m_settings);
    if (!settings) return ResultFromErrno(EINVAL);
    m_settings = *std::move(settings);
    return BASE_S_OK;
  });
}

ZResult Impl::SetSSL(bool verifyHost, bool verifyPeer, const ZString& caFile, const ZString& caDir) {
  if (m_progress.IsOn()) return BASE_E_BUSY;
  return WithoutMemoryException([&] {
    const ZStringEncoder file(caFile, ZStringEncoder::Local);
    const ZStringEncoder directory(caDir, ZStringEncoder::Local);
    if (file.CStr() == nullptr || directory.CStr() == nullptr) return BASE_E_INVALID_NAME;
    const bool isFileThere = caFile.IsEmpty() || ZFile::Exists(caFile, 0, nullptr);
    const bool isDirectoryThere = caDir.IsEmpty() || ZFile::IsDirectory(caDir, 0, nullptr);
    if (verifyPeer && (!isFileThere || !isDirectoryThere)) return BASE_E_INVALID_NAME;
    std::string fileName = file.CStr();
    std::string directoryName = directory.CStr();
    m_settings.requests.caFile = std::move(fileName);
    m_settings.requests.caDir = std::move(directoryName);
    m_settings.requests.verifyHost = verifyHost;
    m_settings.requests.verifyPeer = verifyPeer;
    return BASE_S_OK;
  });
}

// Ends a run however it ends: whoever waits may go, and may destroy the object. So the outcome is taken out of it before.
class RunBracket {
 public:
  RunBracket(Progress& progress, ZEvent& idle, ZMutex& endStep, ZResult& outcome)
      : m_progress(progress), m_idle(idle), m_endStep(endStep), m_outcome(outcome) {
    const MutexGuard guard(m_endStep);
    m_isOn = m_progress.Begin();
    if (m_isOn) m_idle.Reset();
  }
  ~RunBracket() {
    if (!m_isOn) return;
    const MutexGuard guard(m_endStep);
    m_progress.End();
    m_outcome = m_progress.Status();
    m_idle.Set();
  }
  RunBracket(const RunBracket&) = delete;
  RunBracket& operator=(const RunBracket&) = delete;
  [[nodiscard]] bool IsOn() const noexcept { return m_isOn; }

 private:
  Progress& m_progress;
  ZEvent& m_idle;
  ZMutex& m_endStep;
  ZResult& m_outcome;
  bool m_isOn = false;
};

ZResult Impl::Run(const ZString& url, const ZString& dir, bool isPlan) {
  ZResult outcome = BASE_E_IN_USE;
  {
    const RunBracket bracket(m_progress, m_idle, m_endStep, outcome);
    if (bracket.IsOn()) RunWithin(url, dir, isPlan);
  }
  return outcome;
}

// Memory that runs out is an outcome like any other; an exception of the host's code goes on to the caller.
void Impl::RunWithin(const ZString& url, const ZString& dir, bool isPlan) {
  try {
    const ZStringEncoder directory(dir, ZStringEncoder::Local);
    if (directory.CStr() == nullptr || directory.Length() == 0)
      return m_progress.Fail(BASE_E_INVALID_NAME, ZGetErrorMsg(BASE_E_INVALID_NAME));
    ZUrl address = url;
    if (address.GetProtocol().IsEmpty()) address.SetProtocol(L"http");
    const ProcessShare share;
    TreeRun(m_settings, m_progress, isPlan).Run(Utf8Of(address.ToString()), directory.CStr());
  } catch (const std::bad_alloc&) {
    m_progress.FailShortOfMemory();
  } catch (...) {
    m_progress.Fail(TRANSFER_E_DOWNLOAD, ZGetErrorMsg(TRANSFER_E_DOWNLOAD));
    throw;
  }
}

bool Impl::Wait(unsigned long milliseconds) {
  if (m_idle.Wait(milliseconds) != BASE_S_OK) return false;
  // The running thread may still be in its end step. Once it has let go it does not touch the object again.
  const MutexGuard handshake(m_endStep);
  return true;
}

ZTreeDownload::ZTreeDownload() : m_impl(std::make_unique<ZTreeDownloadImpl>()) {}

ZTreeDownload::~ZTreeDownload() {
  Abort();
  // An abort that met a run at its very beginning is lost; asking again once a second keeps the wait short.
  while (!Wait(1000)) Abort();
}

ZResult ZTreeDownload::SetTimeout(unsigned long seconds) {
  if (m_impl->m_progress.IsOn()) return BASE_E_BUSY;
  constexpr unsigned long kLongest = 2147483;  // what libcurl takes
  m_impl->m_settings.requests.timeout = std::chrono::seconds(std::min(seconds, kLongest));
  return BASE_S_OK;
}

ZResult ZTreeDownload::SetSSL(bool verifyHost, bool verifyPeer, const ZString& caFile, const ZString& caDir) {
  return m_impl->SetSSL(verifyHost, verifyPeer, caFile, caDir);
}

ZResult ZTreeDownload::SetCredentials(const ZString& user, const ZString& password) {
  if (m_impl->m_progress.IsOn()) return BASE_E_BUSY;
  return WithoutMemoryException([&] {
    std::string credentials = user.IsEmpty() ? std::string() : Utf8Of(user) + ':' + Utf8Of(password);
    m_impl->m_settings.requests.credentials = std::move(credentials);
    return BASE_S_OK;
  });
}

ZResult ZTreeDownload::UseThrottling(bool use) {
  if (m_impl->m_progress.IsOn()) return BASE_E_BUSY;
  m_impl->m_settings.requests.useThrottling = use;
  return BASE_S_OK;
}

ZResult ZTreeDownload::SetOptions(const ZTreeOptions& options) { return m_impl->SetOptions(options); }

ZResult ZTreeDownload::Attach(Observer* observer) {
  if (m_impl->m_progress.IsOn() || observer == nullptr) return BASE_E_BUSY;
  std::vector<Observer*>& observers = m_impl->m_settings.observers;
  if (std::find(observers.begin(), observers.end(), observer) == observers.end()) observers.push_back(observer);
  return BASE_S_OK;
}

ZResult ZTreeDownload::Detach(Observer* observer) {
  if (m_impl->m_progress.IsOn()) return BASE_E_BUSY;
  std::vector<Observer*>& observers = m_impl->m_settings.observers;
  observers.erase(std::remove(observers.begin(), observers.end(), observer), observers.end());
  return BASE_S_OK;
}

ZResult ZTreeDownload::GetStatus() const { return m_impl->m_progress.Status(); }

const ZString& ZTreeDownload::GetError() const { return m_impl->m_progress.Text(); }

ZTreeDownload::Statistics ZTreeDownload::GetStatistics() const { return m_impl->m_progress.Snapshot(); }

ZResult ZTreeDownload::Abort() {
  m_impl->m_progress.Abort();
  return BASE_S_OK;
}

bool ZTreeDownload::Wait(unsigned long milliseconds) { return m_impl->Wait(milliseconds); }

ZResult ZTreeDownload::Download(const ZString& url, const ZString& dir) { return m_impl->Run(url, dir, false); }

ZResult ZTreeDownload::Plan(const ZString& url, const ZString& dir) { return m_impl->Run(url, dir, true); }

}  // namespace Corvane
