#include "tests/soak/SoakSlot.h"

#include <mutex>
#include <thread>

namespace CorvaneTest {

using std::chrono::milliseconds;

SoakResult SoakSlot::Run(const Operation& operation) {
  SoakObject* object = nullptr;
  {
    const std::shared_lock lock(m_mutex);
    object = m_object.get();
    m_begin = Clock::now().time_since_epoch().count();
    ++m_calls;
  }
  SoakResult result = operation(*object);
  ++m_calls;
  return result;
}

milliseconds SoakSlot::RunningFor() const {
  const std::uint64_t calls = m_calls;
  const Clock::time_point begin{Clock::duration(m_begin)};
  if (calls % 2 == 0 || m_calls != calls) return milliseconds(0);
  return std::chrono::duration_cast<milliseconds>(Clock::now() - begin);
}

void SoakSlot::Use(const std::function<void(SoakObject&)>& use) {
  if (m_isClosing) return;
  const std::shared_lock lock(m_mutex);
  use(*m_object);
}

std::optional<milliseconds> SoakSlot::AbortRunning(milliseconds limit) {
  if (m_isClosing) return std::nullopt;
  const std::shared_lock lock(m_mutex);
  const std::uint64_t call = m_calls;
  // Only an operation that is past its beginning cannot lose the abort. What does not wait has begun; if the number is still the same
  // then, it was this operation that did.
  if (call % 2 == 0 || m_object->Wait(0) || m_calls != call) return std::nullopt;
  const auto begin = Clock::now();
  m_object->Abort();
  while (m_calls == call && Clock::now() < begin + limit) std::this_thread::sleep_for(milliseconds(1));
  return m_calls == call ? limit : std::chrono::duration_cast<milliseconds>(Clock::now() - begin);
}

bool SoakSlot::Replace(std::unique_ptr<SoakObject> next) {
  m_isClosing = true;
  const std::unique_lock lock(m_mutex);
  // A call that is being made counts as begun once the object is busy.
  while (IsCalling() && m_object->Wait(0)) std::this_thread::yield();
  const bool isRunning = IsCalling();
  m_object.reset();
  m_object = std::move(next);
  m_isClosing = false;
  return isRunning;
}

}  // namespace CorvaneTest
