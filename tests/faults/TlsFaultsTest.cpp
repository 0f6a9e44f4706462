#include "tests/faults/HttpFaults.h"

// What can be wrong with TLS: in place of the handshake, with the certificate, and within the content.
namespace CorvaneTest {
namespace {

constexpr unsigned int kNoTls = 35;

const Conditions kVerifying = {.verifies = true};
const Ops kOpsOnFirstConnection = Without({Op::kTreeFile}, kAllOps);

// Reads the client's first message, and answers this.
HttpFault Handshake(const std::string& name, const std::string& bytes, const std::string& text) {
  return {.name = name,
          .answer =
              [bytes](Answer& a) {
                a.Peer().ReadSome();
                a.Peer().Send(bytes);
                a.Close();
              },
          .told = {.curl = kNoTls, .text = text},
          .conditions = kVerifying,
          .isAtAccept = true};
}

// The texts are OpenSSL's, and differ between its versions.
const std::vector<HttpFault> kHandshakeFaults = {
    Handshake("plain text on the port of TLS", "HTTP/1.1 400 Bad Request\r\n\r\n", "*wrong version number*"),
    Handshake("an alert", std::string("\x15\x03\x03\x00\x02\x02\x28", 7), "*alert handshake failure*"),
    Handshake("an alert that is only a warning, and the end", std::string("\x15\x03\x03\x00\x02\x01\x00", 7), "*"),
    Handshake("the end after the first message", "", "*SSL*"),
    Handshake("half a message", std::string("\x16\x03\x03\x00\x40\x02\x00", 7), "*SSL*"),
    Handshake("a message of random bytes", std::string("\x16\x03\x03\x00\x04\xff\xff\xff\xff", 9), "*SSL*"),
    {.name = "the end before the first message",
     .answer =
         [](Answer& a) {
           a.Peer().HalfClose();
           a.Peer().WaitUntilPeerCloses();
           a.Close();
         },
     .told = {.curl = kNoTls, .text = "*SSL*"},
     .conditions = kVerifying,
     .isAtAccept = true},
    {.name = "a reset after the first message",
     .answer =
         [](Answer& a) {
           a.Peer().ReadSome();
           a.Peer().Reset();
         },
     .told = {.curl = kNoTls, .text = "*Connection reset by peer*"},
     .conditions = kVerifying,
     .isAtAccept = true},
};

TEST(TlsFaults, OfTheHandshake) {
  EXPECT_EQ(RunCells(CellsOf(kHandshakeFaults, kOpsOnFirstConnection, Tls::kInterrupted, &ThePki().server)), 8 * 11U);
}

const std::vector<HttpFault> kSilentHandshakes = {
    {.name = "silence in place of a handshake",
     .answer =
         [](Answer& a) {
           a.Peer().ReadSome();
           a.Stall();
         },
     .told = {.curl = kTimedOut, .text = "*time*out*"},
     .patience = Patience::kTimeout,
     .conditions = kVerifying,
     .isAtAccept = true},
    {.name = "silence within a handshake",
     .answer =
         [](Answer& a) {
           a.Peer().ReadSome();
           a.SendAndStall(std::string("\x16\x03\x03\x00\x40\x02\x00", 7));
         },
     .told = {.curl = kTimedOut, .text = "*time*out*"},
     .patience = Patience::kTimeout,
     .conditions = kVerifying,
     .isAtAccept = true},
};

TEST(TlsFaults, OfASilentHandshake) {
  EXPECT_EQ(RunCells(CellsOf(kSilentHandshakes, kOpsOnFirstConnection, Tls::kInterrupted, &ThePki().server)), 2 * 11U);
}

// --- certificates

HttpFault Certificate(const std::string& name, const std::string& text, const Conditions& conditions = kVerifying) {
  return {.name = name,
          .answer = [](Answer& a) { a.SendAndClose(a.Head({a.Length()}) + a.Body()); },
          .told = {.curl = kPeerNotVerified, .text = text},
          .conditions = conditions};
}

std::size_t RunDistrusted(const HttpFault& fault, const TlsIdentity& identity) {
  return RunCells(CellsOf({fault}, kOpsOnFirstConnection, Tls::kDistrusted, &identity));
}

TEST(TlsFaults, OfTheCertificate) {
  const Pki& pki = ThePki();
  const HttpFault wrongHost =
      Certificate("a certificate of another host",
                  "SSL: no alternative certificate subject name matches target host name 'localhost'");
  const HttpFault expired = Certificate("an expired certificate", "SSL certificate problem: certificate has expired");
  const HttpFault early =
      Certificate("a certificate from tomorrow on", "SSL certificate problem: certificate is not yet valid");
  const HttpFault selfSigned =
      Certificate("a certificate that vouches for itself", "SSL certificate problem: self*signed certificate");
  const HttpFault unknown = Certificate("a certificate of an authority that is not trusted",
                                        "SSL certificate problem: unable to get local issuer certificate",
                                        {.verifies = true, .trustsOther = true});
  EXPECT_EQ(RunDistrusted(wrongHost, pki.wrongHost), 11U);
  EXPECT_EQ(RunDistrusted(expired, pki.expired), 11U);
  EXPECT_EQ(RunDistrusted(early, pki.notYetValid), 11U);
  EXPECT_EQ(RunDistrusted(selfSigned, pki.selfSigned), 11U);
  EXPECT_EQ(RunDistrusted(unknown, pki.server), 11U);
}

// Nothing is checked until somebody asks for it, but by a tree.
TEST(TlsFaults, OfACertificateThatNobodyLooksAt) {
  HttpFault fault = Certificate("an expired certificate that nobody looks at", "", {});
  fault.told = {.status = 200, .upTo = kContentSize};
  const std::vector<HttpFault> faults = {fault};
  EXPECT_EQ(RunCells(CellsOf(faults, Without(kTrees, kAllOps), Tls::kDistrusted, &ThePki().expired)), 10U);
}

// --- inside

std::function<void(Answer&)> CutOff(const std::function<std::string(const Answer&)>& bytes) {
  return [bytes](Answer& a) {
    a.Send(bytes(a));
    a.Peer().CutOff();
  };
}

const Told kNothing = {.curl = 52, .text = "Empty reply from server"};
const Told kCutOff = {
    .status = 200, .curl = kPartialFile, .text = "transfer closed with 400 bytes remaining to read", .upTo = kCut};

// To libcurl an end without "close_notify" is an end like any other. Where a length or a last chunk was to come it is too early; without
// either nobody can tell.
const std::vector<HttpFault> kContentFaults = {
    {.name = "cut off in place of an answer",
     .answer = CutOff([](const Answer&) { return std::string(); }),
     .told = kNothing,
     .conditions = kVerifying},
    {.name = "closed in place of an answer",
     .answer = [](Answer& a) { a.Close(); },
     .told = kNothing,
     .conditions = kVerifying},
    {.name = "cut off within the content",
     .answer = CutOff([](const Answer& a) { return a.Head({a.Length()}) + a.Body(kCut); }),
     .told = kCutOff,
     .conditions = kVerifying},
    {.name = "closed within the content",
     .answer = [](Answer& a) { a.SendAndClose(a.Head({a.Length()}) + a.Body(kCut)); },
     .told = kCutOff,
     .conditions = kVerifying},
    {.name = "reset within the content",
     .answer = [](Answer& a) { a.SendAndReset(a.Head({a.Length()}) + a.Body(kCut)); },
     .told = {.status = 200, .curl = kReceiveError, .text = "*Connection reset by peer*", .upTo = kCut},
     .conditions = kVerifying},
    {.name = "cut off after content of unknown length",
     .answer = CutOff([](const Answer& a) { return a.Head({}) + a.Body(); }),
     .told = {.status = 200, .upTo = kContentSize, .size = kUnknownSize},
     .conditions = kVerifying},
    {.name = "closed after content of unknown length",
     .answer = [](Answer& a) { a.SendAndClose(a.Head({}) + a.Body()); },
     .told = {.status = 200, .upTo = kContentSize, .size = kUnknownSize},
     .conditions = kVerifying},
    {.name = "cut off after the content",
     .answer = CutOff([](const Answer& a) { return a.Head({a.Length()}) + a.Body(); }),
     .told = {.status = 200, .upTo = kContentSize},
     .conditions = kVerifying},
    {.name = "cut off within the chunks",
     .answer = CutOff([](const Answer& a) { return a.Head({"Transfer-Encoding: chunked"}) + a.Chunk(kCut); }),
     .told = {.status = 200,
              .curl = kPartialFile,
              .text = "transfer closed with outstanding read data remaining",
              .upTo = kCut,
              .size = kUnknownSize},
     .conditions = kVerifying},
};

TEST(TlsFaults, OfTheContent) {
  EXPECT_EQ(RunCells(CellsOf(kContentFaults, kAllOps, Tls::kUsed, &ThePki().server)), 9 * 12U);
}

const std::vector<HttpFault> kSilences = {
    {.name = "silence in place of an answer over TLS",
     .answer = [](Answer& a) { a.Stall(); },
     .told = {.curl = kTimedOut, .text = "Operation timed out after * milliseconds with 0 bytes received"},
     .exceptions = {{kTrees, {.curl = kTimedOut, .text = "No byte came for * seconds."}}},
     .patience = Patience::kTimeout,
     .conditions = kVerifying},
    {.name = "silence within the content over TLS",
     .answer = [](Answer& a) { a.SendAndStall(a.Head({a.Length()}) + a.Body(kCut)); },
     .told = {.status = 200,
              .curl = kTimedOut,
              .text = "Operation timed out after * milliseconds with * out of * bytes received",
              .upTo = kCut},
     .exceptions = {{kTrees, {.status = 200, .curl = kTimedOut, .text = "No byte came for * seconds.", .upTo = kCut}}},
     .patience = Patience::kTimeout,
     .conditions = kVerifying},
};

TEST(TlsFaults, OfSilence) { EXPECT_EQ(RunCells(CellsOf(kSilences, kAllOps, Tls::kUsed, &ThePki().server)), 2 * 12U); }

}  // namespace
}  // namespace CorvaneTest
