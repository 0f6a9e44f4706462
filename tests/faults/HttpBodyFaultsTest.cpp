#include "tests/faults/HttpFaults.h"

// What can be wrong with the content of an answer: too little of it, too much, broken chunks, no end.
namespace CorvaneTest {
namespace {

constexpr const char* kIsChunked = "Transfer-Encoding: chunked";

// A good chunk of the first part, and then this.
std::function<void(Answer&)> ChunkAnd(const std::string& rest) {
  return [rest](Answer& a) { a.SendAndClose(a.Head({kIsChunked}) + a.Chunk(kCut) + rest); };
}

Told BrokenChunk(const std::string& text) {
  return {.status = 200, .curl = kReceiveError, .text = text, .upTo = kCut, .size = kUnknownSize};
}

const Told kCutOff = {
    .status = 200, .curl = kPartialFile, .text = "transfer closed with 400 bytes remaining to read", .upTo = kCut};
const Told kCutOffChunks = {.status = 200,
                            .curl = kPartialFile,
                            .text = "transfer closed with outstanding read data remaining",
                            .upTo = kCut,
                            .size = kUnknownSize};
// What ends an answer of unknown length is its end, but a part has told where it ends.
const Told kEndsBeforeItsPart = {
    .status = 206,
    .curl = kPartialFile,
    .text = "The server sent only 600 of the file's 1000 bytes. The rest is still missing.",
    .upTo = kCut,
    .size = kUnknownSize};

const std::vector<HttpFault> kLengthFaults = {
    {.name = "less than announced",
     .answer = [](Answer& a) { a.SendAndClose(a.Head({a.Length()}) + a.Body(kCut)); },
     .told = kCutOff},
    {.name = "less than announced, over HTTP/1.0",
     .answer =
         [](Answer& a) {
           std::string head = a.Head({a.Length()});
           head[7] = '0';
           a.SendAndClose(head + a.Body(kCut));
         },
     .told = kCutOff},
    {.name = "nothing of what was announced",
     .answer = [](Answer& a) { a.SendAndClose(a.Head({a.Length()})); },
     .told = {.status = 200, .curl = kPartialFile, .text = "transfer closed with 1000 bytes remaining to read"},
     .exceptions =
         {{kResumed,
           {.status = 206, .curl = kPartialFile, .text = "transfer closed with 832 bytes remaining to read"}}}},
    {.name = "more than announced, at once",
     .answer = [](Answer& a) { a.Send(a.Head({a.Length()}) + a.Body() + "HTTP/1.1 200 OK\r\n\r\nmore"); },
     .told = kWhole},
    // So much that libcurl sees it at once. What comes later it takes for the next answer on the connection, if there is one.
    {.name = "more than announced, without end",
     .answer =
         [](Answer& a) {
           a.Send(a.Head({a.Length()}) + a.Body() + std::string(20000, 'x'));
           while (a.Peer().Send(std::string(10000, 'x'))) continue;
           a.Close();
         },
     .told = kWhole},
    {.name = "half, and the connection reset",
     .answer = [](Answer& a) { a.SendAndReset(a.Head({a.Length()}) + a.Body(kCut)); },
     .told = {.status = 200, .curl = kReceiveError, .text = "Recv failure: Connection reset by peer", .upTo = kCut}},
    {.name = "all, and the connection reset",
     .answer = [](Answer& a) { a.SendAndReset(a.Head({a.Length()}) + a.Body()); },
     .told = kWhole},
    {.name = "half until the connection ends",
     .answer = [](Answer& a) { a.SendAndClose(a.Head({}) + a.Body(kCut)); },
     .told = {.status = 200, .upTo = kCut, .size = kUnknownSize},
     .exceptions = {{kResumed, kEndsBeforeItsPart}}},
    {.name = "half until the connection ends, over HTTP/1.0",
     .answer =
         [](Answer& a) {
           std::string head = a.Head({});
           head[7] = '0';
           a.SendAndClose(head + a.Body(kCut));
         },
     .told = {.status = 200, .upTo = kCut, .size = kUnknownSize},
     .exceptions = {{kResumed, kEndsBeforeItsPart}}},
    {.name = "half until the connection is reset",
     .answer = [](Answer& a) { a.SendAndReset(a.Head({}) + a.Body(kCut)); },
     .told = {.status = 200,
              .curl = kReceiveError,
              .text = "Recv failure: Connection reset by peer",
              .upTo = kCut,
              .size = kUnknownSize}},
};

TEST(HttpFaults, OfContentWithALength) { EXPECT_EQ(RunCells(CellsOf(kLengthFaults, kAllOps)), 10 * 12U); }

const std::vector<HttpFault> kChunkFaults = {
    {.name = "a chunk's size in letters",
     .answer = ChunkAnd("xyz\r\nabc\r\n0\r\n\r\n"),
     .told = BrokenChunk("Illegal or missing hexadecimal sequence in chunked-encoding")},
    {.name = "a chunk without a size",
     .answer = ChunkAnd("\r\nabc\r\n0\r\n\r\n"),
     .told = BrokenChunk("Illegal or missing hexadecimal sequence in chunked-encoding")},
    {.name = "a chunk of a negative size",
     .answer = ChunkAnd("-5\r\nabcde\r\n0\r\n\r\n"),
     .told = BrokenChunk("Illegal or missing hexadecimal sequence in chunked-encoding")},
    {.name = "a chunk of more than 63 bits",
     .answer = ChunkAnd("ffffffffffffffff\r\nabc\r\n0\r\n\r\n"),
     .told = BrokenChunk("* in chunked-encoding")},
    {.name = "a chunk's size in 17 digits",
     .answer = ChunkAnd("10000000000000000\r\nabc\r\n0\r\n\r\n"),
     .told = BrokenChunk("Too long hexadecimal number in chunked-encoding")},
    {.name = "no line end after a chunk",
     .answer =
         [](Answer& a) {
           std::string chunk = a.Chunk(kCut);
           chunk.resize(chunk.size() - 2);
           a.SendAndClose(a.Head({kIsChunked}) + chunk + "5\r\nabcde\r\n0\r\n\r\n");
         },
     .told = BrokenChunk("Malformed encoding found in chunked-encoding")},
    {.name = "no further chunk, and no last one", .answer = ChunkAnd(""), .told = kCutOffChunks},
    {.name = "a chunk that breaks off",
     .answer =
         [](Answer& a) {
           const std::string chunk = a.Chunk();
           a.SendAndClose(a.Head({kIsChunked}) + chunk.substr(0, chunk.size() - 2 - (kContentSize - kCut)));
         },
     .told = kCutOffChunks},
    {.name = "a chunk that breaks off with a reset",
     .answer =
         [](Answer& a) {
           const std::string chunk = a.Chunk();
           a.SendAndReset(a.Head({kIsChunked}) + chunk.substr(0, chunk.size() - 2 - (kContentSize - kCut)));
         },
     .told = BrokenChunk("Recv failure: Connection reset by peer")},
    {.name = "no line end after the last chunk",
     .answer = [](Answer& a) { a.SendAndClose(a.Head({kIsChunked}) + a.Chunk() + "0\r\n"); },
     .told = {.status = 200,
              .curl = kPartialFile,
              .text = "transfer closed with outstanding read data remaining",
              .upTo = kContentSize,
              .size = kUnknownSize}},
    {.name = "the last chunk too early",
     .answer = ChunkAnd("0\r\n\r\n"),
     .told = {.status = 200, .upTo = kCut, .size = kUnknownSize},
     .exceptions = {{kResumed, kEndsBeforeItsPart}}},
    {.name = "only the last chunk",
     .answer = [](Answer& a) { a.SendAndClose(a.Head({kIsChunked}) + "0\r\n\r\n"); },
     .told = {.status = 200},
     .exceptions = {{kResumed, kNoRest}}},
    {.name = "chunks with extensions and trailers",
     .answer =
         [](Answer& a) {
           std::string chunk = a.Chunk();
           chunk.insert(chunk.find('\r'), ";name=\"value\"");
           a.Send(a.Head({kIsChunked}) + chunk + "0\r\nX-Trailer: y\r\n\r\n");
         },
     .told = {.status = 200, .upTo = kContentSize, .size = kUnknownSize},
     .hasTrailers = true},
    {.name = "more after the last chunk",
     .answer = [](Answer& a) { a.Send(a.Head({kIsChunked}) + a.Chunk() + "0\r\n\r\n5\r\nabcde\r\n0\r\n\r\n"); },
     .told = {.status = 200, .upTo = kContentSize, .size = kUnknownSize}},
};

TEST(HttpFaults, OfChunks) { EXPECT_EQ(RunCells(CellsOf(kChunkFaults, kAllOps)), 14 * 12U); }

// --- content without an end, which somebody here has to end

const Told kAborted = {.status = 200,
                       .upTo = kContentSize,
                       .size = kUnknownSize,
                       .content = std::string(kContentSize, 'x'),
                       .verdict = Ending{Corvane::TRANSFER_E_ABORTED, "Download aborted by user"},
                       .isEndless = true};

// A run that is aborted before it has a list has not been started.
const Exception kAbortedList = {{Op::kMirrorPage},
                                {.status = 200,
                                 .upTo = kContentSize,
                                 .size = kUnknownSize,
                                 .verdict = Ending{Corvane::TRANSFER_E_NOT_STARTED, "Download not started yet"},
                                 .isEndless = true}};

const std::vector<HttpFault> kEndlessFaults = {
    {.name = "content without an end",
     .answer =
         [](Answer& a) {
           a.Send(a.Head({}));
           a.Trickle(std::string(1000, 'x'));
         },
     .told = kAborted,
     .exceptions = {kAbortedList},
     .patience = Patience::kAbort},
    {.name = "chunks without an end",
     .answer =
         [](Answer& a) {
           a.Send(a.Head({kIsChunked}));
           a.Trickle(FormatChunk(std::string(1000, 'x')));
         },
     .told = kAborted,
     .exceptions = {kAbortedList},
     .patience = Patience::kAbort},
};

// A part has an end, and what comes behind it is refused, see the tests of ranges.
TEST(HttpFaults, OfContentWithoutAnEnd) {
  EXPECT_EQ(RunCells(CellsOf(kEndlessFaults, Without(kResumed, kAllOps))), 2 * 10U);
}

const std::vector<HttpFault> kEndlessPages = {
    {.name = "a page without an end",
     .answer =
         [](Answer& a) {
           a.Send(a.Head({}) + a.Body());
           while (a.Peer().Send(std::string(10000, 'x'))) continue;
           a.Close();
         },
     .told = {.status = 200,
              .verdict = Ending{Corvane::TRANSFER_E_DOWNLOAD, "The page is longer than 1000000 bytes."},
              .isEndless = true}},
};

TEST(HttpFaults, OfAPageWithoutAnEnd) { EXPECT_EQ(RunCells(CellsOf(kEndlessPages, {Op::kTreePage})), 1U); }

}  // namespace
}  // namespace CorvaneTest
