#include <gmock/gmock.h>

#include <filesystem>
#include <string>

#include "tests/loopback/TransferTesting.h"
#include "tests/support/Daemons.h"
#include "tests/support/Process.h"
#include "tests/support/TempDir.h"

// Posts to Apache, whose script tells what came.
namespace CorvaneTest {
namespace {

using namespace Corvane;

namespace fs = std::filesystem;

constexpr const char* kScript =
    "#!/bin/sh\n"
    "printf 'Content-Type: text/plain\\r\\n\\r\\n'\n"
    "printf '%s|%s|%s|' \"$REQUEST_METHOD\" \"$CONTENT_TYPE\" \"$CONTENT_LENGTH\"\n"
    "exec /usr/bin/md5sum\n";

std::string Md5Of(const std::string& bytes) {
  ProgramOptions options;
  options.input = bytes;
  const ProgramResult end = RunProgram({"/usr/bin/md5sum"}, options);
  EXPECT_EQ(end.exitCode, 0) << end.Describe();
  return end.out;
}

class ZTransferPostToApache : public testing::Test {
 protected:
  ZTransferPostToApache() {
    WriteFile(m_server.RootDir() / "echo.cgi", kScript);
    fs::permissions(m_server.RootDir() / "echo.cgi", fs::perms(0755));
    WriteFile(m_server.RootDir() / "page.html", "a page");
  }

  ZString Url() const { return Wide(m_server.Url("/echo.cgi")); }

  static std::string EchoOf(const std::string& body) {
    return "POST|application/x-www-form-urlencoded|" + std::to_string(body.size()) + "|" + Md5Of(body);
  }

  TempDir m_folder;
  ApacheServer m_server{{.cgi = true}};
  ZTransfer m_transfer;
  ZString m_answer;
};

TEST_F(ZTransferPostToApache, SendsFieldsAndData) {
  EXPECT_THAT(m_transfer.Post(Url(), L"a b", L"1&\u00E9", m_answer), IsCode(TRANSFER_S_FINISHED)) << m_server.Log();
  EXPECT_EQ(Narrow(m_answer), EchoOf("a b=1&\xC3\xA9"));
  const ZMap<ZString, ZString, ZLtstr> fields{{L"b", L"2"}, {L"a", L"1"}};
  EXPECT_THAT(m_transfer.Post(Url(), fields, m_answer), IsCode(TRANSFER_S_FINISHED));
  EXPECT_EQ(Narrow(m_answer), EchoOf("a=1&b=2"));
  EXPECT_THAT(m_transfer.Post(Url(), {}, m_answer), IsCode(TRANSFER_S_FINISHED));
  EXPECT_EQ(Narrow(m_answer), EchoOf(""));
  const std::wstring large(3000000, L'\u20AC');
  std::string bytes;
  for (std::size_t i = 0; i < large.size(); ++i) bytes += "\xE2\x82\xAC";
  EXPECT_THAT(m_transfer.PostData(Url(), ZString(large), m_answer), IsCode(TRANSFER_S_FINISHED));
  EXPECT_EQ(Narrow(m_answer), EchoOf(bytes));
}

TEST_F(ZTransferPostToApache, SendsFiles) {
  for (const std::size_t size : {0u, 1u, 100000u, 5000000u}) {
    const std::string bytes = MakePattern(size);
    WriteFile(m_folder / "input", bytes);
    EXPECT_THAT(m_transfer.PostFile(Url(), WidePath(m_folder / "input"), WidePath(m_folder / "output")),
                IsCode(TRANSFER_S_FINISHED))
        << m_server.Log();
    EXPECT_TRUE(FileHolds(m_folder / "output", EchoOf(bytes)));
    EXPECT_THAT(m_transfer.PostFile(Url(), WidePath(m_folder / "input")), IsCode(TRANSFER_S_FINISHED));
  }
}

TEST_F(ZTransferPostToApache, ReportsWhatTheServerRefuses) {
  EXPECT_THAT(m_transfer.PostData(Wide(m_server.Url("/missing")), L"x", m_answer), IsCode(TRANSFER_E_POST));
  EXPECT_EQ(ErrorOf(m_transfer), "Post failed, " + m_server.Url("/missing"));
  EXPECT_THAT(Narrow(m_answer), testing::HasSubstr("404 Not Found"));
  EXPECT_THAT(HeaderOf(m_transfer), testing::StartsWith("HTTP/1.1 404 Not Found\r\n"));
  EXPECT_THAT(m_transfer.PostData(Url(), L"x", m_answer), IsCode(TRANSFER_S_FINISHED));
  EXPECT_EQ(Narrow(m_answer), EchoOf("x"));
}

}  // namespace
}  // namespace CorvaneTest
