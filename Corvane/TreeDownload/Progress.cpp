#include <Corvane/TreeDownload/ProgressImpl.h>

#include <cerrno>
#include <new>
#include <utility>

#include <Corvane/Base/ErrorDict.h>

namespace Corvane {
namespace {

long long MillisecondsSince(std::chrono::steady_clock::time_point begin) {
  return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - begin).count();
}

// Empty where there is no memory for it: it is the code that counts.
ZString MessageOf(ZResult code) noexcept {
  try {
    return ZGetErrorMsg(code);
  } catch (const std::bad_alloc&) {
    return {};
  }
}

}  // namespace

bool Progress::Begin() {
  ZString text = MessageOf(TRANSFER_E_IN_PROGRESS);
  ZString successText = MessageOf(TRANSFER_S_FINISHED);
  const std::lock_guard guard(m_mutex);
  if (m_isOn) return false;
  m_isOn = true;
  m_successText = std::move(successText);
  m_isAborted = false;
  m_statistics = ZTreeDownload::Statistics();
  m_begin = std::chrono::steady_clock::now();
  m_status = TRANSFER_E_IN_PROGRESS;
  m_text.Set(std::move(text));
  return true;
}

void Progress::End() {
  const std::lock_guard guard(m_mutex);
  if (Status() == TRANSFER_E_IN_PROGRESS) {
    m_text.Set(std::move(m_successText));
    m_status = TRANSFER_S_FINISHED;
  }
  m_statistics.phase = ZTreeDownload::Phase::Idle;
  m_statistics.elapsedMs = MillisecondsSince(m_begin);
  m_isOn = false;
}

bool Progress::IsOn() const {
  const std::lock_guard guard(m_mutex);
  return m_isOn;
}

ZTreeDownload::Statistics Progress::Snapshot() const {
  const std::lock_guard guard(m_mutex);
  ZTreeDownload::Statistics statistics = m_statistics;
  if (m_isOn) statistics.elapsedMs = MillisecondsSince(m_begin);
  return statistics;
}

void Progress::Fail(ZResult code, ZString text) {
  ZResult expected = TRANSFER_E_IN_PROGRESS;
  if (m_status.compare_exchange_strong(expected, code)) m_text.Set(std::move(text));
}

void Progress::FailShortOfMemory() noexcept { Fail(TRANSFER_E_DOWNLOAD, MessageOf(ResultFromErrno(ENOMEM))); }

void Progress::Abort() {
  const std::lock_guard guard(m_mutex);
  if (!m_isOn) return;
  m_isAborted = true;
  if (m_wakeUp) m_wakeUp();
}

void Progress::SetWakeUp(std::function<void()> wakeUp) {
  const std::lock_guard guard(m_mutex);
  m_wakeUp = std::move(wakeUp);
}

}  // namespace Corvane
