#pragma once

#include <mutex>
#include <ostream>
#include <string>
#include <vector>

#include <Corvane/Base/Log.h>

namespace CorvaneTest {

struct LogLine {
  Corvane::ZLogLevel level;
  std::string message;
  std::string file;
  int line;
  bool operator==(const LogLine&) const = default;
};

std::ostream& operator<<(std::ostream& out, const LogLine& line);

// The process's logger while it lives; remembers every line with the place it came from.
// Thread safety: every member from any thread.
class LineRecorder : public Corvane::ZLogger {
 public:
  LineRecorder();  // with every level enabled
  ~LineRecorder() override;

  void Write(Corvane::ZLogLevel level, const Corvane::ZString& message, const char* file, int line) override;

  // The lines that come from this source.
  std::vector<LogLine> LinesOf(const std::string& file) const;

 private:
  mutable std::mutex m_mutex;
  std::vector<LogLine> m_lines;  // guarded by m_mutex
  Corvane::ZLogger* m_former;
};

}  // namespace CorvaneTest
