#include <Corvane/Transfer/AnswerHeaderImpl.h>

#include <strings.h>

#include <algorithm>
#include <charconv>
#include <ctime>

#include <Corvane/Transfer/CurlImpl.h>

namespace Corvane {
namespace {

constexpr std::string_view kStatusLine = "HTTP/";

bool BeginsWithNoCase(std::string_view text, std::string_view prefix) {
  return text.size() >= prefix.size() && strncasecmp(text.data(), prefix.data(), prefix.size()) == 0;
}

std::string_view Trimmed(std::string_view text) {
  constexpr std::string_view kBlanks = " \t\r\n";
  const std::size_t begin = text.find_first_not_of(kBlanks);
  if (begin == std::string_view::npos) return {};
  return text.substr(begin, text.find_last_not_of(kBlanks) + 1 - begin);
}

bool IsStrongTag(std::string_view value) {
  return value.size() >= 2 && value.front() == '"' && value.back() == '"';  // a weak one begins with W/
}

// -1 for what is no date.
std::time_t TimeOf(std::string_view text) { return curl_getdate(std::string(text).c_str(), nullptr); }

}  // namespace

bool IsSameName(std::string_view a, std::string_view b) {
  return a.size() == b.size() && strncasecmp(a.data(), b.data(), a.size()) == 0;
}

std::string_view NameOf(std::string_view header) { return header.substr(0, header.find_first_of(":;")); }

bool TakeLine(std::string_view& text, std::string_view& line) {
  const std::size_t end = text.find('\n');
  if (end == std::string_view::npos) return false;
  line = text.substr(0, end + 1);
  text.remove_prefix(end + 1);
  return true;
}

bool IsStatusLine(std::string_view line) { return BeginsWithNoCase(line, kStatusLine); }

std::string_view LastAnswer(std::string_view header) {
  std::string_view last = header;
  std::string_view line;
  for (std::string_view rest = header; TakeLine(rest, line);) {
    if (IsStatusLine(line)) last = header.substr(static_cast<std::size_t>(line.data() - header.data()));
  }
  return last;
}

std::optional<std::string_view> FieldOn(std::string_view line, std::string_view name) {
  if (!BeginsWithNoCase(line, name) || line.size() == name.size() || line[name.size()] != ':') return std::nullopt;
  return Trimmed(line.substr(name.size() + 1));
}

long StatusOf(std::string_view header) {
  std::string_view rest = LastAnswer(header);
  std::string_view line;
  if (!TakeLine(rest, line) || !IsStatusLine(line)) return 0;
  const std::string_view code = Trimmed(line.substr(std::min(line.find(' '), line.size())));
  long status = 0;
  std::from_chars(code.data(), code.data() + code.size(), status);
  return status;
}

std::optional<std::string_view> FieldOf(std::string_view header, std::string_view name) {
  std::optional<std::string_view> found;
  std::string_view line;
  for (std::string_view rest = LastAnswer(header); TakeLine(rest, line);) {
    const std::optional<std::string_view> value = FieldOn(line, name);
    if (found && value && *value != *found) return std::nullopt;
    if (value) found = value;
  }
  return found;
}

std::string ValidatorOf(std::string_view header) {
  const std::optional<std::string_view> tag = FieldOf(header, "ETag");
  if (tag && IsStrongTag(*tag)) return std::string(*tag);
  const std::optional<std::string_view> modified = FieldOf(header, "Last-Modified");
  const std::optional<std::string_view> date = FieldOf(header, "Date");
  if (!modified || !date) return {};
  // A file that changed within the second of its time may change once more without a new one.
  const std::time_t modifiedTime = TimeOf(*modified);
  return modifiedTime >= 0 && TimeOf(*date) > modifiedTime ? std::string(*modified) : std::string();
}

bool IsOtherVersion(std::string_view header, std::string_view validator) {
  if (validator.empty()) return false;
  const std::optional<std::string_view> own = FieldOf(header, IsStrongTag(validator) ? "ETag" : "Last-Modified");
  return own && *own != validator;
}

}  // namespace Corvane
