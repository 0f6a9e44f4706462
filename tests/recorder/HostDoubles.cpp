#include "tests/recorder/HostDoubles.h"

#include <array>
#include <cstdio>
#include <ostream>
#include <string_view>

#include <Corvane/Base/StringCoding.h>

#include "tests/recorder/Allocations.h"

void Corvane::PrintTo(const ZString& text, std::ostream* stream) { *stream << '"' << CorvaneTest::Narrow(text) << '"'; }

namespace CorvaneTest {

std::string Narrow(const Corvane::ZString& text) {
  const Corvane::ZStringEncoder encoder(text, Corvane::ZStringEncoder::Utf8);
  return {encoder.CStr(), encoder.Length()};
}

RecordingLogger::RecordingLogger() : m_former(Corvane::ZLog::SetLogger(this)) {
  EnableUpTo(Corvane::ZLogLevel::Information);
}

RecordingLogger::~RecordingLogger() { Corvane::ZLog::SetLogger(m_former); }

void RecordingLogger::Write(Corvane::ZLogLevel level, const Corvane::ZString& message, const char* file, int line) {
  const AllocationsCount uncounted(false);
  const bool named = std::string_view(file) == "Corvane/Transfer" && line > 0;
  {
    const std::lock_guard guard(m_mutex);
    m_lines.push_back((named ? "" : "?") + std::string(1, "CEWI"[static_cast<std::size_t>(level)]) + " " +
                      Narrow(message));
  }
  if (onWrite) onWrite();
}

std::vector<std::string> RecordingLogger::Lines() const {
  const std::lock_guard guard(m_mutex);
  return m_lines;
}

void RecordingLogger::Clear() {
  const std::lock_guard guard(m_mutex);
  m_lines.clear();
}

void RecordingObserver::Update(int event, long value) {
  const AllocationsCount uncounted(false);
  std::array<char, 64> text{};
  std::snprintf(text.data(), text.size(), "%d %lx", event, value);
  events.emplace_back(text.data());
  if (onUpdate) onUpdate();
}

}  // namespace CorvaneTest
