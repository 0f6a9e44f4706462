#include <Corvane/Base/Log.h>

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

namespace Corvane {
namespace {

constexpr ZLogLevel kLevels[] = {ZLogLevel::Critical, ZLogLevel::Error, ZLogLevel::Warning, ZLogLevel::Information};

class CountingLogger : public ZLogger {
 public:
  void Write(ZLogLevel /*level*/, const ZString& /*message*/, const char* /*file*/, int /*line*/) override { ++lines; }
  std::atomic<int> lines = 0;
};

// The levels that are enabled, most severe first, as in "CE..".
std::string EnabledLevels(const ZLogger& logger) {
  std::string letters = "CEWI";
  for (const ZLogLevel level : kLevels) {
    if (!logger.IsEnabled(level)) letters[static_cast<std::size_t>(level)] = '.';
  }
  return letters;
}

TEST(ZLogger, HasEveryLevelDisabledAtFirst) { EXPECT_EQ(EnabledLevels(CountingLogger()), "...."); }

TEST(ZLogger, EnablesAndDisablesOneLevelAtATime) {
  CountingLogger logger;
  for (const ZLogLevel level : kLevels) {
    logger.Enable(level, true);
    EXPECT_TRUE(logger.IsEnabled(level));
    EXPECT_EQ(EnabledLevels(logger).find_first_not_of('.'), static_cast<std::size_t>(level)) << "others stay disabled";
    EXPECT_EQ(EnabledLevels(logger).find_last_not_of('.'), static_cast<std::size_t>(level)) << "others stay disabled";
    logger.Enable(level, false);
    EXPECT_EQ(EnabledLevels(logger), "....");
  }
}

TEST(ZLogger, EnableUpToEnablesTheMoreSevereLevelsAndDisablesTheOthers) {
  struct Case {
    ZLogLevel level;
    const char* enabled;
  };
  constexpr Case kCases[] = {{ZLogLevel::Information, "CEWI"},
                             {ZLogLevel::Warning, "CEW."},
                             {ZLogLevel::Error, "CE.."},
                             {ZLogLevel::Critical, "C..."}};
  CountingLogger logger;
  for (const Case& c : kCases) {
    logger.EnableUpTo(c.level);
    EXPECT_EQ(EnabledLevels(logger), c.enabled);
  }
}

TEST(ZLog, HasASilentLoggerByDefault) {
  ZLogger* const logger = ZLog::GetLogger();
  ASSERT_NE(logger, nullptr);
  EXPECT_EQ(EnabledLevels(*logger), "....");
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  logger->Write(ZLogLevel::Critical, L"unheard", "Corvane/Base/LogTest", 1);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(ZLog, SetLoggerReturnsTheOneBefore) {
  CountingLogger first;
  CountingLogger second;
  ZLogger* const silent = ZLog::SetLogger(&first);
  EXPECT_NE(silent, nullptr);
  EXPECT_EQ(ZLog::GetLogger(), &first);
  EXPECT_EQ(ZLog::SetLogger(&second), &first);
  EXPECT_EQ(ZLog::GetLogger(), &second);
  EXPECT_EQ(ZLog::SetLogger(nullptr), &second);
  EXPECT_EQ(ZLog::GetLogger(), silent) << "null brings the silent default back";
  EXPECT_EQ(ZLog::SetLogger(silent), silent);
}

TEST(ZLog, WritesToTheInstalledLogger) {
  CountingLogger logger;
  ZLog::SetLogger(&logger);
  ZLog::GetLogger()->Write(ZLogLevel::Error, L"heard", "Corvane/Base/LogTest", 1);
  ZLog::SetLogger(nullptr);
  ZLog::GetLogger()->Write(ZLogLevel::Error, L"unheard", "Corvane/Base/LogTest", 1);
  EXPECT_EQ(logger.lines, 1);
}

TEST(ZLog, LoggersAndLevelsMayChangeWhileOtherThreadsAsk) {
  CountingLogger loggers[2];
  std::atomic<bool> isOver = false;
  std::atomic<int> nulls = 0;
  std::vector<std::thread> readers;
  readers.reserve(4);
  for (int i = 0; i < 4; ++i) {
    readers.emplace_back([&] {
      while (!isOver) {
        ZLogger* const logger = ZLog::GetLogger();
        if (logger == nullptr) {
          ++nulls;
        } else if (logger->IsEnabled(ZLogLevel::Information)) {
          logger->Write(ZLogLevel::Information, L"line", "Corvane/Base/LogTest", 1);
        }
      }
    });
  }
  for (int i = 0; i < 5000; ++i) {
    loggers[i % 2].EnableUpTo(i % 3 == 0 ? ZLogLevel::Information : ZLogLevel::Error);
    ZLog::SetLogger(i % 5 == 0 ? nullptr : &loggers[i % 2]);
  }
  ZLog::SetLogger(nullptr);
  isOver = true;
  for (std::thread& reader : readers) reader.join();
  EXPECT_EQ(nulls, 0);
}

// Threads that switch different levels of one logger must not undo each other's work.
TEST(ZLogger, LevelsSwitchedByDifferentThreadsDoNotDisturbEachOther) {
  CountingLogger logger;
  std::vector<std::thread> threads;
  for (const ZLogLevel level : kLevels) {
    threads.emplace_back([&logger, level] {
      for (int i = 0; i < 10000; ++i) logger.Enable(level, i % 2 == 0);
      logger.Enable(level, true);
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(EnabledLevels(logger), "CEWI");
}

// What the logger was before main, asked for by a static initialiser.
const ZLogger* const loggerBeforeMain = ZLog::GetLogger();

TEST(ZLog, WorksInStaticInitialisers) {
  ASSERT_NE(loggerBeforeMain, nullptr);
  EXPECT_EQ(loggerBeforeMain, ZLog::GetLogger());
}

}  // namespace
}  // namespace Corvane
