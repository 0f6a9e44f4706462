#include "tests/support/Request.h"

#include <algorithm>

namespace CorvaneTest {

namespace {

char ToLower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

std::string_view Trim(std::string_view text) {
  const std::size_t first = text.find_first_not_of(" \t");
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

// Cuts the next line off `text`, without its line end.
std::string_view TakeLine(std::string_view& text) {
  const std::size_t end = std::min(text.find("\r\n"), text.size());
  const std::string_view line = text.substr(0, end);
  text.remove_prefix(std::min(end + 2, text.size()));
  return line;
}

void ParseRequestLine(std::string_view line, Request& request) {
  const std::size_t targetBegin = std::min(line.find(' '), line.size());
  const std::size_t targetEnd = line.rfind(' ');
  request.method = line.substr(0, targetBegin);
  if (targetEnd == std::string_view::npos || targetEnd == targetBegin) {
    request.target = Trim(line.substr(targetBegin));
    return;
  }
  request.target = line.substr(targetBegin + 1, targetEnd - targetBegin - 1);
  request.version = line.substr(targetEnd + 1);
}

}  // namespace

std::optional<std::string> Request::Header(std::string_view headerName) const {
  for (const HeaderField& field : headers) {
    if (EqualIgnoringCase(field.name, headerName)) return field.value;
  }
  return std::nullopt;
}

std::size_t Request::CountHeaders(std::string_view headerName) const {
  const auto hasName = [&](const HeaderField& field) { return EqualIgnoringCase(field.name, headerName); };
  return static_cast<std::size_t>(std::count_if(headers.begin(), headers.end(), hasName));
}

std::string Request::Path() const { return target.substr(0, target.find('?')); }

Request ParseRequestHead(std::string_view head) {
  Request request;
  request.raw = head;
  ParseRequestLine(TakeLine(head), request);
  while (!head.empty()) {
    const std::string_view line = TakeLine(head);
    const std::size_t colon = line.find(':');
    if (colon == std::string_view::npos) continue;
    request.headers.push_back({std::string(line.substr(0, colon)), std::string(Trim(line.substr(colon + 1)))});
  }
  return request;
}

bool EqualIgnoringCase(std::string_view left, std::string_view right) {
  return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                    [](char a, char b) { return ToLower(a) == ToLower(b); });
}

}  // namespace CorvaneTest
