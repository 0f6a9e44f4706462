#include "apps/corvane/Progress.h"

#include <fmt/core.h>

#include <algorithm>
#include <utility>
#include <vector>

#include "apps/corvane/Text.h"

namespace CorvaneCli {
namespace {

constexpr std::chrono::milliseconds kInterval{200};
constexpr std::chrono::seconds kWindow{5};
constexpr std::size_t kLabelColumns = 24;
constexpr std::size_t kMinBarColumns = 10;
constexpr std::size_t kMaxBarColumns = 30;

// "[=====>    ]".
std::string FormatBar(unsigned int percent, std::size_t columns) {
  const std::size_t inner = columns - 2;
  const std::size_t filled = inner * percent / 100;
  std::string bar(filled, '=');
  if (filled > 0 && filled < inner) bar.back() = '>';
  return '[' + bar + std::string(inner - filled, ' ') + ']';
}

std::string FormatAmount(const ProgressSample& sample) {
  if (!sample.total || sample.bytes > *sample.total) return FormatBytes(sample.bytes);
  return fmt::format("{} of {}", FormatBytes(sample.bytes), FormatBytes(*sample.total));
}

unsigned long long DivideRoundingUp(unsigned long long dividend, unsigned long long divisor) {
  return dividend / divisor + (dividend % divisor != 0 ? 1 : 0);
}

// Unset while there is no telling.
std::optional<unsigned long long> SecondsLeft(const ProgressLine& line) {
  const ProgressSample& sample = line.sample;
  if (sample.total) {
    if (line.bytesPerSecond == 0 || *sample.total < sample.bytes) return std::nullopt;
    return DivideRoundingUp(*sample.total - sample.bytes, line.bytesPerSecond);
  }
  if (!sample.files || sample.files->done == 0 || sample.files->known < sample.files->done) return std::nullopt;
  return DivideRoundingUp(line.elapsedSeconds * (sample.files->known - sample.files->done), sample.files->done);
}

// "0:42 left", or the time spent.
std::string FormatTime(const ProgressLine& line) {
  const std::optional<unsigned long long> left = SecondsLeft(line);
  return left ? FormatDuration(*left) + " left" : FormatDuration(line.elapsedSeconds);
}

unsigned int Percent(double part, double whole) {
  return whole == 0.0 ? 100 : static_cast<unsigned int>(std::clamp(part / whole, 0.0, 1.0) * 100.0);
}

// Unset while there is no telling.
std::optional<unsigned int> PercentOf(const ProgressSample& sample) {
  if (sample.total && sample.bytes > *sample.total) return std::nullopt;
  if (sample.total) return Percent(static_cast<double>(sample.bytes), static_cast<double>(*sample.total));
  if (!sample.files) return std::nullopt;
  return Percent(static_cast<double>(sample.files->done), static_cast<double>(sample.files->known));
}

std::string Counted(std::size_t count, std::string_view thing) {
  return fmt::format("{} {}{}", count, thing, count == 1 ? "" : "s");
}

// "listing: 12 folders, 340 files".
std::string FormatTree(const TreeProgress& tree) {
  return fmt::format("{}: {}, {}", tree.doing, Counted(tree.folders, "folder"), Counted(tree.files, "file"));
}

// "5.0 MiB in 1.2 s (4.2 MiB/s)".
std::string FormatSpeed(unsigned long long bytes, long long milliseconds) {
  const unsigned long long time = static_cast<unsigned long long>(std::max(milliseconds, 1LL));
  const double rate = static_cast<double>(bytes) * 1000.0 / static_cast<double>(time);
  const std::string spent =
      time < 60000 ? fmt::format("{}.{} s", time / 1000, time / 100 % 10) : FormatDuration(time / 1000);
  return fmt::format("{} in {} ({}/s)", FormatBytes(bytes), spent, FormatBytes(static_cast<unsigned long long>(rate)));
}

}  // namespace

std::string FormatProgress(const ProgressLine& line, std::size_t columns) {
  const std::size_t room = columns > 1 ? columns - 1 : 0;  // a full line would move the cursor to the next one
  const ProgressSample& sample = line.sample;
  std::string begin = Shorten(line.label, kLabelColumns) + "  ";
  if (sample.tree) {
    return Shorten(begin + FormatTree(*sample.tree) + "  " + FormatDuration(line.elapsedSeconds), room);
  }
  if (sample.files) begin += fmt::format("{} of {} files  ", sample.files->done, sample.files->known);
  const std::optional<unsigned int> percent = PercentOf(sample);
  if (percent) begin += fmt::format("{:3}%  ", *percent);
  const std::string amount = sample.bytes != 0 || percent ? FormatAmount(sample) : "waiting";
  const std::string rate = line.bytesPerSecond == 0 ? "" : fmt::format("  {}/s", FormatBytes(line.bytesPerSecond));
  const std::string time = "  " + FormatTime(line);
  const std::string flight = sample.inFlight == 0 ? "" : fmt::format("  {} in flight", sample.inFlight);

  const std::size_t used = DisplayWidth(begin) + amount.size() + rate.size() + time.size();
  if (percent && used + flight.size() + kMinBarColumns + 2 <= room) {
    begin += FormatBar(*percent, std::min(room - used - flight.size() - 2, kMaxBarColumns)) + "  ";
  }
  if (used + flight.size() <= room) return begin + amount + rate + time + flight;
  if (used <= room) return begin + amount + rate + time;
  if (used - rate.size() <= room) return begin + amount + time;
  return Shorten(begin + amount, room);
}

std::string FormatSummary(const std::string& label, unsigned long long bytes, unsigned long long before,
                          long long milliseconds) {
  if (before == 0) return fmt::format("{}  {}", label, FormatSpeed(bytes, milliseconds));
  return fmt::format("{}  {}; {}", label, FormatBytes(bytes),
                     FormatSpeed(bytes - std::min(before, bytes), milliseconds));
}

std::string FormatSummary(const std::string& label, const MirrorSummary& summary) {
  return fmt::format("{}  {} fetched, {} skipped, {} resumed; {}", label, summary.fetched, summary.skipped,
                     summary.resumed, FormatSpeed(summary.bytes, summary.milliseconds));
}

std::string FormatSummary(const std::string& label, const TreeSummary& summary) {
  std::string text =
      fmt::format("{}  {} fetched, {} continued, {} kept", label, summary.fetched, summary.continued, summary.kept);
  if (summary.deleted) text += fmt::format(", {} deleted", *summary.deleted);
  if (summary.failed != 0) text += fmt::format(", {} failed", summary.failed);
  if (summary.leftOut != 0) text += fmt::format(", {} left out", summary.leftOut);
  return text + "; " + FormatSpeed(summary.bytes, summary.milliseconds);
}

void RateWindow::Add(Clock::time_point now, unsigned long long bytes) {
  // A count that goes down belongs to another transfer.
  if (!m_points.empty() && bytes < m_points.back().bytes) m_points.clear();
  m_points.push_back({now, bytes});
  while (m_points.size() > 2 && m_points[1].time + kWindow <= now) m_points.pop_front();
}

unsigned long long RateWindow::BytesPerSecond() const {
  if (m_points.size() < 2) return 0;
  const std::chrono::duration<double> time = m_points.back().time - m_points.front().time;
  if (time.count() <= 0.0) return 0;
  return static_cast<unsigned long long>(static_cast<double>(m_points.back().bytes - m_points.front().bytes) /
                                         time.count());
}

Progress::Progress(Console& console, std::string label, std::function<ProgressSample()> sample)
    : m_console(console), m_label(std::move(label)), m_sample(std::move(sample)) {
  if (m_console.IsTerminal()) m_thread = std::thread([this] { Draw(); });
}

Progress::~Progress() { Stop(); }

void Progress::Stop() {
  {
    const std::lock_guard guard(m_mutex);
    m_stop = true;
  }
  m_wake.notify_one();
  if (m_thread.joinable()) m_thread.join();
  m_console.EraseStatus();
}

void Progress::Draw() {
  const auto start = RateWindow::Clock::now();
  RateWindow rate;
  std::unique_lock lock(m_mutex);
  while (!m_stop) {
    lock.unlock();
    const auto now = RateWindow::Clock::now();
    ProgressLine line{m_label, m_sample(), 0, 0};
    // The first bytes of a resumed transfer were there before; they are no speed.
    if (line.sample.bytes != 0) rate.Add(now, line.sample.received.value_or(line.sample.bytes));
    line.bytesPerSecond = rate.BytesPerSecond();
    line.elapsedSeconds =
        static_cast<unsigned long long>(std::chrono::duration_cast<std::chrono::seconds>(now - start).count());
    m_console.ShowStatus(FormatProgress(line, m_console.Columns()));
    lock.lock();
    m_wake.wait_for(lock, kInterval, [this] { return m_stop; });
  }
}

}  // namespace CorvaneCli
