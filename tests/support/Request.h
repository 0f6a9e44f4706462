#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace CorvaneTest {

struct HeaderField {
  std::string name;
  std::string value;  // without the blanks around it
};

// An HTTP request as it came from the client.
struct Request {
  std::string method;                // "GET"
  std::string target;                // "/dir/file?query", undecoded
  std::string version;               // "HTTP/1.1"
  std::vector<HeaderField> headers;  // in the order received, repeated ones included
  std::string raw;                   // the exact bytes of the head, up to and with the empty line
  std::string body;                  // decoded when it came in chunks; empty unless read with Body::kRead
  std::uint64_t bodySize = 0;        // bytes of the body received so far, also with Body::kCount
  bool isBodyComplete = false;       // false while it is being read and when the client went away in between
  std::size_t connection = 0;        // number of the connection it came on, counted from 0

  // Value of the first header of this name, upper and lower case being the same.
  std::optional<std::string> Header(std::string_view headerName) const;

  // Number of headers of this name.
  std::size_t CountHeaders(std::string_view headerName) const;

  // The target without its query.
  std::string Path() const;
};

// Parses a head that ends with an empty line. Lenient: missing parts of the request line stay empty, lines without a
// colon are left out of `headers`; tests that mind look at `raw`.
Request ParseRequestHead(std::string_view head);

// Compares as header names are compared.
bool EqualIgnoringCase(std::string_view left, std::string_view right);

}  // namespace CorvaneTest
