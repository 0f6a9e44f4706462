#include "apps/corvane/Mirror/LeftOut.h"

#include <fmt/core.h>

#include <algorithm>
#include <cstddef>
#include <iterator>

#include "apps/corvane/Text.h"

namespace CorvaneCli {
namespace {

using Corvane::LeftOut;
using Corvane::LeftOutReason;

struct Kind {
  LeftOutReason reason;
  std::string_view word;
  const char* one;
  const char* many;
};
constexpr Kind kKinds[] = {
    {LeftOutReason::NameShortened, "shortened", "name that the page shortens", "names that the page shortens"},
    {LeftOutReason::NameDiffers, "differs", "link with another text than its name", "links with another text"},
    {LeftOutReason::NameRefused, "refused", "name of no plain file", "names of no plain files"},
    {LeftOutReason::Unreadable, "unreadable", "entry that is not understood", "entries that are not understood"},
    {LeftOutReason::Folder, "folder", "folder", "folders"},
    {LeftOutReason::Link, "link", "symbolic link", "symbolic links"},
    {LeftOutReason::Special, "special", "special file", "special files"},
};
constexpr const Kind& kUnknown = kKinds[3];

const Kind& KindOf(LeftOutReason reason) {
  const auto* const found =
      std::find_if(std::begin(kKinds), std::end(kKinds), [reason](const Kind& kind) { return kind.reason == reason; });
  return found == std::end(kKinds) ? kUnknown : *found;
}

}  // namespace

std::string_view WordFor(LeftOutReason reason) { return KindOf(reason).word; }

std::string DescribeLeftOut(const Report& report) {
  const std::size_t all = report.files.leftOut;
  if (all == 0) return {};
  std::string kinds;
  for (const Kind& kind : kKinds) {
    const auto count = std::count_if(report.leftOut.begin(), report.leftOut.end(),
                                     [&](const LeftOut& entry) { return entry.reason == kind.reason; });
    if (count == 0) continue;
    if (!kinds.empty()) kinds += ", ";
    kinds += fmt::format("{} {}", count, count == 1 ? kind.one : kind.many);
  }
  if (all > report.leftOut.size()) kinds += fmt::format(" among the first {}", report.leftOut.size());
  return fmt::format(
      "{} left out of what the server lists: {}; -v names them, and --sizes FILE fetches files by their names",
      all == 1 ? "1 entry is" : fmt::format("{} entries are", all), kinds);
}

std::string DescribeLeftOut(const LeftOut& entry) {
  return fmt::format("left out, {}: {}", KindOf(entry.reason).one, ToUtf8(entry.name));
}

}  // namespace CorvaneCli
