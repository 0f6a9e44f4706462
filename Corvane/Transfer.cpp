#include <Corvane/Transfer.h>

#include <pthread.h>
#include <strings.h>
#include <sys/select.h>
#include <sys/time.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <limits>
#include <new>
#include <utility>

#include <openssl/crypto.h>

#include <Corvane/Base/Dir.h>
#include <Corvane/Base/ErrorDict.h>
#include <Corvane/Base/File.h>
#include <Corvane/Base/Path.h>
#include <Corvane/Base/Singleton.h>
#include <Corvane/Base/StringCoding.h>
#include <Corvane/Base/Sys.h>
#include <Corvane/LogLineImpl.h>
#include <Corvane/Throttle.h>
#include <Corvane/TransferImpl.h>

// This source holds, in this order: the process-wide state and its set-up, the throttle, the implementation of the transfer object
// (settings, bracket of an operation, transfer procedure, callbacks, downloads, posts, abort), and the public class.

namespace Corvane {
namespace {

using MutexGuard = ZGuardImpl<ZMutex>;
using ObjectGuard = ZGuardImpl<ZRecursiveMutex>;

// Runs what a destructor needs although it may write to the host's logger, which may throw.
template <class Step>
void WithoutThrowing(Step step) noexcept {
  try {
    step();
  } catch (...) {  // NOLINT(bugprone-empty-catch): a destructor has nobody to tell
  }
}

// The whole part of `value`, or the nearest number that the type holds: a conversion that does not fit is undefined.
template <class Whole>
Whole Truncated(double value) noexcept {
  constexpr Whole kLargest = std::numeric_limits<Whole>::max();
  // For 64 bits the double is one more than the largest number, which is not a double itself.
  if (value >= static_cast<double>(kLargest)) return kLargest;
  return value > 0.0 ? static_cast<Whole>(value) : 0;
}

ZString Number(long long number) { return ZString().SetNum(number, 'd'); }
ZString UnsignedNumber(unsigned long long number) { return ZString().SetNum(number, 'u'); }

constexpr ZResult CodeOf(CURLcode result) noexcept {
  return TRANSFER_E_CURL_BASE | (static_cast<unsigned int>(result) & 0xFFFFu);
}

OwnedCString Duplicate(const char* text) {
  if (text == nullptr) return nullptr;
  OwnedCString copy(strdup(text));
  if (copy == nullptr) throw std::bad_alloc();
  return copy;
}

OwnedCString DuplicateUtf8(const ZString& text) { return Duplicate(ZStringEncoder(text, ZStringEncoder::Utf8).CStr()); }
// Null for a name that the local encoding cannot express, and for an empty one.
OwnedCString DuplicateLocal(const ZString& name) {
  return name.IsEmpty() ? nullptr : Duplicate(ZStringEncoder(name, ZStringEncoder::Local).CStr());
}

constexpr unsigned long kWithoutLimit = 0xFFFFFFFF;  // for Wait, in milliseconds

// The part of a URL that tells its scheme, in lower case.
ZString SchemeOf(const ZString& url) { return url.Substr(0, 5).Lower(); }

// ---------------------------------------------------------------------------------------------------------------------
// Process-wide state
// ---------------------------------------------------------------------------------------------------------------------

constinit std::atomic<ZMutex*> sm_mutexGlobalSlot{nullptr};
constinit std::atomic<ZThrottle*> sm_ThrottlingSlot{nullptr};
constinit int sm_nGlobalCounter = 0;       // CurlGlobalInit calls without their cleanup; guarded by sm_mutexGlobal
constinit ZMutex* sm_LockArray = nullptr;  // one mutex per OpenSSL lock; guarded by sm_mutexGlobal

ZMutex* singleton_init_sm_mutexGlobal() { return std::make_unique<ZMutex>().release(); }
ZThrottle* singleton_init_sm_Throttling() { return std::make_unique<ZThrottle>().release(); }

ZMutex& sm_mutexGlobal() {
  ZSingleton::CheckInit(sm_mutexGlobalSlot, singleton_init_sm_mutexGlobal);
  return *sm_mutexGlobalSlot.load(std::memory_order_relaxed);
}

ZThrottle& sm_Throttling() {
  ZSingleton::CheckInit(sm_ThrottlingSlot, singleton_init_sm_Throttling);
  return *sm_ThrottlingSlot.load(std::memory_order_relaxed);
}

// Nothing happens at load: everything is created on first use. As the first of the library's static objects this is the last to
// be destroyed. The lock array stays when objects outlive the library: OpenSSL would still call into it.
struct TransferLifetime {
  constexpr TransferLifetime() noexcept = default;
  ~TransferLifetime() {
    delete sm_mutexGlobalSlot.exchange(nullptr);
    delete sm_ThrottlingSlot.exchange(nullptr);
  }
  TransferLifetime(const TransferLifetime&) = delete;
  TransferLifetime& operator=(const TransferLifetime&) = delete;
};
constinit TransferLifetime sm_TransferLifetime;

// OpenSSL before 1.1 asks the program for its locks through these two callbacks. Since 1.1 it has its own, and the functions that
// install the callbacks are macros without effect.
[[maybe_unused]] void LockingFunctionCallback(int mode, int n, const char* /*file*/, int /*line*/) {
  constexpr int kLock = 1;    // CRYPTO_LOCK
  constexpr int kUnlock = 2;  // CRYPTO_UNLOCK; the read and write bits are ignored, every lock is exclusive
  if ((mode & kLock) != 0) sm_LockArray[n].Lock();
  if ((mode & kUnlock) != 0) sm_LockArray[n].Unlock();
}

[[maybe_unused]] unsigned long IdFunctionCallback() { return static_cast<unsigned long>(pthread_self()); }

// The null that takes a callback away; OpenSSL's macros leave it unused.
template <class Function>
[[maybe_unused]] constexpr Function* kNoCallback = nullptr;

// The set-up that the first object makes. When it throws, nothing is left set up.
ZResult InitialiseProcess() {
  LogLine(ZLogLevel::Information, kTransferArea,
          [] { return ZString(L"%1: Curl and SSL global initiatization\n").Arg(L"CurlGlobalInit"); });
  const CURLcode initialised = curl_global_init(CURL_GLOBAL_ALL);
  const ZResult result = initialised == CURLE_OK ? BASE_S_OK : CodeOf(initialised);
  if (sm_LockArray != nullptr) return result;  // left over from an earlier cycle
  try {
    sm_LockArray = new ZMutex[static_cast<std::size_t>(CRYPTO_num_locks())];
  } catch (...) {
    if (initialised == CURLE_OK) curl_global_cleanup();  // libcurl counts too, and the host's own calls with ours
    throw;
  }
  CRYPTO_set_id_callback(IdFunctionCallback);
  CRYPTO_set_locking_callback(LockingFunctionCallback);
  return result;
}

ZResult CurlGlobalInit() {
  const MutexGuard guard(sm_mutexGlobal());
  if (++sm_nGlobalCounter != 1) return BASE_S_OK;
  try {
    return InitialiseProcess();
  } catch (...) {
    --sm_nGlobalCounter;  // the object will not come to be, so that no cleanup matches this call
    throw;
  }
}

void CurlGlobalCleanup() {
  const MutexGuard guard(sm_mutexGlobal());
  if (sm_nGlobalCounter == 0 || --sm_nGlobalCounter > 0) return;
  WithoutThrowing([] {
    LogLine(ZLogLevel::Information, kTransferArea,
            [] { return ZString(L"%1: Curl and SSL global cleanup").Arg(L"CurlGlobalCleanup"); });
  });
  if (sm_LockArray != nullptr) {
    CRYPTO_set_id_callback(kNoCallback<unsigned long()>);
    CRYPTO_set_locking_callback((kNoCallback<void(int, int, const char*, int)>));
    delete[] std::exchange(sm_LockArray, nullptr);  // destroys from the last to the first
  }
  curl_global_cleanup();
}

// ---------------------------------------------------------------------------------------------------------------------
// Throttle
// ---------------------------------------------------------------------------------------------------------------------

constexpr unsigned int kMeasureMs = 9999;                  // the measuring phase lasts up to and including this time
constexpr unsigned int kPeriodMs = 180000;                 // a measure period lasts up to and including this time
constexpr unsigned int kMeasuredLowWaterMark = 999999999;  // a mark above it switches measuring off in fixed mode
constexpr long long kMaxSleepSeconds = 10;

// 1000 x amount / per, scaled by the size of `per` so that the product stays small: with an amount in bytes, milliseconds give
// bytes per second, and bytes per second give milliseconds. `per` is at least 1; products wrap.
constexpr unsigned int PerThousand(unsigned int amount, unsigned int per) noexcept {
  if (per >= 10000) return amount / (per / 1000);
  if (per >= 1000) return amount * 10 / (per / 100);
  if (per >= 100) return amount * 100 / (per / 10);
  return amount * 1000 / per;
}

// `percent` per cent of `speed`, scaled likewise.
constexpr unsigned int PercentOf(unsigned int speed, unsigned int percent) noexcept {
  if (speed >= 10000) return percent * (speed / 100);
  if (speed >= 1000) return percent * (speed / 10) / 10;
  return percent * speed / 100;
}

// The time between two clock readings in milliseconds. The times are signed 32-bit; wrapping unsigned arithmetic gives
// what their difference would be without its overflow.
constexpr unsigned int MillisecondsBetween(int startSeconds, int startMicroseconds, int seconds,
                                           int microseconds) noexcept {
  const unsigned int wholeSeconds = static_cast<unsigned int>(seconds) - static_cast<unsigned int>(startSeconds);
  const int rest = (microseconds - startMicroseconds) / 1000;  // truncates towards zero
  return wholeSeconds * 1000 + static_cast<unsigned int>(rest);
}

void SleepFor(long long milliseconds) {
  timeval timeout{};
  timeout.tv_sec = static_cast<decltype(timeout.tv_sec)>(std::min(milliseconds / 1000, kMaxSleepSeconds));
  // The remainder, in milliseconds, stands in the microseconds field on purpose: in effect only whole seconds count, so
  // that a block that is barely ahead of its time is not held up by a wait that would round up to a scheduler tick.
  timeout.tv_usec = static_cast<decltype(timeout.tv_usec)>(milliseconds % 1000);
  select(0, nullptr, nullptr, nullptr, &timeout);
}

}  // namespace

ZThrottle::ZThrottle() noexcept = default;
ZThrottle::~ZThrottle() = default;

void ZThrottle::SetThrottling(unsigned int lowWaterMark, unsigned int limit, bool percent) {
  const MutexGuard guard(m_mutex);
  m_nLowWaterMark = lowWaterMark;
  m_bPercent = percent;
  m_nLimitSetting = percent ? limit : limit << 10;
  RestartThrottling();
}

void ZThrottle::StartTransfer() {
  const MutexGuard guard(m_mutex);
  if (++m_nActiveTransfers == 1) RestartThrottling();
}

void ZThrottle::FinishTransfer() {
  const MutexGuard guard(m_mutex);
  if (m_nActiveTransfers > 0) --m_nActiveTransfers;
}

void ZThrottle::RestartThrottling() noexcept {
  m_nPeriod = 0;
  m_nEvaluatedPeriod = 0;
  m_nLimit = 0;
  m_tvLast = TimeValue();
  m_tvPeriodStart = TimeValue();
  m_nPeriodBytes = 0;
  m_nPeriodBaseBytes = 0;
}

void ZThrottle::Throttle(unsigned int bytes) {
  const MutexGuard guard(m_mutex);
  m_nPeriodBytes += bytes;
  timeval clock{};
  gettimeofday(&clock, nullptr);
  const TimeValue now{static_cast<int>(clock.tv_sec), static_cast<int>(clock.tv_usec)};
  if (now.seconds < m_tvLast.seconds) RestartThrottling();  // the clock has gone back
  m_tvLast = now;

  const unsigned int elapsed = EnterPeriod(now);
  const bool measured = m_bPercent || m_nLowWaterMark <= kMeasuredLowWaterMark;
  if (elapsed <= kMeasureMs && measured) return;

  const unsigned int data = m_nPeriodBytes - m_nPeriodBaseBytes;
  const unsigned int speed = PerThousand(data, elapsed);
  Evaluate(speed);
  if (m_nLimit == 0 || m_nLimit >= speed) return;
  const unsigned int target = PerThousand(data, m_nLimit);
  SleepFor(target > elapsed ? static_cast<long long>(target) - elapsed : 0);
}

// Begins a measure period when it is time to. Returns the time since the current period's beginning, at least 1 ms.
unsigned int ZThrottle::EnterPeriod(TimeValue now) {
  const unsigned int elapsed =
      MillisecondsBetween(m_tvPeriodStart.seconds, m_tvPeriodStart.microseconds, now.seconds, now.microseconds);
  if (m_nPeriod != 0 && elapsed <= kPeriodMs) return std::max(elapsed, 1u);
  m_tvPeriodStart = now;
  m_nPeriodBytes = 0;
  m_nPeriodBaseBytes = 0;
  ++m_nPeriod;
  return 1;
}

// Decides, once in a period, which limit is in force for the rest of it.
void ZThrottle::Evaluate(unsigned int speed) {
  if (m_nEvaluatedPeriod >= m_nPeriod) return;
  m_nEvaluatedPeriod = m_nPeriod;
  if (!m_bPercent && m_nLowWaterMark > kMeasuredLowWaterMark) {
    m_nLimit = m_nLimitSetting;
    LogLine(ZLogLevel::Information, kTransferArea,
            [&] { return ZString(L"Measure period not needed. Limit = %1 b/s").Arg(UnsignedNumber(m_nLimit)); });
    return;
  }
  m_nLimit = speed < m_nLowWaterMark ? LimitFor(speed) : 0;
  LogLine(ZLogLevel::Information, kTransferArea, [&] {
    return ZString(L"Finish measure period. Speed = %1 b/s. LowWaterMark = %2 b/s. Limit = %3 b/s")
        .Arg(UnsignedNumber(speed))
        .Arg(UnsignedNumber(m_nLowWaterMark))
        .Arg(UnsignedNumber(m_nLimit));
  });
}

unsigned int ZThrottle::LimitFor(unsigned int speed) const noexcept {
  return m_bPercent ? PercentOf(speed, m_nLimitSetting) : m_nLimitSetting;
}

// ---------------------------------------------------------------------------------------------------------------------
// Transfer object: construction, settings, observers
// ---------------------------------------------------------------------------------------------------------------------

ZTransfer::ZTransferImpl::ZTransferImpl() { Reset(); }

ZTransfer::ZTransferImpl::~ZTransferImpl() {
  m_caFile.reset();
  m_caDir.reset();
  m_url.reset();
  m_credentials.reset();
  m_postData.reset();
}

ZResult ZTransfer::ZTransferImpl::SetSSL(bool verifyHost, bool verifyPeer, const ZString& caFile,
                                         const ZString& caDir) {
  if (m_inProgress) return BASE_E_BUSY;
  m_caFile.reset();
  m_caDir.reset();
  m_verifyHost = verifyHost;
  m_verifyPeer = verifyPeer;
  m_caFile = DuplicateLocal(caFile);
  m_caDir = DuplicateLocal(caDir);
  return BASE_S_OK;
}

ZResult ZTransfer::ZTransferImpl::SetCredentials(const ZString& user, const ZString& password) {
  if (m_inProgress) return BASE_E_BUSY;
  m_credentials.reset();
  if (!user.IsEmpty()) m_credentials = DuplicateUtf8(user + L":" + password);
  return BASE_S_OK;
}

ZResult ZTransfer::ZTransferImpl::Attach(Observer* observer) {
  if (m_inProgress || observer == nullptr) return BASE_E_BUSY;
  if (std::find(m_observers.begin(), m_observers.end(), observer) == m_observers.end()) m_observers.push_back(observer);
  return BASE_S_OK;
}

ZResult ZTransfer::ZTransferImpl::Detach(Observer* observer) {
  if (m_inProgress) return BASE_E_BUSY;
  m_observers.erase(std::remove(m_observers.begin(), m_observers.end(), observer), m_observers.end());
  return BASE_S_OK;
}

// Without a running operation an observer may attach and detach here. So a copy is walked, and whoever is not attached any
// more is not called: it may be gone.
void ZTransfer::ZTransferImpl::Notify(int event, long value) {
  const std::vector<Observer*> observers = m_observers;
  for (Observer* const observer : observers) {
    const bool attached = std::find(m_observers.begin(), m_observers.end(), observer) != m_observers.end();
    if (attached) observer->Update(event, value);
  }
}

ZResult ZTransfer::ZTransferImpl::GetHeader(ZString& header) const {
  if (m_inProgress) return BASE_E_BUSY;
  const std::lock_guard guard(m_headerMutex);
  header = m_header;
  return BASE_S_OK;
}

ZResult ZTransfer::ZTransferImpl::GetCause(ZString& text) const {
  if (m_inProgress) return BASE_E_BUSY;
  text = m_causeText.Copy();
  return m_cause;
}

// ---------------------------------------------------------------------------------------------------------------------
// The bracket of an operation
// ---------------------------------------------------------------------------------------------------------------------

void ZTransfer::ZTransferImpl::Reset() {
  const ObjectGuard guard(*this);
  m_inProgress = false;
  m_abort = false;
  m_progressNotified = false;
  m_bodyRefused = false;
  m_rangeMissing = false;
  m_pendingException = nullptr;
  {
    const std::lock_guard headerGuard(m_headerMutex);
    m_header.Clear();
  }
  m_contentSize = 0;
  m_downloadSize = 0;
  m_resumePosition = 0;
  m_transferSize = 0;
  m_transferRate = 0;
  m_contentSizeKnown = false;
  m_postData.reset();
  static_cast<void>(m_body.Seek(0));  // cannot fail
  m_startTime = ZDateTime::Now();
  m_transferTime.Set(0, 0, 0, 0, 0);
  SetError(TRANSFER_E_NOT_STARTED);
  m_cause = TRANSFER_E_NOT_STARTED;
  m_causeText.Set(ZString());
  if (m_easy != nullptr) curl_easy_reset(m_easy);  // no option of an earlier operation survives
  m_completion.Set();
}

void ZTransfer::ZTransferImpl::BeginOperation() {
  Reset();
  m_abort = m_runAbort != nullptr && *m_runAbort;
  m_runner = std::this_thread::get_id();
  m_inProgress = true;
  m_completion.Reset();
}

void ZTransfer::ZTransferImpl::EndOperation() {
  UpdateTransferTime();
  m_completion.Set();
  m_inProgress = false;
}

// An operation that another thread has started since the caller looked is refused, not run over.
template <>
bool ZGuardImpl<ZTransfer::ZTransferImpl>::ZDoLock(ZTransfer::ZTransferImpl& transfer) {
  const ObjectGuard guard(transfer);
  if (transfer.m_inProgress) return false;
  transfer.BeginOperation();
  return true;
}

template <>
void ZGuardImpl<ZTransfer::ZTransferImpl>::ZDoUnlock(ZTransfer::ZTransferImpl& transfer) {
  const ObjectGuard guard(transfer);
  transfer.EndOperation();
}

// Runs `steps`, which leave their outcome in the error code, inside the bracket. Memory that runs out is an outcome like
// any other; an exception of the host's code leaves the object idle and goes on to the caller.
template <class Steps>
ZResult ZTransfer::ZTransferImpl::RunOperation(Steps steps) {
  if (m_inProgress) return BASE_E_IN_USE;
  const ZInitGuard<ZTransferImpl> operation(*this);
  if (!operation.IsHeld()) return BASE_E_IN_USE;
  if (!HasHandle()) return m_errorCode;
  try {
    steps();
  } catch (const std::bad_alloc&) {
    SetError(TRANSFER_E_DOWNLOAD);
  }
  return m_errorCode;
}

bool ZTransfer::ZTransferImpl::HasHandle() {
  if (m_easy != nullptr) return true;
  SetError(TRANSFER_E_SYSTEM_INIT);
  return false;
}

bool ZTransfer::ZTransferImpl::ResetIfIdle() {
  const ObjectGuard guard(*this);
  if (m_inProgress) return false;
  Reset();
  return true;
}

bool ZTransfer::ZTransferImpl::WaitUntilIdle(unsigned long milliseconds) {
  if (m_completion.Wait(milliseconds) != BASE_S_OK) return false;
  // The thread that ran the operation may still hold the lock in its end step. Once it has let go it does not touch the
  // object again, so that the object may be destroyed.
  const ObjectGuard handshake(*this);
  return true;
}

void ZTransfer::ZTransferImpl::SetError(ZResult code, ZString text) {
  m_errorCode = code;
  m_errorText.Set(std::move(text));
}

// Without memory the code stands alone.
void ZTransfer::ZTransferImpl::SetError(ZResult code) {
  try {
    SetError(code, ZGetErrorMsg(code));
  } catch (const std::bad_alloc&) {
    SetError(code, ZString());
  }
}

// ---------------------------------------------------------------------------------------------------------------------
// Transfer procedure
// ---------------------------------------------------------------------------------------------------------------------

// One request, without any retry. The options are set in a fixed order; the first that libcurl refuses ends the procedure before
// a request is made.
ZResult ZTransfer::ZTransferImpl::Transfer(const ZString& url, bool /*post*/) {
  m_errorCode = TRANSFER_S_FINISHED;
  m_url = DuplicateUtf8(url);
  const ZString scheme = SchemeOf(url);
  if (!SetRequestOptions()) return m_errorCode;
  if (scheme.StartsWith(L"http") && !SetHeaderOptions(scheme)) return m_errorCode;
  if (!SetTimeLimits()) return m_errorCode;
  if (m_credentials != nullptr && !SetAuthentication(scheme)) return m_errorCode;
  Perform();
  if (m_pendingException != nullptr) std::rethrow_exception(std::exchange(m_pendingException, nullptr));
  return m_errorCode;
}

template <class Value>
bool ZTransfer::ZTransferImpl::SetOption(const char* who, CURLoption option, Value value) {
  const CURLcode result = curl_easy_setopt(m_easy, option, value);
  if (result == CURLE_OK) return true;
  FailOption(who, result, option);
  return false;
}

ZResult ZTransfer::ZTransferImpl::FailOption(const char* who, CURLcode result, CURLoption option) {
  SetError(CodeOf(result), ZGetErrorMsg(TRANSFER_E_DOWNLOAD));
  LogLine(ZLogLevel::Error, kTransferArea, [&] {
    return ZString(L"%1: CURL failure %2 on option %3...").Arg(who).Arg(Number(result)).Arg(Number(option));
  });
  return CodeOf(result);
}

bool ZTransfer::ZTransferImpl::SetRequestOptions() {
  constexpr const char* kWho = "Transfer";
  if (!SetOption(kWho, CURLOPT_URL, m_url.get())) return false;
  if (!SetOption(kWho, CURLOPT_NOPROGRESS, 1L)) return false;
  if (!SetOption(kWho, CURLOPT_NOSIGNAL, 1L)) return false;  // the library runs on the host's threads
  // Verification is switched on again from the stored settings, for https only.
  if (!SetOption(kWho, CURLOPT_SSL_VERIFYPEER, 0L)) return false;
  if (!SetOption(kWho, CURLOPT_SSL_VERIFYHOST, 0L)) return false;
  if (!SetOption(kWho, CURLOPT_WRITEFUNCTION, &WriteCallback)) return false;
  if (!SetOption(kWho, CURLOPT_WRITEDATA, this)) return false;
  const unsigned long long resumePosition = m_resumePosition;
  if (!SetOption(kWho, CURLOPT_RESUME_FROM_LARGE, static_cast<curl_off_t>(resumePosition))) return false;
  m_downloadSize = resumePosition;
  return SetOption(kWho, CURLOPT_ERRORBUFFER, &m_curlError[0]);
}

bool ZTransfer::ZTransferImpl::SetHeaderOptions(const ZString& scheme) {
  if (!SetOption("Transfer", CURLOPT_HEADERFUNCTION, &HeaderCallback)) return false;
  if (!SetOption("Transfer", CURLOPT_WRITEHEADER, this)) return false;
  return !scheme.StartsWith(L"https") || !IsFailure(ApplyExtraHttpsSettings());
}

bool ZTransfer::ZTransferImpl::SetTimeLimits() {
  const long timeout = static_cast<long>(m_timeout.load());
  if (!SetOption("Transfer", CURLOPT_TIMEOUT, timeout)) return false;
  RepeatAbort(CURLOPT_TIMEOUT);
  if (!SetOption("Transfer", CURLOPT_CONNECTTIMEOUT, timeout)) return false;
  RepeatAbort(CURLOPT_CONNECTTIMEOUT);
  return true;
}

// Basic authentication sends the password in the clear, so it is allowed only over TLS.
bool ZTransfer::ZTransferImpl::SetAuthentication(const ZString& scheme) {
  LogLine(ZLogLevel::Information, kTransferArea, [&] {
    const ZString credentials = ZStringDecoder::FromUtf8(m_credentials.get());
    return ZString(L"%1: Setting curl Authentication set to \"%2:*\"")
        .Arg(L"Transfer")
        .Arg(credentials.Substr(0, credentials.Find(L':')));
  });
  if (!SetOption("Transfer", CURLOPT_USERPWD, m_credentials.get())) return false;
  const bool overTls = scheme.StartsWith(L"https");
  const unsigned long methods = overTls ? CURLAUTH_NTLM | CURLAUTH_BASIC : CURLAUTH_NTLM;
  if (!SetOption("Transfer", CURLOPT_HTTPAUTH, static_cast<long>(methods))) return false;
  LogLine(ZLogLevel::Information, kTransferArea, [&] {
    return ZString(L"%1: Curl Authentication Type is %2").Arg(L"Transfer").Arg(overTls ? L"NTLM,BASIC" : L"NTLM");
  });
  return !scheme.StartsWith(L"http") || SetOption("Transfer", CURLOPT_MAXREDIRS, 10000L);
}

// Switches the checks on that SetSSL asked for. A directory of certificates is preferred to a file; without either the
// transfer goes ahead unverified, with a warning.
ZResult ZTransfer::ZTransferImpl::ApplyExtraHttpsSettings() {
  constexpr const char* kWho = "ApplyExtraHttpsSettings";
  if (m_verifyHost) {
    if (!SetOption(kWho, CURLOPT_SSL_VERIFYHOST, 2L)) return m_errorCode;
    LogLine(ZLogLevel::Information, kTransferArea, [] { return ZString(L"%1: Verify Host was specified").Arg(kWho); });
  }
  if (!m_verifyPeer) return BASE_S_OK;
  const ZString caDir = ZStringDecoder::FromLocal(m_caDir.get());
  const ZString caFile = ZStringDecoder::FromLocal(m_caFile.get());
  if (!caDir.IsEmpty() && ZFile::IsDirectory(caDir, 0, nullptr)) {
    return ApplyCaPath(L"%1: Verify Peer specified and CADir was supplied. CADir=%2", CURLOPT_CAPATH, m_caDir);
  }
  if (!caFile.IsEmpty() && ZFile::Exists(caFile, 0, nullptr)) {
    return ApplyCaPath(L"%1: Verify Peer specified and CAFile was supplied. CAFile=%2", CURLOPT_CAINFO, m_caFile);
  }
  LogLine(ZLogLevel::Warning, kTransferArea, [&] {
    return ZString(L"%1: Verify Peer specified, but neither CAFile or CADir supplied. CAFile=%2 CADir=%3")
        .Arg(kWho)
        .Arg(caFile)
        .Arg(caDir);
  });
  return BASE_S_OK;
}

ZResult ZTransfer::ZTransferImpl::ApplyCaPath(const wchar_t* message, CURLoption option, const OwnedCString& path) {
  constexpr const char* kWho = "ApplyExtraHttpsSettings";
  LogLine(ZLogLevel::Information, kTransferArea,
          [&] { return ZString(message).Arg(kWho).Arg(ZStringDecoder::FromLocal(path.get())); });
  if (!SetOption(kWho, CURLOPT_SSL_VERIFYPEER, 1L)) return m_errorCode;
  if (!SetOption(kWho, option, path.get())) return m_errorCode;
  return BASE_S_OK;
}

// Runs the request and turns libcurl's result into the error code and text.
void ZTransfer::ZTransferImpl::Perform() {
  const CURLcode result = curl_easy_perform(m_easy);
  m_errorCode = result == CURLE_OK ? TRANSFER_S_FINISHED : CodeOf(result);
  m_curlError[sizeof(m_curlError) - 1] = '\0';
  const ZString text(&m_curlError[0]);
  m_errorText.Set(text);
  m_cause = m_errorCode.load();
  // libcurl leaves text in the buffer also when a request on a broken connection was repeated with success.
  m_causeText.Set(result == CURLE_OK ? ZString() : text);
  UpdateTransferTime();
  UpdateTransferSize();
  // The two ways in which an abort ends a request: the shortened time limit, or a callback that refused its data.
  if (m_abort && (result == CURLE_OPERATION_TIMEDOUT || result == CURLE_WRITE_ERROR)) SetError(TRANSFER_E_ABORTED);
  if (!IsFailure(m_errorCode)) SetError(m_errorCode);
}

// ---------------------------------------------------------------------------------------------------------------------
// Callbacks
// ---------------------------------------------------------------------------------------------------------------------

std::size_t ZTransfer::ZTransferImpl::WriteCallback(void* data, std::size_t size, std::size_t count,
                                                    void* object) noexcept {
  auto* const self = static_cast<ZTransferImpl*>(object);
  const std::size_t total = size * count;
  return self->CatchAll(total, [=] { return self->ReceiveBody(static_cast<const char*>(data), total); });
}

std::size_t ZTransfer::ZTransferImpl::HeaderCallback(void* data, std::size_t size, std::size_t count,
                                                     void* object) noexcept {
  auto* const self = static_cast<ZTransferImpl*>(object);
  const std::size_t total = size * count;
  return self->CatchAll(total, [=] { return self->ReceiveHeader(static_cast<const char*>(data), total); });
}

// No exception may cross libcurl's frames. Memory that ran out counts as a short write; an exception of the host's code is
// kept until libcurl has returned.
template <class Receive>
std::size_t ZTransfer::ZTransferImpl::CatchAll(std::size_t total, Receive receive) noexcept {
  const std::size_t refused = total == 0 ? 1 : 0;  // anything but `total` ends the transfer
  try {
    return receive();
  } catch (const std::bad_alloc&) {
    return refused;
  } catch (...) {
    m_pendingException = std::current_exception();
    return refused;
  }
}

std::size_t ZTransfer::ZTransferImpl::ReceiveBody(const char* data, std::size_t total) {
  if (m_abort) {
    SetError(TRANSFER_E_ABORTED);
    return 0;
  }
  if (!m_contentSizeKnown) {
    UpdateContentSize();
    m_contentSizeKnown = true;
    // A server may refuse a range with a page of its own. That page is no part of the file which is being resumed.
    const bool resumesFile = m_outputToFile && m_resumePosition != 0;
    m_bodyRefused = resumesFile && !CheckHeader();
    m_rangeMissing = resumesFile && !m_bodyRefused && !HasAskedRange();
  }
  if (!m_observers.empty() && !m_progressNotified && total != 0) NotifyFirstData();

  const std::size_t written = StoreBlock(data, total);
  const std::size_t accepted = written >= total ? total : 0;
  m_downloadSize += written;
  UpdateTransferTime();
  UpdateTransferSize();
  // Each block moves the overall limit, so that it acts as a limit on inactivity. The ten seconds more hold only while
  // the throttle does not set the limit again after its sleep.
  ExtendTimeLimit(10);
  if (!m_useThrottling) return accepted;

  sm_Throttling().Throttle(static_cast<unsigned int>(written));
  UpdateTransferTime();
  UpdateTransferSize();
  ExtendTimeLimit(0);
  return accepted;
}

std::size_t ZTransfer::ZTransferImpl::ReceiveHeader(const char* data, std::size_t total) {
  if (m_abort) {
    SetError(TRANSFER_E_ABORTED);
    return 0;
  }
  const std::lock_guard guard(m_headerMutex);
  m_header.Append(data, total);
  return total;
}

void ZTransfer::ZTransferImpl::NotifyFirstData() {
  const ZResult value = CheckHeader() ? TRANSFER_E_IN_PROGRESS : TRANSFER_E_CONNECT;
  Notify(1, static_cast<long>(value));
  m_progressNotified = true;
}

std::size_t ZTransfer::ZTransferImpl::StoreBlock(const char* data, std::size_t total) {
  if (m_bodyRefused) return total;
  if (m_rangeMissing) return 0;
  if (!m_outputToFile) return m_body.Write(data, total);
  std::size_t written = 0;
  Wrappers::Sys::Fwrite(data, total, m_outputFile, written);  // a short write is its own report
  return written;
}

void ZTransfer::ZTransferImpl::ExtendTimeLimit(unsigned long slackSeconds) {
  const unsigned long timeout = m_timeout;
  const auto elapsed = static_cast<unsigned long>(m_transferTime.GetTotalMicroSeconds() / 1000000);
  const long limit = timeout == 0 ? 0 : static_cast<long>(elapsed + timeout + slackSeconds);
  curl_easy_setopt(m_easy, CURLOPT_TIMEOUT, limit);  // a limit that cannot be moved stays where it is
  RepeatAbort(CURLOPT_TIMEOUT);
}

// An abort on another thread raises its flag and then shortens the limits. Whoever writes a limit looks at the flag afterwards:
// either it sees the abort here, or the abort writes its limit after this one. Both sides replace the flag in one step, for
// which there is one order: a plain load could run ahead of the write before it. (A fence would do, too, but ThreadSanitizer
// does not know fences.)
void ZTransfer::ZTransferImpl::RepeatAbort(CURLoption limit) {
  bool aborted = false;
  if (!m_abort.compare_exchange_strong(aborted, false)) curl_easy_setopt(m_easy, limit, 1L);
}

bool ZTransfer::ZTransferImpl::IsHttp() const { return strncasecmp(m_url.get(), "http", 4) == 0; }

bool ZTransfer::ZTransferImpl::CheckHeader() {
  if (!IsHttp()) return true;
  long response = 0;
  if (curl_easy_getinfo(m_easy, CURLINFO_RESPONSE_CODE, &response) != CURLE_OK) return true;
  return response >= 200 && response <= 299;
}

// Whether the answer's body begins at the resume position. libcurl compares the numbers, but after "bytes */N" it hands on whatever
// body comes as if the whole had been asked for.
bool ZTransfer::ZTransferImpl::HasAskedRange() const {
  if (!IsHttp()) return true;
  const std::lock_guard guard(m_headerMutex);
  const ZString header = m_header.Lower();
  const ZString::size_type field = header.FindR(L"\ncontent-range:");
  const ZString::size_type number = field == ZString::npos ? field : header.FindFirstOf(L"0123456789*", field);
  return header.Substr(number).ToULongLong() == m_resumePosition;  // 0, which no resume begins at, without a number
}

// Whether a resume got an answer in 200 to 299 which does not continue the file, as those without any content do not. The one
// exception is the whole content when it ends where the resume was to begin: libcurl takes that for complete.
bool ZTransfer::ZTransferImpl::IsRestMissing() {
  if (m_resumePosition == 0 || !IsHttp() || !CheckHeader()) return false;
  if (m_rangeMissing) return m_errorCode == CodeOf(CURLE_WRITE_ERROR);
  const bool withoutContent = !IsFailure(m_errorCode) && !m_contentSizeKnown;
  return withoutContent && Info(CURLINFO_CONTENT_LENGTH_DOWNLOAD, 0.0) != static_cast<double>(m_resumePosition);
}

void ZTransfer::ZTransferImpl::SetResult(ZString& result) {
  if (m_outputToFile) return;
  result.Clear();
  ZResult failure = m_body.Seek(0);
  if (failure == BASE_S_OK) failure = m_body.Read(result, static_cast<std::uint32_t>(m_downloadSize), ZUtf8Encoding());
  if (failure == BASE_S_OK) return;
  SetError(TRANSFER_E_DOWNLOAD, ZGetErrorMsg(TRANSFER_E_DOWNLOAD) + L": " + ZGetErrorMsg(failure));
}

// In plain numbers, for it runs twice for each block.
void ZTransfer::ZTransferImpl::UpdateTransferTime() {
  const long long start = m_startTime.GetMicroSecondsSinceEpoch();
  const long long now = ZDateTime::Now().GetMicroSecondsSinceEpoch();
  m_transferTime = ZTimeSpan(now > start ? now - start : 0);
}

void ZTransfer::ZTransferImpl::UpdateContentSize() {
  if (m_errorCode != TRANSFER_S_FINISHED) {
    m_contentSize = 0;
    return;
  }
  double length = 0.0;
  if (curl_easy_getinfo(m_easy, CURLINFO_CONTENT_LENGTH_DOWNLOAD, &length) != CURLE_OK) return;
  constexpr unsigned long long kUnknown = std::numeric_limits<unsigned long long>::max();
  // libcurl tells an unknown length as -1; no length that it knows reaches 2^63.
  const bool known = length >= 0.0 && length < 9223372036854775808.0;
  m_contentSize = known ? static_cast<unsigned long long>(length) + m_resumePosition : kUnknown;
}

double ZTransfer::ZTransferImpl::Info(CURLINFO info, double value) const {
  return curl_easy_getinfo(m_easy, info, &value) == CURLE_OK ? value : 0.0;
}

long ZTransfer::ZTransferImpl::Info(CURLINFO info, long value) const {
  return curl_easy_getinfo(m_easy, info, &value) == CURLE_OK ? value : 0;
}

void ZTransfer::ZTransferImpl::UpdateTransferSize() {
  double seconds = 0.0;
  if (curl_easy_getinfo(m_easy, CURLINFO_TOTAL_TIME, &seconds) != CURLE_OK) {
    m_transferSize = 0;
    m_transferRate = 0;
    return;
  }
  const double uploaded = Info(CURLINFO_SIZE_UPLOAD, 0.0);
  const double downloaded = Info(CURLINFO_SIZE_DOWNLOAD, 0.0);
  const long request = Info(CURLINFO_REQUEST_SIZE, 0L);
  const long header = Info(CURLINFO_HEADER_SIZE, 0L);
  const double size = downloaded + uploaded + static_cast<double>(header) + static_cast<double>(request);
  m_transferSize = Truncated<unsigned long long>(size);
  m_transferRate = seconds > 0.0 ? Truncated<unsigned int>(size / seconds / 1024.0) : 0;  // KiB per second
}

// ---------------------------------------------------------------------------------------------------------------------
// Downloads
// ---------------------------------------------------------------------------------------------------------------------

ZResult ZTransfer::ZTransferImpl::Download(const ZString& url, ZString& result) {
  return RunOperation([&] { DownloadSteps(url, result); });
}

void ZTransfer::ZTransferImpl::DownloadSteps(const ZString& url, ZString& result) {
  m_outputToFile = false;
  Transfer(url, false);
  if (!IsFailure(m_errorCode) && m_detectHttpError && !CheckHeader()) {
    SetError(TRANSFER_E_CONNECT, ZGetErrorMsg(TRANSFER_E_CONNECT) + L", " + url);
  }
  SetResult(result);  // also after a failure: what was received may be an error page that tells more
}

namespace {

constexpr unsigned long long kResumeThreshold = 64;  // bytes; a file must be larger to be resumed
constexpr unsigned long long kResumeMargin = 32;     // bytes at the end of a partial file that are fetched again

// An open file that an operation closes itself, so that it learns of a failure; or that closes when an exception passes.
class OpenFile {
 public:
  OpenFile() = default;
  ~OpenFile() { Close(); }
  OpenFile(const OpenFile&) = delete;
  OpenFile& operator=(const OpenFile&) = delete;

  ZResult Open(const char* localName, const char* mode) { return Wrappers::Sys::Fopen(&m_file, localName, mode); }
  ZResult Close() { return m_file == nullptr ? BASE_S_OK : Wrappers::Sys::Fclose(std::exchange(m_file, nullptr)); }
  [[nodiscard]] std::FILE* Get() const noexcept { return m_file; }

 private:
  std::FILE* m_file = nullptr;
};

// Cuts off what the old file held behind the end of a resumed download's content.
ZResult CutStaleTail(const OpenFile& file, const ZString& fileName, unsigned long long length) {
  unsigned long long size = 0;
  ZFile::GetSize(fileName, size);
  return size > length ? Wrappers::Sys::Ftruncate(file.Get(), length) : BASE_S_OK;
}

}  // namespace

ZResult ZTransfer::ZTransferImpl::DownloadFile(const ZString& url, const ZString& fileName, bool resume) {
  return RunOperation([&] { DownloadFileSteps(url, fileName, resume); });
}

void ZTransfer::ZTransferImpl::DownloadFileSteps(const ZString& url, const ZString& fileName, bool resume) {
  const ZStringEncoder localName(fileName, ZStringEncoder::Local);
  if (!IsRepresentable(localName.CStr(), fileName, L"%1: Output file name '%2' contains invalid characters")) return;
  ZDir::CreateR(ZPath::GetDirectory(fileName));
  unsigned long long size = 0;
  ZFile::GetSize(fileName, size);

  OpenFile file;
  ZResult opened = BASE_S_OK;
  if (resume && size > kResumeThreshold && (opened = file.Open(localName.CStr(), "r+")) == BASE_S_OK) {
    m_resumePosition = size - kResumeMargin;
    Wrappers::Sys::Fseek(file.Get(), static_cast<long>(m_resumePosition), SEEK_SET);
    LogLine(ZLogLevel::Information, kTransferArea, [&] {
      return ZString(L"%1: Resuming file \"%2\" at position %3")
          .Arg(L"DownloadFile")
          .Arg(fileName)
          .Arg(UnsignedNumber(m_resumePosition));
    });
  } else {
    opened = file.Open(localName.CStr(), "w");
  }
  SetError(TRANSFER_E_DOWNLOAD, ZString(L"Failed to open output file %1: %2").Arg(fileName).Arg(ZGetErrorMsg(opened)));
  if (file.Get() == nullptr) return;

  m_outputToFile = true;
  m_outputFile = file.Get();
  Transfer(url, false);
  if (IsRestMissing()) FailRange();
  ZResult finished = BASE_S_OK;
  if (!IsFailure(m_errorCode) && m_resumePosition != 0 && CheckHeader()) {
    finished = CutStaleTail(file, fileName, m_downloadSize);
  }
  const ZResult closed = file.Close();
  if (finished == BASE_S_OK) finished = closed;
  // Data that did not reach the disk is never a success.
  if (finished != BASE_S_OK && !IsFailure(m_errorCode)) {
    SetError(TRANSFER_E_DOWNLOAD, ZGetErrorMsg(TRANSFER_E_DOWNLOAD) + L": " + ZGetErrorMsg(finished));
  }
  if (!CheckHeader()) RefuseDownloadFile(url, fileName);
}

bool ZTransfer::ZTransferImpl::IsRepresentable(const char* localName, const ZString& name, const wchar_t* message) {
  if (name.IsEmpty() || (localName != nullptr && *localName != '\0')) return true;
  SetError(TRANSFER_E_DOWNLOAD, ZString(message).Arg(ZGetErrorMsg(TRANSFER_E_DOWNLOAD)).Arg(name));
  return false;
}

// The failure that libcurl reports when it sees by itself that a server ignored the range.
void ZTransfer::ZTransferImpl::FailRange() {
  const ZString text(L"The server did not send the rest of the file. Cannot resume.");
  SetError(CodeOf(CURLE_RANGE_ERROR), text);
  m_cause = CodeOf(CURLE_RANGE_ERROR);
  m_causeText.Set(text);
}

// No good answer came. What a fresh file holds then is an error page or nothing; a resumed file still holds the old data.
void ZTransfer::ZTransferImpl::RefuseDownloadFile(const ZString& url, const ZString& fileName) {
  ZString header;
  {
    const std::lock_guard guard(m_headerMutex);
    header = m_header;
  }
  SetError(TRANSFER_E_CONNECT, ZGetErrorMsg(TRANSFER_E_CONNECT) + L", " + url + L"\n" + header);
  if (m_resumePosition == 0) ZFile::Remove(fileName, 0);
}

// ---------------------------------------------------------------------------------------------------------------------
// Posts
// ---------------------------------------------------------------------------------------------------------------------

namespace {

// The fields as a body, without any escaping.
ZString FormOf(const ZMap<ZString, ZString, ZLtstr>& fields) {
  ZString body;
  for (const auto& [name, value] : fields) {
    if (!body.IsEmpty()) body.Append(L'&');
    body.Append(name).Append(L'=').Append(value);
  }
  return body;
}

}  // namespace

// The bodies are built inside the bracket, so that memory that runs out there is an outcome too.
ZResult ZTransfer::ZTransferImpl::Post(const ZString& url, const ZString& name, const ZString& value, ZString* result) {
  return RunOperation([&] { PostDataSteps(url, FormOf({{name, value}}), result); });
}

ZResult ZTransfer::ZTransferImpl::Post(const ZString& url, const ZMap<ZString, ZString, ZLtstr>& fields,
                                       ZString* result) {
  return RunOperation([&] { PostDataSteps(url, FormOf(fields), result); });
}

// Unlike the other operations this one is not refused while another one runs: it takes its turn after it. On the thread that
// runs the other one, that is in an observer, there is no such turn.
ZResult ZTransfer::ZTransferImpl::PostData(const ZString& url, const ZString& data, ZString* result) {
  for (;;) {
    const ZResult posted = RunOperation([&] { PostDataSteps(url, data, result); });
    if (posted != BASE_E_IN_USE || m_runner == std::this_thread::get_id()) return posted;
    WaitUntilIdle(kWithoutLimit);
  }
}

void ZTransfer::ZTransferImpl::PostDataSteps(const ZString& url, const ZString& data, ZString* result) {
  m_outputToFile = false;
  m_postData = DuplicateUtf8(data);
  // libcurl measures the string itself, so that what it sends and what the throttle is charged with agree.
  if (!SetOption("PostData", CURLOPT_POSTFIELDS, m_postData.get())) return;
  Post(url, static_cast<long>(std::strlen(m_postData.get())));
  if (result != nullptr) SetResult(*result);
}

ZResult ZTransfer::ZTransferImpl::PostFile(const ZString& url, const ZString& inputFile, const ZString& outputFile) {
  return RunOperation([&] { PostFileSteps(url, inputFile, outputFile); });
}

void ZTransfer::ZTransferImpl::PostFileSteps(const ZString& url, const ZString& inputFile, const ZString& outputFile) {
  const ZStringEncoder localInput(inputFile, ZStringEncoder::Local);
  const ZStringEncoder localOutput(outputFile, ZStringEncoder::Local);
  if (!IsRepresentable(localInput.CStr(), inputFile, L"%1: Input file name '%2' contains invalid characters")) return;
  if (!IsRepresentable(localOutput.CStr(), outputFile, L"%1: Output file name '%2' contains invalid characters"))
    return;
  const auto failOpen = [&](const wchar_t* text, const ZString& name, ZResult opened) {
    LogLine(ZLogLevel::Error, kTransferArea,
            [&] { return ZString(L"%1: Unable to open file for posting file:%2").Arg(L"PostFile").Arg(name); });
    SetError(TRANSFER_E_DOWNLOAD, ZString(text).Arg(name).Arg(ZGetErrorMsg(opened)));
  };

  OpenFile input;
  OpenFile output;
  const ZResult inputOpened = input.Open(localInput.CStr(), "r");
  if (inputOpened != BASE_S_OK) return failOpen(L"Failed to open input file %1: %2", inputFile, inputOpened);
  m_outputToFile = !outputFile.IsEmpty();
  if (m_outputToFile) {
    const ZResult outputOpened = output.Open(localOutput.CStr(), "w");
    if (outputOpened != BASE_S_OK) return failOpen(L"Failed to open output file %1: %2", outputFile, outputOpened);
    m_outputFile = output.Get();
  }

  unsigned long long size = 0;
  ZFile::GetSize(inputFile, size);
  if (!SetOption("PostFile", CURLOPT_INFILE, input.Get())) return;
  if (!SetOption("PostFile", CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(size))) return;
  Post(url, static_cast<long>(size));
  input.Close();
  const ZResult closed = output.Close();
  if (closed != BASE_S_OK && !IsFailure(m_errorCode)) {
    SetError(TRANSFER_E_DOWNLOAD, ZGetErrorMsg(TRANSFER_E_DOWNLOAD) + L": " + ZGetErrorMsg(closed));
  }
}

// The step that all posts share; `size` is the number of body bytes, with which the throttle is charged.
ZResult ZTransfer::ZTransferImpl::Post(const ZString& url, long size) {
  if (!SetOption("Post", CURLOPT_POST, 1L)) return m_errorCode;
  Transfer(url, true);
  if (m_useThrottling) sm_Throttling().Throttle(static_cast<unsigned int>(size));
  if (IsFailure(m_errorCode) || CheckHeader()) return m_errorCode;
  SetError(TRANSFER_E_POST, ZGetErrorMsg(TRANSFER_E_POST) + L", " + url);
  return m_errorCode;
}

// ---------------------------------------------------------------------------------------------------------------------
// Abort
// ---------------------------------------------------------------------------------------------------------------------

// Never waits for the transfer, which does not hold the lock. The flag goes up before the limits are written, see RepeatAbort.
ZResult ZTransfer::ZTransferImpl::Abort() {
  const ObjectGuard guard(*this);
  m_abort.exchange(true);
  for (const CURLoption limit : {CURLOPT_TIMEOUT, CURLOPT_CONNECTTIMEOUT}) {
    const CURLcode result = curl_easy_setopt(m_easy, limit, 1L);
    if (result != CURLE_OK) return FailOption("Abort", result, limit);
  }
  return BASE_S_OK;
}

// ---------------------------------------------------------------------------------------------------------------------
// Public class
// ---------------------------------------------------------------------------------------------------------------------

ZTransfer::ZTransfer() : m_impl(std::make_unique<ZTransferImpl>()) {
  ZThrottle& throttle = sm_Throttling();  // made here, where a failure leaves nothing to undo
  CurlGlobalInit();                       // when libcurl refuses, the operations will tell
  m_impl->m_easy = curl_easy_init();      // every operation checks for null
  throttle.StartTransfer();
}

ZTransfer::~ZTransfer() {
  // An abort that met an operation at its very beginning is lost; asking again once a second keeps the wait short.
  do {
    WithoutThrowing([&] { Abort(); });
  } while (!Wait(1000));
  sm_Throttling().FinishTransfer();
  if (m_impl->m_easy != nullptr) curl_easy_cleanup(std::exchange(m_impl->m_easy, nullptr));
  m_impl.reset();
  CurlGlobalCleanup();
}

void ZTransfer::FollowAbort(const std::atomic<bool>& abort) { m_impl->m_runAbort = &abort; }

ZResult ZTransfer::SetTimeout(unsigned long seconds) {
  m_impl->m_timeout = seconds;
  return BASE_S_OK;
}

ZResult ZTransfer::SetSSL(bool verifyHost, bool verifyPeer, const ZString& caFile, const ZString& caDir) {
  return m_impl->SetSSL(verifyHost, verifyPeer, caFile, caDir);
}

ZResult ZTransfer::SetCredentials(const ZString& user, const ZString& password) {
  return m_impl->SetCredentials(user, password);
}

ZResult ZTransfer::DetectHttpError(bool detect) {
  if (m_impl->m_inProgress) return BASE_E_BUSY;
  m_impl->m_detectHttpError = detect;
  return BASE_S_OK;
}

ZResult ZTransfer::UseThrottling(bool use) {
  if (m_impl->m_inProgress) return BASE_E_BUSY;
  m_impl->m_useThrottling = use;
  return BASE_S_OK;
}

ZResult ZTransfer::SetThrottling(unsigned int lowWaterMark, unsigned int limit, bool percent) {
  sm_Throttling().SetThrottling(lowWaterMark, limit, percent);
  return BASE_S_OK;
}

ZResult ZTransfer::StartMulti() {
  sm_Throttling().StartTransfer();
  return BASE_S_OK;
}

ZResult ZTransfer::FinishMulti() {
  sm_Throttling().FinishTransfer();
  return BASE_S_OK;
}

ZResult ZTransfer::Attach(Observer* observer) { return m_impl->Attach(observer); }
ZResult ZTransfer::Detach(Observer* observer) { return m_impl->Detach(observer); }
void ZTransfer::Notify(int event, long value) { m_impl->Notify(event, value); }
ZResult ZTransfer::GetHeader(ZString& header) const { return m_impl->GetHeader(header); }

unsigned long long ZTransfer::GetContentSize() const {
  return m_impl->m_contentSizeKnown ? m_impl->m_contentSize.load() : std::numeric_limits<unsigned long long>::max();
}

unsigned long long ZTransfer::GetDownloadSize() const { return m_impl->m_downloadSize; }
unsigned long long ZTransfer::GetTransferSize() const { return m_impl->m_transferSize; }
unsigned int ZTransfer::GetTransferRate() const { return m_impl->m_transferRate; }
const ZDateTime& ZTransfer::GetTransferStartTime() const { return m_impl->m_startTime; }

long long ZTransfer::GetTransferTime() const {
  return m_impl->m_inProgress ? 0 : m_impl->m_transferTime.GetTotalMicroSeconds() / 1000;
}

ZResult ZTransfer::GetStatus() const { return m_impl->m_errorCode; }
const ZString& ZTransfer::GetError() const { return m_impl->m_errorText.ForThisThread(); }
ZResult ZTransfer::GetCause(ZString& text) const { return m_impl->GetCause(text); }

ZResult ZTransfer::Reset() {
  do {
    Abort();
    while (!Wait(1000)) Abort();
  } while (!m_impl->ResetIfIdle());  // another thread may have begun an operation meanwhile
  return BASE_S_OK;
}

ZResult ZTransfer::Abort() {
  m_impl->Abort();
  return BASE_S_OK;
}

bool ZTransfer::Wait(unsigned long milliseconds) { return m_impl->WaitUntilIdle(milliseconds); }

ZResult ZTransfer::Download(const ZString& url, ZString& result) { return m_impl->Download(url, result); }

ZResult ZTransfer::DownloadFile(const ZString& url, const ZString& fileName, bool resume) {
  return m_impl->DownloadFile(url, fileName, resume);
}

ZResult ZTransfer::Post(const ZString& url, const ZString& name, const ZString& value) {
  return m_impl->Post(url, name, value, nullptr);
}

ZResult ZTransfer::Post(const ZString& url, const ZString& name, const ZString& value, ZString& result) {
  return m_impl->Post(url, name, value, &result);
}

ZResult ZTransfer::Post(const ZString& url, const ZMap<ZString, ZString, ZLtstr>& fields) {
  return m_impl->Post(url, fields, nullptr);
}

ZResult ZTransfer::Post(const ZString& url, const ZMap<ZString, ZString, ZLtstr>& fields, ZString& result) {
  return m_impl->Post(url, fields, &result);
}

ZResult ZTransfer::PostData(const ZString& url, const ZString& data) { return m_impl->PostData(url, data, nullptr); }

ZResult ZTransfer::PostData(const ZString& url, const ZString& data, ZString& result) {
  return m_impl->PostData(url, data, &result);
}

ZResult ZTransfer::PostFile(const ZString& url, const ZString& inputFile) {
  return m_impl->PostFile(url, inputFile, ZString());
}

ZResult ZTransfer::PostFile(const ZString& url, const ZString& inputFile, const ZString& outputFile) {
  return m_impl->PostFile(url, inputFile, outputFile);
}

}  // namespace Corvane
