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

// How much of a speed is told, from all to nothing but the bytes.
enum class Detail { Rate, Time, Bytes };

// "5.0 MiB in 1.2 s (4.2 MiB/s)".
std::string FormatSpeed(unsigned long long bytes, long long milliseconds, Detail detail) {
  const unsigned long long time = static_cast<unsigned long long>(std::max(milliseconds, 1LL));
  const double rate = static_cast<double>(bytes) * 1000.0 / static_cast<double>(time);
  std::string text = FormatBytes(bytes);
  if (detail == Detail::Bytes) return text;
  text += " in " + (time < 60000 ? fmt::format("{}.{} s", time / 1000, time / 100 % 10) : FormatDuration(time / 1000));
  if (detail == Detail::Time) return text;
  return text + fmt::format(" ({}/s)", FormatBytes(static_cast<unsigned long long>(rate)));
}

// The first of the texts that fits behind the label, which may be shortened, else the beginning of the last.
std::string Fit(const std::string& label, const std::vector<std::string>& texts, std::size_t columns) {
  constexpr std::size_t kLeastLabel = 12;
  const std::size_t room = columns > 1 ? columns - 1 : 0;
  const std::size_t least = std::min(DisplayWidth(label), kLeastLabel);
  for (const std::string& text : texts) {
    if (least + 2 + text.size() <= room) return Shorten(label, room - 2 - text.size()) + "  " + text;
  }
  return Shorten(Shorten(label, kLeastLabel) + "  " + texts.back(), room);
}

// The counts with as much of the speed as fits.
std::vector<std::string> WithSpeed(const std::string& counts, unsigned long long bytes, long long milliseconds) {
  std::vector<std::string> texts;
  for (const Detail detail : {Detail::Rate, Detail::Time, Detail::Bytes}) {
    texts.push_back(counts + (counts.empty() ? "" : "; ") + FormatSpeed(bytes, milliseconds, detail));
  }
  return texts;
}

struct Count {
  std::size_t number;
  const char* what;
  bool isTold;  // also when it is 0
};

std::string ListOf(const std::vector<Count>& counts, bool zeros) {
  std::string list;
  for (const Count& count : counts) {
    if (count.number == 0 && !(zeros && count.isTold)) continue;
    list += fmt::format("{}{} {}", list.empty() ? "" : ", ", count.number, count.what);
  }
  return list;
}

// With all that is told, else without what is 0, else without the bytes.
std::string Fit(const std::string& label, const std::vector<Count>& counts, unsigned long long bytes,
                long long milliseconds, std::size_t columns) {
  std::vector<std::string> texts{WithSpeed(ListOf(counts, true), bytes, milliseconds).front()};
  const std::string few = ListOf(counts, false);
  for (std::string& text : WithSpeed(few, bytes, milliseconds)) texts.push_back(std::move(text));
  if (!few.empty()) texts.push_back(few);
  return Fit(label, texts, columns);
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
                          long long milliseconds, std::size_t columns) {
  if (before == 0) return Fit(label, WithSpeed("", bytes, milliseconds), columns);
  return Fit(label, WithSpeed(FormatBytes(bytes), bytes - std::min(before, bytes), milliseconds), columns);
}

std::string FormatSummary(const std::string& label, const MirrorSummary& summary, std::size_t columns) {
  const std::vector<Count> counts = {
      {summary.fetched, "fetched", true}, {summary.skipped, "skipped", true}, {summary.resumed, "resumed", true}};
  return Fit(label, counts, summary.bytes, summary.milliseconds, columns);
}

std::string FormatSummary(const std::string& label, const TreeSummary& summary, std::size_t columns) {
  const std::vector<Count> counts = {
      {summary.fetched, "fetched", true}, {summary.continued, "continued", true},
      {summary.kept, "kept", true},       {summary.deleted.value_or(0), "deleted", summary.deleted.has_value()},
      {summary.failed, "failed", false},  {summary.leftOut, "left out", false}};
  return Fit(label, counts, summary.bytes, summary.milliseconds, columns);
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
