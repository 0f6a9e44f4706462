#pragma once

#include <cstddef>
#include <string_view>

#include <Corvane/TreeDownload/PageBuilderImpl.h>

namespace Corvane {

// Reads a listing line by line. Lines end with LF or CR LF; a CR elsewhere is a character of a name, which would
// otherwise let whoever names a file write lines. `readLine` gives a line without its end to the builder, and returns
// false when it is in no format. A directory without anything in it may be no line at all.
template <class ReadLine>
Page ReadLines(std::string_view text, std::size_t mostEntries, ReadLine readLine) {
  PageBuilder builder(mostEntries);
  bool anyLine = false;
  bool anyKnownLine = false;
  while (!text.empty() && !builder.IsTooLong()) {
    const std::size_t end = text.find('\n');
    std::string_view line = text.substr(0, end);
    text.remove_prefix(end == text.npos ? text.size() : end + 1);
    if (line.ends_with('\r')) line.remove_suffix(1);
    if (line.empty()) continue;
    anyLine = true;
    if (readLine(line, builder)) {
      anyKnownLine = true;
    } else {
      builder.LeaveOut(line);
    }
  }
  builder.Finish();
  return builder.Take(anyKnownLine || !anyLine);
}

}  // namespace Corvane
