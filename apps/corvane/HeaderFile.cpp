#include "apps/corvane/HeaderFile.h"

#include <fcntl.h>
#include <fmt/core.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <iterator>
#include <optional>
#include <string_view>

#include "apps/corvane/AnyCase.h"
#include "apps/corvane/Failure.h"
#include "apps/corvane/Files.h"
#include "apps/corvane/Text.h"

namespace CorvaneCli {
namespace {

using Corvane::ZString;

constexpr std::size_t kMostFileBytes = std::size_t{1} << 20;

struct Reserved {
  const char* name;
  const char* remedy;
};
constexpr const char* kLeaveOut = "leave it out";
constexpr Reserved kReserved[] = {
    {"Range", "leave it out, or continue a file with --resume"},
    {"If-Range", "leave it out, or continue a file with --resume"},
    {"User-Agent", "use --user-agent"},
    {"Content-Length", kLeaveOut},
    {"Transfer-Encoding", kLeaveOut},
    {"Connection", kLeaveOut},
};

[[noreturn]] void Refuse(const std::string& text) { throw Failure(ExitCode::kUsage, text); }

// RFC 9110, section 5.6.2.
bool IsToken(std::string_view name) {
  constexpr std::string_view kCharacters =
      "!#$%&'*+-.^_`|~0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ";
  return !name.empty() && name.find_first_not_of(kCharacters) == std::string_view::npos;
}

bool IsControl(wchar_t character) {
  return (character < 0x20 && character != '\t') || (character >= 0x7F && character < 0xA0);
}

std::string_view Trimmed(std::string_view text) {
  const std::size_t begin = text.find_first_not_of(" \t");
  if (begin == std::string_view::npos) return {};
  return text.substr(begin, text.find_last_not_of(" \t") + 1 - begin);
}

std::string_view NameOf(std::string_view header) { return header.substr(0, header.find(':')); }

// What is wrong with a header: "the reason; the remedy". Shows nothing of it but a name that is known.
std::optional<std::string> ProblemOf(const ZString& header) {
  const std::wstring& text = header.Str();
  if (std::any_of(text.begin(), text.end(), IsControl)) return "there is a control character in it; take it out";
  const std::string utf8 = ToUtf8(header);
  if (utf8.find(':') == std::string::npos) return "there is no colon in it; give NAME: VALUE";
  const std::string_view name = NameOf(utf8);
  if (name.empty()) return "there is no name before the colon; give NAME: VALUE";
  if (!IsToken(name))
    return "the name before the colon is no name of a header; give NAME: VALUE without blanks in NAME";
  const auto* const reserved = std::find_if(std::begin(kReserved), std::end(kReserved),
                                            [&](const Reserved& entry) { return IsSame(entry.name, name); });
  if (reserved == std::end(kReserved)) return std::nullopt;
  return fmt::format("the program sends {} by itself; {}", reserved->name, reserved->remedy);
}

// A header as the library takes it, one blank behind the colon.
ZString Normalized(const ZString& header) {
  const std::string utf8 = ToUtf8(header);
  const std::string_view name = NameOf(utf8);
  return FromUtf8(fmt::format("{}: {}", name, Trimmed(std::string_view(utf8).substr(name.size() + 1))));
}

// Everything, or the errno that stopped it: EFBIG for a file that is too large.
int ReadLimited(const Descriptor& file, std::string& text) {
  std::array<char, 65536> block;
  while (true) {
    const ssize_t count = read(file.Get(), block.data(), block.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return errno;
    if (count == 0) return 0;
    text.append(block.data(), static_cast<std::size_t>(count));
    if (text.size() > kMostFileBytes) return EFBIG;
  }
}

std::string ReadText(const std::string& path) {
  constexpr const char* kRemedy = "give a file with a line \"NAME: VALUE\" for each header";
  const Descriptor file = Open(path, O_RDONLY);
  std::string text;
  const int error = file.IsOpen() ? ReadLimited(file, text) : errno;
  if (error == EFBIG) {
    Refuse(fmt::format("cannot use the header file {}: it is larger than 1 MiB; {}", DisplayName(path), kRemedy));
  }
  if (error != 0) {
    Refuse(fmt::format("cannot read the header file {}: {}; {}", DisplayName(path), SystemText(error), kRemedy));
  }
  constexpr std::string_view kMark = "\xEF\xBB\xBF";  // editors put it in front of UTF-8
  if (std::string_view(text).starts_with(kMark)) text.erase(0, kMark.size());
  return text;
}

// nullopt when the line holds none.
std::optional<ZString> HeaderOfLine(std::string_view line, std::size_t number, const std::string& path) {
  if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
  if (Trimmed(line).empty() || line.front() == '#') return std::nullopt;
  const ZString header = FromUtf8(line);
  std::optional<std::string> problem = ProblemOf(header);
  if (ToUtf8(header) != line) problem = "it is not UTF-8; convert the file";
  if (problem) Refuse(fmt::format("cannot use line {} of {}: {}", number, DisplayName(path), *problem));
  return Normalized(header);
}

}  // namespace

std::vector<ZString> ReadHeaderFile(const std::string& path) {
  const std::string text = ReadText(path);
  std::vector<ZString> headers;
  std::size_t number = 0;
  for (std::string_view rest = text; !rest.empty();) {
    const std::size_t end = rest.find('\n');
    if (std::optional<ZString> header = HeaderOfLine(rest.substr(0, end), ++number, path)) {
      headers.push_back(*std::move(header));
    }
    rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
  }
  return headers;
}

ZString CheckedHeader(const char* option, const std::string& value) {
  const std::optional<ZString> header = DecodeLocal(value);
  const std::optional<std::string> problem =
      header ? ProblemOf(*header) : "the locale cannot express it; set LC_ALL=C.UTF-8";
  if (problem) Refuse(fmt::format("cannot use the value of {}: {}", option, *problem));
  return Normalized(*header);
}

void RefuseRepeatedHeaders(const std::vector<ZString>& headers) {
  std::vector<std::string> names;
  for (const ZString& header : headers) {
    names.emplace_back(NameOf(ToUtf8(header)));
    std::transform(names.back().begin(), names.back().end(), names.back().begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
  }
  std::sort(names.begin(), names.end());
  const auto repeated = std::adjacent_find(names.begin(), names.end());
  if (repeated != names.end()) Refuse(fmt::format("the header {} is given twice; leave one of them out", *repeated));
}

}  // namespace CorvaneCli
