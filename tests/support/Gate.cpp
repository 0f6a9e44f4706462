#include "tests/support/Gate.h"

#include <poll.h>
#include <sys/eventfd.h>

#include <cerrno>
#include <system_error>

namespace CorvaneTest {

Gate::Gate() : m_event(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
  if (!m_event.IsOpen()) throw std::system_error(errno, std::generic_category(), "eventfd");
}

void Gate::Open() {
  // The flag carries the memory ordering, which poll() does not promise; so it is set before anyone can be woken.
  m_isOpen.store(true, std::memory_order_release);
  eventfd_write(m_event.Get(), 1);
}

bool Gate::Wait(Deadline deadline) const {
  while (!IsOpen()) {
    pollfd event{m_event.Get(), POLLIN, 0};
    if (poll(&event, 1, MillisecondsUntil(deadline)) == 0 && Clock::now() >= deadline) return IsOpen();
  }
  return true;
}

}  // namespace CorvaneTest
