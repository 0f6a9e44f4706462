#pragma once

#include <functional>
#include <iosfwd>
#include <mutex>
#include <string>
#include <vector>

#include <Corvane/Base/Log.h>
#include <Corvane/Base/String.h>
#include <Corvane/Transfer.h>

namespace Corvane {

// For the messages of failed comparisons.
void PrintTo(const ZString& text, std::ostream* stream);

}  // namespace Corvane

namespace CorvaneTest {

// The text in UTF-8, for comparisons with literals.
std::string Narrow(const Corvane::ZString& text);

// Takes the log while it exists, every level enabled at first, and keeps each line as "E Transfer: text", the letter
// being that of its level. Lines that do not name the source "Corvane/Transfer" and a line number begin with "?".
class RecordingLogger : public Corvane::ZLogger {
 public:
  RecordingLogger();
  ~RecordingLogger() override;

  void Write(Corvane::ZLogLevel level, const Corvane::ZString& message, const char* file, int line) override;

  [[nodiscard]] std::vector<std::string> Lines() const;
  void Clear();

  std::function<void()> onWrite;  // called after a line was kept; may throw

 private:
  Corvane::ZLogger* m_former;
  mutable std::mutex m_mutex;
  std::vector<std::string> m_lines;  // guarded by m_mutex
};

// Keeps each event as "1 80011002": the number, and the value in hexadecimal.
class RecordingObserver : public Corvane::ZTransfer::Observer {
 public:
  RecordingObserver() = default;
  explicit RecordingObserver(std::function<void()> action) : onUpdate(std::move(action)) {}

  void Update(int event, long value) override;

  std::vector<std::string> events;
  std::function<void()> onUpdate;  // called after the event was kept; may throw
};

}  // namespace CorvaneTest
