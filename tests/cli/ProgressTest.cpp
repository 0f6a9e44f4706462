// The progress line and the summaries, without a transfer.

#include <gmock/gmock.h>

#include <string>

#include "apps/corvane/Progress.h"
#include "apps/corvane/Text.h"
#include "tests/support/Env.h"

namespace CorvaneCli {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

ProgressLine HalfWay() {
  ProgressLine line;
  line.label = "big.iso";
  line.sample = {5 << 20, 10 << 20, std::nullopt, std::nullopt};
  line.bytesPerSecond = 1 << 20;
  line.elapsedSeconds = 7;
  return line;
}

TEST(FormatProgress, ShowsBarPercentBytesRateAndTimeLeft) {
  EXPECT_EQ(FormatProgress(HalfWay(), 80),
            "big.iso   50%  [========>          ]  5.0 MiB of 10.0 MiB  1.0 MiB/s  0:05 left");
}

TEST(FormatProgress, IsAlwaysNarrowerThanTheTerminal) {
  ProgressLine line = HalfWay();
  for (const char* const label : {"", "big.iso", "a-very-long-name-that-does-not-fit-anywhere-at-all.iso"}) {
    line.label = label;
    for (std::size_t columns = 0; columns < 200; ++columns) {
      const std::size_t width = DisplayWidth(FormatProgress(line, columns));
      EXPECT_TRUE(width == 0 || width < columns) << columns;
    }
  }
}

TEST(FormatProgress, LeavesTheBarOutFirst) {
  EXPECT_EQ(FormatProgress(HalfWay(), 64), "big.iso   50%  5.0 MiB of 10.0 MiB  1.0 MiB/s  0:05 left");
}

TEST(FormatProgress, ShowsTheTimeSpentWhenTheLengthIsUnknown) {
  ProgressLine line = HalfWay();
  line.sample.total.reset();
  EXPECT_EQ(FormatProgress(line, 80), "big.iso  5.0 MiB  1.0 MiB/s  0:07");
}

TEST(FormatProgress, SaysThatItWaitsBeforeTheFirstByte) {
  ProgressLine line;
  line.label = "big.iso";
  line.elapsedSeconds = 3;
  EXPECT_EQ(FormatProgress(line, 80), "big.iso  waiting  0:03");
}

TEST(FormatProgress, ShowsTheFilesOfAMirror) {
  ProgressLine line = HalfWay();
  line.label = "pub";
  line.sample.files = FileProgress{12, 1000};
  EXPECT_EQ(FormatProgress(line, 100),
            "pub  12 of 1000 files   50%  [===========>             ]  5.0 MiB of 10.0 MiB  1.0 MiB/s  0:05 left");
}

TEST(FormatProgress, CountsFilesWhileTheNumberOfBytesIsNotKnown) {
  ProgressLine line = HalfWay();
  line.label = "pub";
  line.sample.total.reset();
  line.sample.files = FileProgress{3, 8};
  line.elapsedSeconds = 10;
  EXPECT_EQ(FormatProgress(line, 80),
            "pub  3 of 8 files   37%  [======>              ]  5.0 MiB  1.0 MiB/s  0:17 left");
  line.sample.files = FileProgress{0, 8};
  EXPECT_THAT(FormatProgress(line, 80), AllOf(HasSubstr("  0 of 8 files    0%  "), HasSubstr("  0:10")));
  line.sample.files = FileProgress{8, 8};
  EXPECT_THAT(FormatProgress(line, 80), AllOf(HasSubstr("100%"), HasSubstr("0:00 left")));
}

TEST(FormatProgress, ShowsWhatATreeIsAt) {
  ProgressLine line;
  line.label = "pub";
  line.elapsedSeconds = 65;
  line.sample.tree = TreeProgress{"listing", 1, 0};
  EXPECT_EQ(FormatProgress(line, 80), "pub  listing: 1 folder, 0 files  1:05");
  line.sample.tree = TreeProgress{"comparing", 12, 340};
  EXPECT_EQ(FormatProgress(line, 80), "pub  comparing: 12 folders, 340 files  1:05");
  for (std::size_t columns = 0; columns < 60; ++columns) {
    const std::size_t width = DisplayWidth(FormatProgress(line, columns));
    EXPECT_TRUE(width == 0 || width < columns) << columns;
  }
}

TEST(FormatProgress, CountsRequestsInFlightWhereThereIsRoom) {
  ProgressLine line = HalfWay();
  line.sample.inFlight = 8;
  EXPECT_EQ(FormatProgress(line, 95),
            "big.iso   50%  [=========>           ]  5.0 MiB of 10.0 MiB  1.0 MiB/s  0:05 left  8 in flight");
  EXPECT_EQ(FormatProgress(line, 72), "big.iso   50%  5.0 MiB of 10.0 MiB  1.0 MiB/s  0:05 left  8 in flight");
  EXPECT_EQ(FormatProgress(line, 69), "big.iso   50%  5.0 MiB of 10.0 MiB  1.0 MiB/s  0:05 left");
  for (std::size_t columns = 0; columns < 200; ++columns) {
    const std::size_t width = DisplayWidth(FormatProgress(line, columns));
    EXPECT_TRUE(width == 0 || width < columns) << columns;
  }
}

TEST(FormatSummary, CountsOnlyWhatWasReceived) {
  EXPECT_EQ(FormatSummary("f", 4 << 20, 0, 2000), "f  4.0 MiB in 2.0 s (2.0 MiB/s)");
  EXPECT_EQ(FormatSummary("f", 5 << 20, 4 << 20, 2000), "f  5.0 MiB; 1.0 MiB in 2.0 s (512.0 KiB/s)");
  EXPECT_EQ(FormatSummary("f", 10, 20, 2000), "f  10 B; 0 B in 2.0 s (0 B/s)");
}

TEST(FormatSummary, TellsWhatAMirrorDid) {
  EXPECT_EQ(FormatSummary("pub", MirrorSummary{12, 3, 1, 5 << 20, 2000}),
            "pub  12 fetched, 3 skipped, 1 resumed; 5.0 MiB in 2.0 s (2.5 MiB/s)");
}

TEST(FormatSummary, TellsWhatBecameOfATree) {
  TreeSummary summary;
  summary.fetched = 12;
  summary.kept = 3;
  summary.bytes = 5 << 20;
  summary.milliseconds = 2000;
  EXPECT_EQ(FormatSummary("pub", summary), "pub  12 fetched, 0 continued, 3 kept; 5.0 MiB in 2.0 s (2.5 MiB/s)");
  summary.deleted = 0;
  summary.failed = 2;
  summary.leftOut = 1;
  EXPECT_EQ(FormatSummary("pub", summary),
            "pub  12 fetched, 0 continued, 3 kept, 0 deleted, 2 failed, 1 left out; 5.0 MiB in 2.0 s (2.5 MiB/s)");
}

TEST(FormatSummary, LeavesOutWhatDoesNotFit) {
  const auto download = [](std::size_t columns) {
    return FormatSummary("a-very-long-name-of-a-file.iso", 4 << 20, 0, 2000, columns);
  };
  EXPECT_EQ(download(80), "a-very-long-name-of-a-file.iso  4.0 MiB in 2.0 s (2.0 MiB/s)");
  EXPECT_EQ(download(60), "a-very-long-name-of-a-file...  4.0 MiB in 2.0 s (2.0 MiB/s)");
  EXPECT_EQ(download(40), "a-very-long-name-o...  4.0 MiB in 2.0 s");
  EXPECT_EQ(download(30), "a-very-long-name-...  4.0 MiB");
  TreeSummary tree{12, 0, 3, 0, 2, 1, 5 << 20, 2000};
  EXPECT_EQ(FormatSummary("pub", tree, 80),
            "pub  12 fetched, 3 kept, 2 failed, 1 left out; 5.0 MiB in 2.0 s (2.5 MiB/s)");
  EXPECT_EQ(FormatSummary("pub", tree, 50), "pub  12 fetched, 3 kept, 2 failed, 1 left out");
  EXPECT_EQ(FormatSummary("pub", tree, 30), "pub  12 fetched, 3 kept, 2...");
}

TEST(FormatSummary, IsAlwaysNarrowerThanTheTerminal) {
  const TreeSummary tree{123456, 1234, 1234567, 12345, 1234, 12, 5ULL << 40, 200000000};
  const MirrorSummary mirror{123456, 123456, 123456, 5ULL << 40, 200000000};
  for (const char* const locale : {"C.UTF-8", "C"}) {
    const CorvaneTest::ScopedLocale scope(locale);
    for (const char* const label :
         {"", "f", "a-very-long-name-that-does-not-fit-anywhere-at-all.iso", "gr\xC3\xBC\xC3\x9F"}) {
      for (std::size_t columns = 1; columns <= 200; ++columns) {
        EXPECT_LT(DisplayWidth(FormatSummary(label, 5ULL << 40, 4ULL << 40, 200000000, columns)), columns);
        EXPECT_LT(DisplayWidth(FormatSummary(label, mirror, columns)), columns);
        EXPECT_LT(DisplayWidth(FormatSummary(label, tree, columns)), columns);
        ProgressLine line = HalfWay();
        line.label = label;
        EXPECT_LT(DisplayWidth(FormatProgress(line, columns)), columns);
      }
    }
  }
}

TEST(FormatProgress, SurvivesMoreBytesThanTheServerPromised) {
  ProgressLine line = HalfWay();
  line.sample.bytes = 20 << 20;
  EXPECT_EQ(FormatProgress(line, 80), "big.iso  20.0 MiB  1.0 MiB/s  0:07");
  line.sample = {0, 0, std::nullopt, std::nullopt};
  EXPECT_THAT(FormatProgress(line, 80), HasSubstr("100%"));
}

TEST(RateWindow, MeasuresTheLastSecondsOnly) {
  RateWindow window;
  const RateWindow::Clock::time_point start;
  window.Add(start, 0);
  EXPECT_EQ(window.BytesPerSecond(), 0U);
  window.Add(start, 100);  // no time has passed
  EXPECT_EQ(window.BytesPerSecond(), 0U);
  for (int second = 1; second <= 20; ++second) window.Add(start + std::chrono::seconds(second), 100);
  EXPECT_EQ(window.BytesPerSecond(), 0U);
  for (int second = 21; second <= 30; ++second) {
    window.Add(start + std::chrono::seconds(second), static_cast<unsigned long long>(second) * 1000);
  }
  EXPECT_EQ(window.BytesPerSecond(), 1000U);
}

TEST(RateWindow, BeginsAnewWhenTheCountGoesDown) {
  RateWindow window;
  const RateWindow::Clock::time_point start;
  window.Add(start, 1000000);
  window.Add(start + std::chrono::seconds(1), 10);
  EXPECT_EQ(window.BytesPerSecond(), 0U);
  window.Add(start + std::chrono::seconds(2), 30);
  EXPECT_EQ(window.BytesPerSecond(), 20U);
}

}  // namespace
}  // namespace CorvaneCli
