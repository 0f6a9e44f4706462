// Request headers as the user gives them.

#include <gmock/gmock.h>

#include <fcntl.h>
#include <sys/stat.h>

#include <fstream>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "apps/corvane/Failure.h"
#include "apps/corvane/Files.h"
#include "apps/corvane/HeaderFile.h"
#include "apps/corvane/Text.h"
#include "tests/support/Env.h"
#include "tests/support/TempDir.h"

namespace CorvaneCli {
namespace {

using Corvane::ZString;
using CorvaneTest::TempDir;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

using namespace std::string_literals;

class HeaderFile : public testing::Test {
 protected:
  std::string Write(const std::string& text) const {
    std::ofstream(m_path, std::ios::binary) << text;
    return m_path;
  }

  std::vector<std::string> Read(const std::string& text) const {
    std::vector<std::string> headers;
    for (const ZString& header : ReadHeaderFile(Write(text))) headers.push_back(ToUtf8(header));
    return headers;
  }

  static std::string UsageError(const std::function<void()>& act) {
    try {
      act();
    } catch (const Failure& failure) {
      EXPECT_EQ(failure.Code(), ExitCode::kUsage);
      return failure.what();
    }
    ADD_FAILURE() << "nothing was refused";
    return {};
  }

  [[nodiscard]] std::string ErrorFor(const std::string& text) const {
    return UsageError([&] { static_cast<void>(Read(text)); });
  }

  TempDir m_folder;
  std::string m_path = m_folder / "headers";
};

TEST_F(HeaderFile, HoldsOneHeaderOnEachLine) {
  EXPECT_THAT(Read("Accept: text/html\nAuthorization: Bearer s3cret\n"),
              ElementsAre("Accept: text/html", "Authorization: Bearer s3cret"));
  EXPECT_THAT(Read("A:1\r\n\r\n# B: 2\n   \nC:\t3  \nD:"), ElementsAre("A: 1", "C: 3", "D: "));
  EXPECT_THAT(Read("X: a:b\tc\nY: gr\xC3\xBC"), ElementsAre("X: a:b\tc", "Y: gr\xC3\xBC"));
  EXPECT_THAT(Read("\xEF\xBB\xBFX: 1\n"), ElementsAre("X: 1"));
  EXPECT_THAT(Read(""), IsEmpty());
  EXPECT_THAT(Read("\n#\n\r\n"), IsEmpty());
}

TEST_F(HeaderFile, IsUtf8WhateverTheLocaleIs) {
  const CorvaneTest::ScopedLocale locale("C");
  EXPECT_THAT(Read("Y: gr\xC3\xBC"), ElementsAre("Y: gr\xC3\xBC"));
}

struct BadLine {
  std::string line;
  const char* problem;
};

TEST_F(HeaderFile, NamesTheLineThatIsNoHeaderAndShowsNoValue) {
  const BadLine lines[] = {
      {"s3cret", "there is no colon in it; give NAME: VALUE"},
      {": s3cret", "there is no name before the colon; give NAME: VALUE"},
      {"My Name: s3cret", "no name of a header"},
      {"Name : s3cret", "no name of a header"},
      {" Name: s3cret", "no name of a header"},
      {"N\xC3\xBC: s3cret", "no name of a header"},
      {"(N): s3cret", "no name of a header"},
      {"N: s3cret\rX: y", "control character"},
      {"N: s3cret\x01", "control character"},
      {"N: s3cret\x7F", "control character"},
      {"N: s3cret\xC2\x85", "control character"},
      {"N: s3\0cret"s, "control character"},
      {"N: s3cret\xFF", "it is not UTF-8; convert the file"},
      {"Range: s3cret", "the program sends Range by itself; leave it out, or continue a file with --resume"},
      {"if-range: s3cret", "the program sends If-Range by itself"},
      {"USER-AGENT: s3cret", "the program sends User-Agent by itself; use --user-agent"},
      {"Content-length: s3cret", "the program sends Content-Length by itself; leave it out"},
      {"Transfer-Encoding: s3cret", "the program sends Transfer-Encoding by itself; leave it out"},
      {"Connection:s3cret", "the program sends Connection by itself; leave it out"},
  };
  for (const BadLine& bad : lines) {
    const std::string error = ErrorFor("A: 1\n# comment\r\n\n" + bad.line + "\nB: 2\n");
    EXPECT_THAT(error, AllOf(HasSubstr("line 4 of " + m_path), HasSubstr(bad.problem), Not(HasSubstr("s3"))))
        << bad.line;
  }
}

TEST_F(HeaderFile, IsAtMostOneMebibyteLong) {
  const std::string begin = "A: 1\n#";
  const std::string most = begin + std::string(1048576 - begin.size(), 'x');
  EXPECT_THAT(Read(most), ElementsAre("A: 1"));
  EXPECT_THAT(ErrorFor(most + "x"),
              HasSubstr("cannot use the header file " + m_path + ": it is larger than 1 MiB; give"));
}

TEST_F(HeaderFile, IsRefusedWhenItHasNoEnd) {
  EXPECT_THAT(UsageError([] { static_cast<void>(ReadHeaderFile("/dev/zero")); }), HasSubstr("larger than 1 MiB"));
}

TEST_F(HeaderFile, IsRefusedWhenItCannotBeRead) {
  const std::string missing = UsageError([&] { static_cast<void>(ReadHeaderFile(m_folder / "missing")); });
  EXPECT_EQ(missing, "cannot read the header file " + std::string(m_folder / "missing") +
                         ": No such file or directory; give a file with a line \"NAME: VALUE\" for each header");
  EXPECT_THAT(UsageError([] { static_cast<void>(ReadHeaderFile("/")); }), HasSubstr("Is a directory"));
}

TEST_F(HeaderFile, MayBeAPipe) {
  ASSERT_EQ(mkfifo(m_path.c_str(), 0600), 0);
  std::thread writer([&] {
    const Descriptor pipe = Open(m_path, O_WRONLY);
    EXPECT_EQ(WriteAll(pipe.Get(), "A: 1\nB"), 0);
    EXPECT_EQ(WriteAll(pipe.Get(), ": 2\n"), 0);
  });
  const std::vector<ZString> headers = ReadHeaderFile(m_path);
  writer.join();
  EXPECT_THAT(headers, ElementsAre(ZString(L"A: 1"), ZString(L"B: 2")));
}

TEST_F(HeaderFile, HasTheSameRulesAsTheOption) {
  EXPECT_EQ(CheckedHeader("--header", "Accept:text/html"), ZString(L"Accept: text/html"));
  EXPECT_EQ(CheckedHeader("--header", "X: gr\xC3\xBC"), ZString(L"X: gr\u00FC"));
  EXPECT_EQ(CheckedHeader("--header", "X:"), ZString(L"X: "));
  for (const std::string& value : {""s, "s3cret"s, ": s3cret"s, "a b: s3cret"s, "N: s3cret\r\nX: y"s, "N: s3cret\n"s,
                                   "# N: s3cret"s, "Range: s3cret"s, "N: s3cret\x1b"s}) {
    const std::string error = UsageError([&] { static_cast<void>(CheckedHeader("--header", value)); });
    EXPECT_THAT(error,
                AllOf(HasSubstr("cannot use the value of --header: "), HasSubstr("; "), Not(HasSubstr("s3cret"))));
  }
}

TEST_F(HeaderFile, RefusesAnOptionThatTheLocaleCannotExpress) {
  EXPECT_THAT(UsageError([] { static_cast<void>(CheckedHeader("--header", "N: s3cret\xFF")); }),
              AllOf(HasSubstr("the locale cannot express it; set LC_ALL=C.UTF-8"), Not(HasSubstr("s3cret"))));
}

TEST_F(HeaderFile, TakesEachNameOnce) {
  RefuseRepeatedHeaders({});
  RefuseRepeatedHeaders({L"A: 1", L"B: 1"});
  EXPECT_EQ(UsageError([] {
              RefuseRepeatedHeaders({L"X-A: s3cret", L"B: 1", L"x-a: 2"});
            }),
            "the header x-a is given twice; leave one of them out");
}

}  // namespace
}  // namespace CorvaneCli
