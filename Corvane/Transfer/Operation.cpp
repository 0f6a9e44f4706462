#include <Corvane/Transfer/OperationImpl.h>

#include <Corvane/Base/Result.h>

namespace Corvane {

void Operation::ClearFlags() noexcept {
  m_inProgress = false;
  m_abort = false;
}

void Operation::Begin() {
  m_abort = m_runAbort != nullptr && *m_runAbort;
  m_runner = std::this_thread::get_id();
  m_inProgress = true;
  m_completion.Reset();
}

void Operation::End() {
  m_completion.Set();
  m_inProgress = false;
}

bool Operation::WaitUntilIdle(unsigned long milliseconds) {
  if (m_completion.Wait(milliseconds) != BASE_S_OK) return false;
  // The thread that ran the operation may still hold the lock in its end step.
  const ObjectGuard handshake(*this);
  return true;
}

}  // namespace Corvane
