#include <Corvane/Throttle.h>

#include <sys/select.h>
#include <sys/time.h>

#include <algorithm>

#include <Corvane/Base/Guard.h>
#include <Corvane/LogLineImpl.h>
#include <Corvane/NumberTextImpl.h>

namespace Corvane {
namespace {

using MutexGuard = ZGuardImpl<ZMutex>;

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

}  // namespace Corvane
