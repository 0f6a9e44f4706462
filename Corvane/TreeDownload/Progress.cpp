#include <Corvane/TreeDownload/ProgressImpl.h>

#include <Corvane/Base/ErrorDict.h>

namespace Corvane {
namespace {

long long MillisecondsSince(std::chrono::steady_clock::time_point begin) {
  return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - begin).count();
}

}  // namespace

bool Progress::Begin() {
  ZString text = ZGetErrorMsg(TRANSFER_E_IN_PROGRESS);
  ZString successText = ZGetErrorMsg(TRANSFER_S_FINISHED);
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

bool Progress::IsFailed() const noexcept {
  const ZResult status = Status();
  return IsFailure(status) && status != TRANSFER_E_IN_PROGRESS;
}

void Progress::Fail(ZResult code, const ZString& text) {
  ZResult expected = TRANSFER_E_IN_PROGRESS;
  if (m_status.compare_exchange_strong(expected, code)) m_text.Set(text);
}

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
