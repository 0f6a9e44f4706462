#include "apps/corvane/Logging.h"

#include <fcntl.h>
#include <fmt/core.h>
#include <spdlog/logger.h>
#include <spdlog/sinks/base_sink.h>
#include <spdlog/sinks/basic_file_sink.h>

#include <atomic>
#include <cerrno>
#include <mutex>
#include <utility>

#include <Corvane/Base/Log.h>

#include "apps/corvane/Failure.h"
#include "apps/corvane/Files.h"
#include "apps/corvane/Proxy.h"
#include "apps/corvane/Text.h"

namespace CorvaneCli {
namespace {

using Corvane::ZLog;
using Corvane::ZLogger;
using Corvane::ZLogLevel;
using Corvane::ZString;

class ConsoleSink : public spdlog::sinks::base_sink<std::mutex> {
 public:
  explicit ConsoleSink(Console& console) : m_console(console) {}

 private:
  void sink_it_(const spdlog::details::log_msg& message) override {
    m_console.Line(std::string(message.payload.data(), message.payload.size()));
  }
  void flush_() override {}

  Console& m_console;
};

spdlog::level::level_enum LevelOf(ZLogLevel level) {
  switch (level) {
    case ZLogLevel::Critical:
      return spdlog::level::critical;
    case ZLogLevel::Error:
      return spdlog::level::err;
    case ZLogLevel::Warning:
      return spdlog::level::warn;
    case ZLogLevel::Information:
      return spdlog::level::info;
  }
  return spdlog::level::info;
}

spdlog::sink_ptr MakeFileSink(const std::string& file) {
  // spdlog's own message tells neither the reason nor a remedy.
  const Descriptor probe = Open(file, O_WRONLY | O_APPEND | O_CREAT | O_NONBLOCK);
  if (!probe.IsOpen()) {
    throw Failure(
        ExitCode::kLocal,
        fmt::format("cannot write the log file {}: {}; choose another one with --log-file, or change the permissions",
                    DisplayName(file), SystemText(errno)));
  }
  auto sink = std::make_shared<spdlog::sinks::basic_file_sink_mt>(file);
  sink->set_pattern("%Y-%m-%d %H:%M:%S.%e %P [%l] %v");
  return sink;
}

}  // namespace

// Takes the libraries' lines. What a server or a file name put into them must not forge further lines.
class Logging::Bridge : public ZLogger {
 public:
  // Either sink may be null.
  Bridge(const spdlog::sink_ptr& console, const spdlog::sink_ptr& file, Console& errors) {
    if (console != nullptr) m_all.sinks().push_back(console);
    for (spdlog::logger* const logger : {&m_all, &m_file}) {
      if (file != nullptr) logger->sinks().push_back(file);
      logger->flush_on(spdlog::level::info);
      logger->set_error_handler([this, &errors](const std::string& reason) {
        if (!m_hasFailed.exchange(true))
          errors.Error("cannot write to the log: " + reason + "; lines are missing in it");
      });
    }
    EnableUpTo(ZLogLevel::Information);
    m_former = ZLog::SetLogger(this);
  }
  ~Bridge() override { ZLog::SetLogger(m_former); }
  Bridge(const Bridge&) = delete;
  Bridge& operator=(const Bridge&) = delete;

  void Write(ZLogLevel level, const ZString& message, const char* file, int line) override {
    Log(LevelOf(level), fmt::format("{} ({}:{})", OneLine(ToUtf8(message)), file, line));
  }
  void Log(spdlog::level::level_enum level, const std::string& text) { m_all.log(level, spdlog::string_view_t(text)); }
  void LogToFile(spdlog::level::level_enum level, const std::string& text) {
    m_file.log(level, spdlog::string_view_t(text));
  }

  static std::string OneLine(std::string text) {
    text = HideProxySecrets(std::move(text));
    while (!text.empty() && text.back() == '\n') text.pop_back();
    for (char& character : text) {
      if (static_cast<unsigned char>(character) < 0x20 || character == 0x7F) character = ' ';
    }
    return text;
  }

 private:
  spdlog::logger m_all{"corvane"};
  spdlog::logger m_file{"corvane"};
  std::atomic<bool> m_hasFailed{false};
  ZLogger* m_former = nullptr;
};

Logging::Logging(bool verbose, const std::optional<std::string>& file, Console& console) {
  if (!verbose && !file) return;
  m_bridge = std::make_unique<Bridge>(verbose ? std::make_shared<ConsoleSink>(console) : nullptr,
                                      file ? MakeFileSink(*file) : nullptr, console);
}

Logging::~Logging() = default;

void Logging::Tell(std::string_view text) {
  if (m_bridge != nullptr) m_bridge->Log(spdlog::level::info, Bridge::OneLine(std::string(text)));
}

void Logging::Record(std::string_view text) {
  if (m_bridge != nullptr) m_bridge->LogToFile(spdlog::level::info, Bridge::OneLine(std::string(text)));
}

void Logging::RecordError(std::string_view text) {
  if (m_bridge != nullptr) m_bridge->LogToFile(spdlog::level::err, Bridge::OneLine(std::string(text)));
}

}  // namespace CorvaneCli
