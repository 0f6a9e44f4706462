#include "tests/loopback/TransferTesting.h"

#include <algorithm>
#include <cstdio>
#include <thread>

#include <Corvane/Base/StringCoding.h>

#include "tests/support/TempDir.h"

namespace CorvaneTest {

using Corvane::ZResult;
using Corvane::ZString;
using Corvane::ZTransfer;

ZString Wide(std::string_view utf8) { return Corvane::ZStringDecoder::FromUtf8(utf8.data(), utf8.size()); }

ZString WidePath(const std::filesystem::path& path) { return Wide(path.native()); }

std::string Narrow(const ZString& text) {
  const Corvane::ZStringEncoder encoder(text, Corvane::ZStringEncoder::Utf8);
  return std::string(encoder.CStr(), encoder.Length());
}

std::string MessageOf(ZResult code) { return Narrow(Corvane::ZGetErrorMsg(code)); }

std::string Hex(ZResult code) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%08X", code);
  return std::string(text) + " \"" + MessageOf(code) + "\"";
}

ZResult CauseOf(const ZTransfer& transfer) {
  ZString text;
  return transfer.GetCause(text);
}

std::string CauseTextOf(const ZTransfer& transfer) {
  ZString text;
  EXPECT_THAT(transfer.GetCause(text), testing::Ne(Corvane::BASE_E_BUSY));
  return Narrow(text);
}

std::string ErrorOf(const ZTransfer& transfer) { return Narrow(transfer.GetError()); }

std::string HeaderOf(const ZTransfer& transfer) {
  ZString header;
  EXPECT_THAT(transfer.GetHeader(header), IsCode(Corvane::BASE_S_OK));
  return Narrow(header);
}

// --- observing

void RecordingObserver::Update(int event, long value) {
  {
    const std::lock_guard lock(m_mutex);
    m_events.emplace_back(event, static_cast<ZResult>(value));
  }
  m_firstEvent.Open();
}

std::vector<RecordingObserver::Event> RecordingObserver::Events() const {
  const std::lock_guard lock(m_mutex);
  return m_events;
}

void TimeoutSetter::Update(int /*event*/, long /*value*/) { m_transfer.SetTimeout(m_seconds); }

RecordingLogger::RecordingLogger() : m_former(Corvane::ZLog::SetLogger(this)) {
  EnableUpTo(Corvane::ZLogLevel::Information);
}

RecordingLogger::~RecordingLogger() { Corvane::ZLog::SetLogger(m_former); }

void RecordingLogger::Write(Corvane::ZLogLevel level, const ZString& message, const char* /*file*/, int /*line*/) {
  const std::lock_guard lock(m_mutex);
  m_lines.push_back({level, Narrow(message)});
}

std::vector<std::string> RecordingLogger::Messages() const {
  const std::lock_guard lock(m_mutex);
  std::vector<std::string> messages;
  for (const Line& line : m_lines) messages.push_back(line.message);
  return messages;
}

std::vector<std::string> RecordingLogger::Messages(Corvane::ZLogLevel level) const {
  const std::lock_guard lock(m_mutex);
  std::vector<std::string> messages;
  for (const Line& line : m_lines) {
    if (line.level == level) messages.push_back(line.message);
  }
  return messages;
}

// --- operations on another thread

RunningOperation::RunningOperation(ZTransfer& transfer, std::function<ZResult()> operation)
    : m_transfer(transfer), m_future(std::async(std::launch::async, std::move(operation))) {}

RunningOperation::~RunningOperation() {
  // An abort that meets the very beginning of an operation may be lost, so one is not enough.
  while (!Result(After(std::chrono::milliseconds(500)))) m_transfer.Abort();
}

std::optional<ZResult> RunningOperation::Result(Deadline deadline) {
  if (!m_result && m_future.wait_until(deadline) == std::future_status::ready) m_result = m_future.get();
  return m_result;
}

bool WaitUntil(const std::function<bool()>& steps, Deadline deadline) {
  while (!steps()) {
    if (Clock::now() >= deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

// --- files

testing::AssertionResult FileHolds(const std::filesystem::path& file, std::string_view expected) {
  const std::string bytes = ReadFile(file);
  if (bytes == expected) return testing::AssertionSuccess();
  const auto difference = std::mismatch(bytes.begin(), bytes.end(), expected.begin(), expected.end()).first;
  return testing::AssertionFailure() << file << " holds " << bytes.size() << " bytes in place of " << expected.size()
                                     << "; the first that differs is at " << difference - bytes.begin();
}

std::vector<std::string> NamesIn(const std::filesystem::path& folder) {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    names.push_back(entry.path().filename().string());
  }
  std::sort(names.begin(), names.end());
  return names;
}

}  // namespace CorvaneTest
