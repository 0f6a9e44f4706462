#include "tests/support/HttpResponders.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <memory>
#include <utility>

namespace CorvaneTest {

namespace {

struct ByteRange {
  std::uint64_t first = 0;
  std::uint64_t count = 0;
};

std::optional<std::uint64_t> ParseWholeNumber(std::string_view text) {
  std::uint64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return number;
}

// The part of a content of `total` bytes that the Range header asks for: nullopt when the header is none of a single
// byte range, upon which a server sends the whole; a count of 0 when the range lies beyond the end.
std::optional<ByteRange> ParseRange(std::string_view header, std::uint64_t total) {
  constexpr std::string_view kUnit = "bytes=";
  if (header.substr(0, kUnit.size()) != kUnit) return std::nullopt;
  header.remove_prefix(kUnit.size());
  const std::size_t dash = header.find('-');
  if (dash == std::string_view::npos) return std::nullopt;
  const std::string_view beforeDash = header.substr(0, dash);
  const std::string_view afterDash = header.substr(dash + 1);
  const std::optional<std::uint64_t> first = ParseWholeNumber(beforeDash);
  const std::optional<std::uint64_t> last = ParseWholeNumber(afterDash);
  if (beforeDash.empty() && last) return ByteRange{total - std::min(*last, total), std::min(*last, total)};
  if (!first || (!afterDash.empty() && (!last || *last < *first))) return std::nullopt;
  if (*first >= total) return ByteRange{*first, 0};
  return ByteRange{*first, std::min(last.value_or(total), total - 1) - *first + 1};
}

void End(Connection& connection, ContentOptions::Ending ending) {
  switch (ending) {
    case ContentOptions::Ending::kClose:
      connection.Close();
      return;
    case ContentOptions::Ending::kReset:
      connection.Reset();
      return;
    case ContentOptions::Ending::kStall:
      connection.WaitUntilStopped();
      return;
  }
}

bool SendChunked(Connection& connection, std::string_view body, std::size_t chunkSize) {
  while (!body.empty()) {
    const std::string_view part = body.substr(0, chunkSize);
    if (!connection.Send(FormatChunk(part))) return false;
    body.remove_prefix(part.size());
  }
  return true;
}

void SendBody(Connection& connection, std::string_view body, const ContentOptions& options) {
  const bool isBrokenOff = options.stopAfter && *options.stopAfter < body.size();
  if (isBrokenOff) body = body.substr(0, static_cast<std::size_t>(*options.stopAfter));
  const bool isChunked = options.framing == ContentOptions::Framing::kChunked;
  const bool isSent = isChunked ? SendChunked(connection, body, options.chunkSize) : connection.Send(body);
  if (isSent && isBrokenOff) return End(connection, options.ending);
  if (isSent && isChunked) connection.Send(FormatChunk(""));
  if (!isSent || options.framing == ContentOptions::Framing::kUntilClose) connection.Close();
}

void AddFraming(std::vector<HeaderField>& headers, ContentOptions::Framing framing, std::size_t size) {
  switch (framing) {
    case ContentOptions::Framing::kContentLength:
      headers.push_back({"Content-Length", std::to_string(size)});
      return;
    case ContentOptions::Framing::kChunked:
      headers.push_back({"Transfer-Encoding", "chunked"});
      return;
    case ContentOptions::Framing::kUntilClose:
      headers.push_back({"Connection", "close"});
      return;
  }
}

// Answers with the part of `content` that `range` names, or with all of it.
void SendContent(Connection& connection, const Request& request, std::string_view content,
                 const std::optional<ByteRange>& range, const ContentOptions& options) {
  std::vector<HeaderField> headers = options.headers;
  std::string_view body = content;
  if (range) {
    body = content.substr(static_cast<std::size_t>(range->first), static_cast<std::size_t>(range->count));
    const std::uint64_t last = range->first + range->count - 1;
    headers.push_back({"Content-Range", "bytes " + std::to_string(range->first) + "-" + std::to_string(last) + "/" +
                                            std::to_string(content.size())});
  }
  AddFraming(headers, options.framing, body.size());
  connection.Send(FormatHead(range ? 206 : options.status, headers));
  if (request.method == "HEAD") return;
  SendBody(connection, body, options);
}

void RefuseRange(Connection& connection, const Request& request, std::size_t total) {
  Status(416, "", {{"Content-Range", "bytes */" + std::to_string(total)}})(connection, request);
}

bool ClientCloses(const Request& request) {
  const std::string option = request.Header("Connection").value_or("");
  if (request.version == "HTTP/1.0") return !EqualIgnoringCase(option, "keep-alive");
  return EqualIgnoringCase(option, "close");
}

}  // namespace

std::function<void(Connection&)> KeepAlive(Responder responder, Body body) {
  return [responder = std::move(responder), body](Connection& connection) {
    while (const std::optional<Request> request = connection.ReadRequest(body)) {
      // What is left of a body would be taken for the next request.
      const bool isLast = ClientCloses(*request) || !request->isBodyComplete;
      if (request->isBodyComplete || body == Body::kLeave) responder(connection, *request);
      if (isLast || !connection.IsOpen()) return;
    }
  };
}

std::function<void(Connection&)> OncePerConnection(Responder responder, Body body) {
  return [responder = std::move(responder), body](Connection& connection) {
    const std::optional<Request> request = connection.ReadRequest(body);
    if (request && (request->isBodyComplete || body == Body::kLeave)) responder(connection, *request);
  };
}

Responder Content(std::string bytes, ContentOptions options) {
  // A std::function is copied freely; the content may be large.
  auto shared = std::make_shared<const std::string>(std::move(bytes));
  return [shared, options = std::move(options)](Connection& connection, const Request& request) {
    const std::optional<std::string> header = request.Header("Range");
    std::optional<ByteRange> range;
    if (header && options.ranges == ContentOptions::Ranges::kServed) range = ParseRange(*header, shared->size());
    const bool isRefused = header && options.ranges == ContentOptions::Ranges::kRefused;
    if (isRefused || (range && range->count == 0)) return RefuseRange(connection, request, shared->size());
    SendContent(connection, request, *shared, range, options);
  };
}

Responder Status(int status, std::string body, std::vector<HeaderField> headers) {
  headers.push_back({"Content-Length", std::to_string(body.size())});
  return [head = FormatHead(status, headers), body = std::move(body)](Connection& connection, const Request& request) {
    connection.Send(request.method == "HEAD" ? head : head + body);
  };
}

Responder Redirect(std::string location, int status) { return Status(status, "", {{"Location", std::move(location)}}); }

Responder HeadOfSize(std::size_t headBytes, const std::string& body) {
  constexpr std::size_t kLongestLine = 1000;
  constexpr std::size_t kShortestLine = sizeof("X-Filler-000000: \r\n") - 1;
  std::string head = FormatHead(200, {{"Content-Length", std::to_string(body.size())}});
  head.resize(head.size() - 2);  // the empty line comes after the filling
  for (int number = 0; head.size() + 2 < headBytes; ++number) {
    const std::size_t left = headBytes - 2 - head.size();
    std::size_t length = std::min(left, kLongestLine);
    if (left - length > 0 && left - length < kShortestLine) length -= kShortestLine;
    std::string line(length, 'x');
    std::snprintf(line.data(), line.size(), "X-Filler-%06d: ", number % 1000000);
    line[kShortestLine - 2] = 'x';  // where snprintf put its NUL, unless the line ends there
    line.replace(length - 2, 2, "\r\n");
    head += line;
  }
  return [answer = head + "\r\n" + body](Connection& connection, const Request&) { connection.Send(answer); };
}

Responder Routes(std::map<std::string, Responder> table) {
  return [table = std::move(table)](Connection& connection, const Request& request) {
    const auto found = table.find(request.Path());
    (found != table.end() ? found->second : Status(404, "not found\n"))(connection, request);
  };
}

std::string FormatHead(int status, const std::vector<HeaderField>& headers) {
  std::string head = "HTTP/1.1 " + std::to_string(status) + " ";
  head.append(ReasonPhrase(status)).append("\r\n");
  for (const HeaderField& field : headers) head += field.name + ": " + field.value + "\r\n";
  return head + "\r\n";
}

std::string_view ReasonPhrase(int status) {
  static constexpr std::pair<int, std::string_view> kPhrases[] = {
      {200, "OK"},
      {201, "Created"},
      {204, "No Content"},
      {206, "Partial Content"},
      {301, "Moved Permanently"},
      {302, "Found"},
      {303, "See Other"},
      {304, "Not Modified"},
      {307, "Temporary Redirect"},
      {308, "Permanent Redirect"},
      {400, "Bad Request"},
      {401, "Unauthorized"},
      {403, "Forbidden"},
      {404, "Not Found"},
      {405, "Method Not Allowed"},
      {407, "Proxy Authentication Required"},
      {416, "Range Not Satisfiable"},
      {417, "Expectation Failed"},
      {429, "Too Many Requests"},
      {500, "Internal Server Error"},
      {502, "Bad Gateway"},
      {503, "Service Unavailable"},
      {504, "Gateway Timeout"},
  };
  for (const auto& [code, phrase] : kPhrases) {
    if (code == status) return phrase;
  }
  return "Unknown";
}

std::string FormatChunk(std::string_view bytes) {
  char size[20];
  std::snprintf(size, sizeof size, "%zx\r\n", bytes.size());
  return std::string(size).append(bytes).append("\r\n");
}

}  // namespace CorvaneTest
