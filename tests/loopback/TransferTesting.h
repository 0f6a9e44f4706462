#pragma once

#include <gmock/gmock.h>

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <functional>
#include <future>
#include <mutex>
#include <optional>
#include <ostream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <Corvane/Base/ErrorDict.h>
#include <Corvane/Base/Log.h>
#include <Corvane/Transfer.h>

#include "tests/support/Deadline.h"
#include "tests/support/Gate.h"

// What the tests of ZTransfer share.
namespace CorvaneTest {

// --- text: tests write UTF-8, the library takes wide characters

Corvane::ZString Wide(std::string_view utf8);
Corvane::ZString WidePath(const std::filesystem::path& path);
std::string Narrow(const Corvane::ZString& text);

// The registered message of a code.
std::string MessageOf(Corvane::ZResult code);

// --- result codes

inline constexpr unsigned long long kUnknownSize = ~0ULL;

// A failure of libcurl, as operations report it. The numbers are libcurl's own (see libcurl-errors(3)) and never change.
constexpr Corvane::ZResult CurlFailure(unsigned int curlCode) { return Corvane::TRANSFER_E_CURL_BASE | curlCode; }
inline constexpr unsigned int kUnsupportedProtocol = 1;
inline constexpr unsigned int kMalformedUrl = 3;
inline constexpr unsigned int kUnresolvedHost = 6;
inline constexpr unsigned int kRefusedConnection = 7;
inline constexpr unsigned int kPartialFile = 18;
inline constexpr unsigned int kWriteError = 23;
inline constexpr unsigned int kOutOfMemory = 27;
inline constexpr unsigned int kTimedOut = 28;
inline constexpr unsigned int kRangeError = 33;
inline constexpr unsigned int kBadResume = 36;
inline constexpr unsigned int kUnreadableFile = 37;
inline constexpr unsigned int kBadArgument = 43;
inline constexpr unsigned int kReceiveError = 56;
inline constexpr unsigned int kPeerNotVerified = 60;
inline constexpr unsigned int kLoginDenied = 67;
inline constexpr unsigned int kRemoteFileNotFound = 78;
inline constexpr unsigned int kTooLarge = 100;

std::string Hex(Corvane::ZResult code);

// As Eq, with the codes in hexadecimal and their messages when it fails.
MATCHER_P(IsCode, expected, "is " + Hex(expected)) {
  *result_listener << Hex(arg);
  return arg == static_cast<Corvane::ZResult>(expected);
}

// What libcurl said of the last operation; see ZTransfer::GetCause.
Corvane::ZResult CauseOf(const Corvane::ZTransfer& transfer);
std::string CauseTextOf(const Corvane::ZTransfer& transfer);

std::string ErrorOf(const Corvane::ZTransfer& transfer);
std::string HeaderOf(const Corvane::ZTransfer& transfer);

// --- observing

// Remembers what it was told.
// Thread safety: every member from any thread.
class RecordingObserver : public Corvane::ZTransfer::Observer {
 public:
  using Event = std::pair<int, Corvane::ZResult>;

  void Update(int event, long value) override;

  std::vector<Event> Events() const;

  // Opened at the first event: the transfer has received data.
  const Gate& FirstEvent() const { return m_firstEvent; }

 private:
  mutable std::mutex m_mutex;
  std::vector<Event> m_events;  // guarded by m_mutex
  Gate m_firstEvent;
};

// Sets the transfer's time-out at the first data, so that the limit holds for what follows and not for the beginning,
// which may take its time on a busy machine.
class TimeoutSetter : public Corvane::ZTransfer::Observer {
 public:
  TimeoutSetter(Corvane::ZTransfer& transfer, unsigned long seconds) : m_transfer(transfer), m_seconds(seconds) {
    m_transfer.Attach(this);
  }
  ~TimeoutSetter() override { m_transfer.Detach(this); }
  TimeoutSetter(const TimeoutSetter&) = delete;
  TimeoutSetter& operator=(const TimeoutSetter&) = delete;

  void Update(int event, long value) override;

 private:
  Corvane::ZTransfer& m_transfer;
  unsigned long m_seconds;
};

// The process's logger while it lives; remembers every line of every level.
// Thread safety: every member from any thread.
class RecordingLogger : public Corvane::ZLogger {
 public:
  struct Line {
    Corvane::ZLogLevel level;
    std::string message;
  };

  RecordingLogger();
  ~RecordingLogger() override;

  void Write(Corvane::ZLogLevel level, const Corvane::ZString& message, const char* file, int line) override;

  std::vector<std::string> Messages() const;  // of every level
  std::vector<std::string> Messages(Corvane::ZLogLevel level) const;

 private:
  mutable std::mutex m_mutex;
  std::vector<Line> m_lines;  // guarded by m_mutex
  Corvane::ZLogger* m_former;
};

// --- operations on another thread

// How long an abort may take to end a transfer. It is about a second; the rest is for machines that are busy with
// something else. Every test sets time-outs that are far longer, so that it is the abort which ended the transfer.
inline constexpr std::chrono::seconds kAbortLimit{10};

// Runs an operation of `transfer` on a thread of its own. Is done with the transfer when it is destroyed: a test that
// fails in between aborts the operation instead of hanging.
class RunningOperation {
 public:
  RunningOperation(Corvane::ZTransfer& transfer, std::function<Corvane::ZResult()> operation);
  ~RunningOperation();
  RunningOperation(const RunningOperation&) = delete;
  RunningOperation& operator=(const RunningOperation&) = delete;

  // The operation's code; nullopt when it has not ended at the deadline.
  std::optional<Corvane::ZResult> Result(Deadline deadline);
  std::optional<Corvane::ZResult> Result() { return Result(After(kPatience)); }

 private:
  Corvane::ZTransfer& m_transfer;
  std::future<Corvane::ZResult> m_future;
  std::optional<Corvane::ZResult> m_result;
};

// Runs `steps` again and again until they return true; false when the deadline passed first. For states that have no
// event to wait for.
bool WaitUntil(const std::function<bool()>& steps, Deadline deadline = After(kPatience));

// --- files

// Whether the file holds exactly these bytes. Tells where they differ first instead of printing them.
testing::AssertionResult FileHolds(const std::filesystem::path& file, std::string_view expected);

// Names in the folder, sorted.
std::vector<std::string> NamesIn(const std::filesystem::path& folder);

// For settings that a test cannot do without, where no assertion can be made: throws when they were refused.
inline void RequireSet(Corvane::ZResult result) {
  if (result != 0) throw std::logic_error("a setting was refused");
}

}  // namespace CorvaneTest
