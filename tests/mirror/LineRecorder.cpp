#include "tests/mirror/LineRecorder.h"

#include <algorithm>
#include <iterator>

#include "tests/loopback/TransferTesting.h"

namespace CorvaneTest {

std::ostream& operator<<(std::ostream& out, const LogLine& line) {
  return out << line.file << ':' << line.line << " level " << static_cast<unsigned int>(line.level) << ": "
             << line.message;
}

LineRecorder::LineRecorder() : m_former(Corvane::ZLog::SetLogger(this)) { EnableUpTo(Corvane::ZLogLevel::Information); }

LineRecorder::~LineRecorder() { Corvane::ZLog::SetLogger(m_former); }

void LineRecorder::Write(Corvane::ZLogLevel level, const Corvane::ZString& message, const char* file, int line) {
  const std::lock_guard lock(m_mutex);
  m_lines.push_back({level, Narrow(message), file, line});
}

std::vector<LogLine> LineRecorder::LinesOf(const std::string& file) const {
  const std::lock_guard lock(m_mutex);
  std::vector<LogLine> lines;
  std::copy_if(m_lines.begin(), m_lines.end(), std::back_inserter(lines),
               [&](const LogLine& line) { return line.file == file; });
  return lines;
}

}  // namespace CorvaneTest
