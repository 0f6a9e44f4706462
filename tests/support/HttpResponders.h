#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tests/support/Connection.h"
#include "tests/support/Request.h"

// Ready-made behaviour for ScriptedServer. A Responder answers one request; KeepAlive and OncePerConnection turn a
// Responder into a handler of connections. Responders may be called on several threads at once.
namespace CorvaneTest {

using Responder = std::function<void(Connection&, const Request&)>;

// --- handlers

// Answers request after request until the client closes, asks for "Connection: close", or the responder closed.
std::function<void(Connection&)> KeepAlive(Responder responder, Body body = Body::kRead);

// Answers one request and closes the connection.
std::function<void(Connection&)> OncePerConnection(Responder responder, Body body = Body::kRead);

// --- responders

struct ContentOptions {
  enum class Ranges {
    kServed,   // 206 with Content-Range for one satisfiable range, 416 beyond the end, 200 for anything else
    kIgnored,  // always 200 with the whole content
    kRefused,  // 416 to every request with a Range header
  };
  enum class Framing { kContentLength, kChunked, kUntilClose };
  enum class Ending {
    kClose,  // an orderly end too early
    kReset,  // RST
    kStall,  // nothing more comes until the server is stopped
  };

  int status = 200;  // for the whole content
  Ranges ranges = Ranges::kServed;
  Framing framing = Framing::kContentLength;
  std::size_t chunkSize = 4096;                 // bytes per chunk with Framing::kChunked
  std::vector<HeaderField> headers = {};        // added to the head, such as Last-Modified
  std::optional<std::uint64_t> stopAfter = {};  // break off after so many bytes of the body ...
  Ending ending = Ending::kClose;               // ... in this way
};

// The byte string as the content of every target. A HEAD request gets the head alone.
Responder Content(std::string bytes, ContentOptions options = {});

// The status with its usual reason phrase, the headers given, and the body with its length.
Responder Status(int status, std::string body = "", std::vector<HeaderField> headers = {});

// 302 (or `status`) to `location`.
Responder Redirect(std::string location, int status = 302);

// 200 with a head of exactly `headBytes` bytes (at least 200), the empty line included, in lines of at most 1000 bytes,
// and this body.
Responder HeadOfSize(std::size_t headBytes, const std::string& body = "");

// Chooses by Request::Path(); 404 for a path that is not in the table.
Responder Routes(std::map<std::string, Responder> table);

// --- building blocks for handlers of one's own

// "HTTP/1.1 200 OK", the headers, and the empty line.
std::string FormatHead(int status, const std::vector<HeaderField>& headers = {});

// "OK", "Not Found" and so on; "Unknown" for a status without a name.
std::string_view ReasonPhrase(int status);

// One chunk of the chunked transfer coding; the empty string gives the last chunk.
std::string FormatChunk(std::string_view bytes);

}  // namespace CorvaneTest
