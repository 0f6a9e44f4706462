#include <gtest/gtest.h>
#include <sys/stat.h>

#include <clocale>
#include <cstdlib>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>

#include "tests/support/Env.h"
#include "tests/support/Gate.h"
#include "tests/support/Request.h"
#include "tests/support/TempDir.h"

namespace CorvaneTest {
namespace {

namespace fs = std::filesystem;
using std::chrono::milliseconds;

// --- TempDir

TEST(TempDir, IsRemovedWithEverythingInIt) {
  fs::path path;
  {
    const TempDir folder;
    path = folder.Path();
    WriteFile(folder / "a/b/c.txt", "text");
    fs::create_symlink("/nowhere", folder / "dangling");
    ASSERT_TRUE(fs::is_directory(path));
  }
  EXPECT_FALSE(fs::exists(path));
}

TEST(TempDir, DoesNotFollowSymbolicLinksWhenRemoving) {
  const TempDir other;
  WriteFile(other / "kept.txt", "kept");
  {
    const TempDir folder;
    fs::create_directory_symlink(other.Path(), folder / "link");
  }
  EXPECT_EQ(ReadFile(other / "kept.txt"), "kept");
}

TEST(TempDir, IsPrivateUnlessAskedOtherwise) {
  const auto othersMayRead = [](const TempDir& folder) {
    return (fs::status(folder.Path()).permissions() & fs::perms::others_read) != fs::perms::none;
  };
  EXPECT_FALSE(othersMayRead(TempDir()));
  EXPECT_TRUE(othersMayRead(TempDir(TempDir::Access::kPublic)));
}

TEST(TempDir, FollowsTmpdir) {
  const TempDir parent;
  const ScopedVariable variable("TMPDIR", parent.Path().string());
  EXPECT_EQ(TempDir().Path().parent_path(), parent.Path());
}

// --- files

TEST(Files, ReadFileGivesBackWhatWriteFileWrote) {
  const TempDir folder;
  for (const std::string& bytes : {std::string(), std::string("a\0b\r\n\xff", 6), MakePattern(300000)}) {
    WriteFile(folder / "x/file", bytes);
    EXPECT_EQ(ReadFile(folder / "x/file"), bytes);
    EXPECT_EQ(FileSize(folder / "x/file"), bytes.size());
  }
}

TEST(Files, FailuresNameThePath) {
  const TempDir folder;
  const auto messageOf = [](auto&& action) -> std::string {
    try {
      action();
    } catch (const std::exception& exception) {
      return exception.what();
    }
    return "no failure";
  };
  EXPECT_NE(messageOf([&] { ReadFile(folder / "missing"); }).find("missing"), std::string::npos);
  EXPECT_NE(messageOf([&] { ReadFile(folder.Path()); }).find(folder.Path().string()), std::string::npos);
  EXPECT_NE(messageOf([&] { WriteFile(folder.Path(), "x"); }).find(folder.Path().string()), std::string::npos);
  EXPECT_NE(messageOf([] { WriteFile("/dev/full", "x"); }).find("/dev/full"), std::string::npos);
}

TEST(MakePattern, IsTheSameEverywhere) {
  EXPECT_EQ(MakePattern(10, 0), "\xaf\xcd\x1d\x7b\x39\xa8\x20\xe2\xf4\x65");
  EXPECT_EQ(MakePattern(0), "");
}

TEST(MakePattern, BeginsTheSameForEveryLength) {
  const std::string whole = MakePattern(100, 7);
  for (std::size_t length = 0; length <= whole.size(); ++length) {
    ASSERT_EQ(MakePattern(length, 7), whole.substr(0, length));
  }
}

TEST(MakePattern, DependsOnTheSeed) { EXPECT_NE(MakePattern(64, 1), MakePattern(64, 2)); }

TEST(MakePattern, HoldsEveryByteValue) {
  const std::string pattern = MakePattern(10000);
  EXPECT_EQ(std::set<char>(pattern.begin(), pattern.end()).size(), 256u);
}

// --- Gate

TEST(Gate, IsClosedUntilOpened) {
  Gate gate;
  EXPECT_FALSE(gate.IsOpen());
  EXPECT_FALSE(gate.Wait(After(milliseconds(10))));
  EXPECT_FALSE(gate.Wait(Clock::now() - std::chrono::seconds(1)));
  gate.Open();
  gate.Open();
  EXPECT_TRUE(gate.IsOpen());
  EXPECT_TRUE(gate.Wait(Clock::now() - std::chrono::seconds(1)));
  EXPECT_TRUE(gate.Wait());
}

TEST(Gate, ShowsWaitersWhatHappenedBefore) {
  Gate gate;
  int written = 0;  // plain on purpose: ThreadSanitizer would object if the gate did not order it
  std::thread opener([&] {
    written = 42;
    gate.Open();
  });
  ASSERT_TRUE(gate.Wait());
  EXPECT_EQ(written, 42);
  opener.join();
}

TEST(Gate, ReleasesSeveralWaiters) {
  Gate gate;
  std::atomic<int> released{0};
  std::vector<std::thread> waiters;
  for (int i = 0; i < 4; ++i) waiters.emplace_back([&] { released += gate.Wait() ? 1 : 0; });
  gate.Open();
  for (std::thread& waiter : waiters) waiter.join();
  EXPECT_EQ(released, 4);
}

// --- Request

struct HeadCase {
  std::string_view name, head, method, target, version;
  std::size_t headers;
};
constexpr HeadCase kHeadCases[] = {
    {"usual", "GET /a?b HTTP/1.1\r\nHost: x\r\nA: b\r\n\r\n", "GET", "/a?b", "HTTP/1.1", 2},
    {"no headers", "GET / HTTP/1.0\r\n\r\n", "GET", "/", "HTTP/1.0", 0},
    {"blank in the target", "GET /a b HTTP/1.1\r\n\r\n", "GET", "/a b", "HTTP/1.1", 0},
    {"no version", "GET /\r\n\r\n", "GET", "/", "", 0},
    {"method only", "GET\r\n\r\n", "GET", "", "", 0},
    {"nothing", "\r\n\r\n", "", "", "", 0},
    {"line without colon", "GET / HTTP/1.1\r\njunk\r\nA: b\r\n\r\n", "GET", "/", "HTTP/1.1", 1},
};

TEST(Request, ParsesTheHead) {
  for (const HeadCase& c : kHeadCases) {
    const Request request = ParseRequestHead(c.head);
    EXPECT_EQ(request.method, c.method) << c.name;
    EXPECT_EQ(request.target, c.target) << c.name;
    EXPECT_EQ(request.version, c.version) << c.name;
    EXPECT_EQ(request.headers.size(), c.headers) << c.name;
    EXPECT_EQ(request.raw, c.head) << c.name;
  }
}

TEST(Request, FindsHeadersWhateverTheirCase) {
  const Request request = ParseRequestHead("GET /d/f?q=/x HTTP/1.1\r\nX-One: \t1 \r\nx-two:\r\nX-ONE: 2:3\r\n\r\n");
  EXPECT_EQ(request.Header("x-oNE"), "1");
  EXPECT_EQ(request.Header("X-Two"), "");
  EXPECT_EQ(request.Header("X-Three"), std::nullopt);
  EXPECT_EQ(request.Header("X-On"), std::nullopt);
  EXPECT_EQ(request.CountHeaders("X-One"), 2u);
  ASSERT_EQ(request.headers.size(), 3u);
  EXPECT_EQ(request.headers[2].value, "2:3");
  EXPECT_EQ(request.Path(), "/d/f");
}

// --- environment

TEST(PrepareTestProcess, RemovesProxies) {
  const ScopedVariable lower("http_proxy", "http://127.0.0.1:1");
  const ScopedVariable upper("HTTPS_PROXY", "http://127.0.0.1:1");
  PrepareTestProcess();
  EXPECT_EQ(std::getenv("http_proxy"), nullptr);
  EXPECT_EQ(std::getenv("HTTPS_PROXY"), nullptr);
}

TEST(PrepareTestProcess, MakesTheLocaleUtf8) {
  const ScopedLocale former("C");
  PrepareTestProcess();
  wchar_t wide = 0;
  EXPECT_EQ(std::mbtowc(&wide, "\xc3\xa4", 2), 2);
  EXPECT_EQ(wide, L'\u00e4');
}

TEST(ScopedLocale, RestoresTheFormerLocale) {
  const std::string before = std::setlocale(LC_ALL, nullptr);
  {
    const ScopedLocale locale("POSIX");
    EXPECT_STREQ(std::setlocale(LC_ALL, nullptr), "C");
  }
  EXPECT_EQ(std::setlocale(LC_ALL, nullptr), before);
}

TEST(ScopedLocale, RefusesALocaleThatIsMissing) { EXPECT_THROW(ScopedLocale("xx_XX.none"), std::runtime_error); }

TEST(ScopedVariable, RestoresTheFormerState) {
  const ScopedVariable outer("CORVANE_TEST_VARIABLE", "outer");
  {
    const ScopedVariable inner("CORVANE_TEST_VARIABLE", std::nullopt);
    EXPECT_EQ(std::getenv("CORVANE_TEST_VARIABLE"), nullptr);
    {
      const ScopedVariable innermost("CORVANE_TEST_VARIABLE", "");
      EXPECT_STREQ(std::getenv("CORVANE_TEST_VARIABLE"), "");
    }
    EXPECT_EQ(std::getenv("CORVANE_TEST_VARIABLE"), nullptr);
  }
  EXPECT_STREQ(std::getenv("CORVANE_TEST_VARIABLE"), "outer");
}

}  // namespace
}  // namespace CorvaneTest
