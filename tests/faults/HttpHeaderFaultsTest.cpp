#include "tests/faults/HttpFaults.h"

// What can be wrong with header lines: too many, malformed, or with a length that is none.
namespace CorvaneTest {
namespace {

constexpr unsigned int kWeirdReply = 8;
constexpr std::size_t kFlood = std::size_t{17} << 20;  // bytes; more than anybody takes

// A good answer but for these lines, which stand before its length.
std::function<void(Answer&)> WithLines(const std::string& lines) {
  return [lines](Answer& a) { a.SendAndClose(a.StatusLine() + lines + a.Length() + "\r\n\r\n" + a.Body()); };
}

// A good answer but for these lines in place of its length.
std::function<void(Answer&)> WithLength(const std::string& lines) {
  return [lines](Answer& a) { a.SendAndClose(a.StatusLine() + lines + "\r\n" + a.Body()); };
}

// Sends the piece until the client has enough.
void Flood(Answer& a, const std::string& piece) {
  for (std::size_t sent = 0; sent < kFlood && a.Send(piece); sent += piece.size()) continue;
  a.Close();
}

std::string Lines(std::size_t bytes) {
  std::string lines;
  while (lines.size() < bytes) lines += "X-Filler: " + std::string(988, 'x') + "\r\n";
  return lines;
}

const Told kWholeOfUnknownSize = {.status = 200, .upTo = kContentSize, .size = kUnknownSize};
const Told kNoLength = {.status = 200, .curl = kWeirdReply, .text = "Invalid Content-Length: value"};
const Told kTooManyLines = {.status = 200, .curl = kReceiveError, .text = "Too large response headers: * > *"};

const std::vector<HttpFault> kFloods = {
    {.name = "a header line of 1 MB",
     .answer = [](Answer& a) { a.SendAndClose(a.StatusLine() + "X: " + std::string(1000000, 'x') + "\r\n\r\n"); },
     .told = {.status = 200, .curl = kOutOfMemory},
     .exceptions = {{kTrees, {.status = 200, .curl = kOutOfMemory, .text = "Out of memory"}}}},
    {.name = "header lines of more than 16 MiB",
     .answer =
         [](Answer& a) {
           a.Send(a.StatusLine());
           Flood(a, Lines(100000));
         },
     .told = kTooManyLines},
    {.name = "interim answers of more than 16 MiB",
     .answer = [](Answer& a) { Flood(a, "HTTP/1.1 100 Continue\r\n" + Lines(10000) + "\r\n"); },
     .told = {.status = 100, .curl = kReceiveError, .text = "Too large response headers: * > *"}},
    {.name = "interim answers without lines and without end",
     .answer =
         [](Answer& a) {
           std::string answers;
           for (int i = 0; i < 1000; ++i) answers += "HTTP/1.1 102 Processing\r\n\r\n";
           Flood(a, answers);
         },
     .told = {.status = 102, .curl = kReceiveError, .text = "Too large response headers: * > *"}},
    {.name = "trailers of more than 16 MiB",
     .answer =
         [](Answer& a) {
           a.Send(a.Head({"Transfer-Encoding: chunked"}) + a.Chunk() + "0\r\n");
           Flood(a, Lines(3000));
         },
     .told = {.status = 200,
              .curl = kWriteError,
              .text = "The server sent more than 16 MiB of header lines.",
              .upTo = kContentSize,
              .size = kUnknownSize},
     .exceptions = {{kTrees,
                     {.status = 200,
                      .curl = kWriteError,
                      .text = "The server sent more than 1 MiB of header lines.",
                      .upTo = kContentSize}}},
     .hasTrailers = true},
};

TEST(HttpFaults, OfTooManyHeaderLines) { EXPECT_EQ(RunCells(CellsOf(kFloods, kAllOps)), 5 * 12U); }

const std::vector<HttpFault> kLineFaults = {
    {.name = "a NUL in a header line",
     .answer = WithLines(std::string("X: a\0b\r\n", 8)),
     .told = {.status = 200, .curl = kWeirdReply, .text = "Nul byte in header"}},
    {.name = "a header line without a colon",
     .answer = WithLines("X nothing\r\n"),
     .told = {.status = 200, .curl = kWeirdReply, .text = "Header without colon"}},
    {.name = "control characters and bytes that are no UTF-8",
     .answer = WithLines("X: \x01\x7f\xff\xfe\x1b[2J\r\n"),
     .told = kWhole},
    {.name = "a folded line", .answer = WithLines("X: a\r\n b\r\n\tc\r\n"), .told = kWhole},
    {.name = "a line with an empty name", .answer = WithLines(": nothing\r\n"), .told = kWhole},
    {.name = "lines that end with LF alone",
     .answer =
         [](Answer& a) {
           std::string head = a.Head({a.Length()});
           for (std::size_t at = head.find('\r'); at != head.npos; at = head.find('\r')) head.erase(at, 1);
           a.SendAndClose(head + a.Body());
         },
     .told = kWhole},
    {.name = "a coding that nobody asked for", .answer = WithLines("Content-Encoding: gzip\r\n"), .told = kWhole},
    {.name = "a transfer coding that nobody asked for",
     .answer = [](Answer& a) { a.SendAndClose(a.Head({"Transfer-Encoding: gzip"}) + a.Body()); },
     .told = {.status = 200, .curl = 61, .text = "Error while processing content unencoding: *"}},
    {.name = "a transfer coding that nobody knows",
     .answer = [](Answer& a) { a.SendAndClose(a.Head({"Transfer-Encoding: x-thing"}) + a.Body()); },
     .told = {.status = 200, .curl = 61, .text = "Unrecognized content encoding type.*"}},
};

TEST(HttpFaults, OfHeaderLines) { EXPECT_EQ(RunCells(CellsOf(kLineFaults, kAllOps)), 9 * 12U); }

const std::vector<HttpFault> kHeaderLengthFaults = {
    {.name = "a negative length", .answer = WithLength("Content-Length: -1\r\n"), .told = kNoLength},
    {.name = "letters for a length", .answer = WithLength("Content-Length: all\r\n"), .told = kNoLength},
    {.name = "an empty length", .answer = WithLength("Content-Length:\r\n"), .told = kNoLength},
    // libcurl takes it for one that it does not know.
    {.name = "a length beyond 64 bits",
     .answer = WithLength("Content-Length: 99999999999999999999\r\n"),
     .told = kWholeOfUnknownSize},
    {.name = "no length, and the end of the connection",
     .answer = WithLength("Connection: close\r\n"),
     .told = kWholeOfUnknownSize},
    {.name = "the same length twice",
     .answer =
         [](Answer& a) {
           a.SendAndClose(a.Head({a.Length(), a.Length()}) + a.Body());
         },
     .told = kWhole},
    {.name = "a smaller length before the true one",
     .answer =
         [](Answer& a) {
           a.SendAndClose(a.Head({"Content-Length: 10", a.Length()}) + a.Body());
         },
     .told = kWhole},
    {.name = "a larger length after the true one",
     .answer =
         [](Answer& a) {
           a.SendAndClose(a.Head({a.Length(), "Content-Length: 1100"}) + a.Body());
         },
     .told = {.status = 200,
              .curl = kPartialFile,
              .text = "transfer closed with 100 bytes remaining to read",
              .upTo = kContentSize,
              .size = 1100},
     .exceptions = {{kResumed,
                     {.status = 206,
                      .curl = kPartialFile,
                      .text = "transfer closed with 268 bytes remaining to read",
                      .upTo = kContentSize,
                      .size = 1268}}}},
    {.name = "a length beside chunks",
     .answer =
         [](Answer& a) {
           a.SendAndClose(a.Head({"Content-Length: 10", "Transfer-Encoding: chunked"}) + a.Chunk() + FormatChunk(""));
         },
     .told = kWholeOfUnknownSize},
    {.name = "a length of nothing, and content",
     .answer = WithLength("Content-Length: 0\r\n"),
     .told = {.status = 200},
     .exceptions = {{kResumed, kNoRest}}},
};

TEST(HttpFaults, OfTheLength) { EXPECT_EQ(RunCells(CellsOf(kHeaderLengthFaults, kAllOps)), 10 * 12U); }

}  // namespace
}  // namespace CorvaneTest
