// logger URL FILE LOG: downloads into a file, and appends what the libraries log meanwhile to LOG.
//
// Shows a logger of the host's own: its levels, its lock, and for how long it has to live.

#include <clocale>
#include <cstdio>
#include <fstream>
#include <mutex>

#include <Corvane/Base/Log.h>
#include <Corvane/Base/StringCoding.h>
#include <Corvane/Transfer.h>

#include "examples/host.h"

namespace {

class FileLogger : public Corvane::ZLogger {
 public:
  explicit FileLogger(const char* file) : m_out(file, std::ios::app) {}

  // Comes from whatever thread does the work. It only writes: a logger that started or aborted a transfer could wait for
  // itself.
  void Write(Corvane::ZLogLevel level, const Corvane::ZString& message, const char* file, int line) override {
    static constexpr const char* kNames[] = {"critical", "error", "warning", "information"};
    // Some messages end with a line end of their own.
    const Corvane::ZStringEncoder text(Corvane::ZString(message).TrimRight(), Corvane::ZStringEncoder::Utf8);
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_out << kNames[static_cast<unsigned int>(level)] << ' ' << file << ':' << line << ' ' << text.CStr() << std::endl;
  }
  [[nodiscard]] bool IsGood() const { return m_out.good(); }  // while no transfer runs

 private:
  std::mutex m_mutex;
  std::ofstream m_out;  // guarded by m_mutex
};

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) return 2;
  std::setlocale(LC_ALL, "");  // the encoding of the arguments and of file names
  FileLogger logger(argv[3]);  // made first, destroyed last: whoever may log to it ends before
  if (!logger.IsGood()) return 2;
  logger.EnableUpTo(Corvane::ZLogLevel::Information);  // no level is enabled at first
  Corvane::ZLog::SetLogger(&logger);

  Corvane::ZResult result = Corvane::BASE_S_OK;
  {
    Corvane::ZTransfer transfer;
    if (!VerifyServers(transfer)) return 1;
    result = transfer.DownloadFile(argv[1], argv[2], /*resume=*/false);
    if (Corvane::IsFailure(result)) TellFailure(transfer, result);
  }
  Corvane::ZLog::SetLogger(nullptr);  // silent again
  return Corvane::IsFailure(result) || !logger.IsGood() ? 1 : 0;
}
