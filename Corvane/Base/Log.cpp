#include <Corvane/Base/Log.h>

namespace Corvane {

namespace {

constexpr unsigned int BitOf(ZLogLevel level) noexcept { return 1u << static_cast<unsigned int>(level); }

class SilentLogger final : public ZLogger {
 public:
  void Write(ZLogLevel /*level*/, const ZString& /*message*/, const char* /*file*/, int /*line*/) override {}
};

// Never destroyed, because a static destructor of a host may still run an operation that asks for the logger.
union SilentLoggerStorage {
  constexpr SilentLoggerStorage() noexcept : logger() {}
  ~SilentLoggerStorage() {}
  SilentLogger logger;
};

// Both are initialised by the compiler: GetLogger works in any static initialiser.
constinit SilentLoggerStorage silent;
constinit std::atomic<ZLogger*> current{&silent.logger};

}  // namespace

void ZLogger::Enable(ZLogLevel level, bool enabled) noexcept {
  if (enabled) {
    m_enabled.fetch_or(BitOf(level), std::memory_order_relaxed);
  } else {
    m_enabled.fetch_and(~BitOf(level), std::memory_order_relaxed);
  }
}

void ZLogger::EnableUpTo(ZLogLevel level) noexcept { m_enabled.store(2 * BitOf(level) - 1, std::memory_order_relaxed); }

ZLogger* ZLog::GetLogger() noexcept { return current.load(std::memory_order_acquire); }

ZLogger* ZLog::SetLogger(ZLogger* logger) noexcept {
  return current.exchange(logger != nullptr ? logger : &silent.logger, std::memory_order_acq_rel);
}

}  // namespace Corvane
