#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>

#include "apps/corvane/Console.h"

namespace CorvaneCli {

struct FileProgress {
  std::size_t done = 0;
  std::size_t known = 0;
};

// What a run over a tree is doing before or behind the transfers themselves.
struct TreeProgress {
  std::string_view doing;  // "listing"; a constant
  std::size_t folders = 0;
  std::size_t files = 0;
};

// How far a transfer is, as its getters tell.
struct ProgressSample {
  unsigned long long bytes = 0;                // of the whole, what was there before included
  std::optional<unsigned long long> total;     // unset while it is not known
  std::optional<unsigned long long> received;  // bytes of this run, for the rate; unset: the same as `bytes`
  std::optional<FileProgress> files;           // for transfers of several, once it is known of how many
  std::optional<TreeProgress> tree = {};       // set: shown in the place of bytes and files
  std::size_t inFlight = 0;                    // requests under way at once; 0 where there is only one ever
};

struct ProgressLine {
  std::string label;
  ProgressSample sample;
  unsigned long long bytesPerSecond = 0;
  unsigned long long elapsedSeconds = 0;
};

// The line for a terminal of `columns` columns: label, files, percent, bar, bytes, rate and time left. Percent and time left are
// those of the bytes, or of the files while the number of bytes is not known. What does not fit is left out: the bar
// first, then the requests in flight, the rate and the time; the result is always shorter than `columns`.
[[nodiscard]] std::string FormatProgress(const ProgressLine& line, std::size_t columns);
// For texts that are as wide as they are.
constexpr std::size_t kAnyWidth = 100000;

// The line that stays when a transfer is done. before: how many of the bytes were there before. For a terminal of `columns` columns
// it is always shorter than that: the label is shortened, then the rate left out, what is 0, the time and the bytes.
[[nodiscard]] std::string FormatSummary(const std::string& label, unsigned long long bytes, unsigned long long before,
                                        long long milliseconds, std::size_t columns = kAnyWidth);

// The same for a mirror.
struct MirrorSummary {
  std::size_t fetched = 0;
  std::size_t skipped = 0;
  std::size_t resumed = 0;
  unsigned long long bytes = 0;  // received
  long long milliseconds = 0;
};
[[nodiscard]] std::string FormatSummary(const std::string& label, const MirrorSummary& summary,
                                        std::size_t columns = kAnyWidth);

// The same for a tree.
struct TreeSummary {
  std::size_t fetched = 0;
  std::size_t continued = 0;
  std::size_t kept = 0;
  std::optional<std::size_t> deleted;  // unset when none might be
  std::size_t failed = 0;
  std::size_t leftOut = 0;
  unsigned long long bytes = 0;  // received
  long long milliseconds = 0;
};
[[nodiscard]] std::string FormatSummary(const std::string& label, const TreeSummary& summary,
                                        std::size_t columns = kAnyWidth);

// Mean rate over the last few seconds. Times never go back.
class RateWindow {
 public:
  using Clock = std::chrono::steady_clock;

  void Add(Clock::time_point now, unsigned long long bytes);
  // Bytes per second; 0 until there is something to measure.
  [[nodiscard]] unsigned long long BytesPerSecond() const;

 private:
  struct Point {
    Clock::time_point time;
    unsigned long long bytes;
  };
  std::deque<Point> m_points;
};

// Redraws the console's status line five times a second, on a thread of its own, from its construction until Stop or its
// destruction, which erases the line. Does nothing when the console is no terminal.
class Progress {
 public:
  // sample: called on the drawing thread.
  Progress(Console& console, std::string label, std::function<ProgressSample()> sample);
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  void Stop();

 private:
  void Draw();

  Console& m_console;
  const std::string m_label;
  const std::function<ProgressSample()> m_sample;
  std::mutex m_mutex;
  std::condition_variable m_wake;
  bool m_stop = false;  // guarded by m_mutex
  std::thread m_thread;
};

}  // namespace CorvaneCli
