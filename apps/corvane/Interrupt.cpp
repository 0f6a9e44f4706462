#include "apps/corvane/Interrupt.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <ctime>
#include <limits>
#include <system_error>
#include <utility>

#include "apps/corvane/ExitCode.h"

namespace CorvaneCli {
namespace {

constexpr int kAbortIntervalMs = 200;

Descriptor Checked(int descriptor, const char* operation) {
  if (descriptor < 0) throw std::system_error(errno, std::generic_category(), operation);
  return Descriptor(descriptor);
}

void Raise(const Descriptor& event) {
  const std::uint64_t one = 1;
  static_cast<void>(!write(event.Get(), &one, sizeof(one)));  // fails only at a count that is never reached
}

bool IsRaised(const Descriptor& event) {
  pollfd poller{event.Get(), POLLIN, 0};
  return poll(&poller, 1, 0) == 1;
}

constexpr std::array<int, 3> kEndingSignals = {SIGINT, SIGTERM, SIGHUP};

bool IsIgnored(int signal) {
  struct sigaction action {};
  return sigaction(signal, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

[[noreturn]] void Exit() { _exit(static_cast<int>(ExitCode::kInterrupted)); }

void ExitFromHandler(int /*signal*/) { Exit(); }

// --- the first signal and those after it. The process has one first signal, and the handler below needs to know it.

constexpr long long kSameMs = 500;               // signals within this time of the first count as one with it
constinit std::atomic<long long> sm_firstMs{0};  // when it came; 0 before
static_assert(std::atomic<long long>::is_always_lock_free);  // so that a handler may read it

// Milliseconds of a clock that never goes back; for handlers, too.
long long NowMs() noexcept {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<long long>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

bool IsSecondSignal() noexcept { return NowMs() - sm_firstMs.load(std::memory_order_relaxed) >= kSameMs; }

void ExitFromHandlerAtSecond(int /*signal*/) {
  if (IsSecondSignal()) Exit();
}

// For the time after the transfer: what is left to be printed must not be lost to the rest of the first signal.
void ExitAtSecondSignal(const sigset_t& signals) {
  struct sigaction action {};
  action.sa_handler = ExitFromHandlerAtSecond;
  action.sa_flags = SA_RESTART;
  for (const int signal : kEndingSignals) {
    if (sigismember(&signals, signal) == 1) sigaction(signal, &action, nullptr);
  }
}

}  // namespace

void ExitOnSignals() {
  for (const int signal : kEndingSignals) {
    if (!IsIgnored(signal)) ::signal(signal, ExitFromHandler);
  }
}

bool WaitFor(std::chrono::milliseconds time, const Interrupt& interrupt) {
  const auto end = std::chrono::steady_clock::now() + time;
  pollfd poller{interrupt.PollDescriptor(), POLLIN, 0};
  while (true) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - std::chrono::steady_clock::now()).count();
    const int ready =
        poll(&poller, 1, static_cast<int>(std::clamp<long long>(left, 0, std::numeric_limits<int>::max())));
    if (ready > 0) return false;
    if (ready == 0 && left <= 0) return true;
  }
}

Interrupt::Interrupt() {
  sigemptyset(&m_signals);
  for (const int signal : kEndingSignals) {
    if (!IsIgnored(signal)) sigaddset(&m_signals, signal);
  }
  m_arrivals = Checked(signalfd(-1, &m_signals, SFD_CLOEXEC | SFD_NONBLOCK), "signalfd");
  m_happened = Checked(eventfd(0, EFD_CLOEXEC), "eventfd");
  m_wake = Checked(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK), "eventfd");
  m_stop = Checked(eventfd(0, EFD_CLOEXEC), "eventfd");
  pthread_sigmask(SIG_BLOCK, &m_signals, &m_formerMask);
  m_watcher = std::thread([this] { Watch(); });
}

Interrupt::~Interrupt() {
  Raise(m_stop);
  m_watcher.join();
  if (HasHappened()) ExitAtSecondSignal(m_signals);
  pthread_sigmask(SIG_SETMASK, &m_formerMask, nullptr);
}

void Interrupt::Arm(std::function<void()> abort) {
  {
    const std::lock_guard guard(m_mutex);
    m_abort = std::move(abort);
  }
  if (HasHappened()) Raise(m_wake);  // else the signal that comes will find what was armed
}

void Interrupt::Disarm() {
  const std::lock_guard guard(m_mutex);
  m_abort = nullptr;
}

bool Interrupt::HasHappened() const { return IsRaised(m_happened); }

void Interrupt::Watch() {
  enum { kArrivals, kWake, kStop };
  std::array<pollfd, 3> sources = {pollfd{m_arrivals.Get(), POLLIN, 0}, pollfd{m_wake.Get(), POLLIN, 0},
                                   pollfd{m_stop.Get(), POLLIN, 0}};
  while (true) {
    const bool repeats = HasHappened();
    if (poll(sources.data(), sources.size(), repeats ? kAbortIntervalMs : -1) < 0 && errno != EINTR) return;
    if ((sources[kStop].revents & POLLIN) != 0) return;
    std::uint64_t count = 0;
    static_cast<void>(!read(m_wake.Get(), &count, sizeof(count)));
    HandleSignal();
    if (HasHappened()) CallAbort();
  }
}

void Interrupt::HandleSignal() {
  signalfd_siginfo arrival{};
  while (read(m_arrivals.Get(), &arrival, sizeof(arrival)) == static_cast<ssize_t>(sizeof(arrival))) {
    if (!HasHappened()) {
      sm_firstMs.store(NowMs(), std::memory_order_relaxed);
      Raise(m_happened);
    } else if (IsSecondSignal()) {
      Exit();
    }
  }
}

void Interrupt::CallAbort() {
  const std::lock_guard guard(m_mutex);
  if (m_abort) m_abort();
}

}  // namespace CorvaneCli
