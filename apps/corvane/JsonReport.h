#pragma once

#include <string>
#include <vector>

#include "apps/corvane/Report.h"

namespace CorvaneCli {

// The report as one JSON object (UTF-8, indented, ended by a line feed). Sizes are bytes, the rate is KiB per second,
// contentSize and partial are null when there are none, result codes are texts such as "0x00010000".
// The object of a mirror has the directory, and none of what belongs to a single file.
[[nodiscard]] std::string FormatJson(const Report& report);
// Several transfers of one command, which ended with `code`: an object that holds theirs.
[[nodiscard]] std::string FormatJson(const std::vector<Report>& reports, ExitCode code);

// What is known of a host: its name, other names and addresses; or why nothing is known.
struct HostReport {
  std::string name;
  std::vector<std::string> aliases;
  std::vector<std::string> addresses;
  std::string error;  // empty after a success
};
[[nodiscard]] std::string FormatJson(const HostReport& report);

}  // namespace CorvaneCli
