// Pages that are made to cost time or memory. A reader that looks at a byte more than a fixed number of times does not
// come to an end here.

#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "tests/tree/PageTesting.h"

namespace CorvaneTest {
namespace {

using Corvane::Page;

constexpr std::size_t kLength = 2U << 20U;

std::string Repeated(std::string_view text, std::size_t length = kLength) {
  std::string repeated;
  repeated.reserve(length + text.size());
  while (repeated.size() < length) repeated += text;
  return repeated;
}

Page Read(const std::string& page, std::size_t mostEntries = kAnyNumber) {
  return Corvane::ReadHtmlPage(page, "http://files.example/pub/dir/", "", mostEntries);
}

TEST(PageHostile, MarksWithoutAnEnd) {
  for (const char* text : {"<",          "<!",        "<!-", "</", "<a",  "<a ",       "<a href", "<a href=",
                           "<a href=\"", "<a href='", "&",   "&#", "&#x", "<a href=x", "<script", "<script></script",
                           "<title><",   "<!--<",     "<?<", "a>", "\""}) {
    const Page page = Read(Repeated(text));
    EXPECT_FALSE(page.isListing) << text;
    EXPECT_TRUE(page.entries.empty()) << text;
  }
}

TEST(PageHostile, SixtyFourMegabytesOfMarks) { EXPECT_FALSE(Read(Repeated("<", 64U << 20U)).isListing); }

TEST(PageHostile, ManyOfOneThing) {
  for (const char* text :
       {"<a>", "</a>", "<!---->", "<title></title>", "<script></script>", "<h1>Index of x", "<base href=\"http://[\">",
        "<a href=\"\">", "<a href=\"x\">", "<a href=x></a>   ", "<a href=\"&amp;&amp;&amp;\">&amp;&amp;"}) {
    EXPECT_LE(Read(Repeated(text)).entries.size(), 1U) << text;
  }
}

TEST(PageHostile, ManyLinksForTheSlowParser) {
  const Page page = Read(Repeated("<a href=\"a/b\"><a href=\"c/d\">"));
  EXPECT_GT(page.leftOut, 100000U);
  EXPECT_EQ(page.leftOutNames.size(), Corvane::kMostLeftOutPageNames);
}

TEST(PageHostile, ALongName) {
  const std::string name(1U << 20U, 'x');
  const Page page = Read("<a href=\"" + name + "\">" + name + "</a>");
  EXPECT_TRUE(page.entries.empty());
  EXPECT_EQ(page.leftOutNames, std::vector<std::string>{name.substr(0, 255)});
  EXPECT_EQ(Read("<a href=\"" + name + "/a\">").leftOut, 1U);
  EXPECT_EQ(Read("<a href=\"" + name + ":a\">").leftOut, 0U);  // a scheme
  EXPECT_EQ(ReadMlsdLines("type=file; " + name).leftOutNames, std::vector<std::string>{name.substr(0, 255)});
  EXPECT_EQ(ReadListLines("-rw-r--r-- 1 u g 12 Nov 20 10:00 " + name).leftOutNames,
            std::vector<std::string>{name.substr(0, 255)});
}

TEST(PageHostile, ALongPath) {
  constexpr std::size_t kPathLength = 1U << 17U;
  EXPECT_EQ(Read("<a href=\"" + Repeated("../x/", kPathLength) + "\">").leftOut, 1U);
  EXPECT_EQ(Read("<a href=\"" + Repeated("./", kPathLength) + "a\">").entries.size(), 1U);
}

TEST(PageHostile, ListingsInNoFormat) {
  for (const char* text : {"\n", "\r", " ", "\t", "-", "d ", "l ", ";", "= ", "; ", "type=file;", "type=", "1 ", "a\n",
                           "-rw-r--r-- 1 u g 12 ", "-\n", "d 1 2 3 4 5 6 7 8 9\n", "<DIR> "}) {
    const std::string listing = Repeated(text);
    EXPECT_TRUE(ReadMlsdLines(listing).entries.empty()) << text;
    EXPECT_TRUE(ReadListLines(listing).entries.empty()) << text;
  }
}

// --- More entries than allowed. ---

std::string Anchors(std::size_t count, std::size_t names) {
  std::string page;
  for (std::size_t i = 0; i < count; ++i) page += "<a href=\"" + std::to_string(i % names) + "\">";
  return page;
}

TEST(PageHostile, MoreEntriesThanAllowedEndTheReading) {
  EXPECT_FALSE(Read(Anchors(1000, 1000), 1000).isTooLong);
  const Page page = Read(Anchors(1002, 1002) + "<a href=\"a/b\">", 1000);
  EXPECT_TRUE(page.isTooLong);
  EXPECT_EQ(page.entries.size(), 1000U);
  EXPECT_EQ(page.leftOut, 0U);  // nothing was read any more
  EXPECT_TRUE(Read("<a href=\"a\">", 0).isTooLong);
  EXPECT_FALSE(Read("<a href=\"../\">", 0).isTooLong);
  EXPECT_FALSE(Read("<a href=\"a\">", static_cast<std::size_t>(-1)).isTooLong);
}

TEST(PageHostile, TheSameEntriesAgainAreNotMore) {
  const Page page = Read(Anchors(1000000, 1000), 1000);
  EXPECT_FALSE(page.isTooLong);
  EXPECT_EQ(page.entries.size(), 1000U);
  EXPECT_TRUE(Read(Anchors(1000000, 1000) + "<a href=\"a\">", 1000).isTooLong);
}

TEST(PageHostile, MoreLinesThanAllowedEndTheReading) {
  std::string mlsd;
  std::string list;
  for (int i = 0; i < 1001; ++i) {
    mlsd += "type=file; " + std::to_string(i) + "\r\n";
    list += "-rw-r--r-- 1 u g 12 Nov 20 10:00 " + std::to_string(i) + "\r\n";
  }
  EXPECT_FALSE(Corvane::ReadMlsd(mlsd, 1001).isTooLong);
  EXPECT_TRUE(Corvane::ReadMlsd(mlsd, 1000).isTooLong);
  EXPECT_FALSE(Corvane::ReadList(list, 0, 1001).isTooLong);
  EXPECT_TRUE(Corvane::ReadList(list, 0, 1000).isTooLong);
}

// --- A million entries. ---

constexpr std::size_t kMillion = 1000000;

TEST(PageHostile, AMillionAnchors) {
  for (const char* const before : {"<a href=\"", "<a href='", "<a href=", "<a href=\"/pub/dir/"}) {
    std::string page = "<title>Index of /pub/dir/</title><pre>";
    const char last = before[8] == '=' ? ' ' : before[8] == '\'' ? '\'' : '"';
    for (std::size_t i = 0; i < kMillion; ++i) {
      page += before + std::to_string(i) + (std::string_view(before) == "<a href=" ? ' ' : last) + ">x</a>\r\n";
    }
    const Page read = Read(page);
    EXPECT_TRUE(read.isListing) << before;
    EXPECT_EQ(read.entries.size(), kMillion) << before;
  }
}

TEST(PageHostile, AMillionAnchorsOfAnUnknownServer) {
  std::string page;
  for (std::size_t i = 0; i < kMillion; ++i) {
    page += "<a href=\"" + std::to_string(i) + "\">" + std::to_string(i) + "</a>\n";
  }
  EXPECT_TRUE(Read(page).isListing);
  EXPECT_FALSE(Read(page + "<a href=\"x\">y</a>").isListing);
}

TEST(PageHostile, AMillionLines) {
  std::string mlsd;
  std::string list;
  for (std::size_t i = 0; i < kMillion; ++i) {
    mlsd += "type=file;size=12;modify=20261122045030; " + std::to_string(i) + "\r\n";
    list += "-rw-r--r--    1 1000     1000        12345 Nov 20 10:00 " + std::to_string(i) + "\r\n";
  }
  EXPECT_EQ(Corvane::ReadMlsd(mlsd, kAnyNumber).entries.size(), kMillion);
  EXPECT_EQ(Corvane::ReadList(list, 0, kAnyNumber).entries.size(), kMillion);
}

}  // namespace
}  // namespace CorvaneTest
