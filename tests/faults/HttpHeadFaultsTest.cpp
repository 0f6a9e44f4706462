#include "tests/faults/HttpFaults.h"

// What can be wrong before the header lines: with the connection, and with the status line.
namespace CorvaneTest {
namespace {

constexpr unsigned int kUnsupported = 1;
constexpr unsigned int kGotNothing = 52;
constexpr unsigned int kSendError = 55;

// Says this, and closes.
std::function<void(Answer&)> Saying(const std::string& text) {
  return [text](Answer& a) { a.SendAndClose(text); };
}

// This in the place of the status line, and a good rest.
std::function<void(Answer&)> Beginning(const std::string& line) {
  return [line](Answer& a) { a.SendAndClose(line + "\r\n" + a.Length() + "\r\n\r\n" + a.Body()); };
}

// The words differ from version to version of libcurl.
const Told kNoStatus = {.curl = kUnsupported, .text = "Unsupported *"};
const Told kNoHttp = {.curl = kUnsupported, .text = "Received HTTP/0.9 when not allowed"};

const std::vector<HttpFault> kConnectionFaults = {
    {.name = "closes before it reads the request",
     .answer =
         [](Answer& a) {
           a.Peer().HalfClose();
           a.Peer().WaitUntilPeerCloses();
           a.Close();
         },
     .told = {.curl = kGotNothing, .text = "Empty reply from server"},
     .isAtAccept = true},
    {.name = "resets before it reads the request",
     .answer = [](Answer& a) { a.Peer().Reset(); },
     .told = {.curl = kReceiveError,
              .text = "Recv failure: Connection reset by peer",
              .alternatives = {{kSendError, "Send failure: *"}, {kRefusedConnection, "Failed to connect to *"}}},
     .isAtAccept = true},
    {.name = "closes in place of an answer",
     .answer = Saying(""),
     .told = {.curl = kGotNothing, .text = "Empty reply from server"}},
    {.name = "resets in place of an answer",
     .answer = [](Answer& a) { a.SendAndReset(""); },
     .told = {.curl = kReceiveError, .text = "Recv failure: Connection reset by peer"}},
    {.name = "closes within the status line",
     .answer = Saying("HTTP/1.1 20"),
     .told = {.curl = kGotNothing, .text = "Empty reply from server"}},
    {.name = "resets within the status line",
     .answer = [](Answer& a) { a.SendAndReset("HTTP/1.1 20"); },
     .told = {.curl = kReceiveError, .text = "Recv failure: Connection reset by peer"}},
    {.name = "closes within the header, after the length",
     .answer = [](Answer& a) { a.SendAndClose(a.StatusLine() + a.Length() + "\r\nX: "); },
     .told = {.status = 200, .curl = kPartialFile, .text = "transfer closed with 1000 bytes remaining to read"},
     .exceptions =
         {{kResumed,
           {.status = 206, .curl = kPartialFile, .text = "transfer closed with 832 bytes remaining to read"}}}},
    // To libcurl an end is an end where no length was announced. A tree, which knows whole files only, looks closer.
    {.name = "closes within the header, before the length",
     .answer = [](Answer& a) { a.SendAndClose(a.StatusLine() + "X: y\r\n"); },
     .told = {.status = 200},
     .exceptions = {{kResumed, kNoRest},
                    {kTrees,
                     {.status = 200, .curl = kPartialFile, .text = "The answer ends within its header lines."}}}},
    {.name = "resets within the header",
     .answer = [](Answer& a) { a.SendAndReset(a.StatusLine() + a.Length() + "\r\nX: "); },
     .told = {.status = 200, .curl = kReceiveError, .text = "Recv failure: Connection reset by peer"}},
};

TEST(HttpFaults, OfTheConnection) { EXPECT_EQ(RunCells(CellsOf(kConnectionFaults, kAllOps)), 9 * 12U); }

const std::vector<HttpFault> kStatusLineFaults = {
    {.name = "letters for a status", .answer = Beginning("HTTP/1.1 abc OK"), .told = kNoStatus},
    {.name = "no status", .answer = Beginning("HTTP/1.1"), .told = kNoStatus},
    {.name = "a status of two digits", .answer = Beginning("HTTP/1.1 20 OK"), .told = kNoStatus},
    {.name = "a status of four digits", .answer = Beginning("HTTP/1.1 2000 OK"), .told = kNoStatus},
    {.name = "a negative status", .answer = Beginning("HTTP/1.1 -200 OK"), .told = kNoStatus},
    {.name = "no blank before the status", .answer = Beginning("HTTP/1.1200 OK"), .told = kNoStatus},
    {.name = "HTTP/1.7", .answer = Beginning("HTTP/1.7 200 OK"), .told = kNoStatus},
    {.name = "HTTP/9.9", .answer = Beginning("HTTP/9.9 200 OK"), .told = kNoStatus},
    {.name = "HTTP/0.9, the content alone", .answer = [](Answer& a) { a.SendAndClose(a.Body()); }, .told = kNoHttp},
    {.name = "the greeting of another protocol", .answer = Saying("220 ready for mail\r\n"), .told = kNoHttp},
    {.name = "bytes at random",
     .answer = Saying(std::string("\x16\x03\x01\x00\xa5\xff\x00\n\r\n\r\n", 11)),
     .told = kNoHttp},
    {.name = "status 000", .answer = Beginning("HTTP/1.1 000 OK"), .told = kNoStatus},
    {.name = "status 999", .answer = Beginning("HTTP/1.1 999 OK"), .told = {.status = 999, .upTo = kContentSize}},
    {.name = "no reason",
     .answer =
         [](Answer& a) {
           std::string line = a.StatusLine();
           line.erase(12, line.find('\r') - 12);
           a.SendAndClose(line + a.Length() + "\r\n\r\n" + a.Body());
         },
     .told = {.status = 200, .upTo = kContentSize}},
    {.name = "an interim answer alone",
     .answer = Saying("HTTP/1.1 100 Continue\r\n\r\n"),
     .told = {.status = 100, .curl = kGotNothing, .text = "Empty reply from server"}},
    {.name = "interim answers before the answer",
     .answer =
         [](Answer& a) {
           a.SendAndClose("HTTP/1.1 102 Processing\r\n\r\nHTTP/1.1 103 Early Hints\r\nLink: </x>\r\n\r\n" +
                          a.Head({a.Length()}) + a.Body());
         },
     .told = {.status = 200, .upTo = kContentSize}},
    {.name = "other protocols, and content in one of them",
     .answer = [](Answer& a) { a.SendAndClose("HTTP/1.1 101 Switching Protocols\r\nUpgrade: x\r\n\r\n" + a.Body()); },
     .told = {.status = 101, .upTo = kContentSize, .size = kUnknownSize}},
};

TEST(HttpFaults, OfTheStatusLine) { EXPECT_EQ(RunCells(CellsOf(kStatusLineFaults, kAllOps)), 17 * 12U); }

}  // namespace
}  // namespace CorvaneTest
