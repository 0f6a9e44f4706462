#include "tests/throttle/ThrottleOracle.h"

#include <algorithm>

namespace CorvaneTest {
namespace {

constexpr std::int64_t kTwoTo32 = 4'294'967'296;

// What an unsigned 32-bit number holds of `number`.
std::int64_t Unsigned32(std::int64_t number) { return ((number % kTwoTo32) + kTwoTo32) % kTwoTo32; }

// What a signed one holds.
std::int64_t Signed32(std::int64_t number) {
  const std::int64_t low = Unsigned32(number);
  return low < kTwoTo32 / 2 ? low : low - kTwoTo32;
}

// 1000 x amount / per, the factor divided between the two by the size of `per`.
std::int64_t Scaled(std::int64_t amount, std::int64_t per) {
  struct Scale {
    std::int64_t atLeast, factor, divisor;
  };
  constexpr Scale kScales[] = {{10'000, 1, 1000}, {1'000, 10, 100}, {100, 100, 10}, {0, 1000, 1}};
  const Scale* scale = kScales;
  while (per < scale->atLeast) ++scale;
  return Unsigned32(amount * scale->factor) / (per / scale->divisor);
}

}  // namespace

void ThrottleOracle::SetThrottling(std::uint32_t lowWaterMark, std::uint32_t limit, bool percent) {
  m_lowWaterMark = lowWaterMark;
  m_percent = percent;
  m_setting = percent ? std::int64_t{limit} : Unsigned32(std::int64_t{limit} * 1024);
  RestartThrottling();
}

void ThrottleOracle::StartTransfer() {
  ++m_active;
  if (m_active == 1) RestartThrottling();
}

void ThrottleOracle::FinishTransfer() { m_active = std::max<std::int64_t>(m_active - 1, 0); }

void ThrottleOracle::RestartThrottling() {
  m_period = 0;
  m_evaluated = 0;
  m_limit = 0;
  m_lastSeconds = 0;
  m_startSeconds = 0;
  m_startMicroseconds = 0;
  m_bytes = 0;
}

std::int64_t ThrottleOracle::LimitOf(std::int64_t speed) const {
  if (!m_percent) return m_setting;
  if (speed > 9'999) return Unsigned32(m_setting * (speed / 100));
  if (speed > 999) return Unsigned32(m_setting * (speed / 10)) / 10;
  return Unsigned32(m_setting * speed) / 100;
}

void ThrottleOracle::Evaluate(std::int64_t speed, Outcome& outcome) {
  m_evaluated = m_period;
  if (!m_percent && m_lowWaterMark >= 1'000'000'000) {
    m_limit = m_setting;
    outcome.lines.push_back(L"Measure period not needed. Limit = " + std::to_wstring(m_limit) + L" b/s");
    return;
  }
  m_limit = speed >= m_lowWaterMark ? 0 : LimitOf(speed);
  outcome.lines.push_back(L"Finish measure period. Speed = " + std::to_wstring(speed) + L" b/s. LowWaterMark = " +
                          std::to_wstring(m_lowWaterMark) + L" b/s. Limit = " + std::to_wstring(m_limit) + L" b/s");
}

ThrottleOracle::Outcome ThrottleOracle::Throttle(std::uint32_t bytes, long long seconds, long long microseconds) {
  Outcome outcome;
  const std::int64_t now = Signed32(seconds);
  m_bytes = Unsigned32(m_bytes + bytes);
  if (now < m_lastSeconds) RestartThrottling();
  m_lastSeconds = now;

  const std::int64_t wholeSeconds = Signed32(Signed32(now - m_startSeconds) * 1000);
  std::int64_t elapsed = Unsigned32(wholeSeconds + (microseconds - m_startMicroseconds) / 1000);
  if (m_period == 0 || elapsed > 180'000) {
    m_startSeconds = now;
    m_startMicroseconds = microseconds;
    m_bytes = 0;
    elapsed = 1;
    ++m_period;
  }
  elapsed = std::max<std::int64_t>(elapsed, 1);
  if (elapsed < 10'000 && (m_percent || m_lowWaterMark < 1'000'000'000)) return outcome;

  const std::int64_t speed = Scaled(m_bytes, elapsed);
  if (m_evaluated < m_period) Evaluate(speed, outcome);
  if (m_limit == 0 || m_limit >= speed) return outcome;

  const std::int64_t wait = std::max<std::int64_t>(Scaled(m_bytes, m_limit) - elapsed, 0);
  outcome.sleeps.push_back({std::min<std::int64_t>(wait / 1000, 10), wait % 1000});
  return outcome;
}

}  // namespace CorvaneTest
