#include "apps/corvane/Options/Values.h"

#include <fmt/core.h>

#include <limits>
#include <optional>

#include "apps/corvane/Failure.h"
#include "apps/corvane/Target.h"
#include "apps/corvane/Text.h"

namespace CorvaneCli {

using Corvane::ZString;

void RefuseUsage(const std::string& text) { throw Failure(ExitCode::kUsage, text); }

std::string ShownValue(const std::string& value) { return '"' + HideSecrets(DisplayName(value)) + '"'; }

ZString DecodeValue(const char* option, const std::string& value) {
  std::optional<ZString> text = DecodeLocal(value);
  if (!text) {
    RefuseUsage(fmt::format("cannot use the value of {}: the locale cannot express it; set LC_ALL=C.UTF-8", option));
  }
  return *text;
}

Target UnderstandDirectoryUrl(const char* command, const std::string& url, std::string& fragment) {
  Target target = MakeTarget(url);  // also for what it refuses
  const std::size_t mark = url.find('#');
  if (mark != std::string::npos) {
    target = MakeTarget(url.substr(0, mark));
    fragment = DisplayName(url.substr(mark + 1));
  }
  if (target.scheme == "ftp" && target.display.find('?') != std::string::npos) {
    RefuseUsage(
        fmt::format("cannot {} {}: FTP has no queries; write %3F for a \"?\" in a name", command, target.display));
  }
  return target;
}

unsigned long long UnderstandNumber(const char* option, const std::string& value, unsigned long long least,
                                    unsigned long long most, const char* what) {
  const std::optional<unsigned long long> number = ParseNumber(value);
  if (number && *number >= least && *number <= most) return *number;
  RefuseUsage(
      fmt::format("{} {} is no {}; give a whole number from {} to {}", option, ShownValue(value), what, least, most));
}

unsigned int UnderstandRate(const char* option, const std::string& value, unsigned long long least) {
  constexpr unsigned long long kMost = std::numeric_limits<unsigned int>::max();
  const std::optional<unsigned long long> rate = ParseSize(value);
  if (rate && *rate >= least && *rate <= kMost) return static_cast<unsigned int>(*rate);
  RefuseUsage(
      fmt::format("{} {} is no usable rate; give a whole number of bytes a second from {} to {}, or one with k, M or G "
                  "for 1024, 1024^2 or 1024^3, such as 500k",
                  option, ShownValue(value), least, kMost));
}

}  // namespace CorvaneCli
