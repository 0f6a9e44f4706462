#pragma once

#include <string>
#include <string_view>

// What stands for the version of a file on a server that knows no validators, such as an FTP server: its size and its time. It is no
// validator of HTTP, whose tags begin with a quote, and whose dates with a day of the week.

namespace Corvane {

// `time` is in seconds since the epoch.
[[nodiscard]] std::string FileVersion(unsigned long long size, long time);

[[nodiscard]] bool IsFileVersion(std::string_view validator);

}  // namespace Corvane
