#include "tests/faults/Outcome.h"

#include <algorithm>
#include <sstream>
#include <string_view>

namespace CorvaneTest {
namespace {

// "*" stands for any characters.
bool Matches(std::string_view pattern, std::string_view text) {
  const std::size_t star = pattern.find('*');
  if (star == pattern.npos) return pattern == text;
  if (text.substr(0, star) != pattern.substr(0, star)) return false;
  for (std::size_t at = star; at <= text.size(); ++at) {
    if (Matches(pattern.substr(star + 1), text.substr(at))) return true;
  }
  return false;
}

std::string Show(const Ending& end) { return Hex(end.code) + ", text \"" + end.text + '"'; }

// Bytes are told by their number and where they differ; nobody compares a thousand by eye.
std::string Show(const std::optional<std::string>& bytes) {
  return bytes ? std::to_string(bytes->size()) + " bytes" : "nothing";
}

std::string ShowSize(unsigned long long size) { return size == kUnknownSize ? "unknown" : std::to_string(size); }

std::string Show(const std::vector<RecordingObserver::Event>& events) {
  std::string text;
  for (const auto& [event, value] : events) text += '(' + std::to_string(event) + ", " + Hex(value) + ')';
  return text.empty() ? "none" : text;
}

class Comparison {
 public:
  void Differ(const std::string& what, const std::string& expected, const std::string& observed) {
    m_text << "  " << what << ": expected " << expected << ", observed " << observed << '\n';
  }

  void Bytes(const std::string& what, const std::optional<std::string>& expected,
             const std::optional<std::string>& observed) {
    if (expected == observed) return;
    std::string seen = Show(observed);
    if (expected && observed) {
      const auto at = std::mismatch(expected->begin(), expected->end(), observed->begin(), observed->end());
      seen += ", different from byte " + std::to_string(at.first - expected->begin()) + " on";
    }
    Differ(what, Show(expected), seen);
  }

  [[nodiscard]] std::string Text() const { return m_text.str(); }

 private:
  std::ostringstream m_text;
};

// Of a content without an end any beginning will do, where it is kept at all.
Outcome FittedToEndless(const Outcome& expected, const Outcome& observed) {
  Outcome fitted = expected;
  const auto isBeginning = [](const std::string& bytes) {
    return !bytes.empty() && bytes.find_first_not_of('x') == bytes.npos;
  };
  if (!expected.received.empty() && isBeginning(observed.received)) fitted.received = observed.received;
  if (expected.file && observed.file && isBeginning(*observed.file)) fitted.file = observed.file;
  const std::size_t bytes = std::max(fitted.received.size(), fitted.file ? fitted.file->size() : 0);
  if (expected.downloadSize != 0 && bytes != 0) fitted.downloadSize = bytes;
  // How many bytes came is a matter of chance; how many files is not.
  const auto files = [](const std::string& counts) {
    return counts.substr(0, std::min(counts.find(", listed"), counts.find(", received")));
  };
  if (files(expected.counts) == files(observed.counts)) fitted.counts = observed.counts;
  return fitted;
}

}  // namespace

std::string Difference(const Outcome& wanted, const Outcome& observed) {
  const Outcome expected = wanted.isEndless ? FittedToEndless(wanted, observed) : wanted;
  Comparison comparison;
  const Ending& seen = observed.ends.at(0);
  const auto isSame = [&](const Ending& end) { return end.code == seen.code && Matches(end.text, seen.text); };
  if (std::none_of(expected.ends.begin(), expected.ends.end(), isSame)) {
    std::string ends;
    for (const Ending& end : expected.ends) ends += (ends.empty() ? "" : " or ") + Show(end);
    comparison.Differ("end", ends, Show(seen));
  }
  if (expected.cause && expected.cause != observed.cause)
    comparison.Differ("cause", Hex(*expected.cause), observed.cause ? Hex(*observed.cause) : "none");
  comparison.Bytes("received", expected.received, observed.received);
  comparison.Bytes("file", expected.file, observed.file);
  if (expected.contentSize != observed.contentSize)
    comparison.Differ("content size", ShowSize(expected.contentSize), ShowSize(observed.contentSize));
  if (expected.downloadSize != observed.downloadSize)
    comparison.Differ("download size", ShowSize(expected.downloadSize), ShowSize(observed.downloadSize));
  if (expected.events != observed.events) comparison.Differ("events", Show(expected.events), Show(observed.events));
  if (expected.counts != observed.counts) comparison.Differ("counts", expected.counts, observed.counts);
  return comparison.Text();
}

}  // namespace CorvaneTest
