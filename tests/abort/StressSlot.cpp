#include "tests/abort/StressSlot.h"

#include <mutex>
#include <thread>

#include "tests/support/Deadline.h"

namespace CorvaneTest {

using Corvane::ZResult;
using Corvane::ZTransfer;

ZResult StressSlot::Run(Behaviour behaviour, const Operation& operation) {
  ZTransfer* object = nullptr;
  {
    const std::shared_lock lock(m_mutex);
    object = m_object.get();
    m_behaviour = behaviour;
    ++m_calls;
  }
  const ZResult code = operation(*object);
  ++m_calls;
  return code;
}

bool StressSlot::Use(const std::function<void(ZTransfer&)>& use) {
  if (m_isClosing) return false;
  const std::shared_lock lock(m_mutex);
  use(*m_object);
  return true;
}

std::optional<StressSlot::Abort> StressSlot::AbortRunning(std::chrono::milliseconds limit) {
  if (m_isClosing) return std::nullopt;
  const std::shared_lock lock(m_mutex);
  const std::uint64_t call = m_calls;
  const Behaviour behaviour = m_behaviour;
  // Only an operation that is past its beginning cannot lose the abort. What does not wait has begun; if the number is
  // still the same then, it was this operation that did.
  if (call % 2 == 0 || m_object->Wait(0) || m_calls != call) return std::nullopt;
  const auto begin = Clock::now();
  m_object->Abort();
  while (m_calls == call && Clock::now() < begin + limit) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  if (m_calls == call) return Abort{behaviour, limit};
  return Abort{behaviour, std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - begin)};
}

bool StressSlot::Replace() {
  m_isClosing = true;
  const std::unique_lock lock(m_mutex);
  // A call that is being made counts as begun once the object is busy.
  while (IsCalling() && m_object->Wait(0)) std::this_thread::yield();
  const bool isRunning = IsCalling();
  m_object.reset();
  m_object = std::make_unique<ZTransfer>();
  m_isClosing = false;
  return isRunning;
}

}  // namespace CorvaneTest
