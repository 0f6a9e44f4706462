#include "tests/faults/HttpFaults.h"

// Parts of a resource: not the one that was asked for, not as long as announced, or nothing that anybody asked for.
namespace CorvaneTest {
namespace {

// A part with these lines, of which `upTo` is announced as its length, and comes.
std::function<void(Answer&)> Part(const std::string& lines, std::size_t upTo = kContentSize) {
  return [=](Answer& a) {
    const std::string body = a.Body(upTo);
    a.SendAndClose("HTTP/1.1 206 Partial Content\r\n" + lines + "Content-Length: " + std::to_string(body.size()) +
                   "\r\n\r\n" + body);
  };
}

// What libcurl takes for the part, and the library does not: nothing of it is written.
Told Refused(const Told& told) {
  Told refused = told;
  refused.isBlockRefused = true;
  return refused;
}

Told EndsAtCut(unsigned long long size) {
  return {.status = 206,
          .curl = kPartialFile,
          .text = "The server sent only 600 of the file's 1000 bytes. The rest is still missing.",
          .upTo = kCut,
          .size = size};
}

// Who did not ask for a part takes it as it comes, but for a tree.
const Told kUnasked = {.status = 206, .upTo = kContentSize};
const Told kUnaskedCut = {.status = 206, .upTo = kCut, .size = kCut};
const Told kRest = {.status = 206, .upTo = kContentSize};

HttpFault OtherPart(const std::string& name, const std::string& range, const Told& resumed) {
  return {.name = name,
          .answer = Part("Content-Range: " + range + "\r\n"),
          .told = kUnasked,
          .exceptions = {{kResumed, resumed}}};
}

HttpFault CutPart(const std::string& name, const std::string& range, const Told& resumed) {
  return {.name = name,
          .answer = Part("Content-Range: " + range + "\r\n", kCut),
          .told = kUnaskedCut,
          .exceptions = {{kResumed, resumed}}};
}

const Told kTooMuch = {.status = 206,
                       .curl = kRangeError,
                       .text = "The server sent more than the range it announced. Cannot resume.",
                       .size = kUnknownSize,
                       .isBlockRefused = true};

const std::vector<HttpFault> kRangeFaults = {
    OtherPart("a part that begins later", "bytes 169-999/1000", kNoPart),
    OtherPart("a part that begins earlier", "bytes 0-999/1000", kNoPart),
    OtherPart("a part that begins beyond 64 bits", "bytes 99999999999999999999-/1000", kNoPart),
    OtherPart("a part that ends behind the resource", "bytes 168-1999/1000", Refused(kNoRest)),
    OtherPart("a part of a shorter resource", "bytes 168-999/900", Refused(kNoRest)),
    OtherPart("a part that ends before it begins", "bytes 168-100/1000", Refused(kNoRest)),
    OtherPart("a part of a resource beyond 64 bits", "bytes 168-999/99999999999999999999", Refused(kNoRest)),
    OtherPart("a part of a resource of unknown length", "bytes 168-999/*", kRest),
    OtherPart("a part without a unit", "168-999/1000", kRest),
    // To libcurl and the library any word is the unit.
    OtherPart("a part in another unit", "lines 168-999/1000", kRest),
    OtherPart("a part that cannot be satisfied", "bytes */1000", Refused(kNoRest)),
    OtherPart("a part in words", "bytes all", Refused(kNoRest)),
    OtherPart("a part that is empty", "", Refused(kNoRest)),
    CutPart("a part that announces an early end", "bytes 168-599/1000", EndsAtCut(kCut)),
    CutPart("a part that ends before its announced end", "bytes 168-999/1000", EndsAtCut(kCut)),
    {.name = "two parts announced",
     .answer = Part("Content-Range: bytes 168-999/1000\r\nContent-Range: bytes 0-999/1000\r\n"),
     .told = kUnasked,
     .exceptions = {{kResumed, Refused(kNoRest)}}},
    {.name = "a part without a range", .answer = Part(""), .told = kUnasked, .exceptions = {{kResumed, kNoPart}}},
    {.name = "parts in one",
     .answer = Part("Content-Type: multipart/byteranges; boundary=x\r\n"),
     .told = kUnasked,
     .exceptions = {{kResumed, kNoPart}}},
    {.name = "more than the part announced",
     .answer =
         [](Answer& a) {
           a.SendAndClose("HTTP/1.1 206 Partial Content\r\nContent-Range: bytes 168-599/1000\r\n\r\n" + a.Body());
         },
     .told = {.status = 206, .upTo = kContentSize, .size = kUnknownSize},
     .exceptions = {{kResumed, kTooMuch}}},
    {.name = "more than the part announced, without end",
     .answer =
         [](Answer& a) {
           a.Send("HTTP/1.1 206 Partial Content\r\nContent-Range: bytes 168-599/1000\r\n\r\n");
           if (!a.IsRanged()) return a.SendAndClose(a.Body());
           while (a.Peer().Send(std::string(10000, 'x'))) continue;
           a.Close();
         },
     .told = {.status = 206, .upTo = kContentSize, .size = kUnknownSize},
     .exceptions = {{kResumed, kTooMuch}}},
    {.name = "the whole in place of a part",
     .answer = [](Answer& a) { a.SendAndClose("HTTP/1.1 200 OK\r\n" + a.Length() + "\r\n\r\n" + a.Body()); },
     .told = {.status = 200, .upTo = kContentSize},
     .exceptions = {{kResumed, kNoPart}}},
    {.name = "the whole in place of a part, and called one",
     .answer =
         [](Answer& a) {
           a.SendAndClose("HTTP/1.1 200 OK\r\nContent-Range: bytes */1000\r\n" + a.Length() + "\r\n\r\n" + a.Body());
         },
     .told = {.status = 200, .upTo = kContentSize},
     .exceptions = {{kResumed, Refused(kNoRest)}}},
};

TEST(HttpFaults, OfRanges) { EXPECT_EQ(RunCells(CellsOf(kRangeFaults, kAllOps)), 22 * 12U); }

}  // namespace
}  // namespace CorvaneTest
