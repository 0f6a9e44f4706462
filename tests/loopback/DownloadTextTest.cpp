#include <gmock/gmock.h>

#include <string>

#include "tests/loopback/TransferTesting.h"
#include "tests/support/ScriptedServer.h"
#include "tests/support/TempDir.h"

// How the bytes of bodies and headers become text.
namespace CorvaneTest {
namespace {

using namespace Corvane;
using testing::AnyOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

struct TextCase {
  const char* name;
  std::string bytes;
  std::wstring text;
};

const TextCase kTextCases[] = {
    {"ASCII", "abc\r\n\t", L"abc\r\n\t"},
    {"UTF-8 of two, three and four bytes", "\xC3\xA4 \xE2\x82\xAC \xF0\x9F\x9A\x80", L"\u00E4 \u20AC \U0001F680"},
    {"a NUL in the middle", std::string("a\0b", 3), std::wstring(L"a\0b", 3)},
    {"Latin-1", "caf\xE9 ol\xE9", L"caf\uFFFD ol\uFFFD"},
    {"a character cut off at the end", "abc\xE2\x82", L"abc\uFFFD"},
    {"a surrogate", "\xED\xA0\x80", L"\uFFFD\uFFFD\uFFFD"},
    {"an overlong slash", "\xC0\xAF", L"\uFFFD\uFFFD"},
    {"a byte order mark stays", "\xEF\xBB\xBFx", L"\uFEFFx"},
    {"a lone continuation byte", "\x80", L"\uFFFD"},
};

TEST(ZTransferDownload, DecodesTheBodyFromUtf8) {
  for (const TextCase& c : kTextCases) {
    SCOPED_TRACE(c.name);
    ScriptedServer server(KeepAlive(Status(200, c.bytes)));
    ZTransfer transfer;
    ZString result;
    EXPECT_THAT(transfer.Download(Wide(server.Url()), result), IsCode(TRANSFER_S_FINISHED));
    EXPECT_EQ(result.Str(), c.text);
    EXPECT_EQ(transfer.GetDownloadSize(), c.bytes.size());
  }
}

// Each byte arrives in a chunk, and so in a block, of its own.
TEST(ZTransferDownload, DecodesCharactersThatArriveInPieces) {
  ContentOptions options;
  options.framing = ContentOptions::Framing::kChunked;
  options.chunkSize = 1;
  for (const TextCase& c : kTextCases) {
    SCOPED_TRACE(c.name);
    ScriptedServer server(KeepAlive(Content(c.bytes, options)));
    ZTransfer transfer;
    ZString result;
    EXPECT_THAT(transfer.Download(Wide(server.Url()), result), IsCode(TRANSFER_S_FINISHED));
    EXPECT_EQ(result.Str(), c.text);
  }
}

TEST(ZTransferDownload, DecodesArbitraryBytesWithoutFailing) {
  const std::string bytes = MakePattern(300000);
  ScriptedServer server(KeepAlive(Content(bytes)));
  ZTransfer transfer;
  ZString result;
  EXPECT_THAT(transfer.Download(Wide(server.Url()), result), IsCode(TRANSFER_S_FINISHED));
  EXPECT_EQ(result, Wide(bytes));
  EXPECT_EQ(transfer.GetDownloadSize(), bytes.size());
}

TEST(ZTransferDownload, HandsBackALargeTextExactly) {
  std::string line, text;
  for (int i = 0; text.size() < 4000000; ++i) text += "line " + std::to_string(i) + " \xC3\xA4\xE2\x82\xAC\n";
  ScriptedServer server(KeepAlive(Content(text)));
  ZTransfer transfer;
  ZString result;
  EXPECT_THAT(transfer.Download(Wide(server.Url()), result), IsCode(TRANSFER_S_FINISHED));
  EXPECT_TRUE(Narrow(result) == text);  // too long to print
}

// The body's memory is used again by the next operation.
TEST(ZTransferDownload, HandsBackNothingOfALongerBodyBefore) {
  ScriptedServer server(KeepAlive(Routes({{"/long", Status(200, std::string(100000, 'x'))},
                                          {"/short", Status(200, "short")},
                                          {"/empty", Status(200, "")}})));
  ZTransfer transfer;
  ZString result;
  ASSERT_THAT(transfer.Download(Wide(server.Url("/long")), result), IsCode(TRANSFER_S_FINISHED));
  ASSERT_EQ(result.Length(), 100000u);
  ASSERT_THAT(transfer.Download(Wide(server.Url("/short")), result), IsCode(TRANSFER_S_FINISHED));
  EXPECT_EQ(Narrow(result), "short");
  ASSERT_THAT(transfer.Download(Wide(server.Url("/empty")), result), IsCode(TRANSFER_S_FINISHED));
  EXPECT_EQ(Narrow(result), "");
}

// --- headers

TEST(ZTransferDownload, DecodesHeaderLinesFromUtf8) {
  ScriptedServer server(KeepAlive(Status(200, "x", {{"X-Utf8", "\xC3\xA4"}, {"X-Latin1", "caf\xE9!"}})));
  ZTransfer transfer;
  ZString result;
  ASSERT_THAT(transfer.Download(Wide(server.Url()), result), IsCode(TRANSFER_S_FINISHED));
  ZString header;
  ASSERT_THAT(transfer.GetHeader(header), IsCode(BASE_S_OK));
  EXPECT_THAT(header.Str(), HasSubstr(L"X-Utf8: \u00E4\r\n"));
  EXPECT_THAT(header.Str(), HasSubstr(L"X-Latin1: caf\uFFFD!\r\n"));
}

TEST(ZTransferDownload, TakesAHeaderOf250KilobytesInManyLines) {
  constexpr std::size_t kSize = 250000;
  ScriptedServer server(KeepAlive(HeadOfSize(kSize, "the body")));
  ZTransfer transfer;
  ZString result;
  EXPECT_THAT(transfer.Download(Wide(server.Url()), result), IsCode(TRANSFER_S_FINISHED));
  EXPECT_EQ(Narrow(result), "the body");
  const std::string header = HeaderOf(transfer);
  EXPECT_EQ(header.size(), kSize);
  EXPECT_EQ(header.substr(0, 17), "HTTP/1.1 200 OK\r\n");
  EXPECT_EQ(header.substr(header.size() - 4), "\r\n\r\n");
}

// libcurl limits all header lines of an answer together to 300 KB since 8.3, and distributions have taken that limit into
// older releases. We have none of our own.
TEST(ZTransferDownload, TakesAHeaderOfOneMegabyteAsFarAsLibcurlDoes) {
  constexpr std::size_t kSize = 1 << 20;
  ScriptedServer server(KeepAlive(HeadOfSize(kSize, "the body")));
  ZTransfer transfer;
  ZString result;
  const ZResult code = transfer.Download(Wide(server.Url()), result);
  const std::string header = HeaderOf(transfer);
  EXPECT_EQ(header.substr(0, 17), "HTTP/1.1 200 OK\r\n");
  if (!IsFailure(code)) {
    EXPECT_EQ(header.size(), kSize);
    EXPECT_EQ(Narrow(result), "the body");
    return;
  }
  EXPECT_THAT(code, AnyOf(IsCode(CurlFailure(kReceiveError)), IsCode(CurlFailure(kTooLarge))));
  EXPECT_GT(header.size(), 250000u);
  EXPECT_EQ(header.substr(header.size() - 2), "\r\n");  // whole lines
  EXPECT_EQ(Narrow(result), "");
  EXPECT_THAT(ErrorOf(transfer), Not(IsEmpty()));
}

TEST(ZTransferDownload, RefusesAHeaderLineOfOneMegabyte) {
  ScriptedServer server(KeepAlive(Status(200, "x", {{"X-Long", std::string(1 << 20, 'x')}})));
  ZTransfer transfer;
  ZString result;
  const ZResult code = transfer.Download(Wide(server.Url()), result);
  EXPECT_THAT(code, AnyOf(IsCode(CurlFailure(kOutOfMemory)), IsCode(CurlFailure(kTooLarge))));
  EXPECT_THAT(CauseOf(transfer), IsCode(code));
  EXPECT_EQ(HeaderOf(transfer), "HTTP/1.1 200 OK\r\n");
  EXPECT_EQ(Narrow(result), "");
}

}  // namespace
}  // namespace CorvaneTest
