#pragma once

#include <functional>
#include <mutex>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include <Corvane/Base/Log.h>

namespace CorvaneTest {

// One call of ZLogger::Write, whole.
struct LogLine {
  Corvane::ZLogLevel level;
  std::wstring message;
  std::string file;
  int line;
};

inline void PrintTo(const LogLine& line, std::ostream* out) {
  *out << "level " << static_cast<unsigned int>(line.level) << ", " << line.file << ':' << line.line << ", \"";
  for (const wchar_t character : line.message) *out << static_cast<char>(character);  // the library's texts are ASCII
  *out << '"';
}

// The process's logger while it lives; remembers every line of every level that is enabled, at first all of them.
// Thread safety: every member from any thread, except that `onWrite` is set before there are others.
class LineRecorder : public Corvane::ZLogger {
 public:
  LineRecorder() {
    EnableUpTo(Corvane::ZLogLevel::Information);
    m_former = Corvane::ZLog::SetLogger(this);
  }
  ~LineRecorder() override { Corvane::ZLog::SetLogger(m_former); }

  // Called for each line after it was remembered; may throw.
  std::function<void(const LogLine&)> onWrite;

  void Write(Corvane::ZLogLevel level, const Corvane::ZString& message, const char* file, int line) override {
    const LogLine written{level, message.Str(), file, line};
    {
      const std::lock_guard<std::mutex> lock(m_mutex);
      m_lines.push_back(written);
    }
    if (onWrite) onWrite(written);
  }

  std::vector<LogLine> Lines() const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_lines;
  }

  std::vector<std::wstring> Messages() const {
    std::vector<std::wstring> messages;
    for (LogLine& line : Lines()) messages.push_back(std::move(line.message));
    return messages;
  }

  void Forget() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_lines.clear();
  }

 private:
  mutable std::mutex m_mutex;
  std::vector<LogLine> m_lines;  // guarded by m_mutex
  Corvane::ZLogger* m_former = nullptr;
};

}  // namespace CorvaneTest
