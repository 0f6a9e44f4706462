#include "apps/corvane/Explain/HttpAnswer.h"

#include <fmt/core.h>

#include <algorithm>
#include <cctype>
#include <optional>

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

}  // namespace

std::string_view LastHeader(std::string_view header, std::string_view name) {
  std::string_view value;
  while (!header.empty()) {
    const std::size_t end = std::min(header.find('\n'), header.size() - 1) + 1;
    const std::string_view line = header.substr(0, end);
    const auto matches = [](char a, char b) { return std::tolower(static_cast<unsigned char>(a)) == b; };
    if (line.size() >= name.size() &&
        std::equal(name.begin(), name.end(), line.begin(), [&](char b, char a) { return matches(a, b); })) {
      value = TrimmedLine(line.substr(name.size()));
    }
    header.remove_prefix(end);
  }
  return value;
}

bool HasWholeHeader(std::string_view header) noexcept {
  bool isWhole = false;
  while (!header.empty()) {
    const std::size_t end = std::min(header.find('\n'), header.size() - 1) + 1;
    const std::string_view line = header.substr(0, end);
    if (line.substr(0, 5) == "HTTP/") isWhole = false;
    isWhole = isWhole || line == "\r\n" || line == "\n";  // trailers may follow
    header.remove_prefix(end);
  }
  return isWhole;
}

std::string LastHttpStatus(const std::string& header, int& status) {
  status = 0;
  std::string_view text;
  for (std::size_t line = 0; line != std::string::npos && line < header.size();) {
    const std::string_view rest = std::string_view(header).substr(line);
    if (rest.substr(0, 5) == "HTTP/") text = TrimmedLine(rest.substr(std::min(rest.find(' '), rest.size())));
    line = header.find('\n', line);
    if (line != std::string::npos) ++line;
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

}  // namespace CorvaneCli
