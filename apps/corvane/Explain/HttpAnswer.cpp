#include "apps/corvane/Explain/HttpAnswer.h"

#include <fmt/core.h>

#include <algorithm>
#include <charconv>
#include <optional>

#include "apps/corvane/AnyCase.h"
#include "apps/corvane/Text.h"

namespace CorvaneCli {
namespace {

struct ReasonPhrase {
  int status;
  const char* phrase;
};
constexpr ReasonPhrase kReasonPhrases[] = {
    {301, "Moved Permanently"},   {302, "Found"},
    {303, "See Other"},           {304, "Not Modified"},
    {307, "Temporary Redirect"},  {308, "Permanent Redirect"},
    {400, "Bad Request"},         {401, "Unauthorized"},
    {403, "Forbidden"},           {404, "Not Found"},
    {405, "Method Not Allowed"},  {407, "Proxy Authentication Required"},
    {408, "Request Timeout"},     {410, "Gone"},
    {413, "Content Too Large"},   {416, "Range Not Satisfiable"},
    {429, "Too Many Requests"},   {500, "Internal Server Error"},
    {501, "Not Implemented"},     {502, "Bad Gateway"},
    {503, "Service Unavailable"}, {504, "Gateway Timeout"},
};

std::string_view TrimmedLine(std::string_view text) {
  text = text.substr(0, text.find_first_of("\r\n"));
  const std::size_t begin = text.find_first_not_of(' ');
  if (begin == std::string_view::npos) return {};
  return text.substr(begin, text.find_last_not_of(' ') + 1 - begin);
}

// libcurl takes it in any case.
constexpr std::string_view kStatusLine = "HTTP/";

// Takes the next line off `text`, "\n" included; the last one may lack it. False at the end.
bool TakeLine(std::string_view& text, std::string_view& line) noexcept {
  if (text.empty()) return false;
  line = text.substr(0, std::min(text.find('\n'), text.size() - 1) + 1);
  text.remove_prefix(line.size());
  return true;
}

}  // namespace

std::string_view LastHeader(std::string_view header, std::string_view name) {
  std::string_view value;
  std::string_view line;
  while (TakeLine(header, line)) {
    if (BeginsWith(line, name)) value = TrimmedLine(line.substr(name.size()));
  }
  return value;
}

bool HasWholeHeader(std::string_view header) noexcept {
  bool isWhole = false;
  std::string_view line;
  while (TakeLine(header, line)) {
    if (BeginsWith(line, kStatusLine)) isWhole = false;
    isWhole = isWhole || line == "\r\n" || line == "\n";  // trailers may follow
  }
  return isWhole;
}

std::string LastHttpStatus(std::string_view header, int& status) {
  status = 0;
  std::string_view text;
  std::string_view line;
  while (TakeLine(header, line)) {
    if (BeginsWith(line, kStatusLine)) text = TrimmedLine(line.substr(std::min(line.find(' '), line.size())));
  }
  const std::optional<unsigned long long> number = ParseNumber(text.substr(0, 3));
  if (!number) return {};
  status = static_cast<int>(*number);
  if (text.size() > 4) return std::string(text);
  for (const ReasonPhrase& entry : kReasonPhrases) {
    if (entry.status == status) return fmt::format("{} {}", status, entry.phrase);
  }
  return std::to_string(status);
}

std::optional<int> TunnelStatusIn(std::string_view text) noexcept {
  for (const std::string_view beginning : {"CONNECT tunnel failed, response ", "Received HTTP code "}) {
    int status = 0;
    if (text.starts_with(beginning) &&
        std::from_chars(text.data() + beginning.size(), text.data() + text.size(), status).ec == std::errc()) {
      return status;
    }
  }
  return std::nullopt;
}

}  // namespace CorvaneCli
