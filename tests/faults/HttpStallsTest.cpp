#include "tests/faults/HttpFaults.h"

// Servers that fall silent, in every phase. The cells run side by side, with the shortest time limit there is.
namespace CorvaneTest {
namespace {

// A transfer's time limit tells what has come of what was announced, a tree's for how long nothing came.
const std::string kNothingSoFar = "Operation timed out after * milliseconds with 0 bytes received";
const std::string kOfUnknown = "Operation timed out after * milliseconds with * bytes received";
const std::string kOfAnnounced = "Operation timed out after * milliseconds with * out of * bytes received";

Told TimedOut(long status, const std::string& text, std::size_t upTo = 0, unsigned long long size = kContentSize) {
  return {.status = status, .curl = kTimedOut, .text = text, .upTo = upTo, .size = size};
}

HttpFault Silence(const std::string& name, const std::function<void(Answer&)>& answer, const Told& told) {
  Told tree = told;
  tree.text = "No byte came for * seconds.";
  return {.name = name, .answer = answer, .told = told, .exceptions = {{kTrees, tree}}, .patience = Patience::kTimeout};
}

const std::vector<HttpFault> kSilences = {
    Silence(
        "silence in place of an answer", [](Answer& a) { a.Stall(); }, TimedOut(0, kNothingSoFar)),
    Silence(
        "silence within the status line", [](Answer& a) { a.SendAndStall("HTTP/1.1 20"); }, TimedOut(0, kNothingSoFar)),
    Silence(
        "silence after an interim answer", [](Answer& a) { a.SendAndStall("HTTP/1.1 100 Continue\r\n\r\n"); },
        TimedOut(100, kNothingSoFar)),
    Silence(
        "silence within the header", [](Answer& a) { a.SendAndStall(a.StatusLine() + "X: y\r\nZ"); },
        TimedOut(200, kNothingSoFar)),
    Silence(
        "silence before the content", [](Answer& a) { a.SendAndStall(a.Head({a.Length()})); },
        TimedOut(200, kOfAnnounced)),
    Silence(
        "silence within the content", [](Answer& a) { a.SendAndStall(a.Head({a.Length()}) + a.Body(kCut)); },
        TimedOut(200, kOfAnnounced, kCut)),
    Silence(
        "silence after content of unknown length", [](Answer& a) { a.SendAndStall(a.Head({}) + a.Body()); },
        TimedOut(200, kOfUnknown, kContentSize, kUnknownSize)),
    Silence(
        "silence within a chunk's size",
        [](Answer& a) { a.SendAndStall(a.Head({"Transfer-Encoding: chunked"}) + a.Chunk(kCut) + "1"); },
        TimedOut(200, kOfUnknown, kCut, kUnknownSize)),
    Silence(
        "silence within a chunk",
        [](Answer& a) {
          const std::string chunk = a.Chunk();
          a.SendAndStall(a.Head({"Transfer-Encoding: chunked"}) +
                         chunk.substr(0, chunk.size() - 2 - (kContentSize - kCut)));
        },
        TimedOut(200, kOfUnknown, kCut, kUnknownSize)),
    Silence(
        "silence after the last chunk",
        [](Answer& a) { a.SendAndStall(a.Head({"Transfer-Encoding: chunked"}) + a.Chunk() + "0\r\n"); },
        TimedOut(200, kOfUnknown, kContentSize, kUnknownSize)),
};

TEST(HttpFaults, OfSilence) { EXPECT_EQ(RunCells(CellsOf(kSilences, kAllOps)), 10 * 12U); }

// Header lines do not move a transfer's limit. They are bytes, so that a tree waits for more, up to 1 MiB of them.
const std::vector<HttpFault> kTrickles = {
    {.name = "header lines one by one",
     .answer =
         [](Answer& a) {
           a.Send(a.StatusLine());
           a.Trickle("X: y\r\n");
         },
     .told = {.status = 200, .curl = kTimedOut, .text = kNothingSoFar},
     .patience = Patience::kTimeout},
    {.name = "a header line byte by byte",
     .answer =
         [](Answer& a) {
           a.Send(a.StatusLine());
           a.Trickle("x");
         },
     .told = {.status = 200, .curl = kTimedOut, .text = kNothingSoFar},
     .patience = Patience::kTimeout},
};

TEST(HttpFaults, OfTrickles) { EXPECT_EQ(RunCells(CellsOf(kTrickles, Without(kTrees, kAllOps))), 2 * 10U); }

}  // namespace
}  // namespace CorvaneTest
