#include <gmock/gmock.h>

#include <string>
#include <utility>
#include <vector>

#include <Corvane/MultiDownload/ListingImpl.h>

#include "tests/loopback/TransferTesting.h"
#include "tests/mirror/ListingTesting.h"

// What the readers of listings make of everything that is no file, and whether a text is a listing at all.
namespace CorvaneTest {
namespace {

using namespace Corvane;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using namespace std::string_literals;

Listing ReadPage(const std::string& text) { return ParseHttpListing(Wide(text)); }
Listing ReadLines(const std::string& text) { return ParseFtpListing(Wide(text)); }

// A page that says nowhere that it is a listing.
Listing ReadAnchors(const std::string& anchors) { return ReadPage("<pre>" + anchors + "</pre>"); }

std::vector<std::pair<std::string, LeftOutReason>> LeftOutOf(const Listing& listing) {
  EXPECT_EQ(listing.leftOut, listing.leftOutNames.size());
  std::vector<std::pair<std::string, LeftOutReason>> names;
  for (const auto& [name, reason] : listing.leftOutNames) names.emplace_back(Narrow(name), reason);
  return names;
}

std::vector<std::pair<std::string, ListingKind>> OthersOf(const Listing& listing) {
  std::vector<std::pair<std::string, ListingKind>> names;
  for (const auto& [name, size, kind] : listing.entries) {
    if (kind != ListingKind::File) names.emplace_back(Narrow(name), kind);
  }
  return names;
}

// --- pages

struct AnchorCase {
  const char* anchor;
  LeftOutReason reason;
  const char* name;
};

TEST(LeftOut, OfAPageAreLinksWhoseTextHidesTheName) {
  const AnchorCase cases[] = {
      {R"(<a href="long-name.txt">long-na..&gt;</a>)", LeftOutReason::NameShortened, "long-name.txt"},
      {R"(<a href="long-name.txt">long-na..></a>)", LeftOutReason::NameShortened, "long-name.txt"},
      {R"(<a href="/dir/long%20name.txt">long n..</a>)", LeftOutReason::NameShortened, "long name.txt"},
      {R"(<a href="long-name.txt">other..&gt;</a>)", LeftOutReason::NameDiffers, "long-name.txt"},
      {R"(<a href="a%26b">a&amp;b</a>)", LeftOutReason::NameDiffers, "a&b"},
      {R"(<a href="README">readme</a>)", LeftOutReason::NameDiffers, "README"},
      {R"(<a href="a"> a </a>)", LeftOutReason::NameDiffers, "a"},
      {R"(<a name="top" href="a.txt">a.txt</a>)", LeftOutReason::NameDiffers, "top"},
      {R"(<a href="x%00.txt">.txt</a>)", LeftOutReason::NameRefused, nullptr},
  };
  for (const AnchorCase& c : cases) {
    const Listing listing = ReadAnchors(c.anchor);
    const std::string name = c.name == nullptr ? "x\0.txt"s : c.name;
    EXPECT_THAT(LeftOutOf(listing), ElementsAre(Pair(name, c.reason))) << c.anchor;
    EXPECT_THAT(listing.entries, IsEmpty()) << c.anchor;
  }
}

TEST(LeftOut, OfAPageIsTheRestBehindALinkThatIsNotQuoted) {
  const Listing listing = ReadAnchors(R"(<a href="a">a</a><a href=b>b</a><a href="c">c</a>)" + std::string(500, 'x'));
  ASSERT_EQ(listing.leftOut, 1u);
  EXPECT_EQ(listing.leftOutNames[0].reason, LeftOutReason::Unreadable);
  EXPECT_EQ(listing.leftOutNames[0].name.Length(), kMostLeftOutLength);
  EXPECT_THAT(Narrow(listing.leftOutNames[0].name), testing::StartsWith("<a href=b>b</a><a"));
  EXPECT_EQ(listing.entries.size(), 1u);
}

TEST(LeftOut, OfAPageAreNoLinksThatLeadAround) {
  for (const char* const anchor :
       {R"(<a href="?C=N;O=D">Name</a>)", R"(<a href="../">../</a>)", R"(<a href="..">..</a>)", R"(<a href=".">.</a>)",
        R"(<a href="/">Parent Directory</a>)", R"(<a href="/pub/">Parent Directory</a>)", R"(<a href="/">/</a>)",
        R"(<A HREF="/pub/">[To Parent Directory]</A>)", R"(<a href=""></a>)"}) {
    const Listing listing = ReadAnchors(anchor);
    EXPECT_EQ(listing.leftOut, 0u) << anchor;
    EXPECT_THAT(listing.entries, IsEmpty()) << anchor;
  }
}

TEST(LeftOut, FoldersOfAPageAreEntries) {
  for (const char* const anchor :
       {R"(<a href="sub/">sub/</a>)", R"(<A HREF="/pub/sub/">sub</A>)", R"(<a href="sub/">su..&gt;</a>)",
        R"(<a href="sub/"></a>)", R"(<a href="sub/">s../</a>)"}) {
    const Listing listing = ReadAnchors(anchor);
    EXPECT_THAT(OthersOf(listing), ElementsAre(Pair("sub", ListingKind::Folder))) << anchor;
    EXPECT_EQ(listing.leftOut, 0u) << anchor;
  }
}

TEST(LeftOut, NamesAreBoundedAndTheirCountIsNot) {
  std::string anchors;
  for (int i = 0; i < 1000; ++i) anchors += "<a href=\"" + std::string(1000, 'x') + "\">y</a>";
  const Listing listing = ReadAnchors(anchors);
  EXPECT_EQ(listing.leftOut, 1000u);
  ASSERT_EQ(listing.leftOutNames.size(), kMostLeftOutNames);
  EXPECT_EQ(listing.leftOutNames.back().name.Length(), kMostLeftOutLength);
}

// --- lines

TEST(LeftOut, OtherLinesOfAnFtpListingAreEntriesOfOtherKinds) {
  const Listing listing = ReadLines(
      "drwxr-xr-x 2 0 0 4096 Nov 20 10:00 .\r\ndrwxr-xr-x 2 0 0 4096 Nov 20 10:00 ..\r\n"
      "drwxr-xr-x+ 2 0 0 4096 Nov 20 10:00 my sub\r\nlrwxrwxrwx 1 0 0 10 Nov 20 10:00 a -> b\r\n"
      "prw-r--r-- 1 0 0 0 Nov 20 10:00 fifo\r\ncrw-r--r-- 1 0 0 1, 3 Nov 20 10:00 null\r\n"
      "srwxrwxrwx 1 0 0 0 Nov 20 10:00 socket\r\nbrw-rw---- 1 0 6 8 Nov 20 10:00 sda\r\n"
      "11-20-26  10:00AM  <DIR>  dos sub\r\n11-20-26  10:00AM  <JUNCTION>  junction\r\n");
  EXPECT_THAT(OthersOf(listing),
              ElementsAre(Pair("my sub", ListingKind::Folder), Pair("a", ListingKind::Link),
                          Pair("fifo", ListingKind::Special), Pair("null", ListingKind::Special),
                          Pair("socket", ListingKind::Special), Pair("sda", ListingKind::Special),
                          Pair("dos sub", ListingKind::Folder), Pair("junction", ListingKind::Link)));
  EXPECT_EQ(listing.leftOut, 0u);
  EXPECT_TRUE(listing.recognised);
}

TEST(LeftOut, LinesInNoFormatAreUnreadable) {
  for (const char* const line :
       {"-rw-r--r-- 1 1000 12345 Nov 20 10:00 file.txt", "drwxr-xr-x 2 0 4096 Nov 20 10:00 sub",
        "Welcome to this server", "bye bye to you all who came to this place", "11-20-26  10:00AM  12K a",
        "11-20-26 10:00AM 12345", "7", "-"}) {
    const Listing listing = ReadLines(line);
    EXPECT_THAT(LeftOutOf(listing), ElementsAre(Pair(line, LeftOutReason::Unreadable)));
    EXPECT_THAT(listing.entries, IsEmpty()) << line;
    EXPECT_FALSE(listing.recognised) << line;
  }
}

TEST(LeftOut, LinesWithoutAFileNameAreRefused) {
  const Listing listing = ReadLines("-rw-r--r-- 1 0 0 7 Nov 20 10:00 a/..\n11-20-26 10:00AM 7 sub/\n");
  EXPECT_THAT(LeftOutOf(listing),
              ElementsAre(Pair("a/..", LeftOutReason::NameRefused), Pair("sub/", LeftOutReason::NameRefused)));
}

// --- whole listings, as servers send them

TEST(LeftOut, OfListingsOfRealServers) {
  const std::string blank = "100%2 & more.bin";
  const Listing nginx = ReadPage(Fixture("nginx.http"));
  EXPECT_THAT(LeftOutOf(nginx),
              ElementsAre(Pair(blank, LeftOutReason::NameDiffers), Pair(kLongName, LeftOutReason::NameShortened)));
  EXPECT_THAT(OthersOf(nginx), ElementsAre(Pair("sub dir", ListingKind::Folder)));
  EXPECT_THAT(LeftOutOf(ReadPage(Fixture("apache-fancy.http"))), IsEmpty());
  EXPECT_THAT(LeftOutOf(ReadPage(Fixture("apache-fancy-narrow.http"))),
              ElementsAre(Pair(kLongName, LeftOutReason::NameShortened)));
  EXPECT_THAT(LeftOutOf(ReadPage(Fixture("iis.http"))), IsEmpty());
  EXPECT_THAT(OthersOf(ReadPage(Fixture("iis.http"))), ElementsAre(Pair("sub", ListingKind::Folder)));
  for (const char* const name : {"vsftpd.ftp", "pyftpdlib.ftp"}) {
    EXPECT_THAT(OthersOf(ReadLines(Fixture(name))),
                ElementsAre(Pair("link.txt", ListingKind::Link), Pair("sub dir", ListingKind::Folder)));
    EXPECT_THAT(LeftOutOf(ReadLines(Fixture(name))), IsEmpty());
  }
  EXPECT_THAT(OthersOf(ReadLines(Fixture("dos.ftp"))), ElementsAre(Pair("sub", ListingKind::Folder)));
}

// --- whether it is one

TEST(Listing, IsRecognisedByWhatNoOtherPageHas) {
  for (const char* const name : {"nginx.http", "apache-fancy.http", "apache-fancy-narrow.http", "iis.http"}) {
    EXPECT_TRUE(ReadPage(Fixture(name)).recognised) << name;
  }
  const struct {
    const char* page;
    bool recognised;
  } cases[] = {
      {"<title>Index of /</title><pre></pre>", true},
      {"<H1>INDEX OF /</H1><pre>\n</pre>", true},
      {"Server: Microsoft-IIS/10.0\r\n\r\n<pre></pre>", true},
      {R"(<pre><a href="../">../</a></pre>)", true},
      {R"(<pre><a href="?C=N;O=D">Name</a></pre>)", true},
      {R"(<pre><a href="a">a</a></pre>)", true},
      {R"(<pre><a href="sub/">sub/</a></pre>)", true},
      {"", false},
      {"<html><body>Welcome</body></html>", false},
      {"<title>Index of /</title><table></table>", false},
      {"Server: Microsoft-IIS/10.0\r\n\r\n<html></html>", false},
      {"<pre></pre>", false},
      {"<title>Home</title><pre>int main();</pre>", false},
      {R"(<pre>see <a href="/docs/">the manual</a> and <a href="?page=2">more</a></pre>)", false},
      {R"(<pre>see <a href="manual.html">the manual</a></pre>)", false},
  };
  for (const auto& c : cases) EXPECT_EQ(ReadPage(c.page).recognised, c.recognised) << c.page;
  EXPECT_FALSE(ReadPage(Fixture("apache-table.http")).recognised) << "it cannot be read";
}

TEST(Listing, OverFtpIsRecognisedByAnyLineAndMayBeEmpty) {
  for (const char* const name : {"vsftpd.ftp", "pyftpdlib.ftp", "dos.ftp"}) {
    EXPECT_TRUE(ReadLines(Fixture(name)).recognised) << name;
  }
  for (const char* const text : {"", "\r\n", "total 0\r\n", "drwxr-xr-x 2 0 0 4096 Nov 20 10:00 .",
                                 "Welcome\r\n-rw-r--r-- 1 0 0 7 Nov 20 10:00 a"}) {
    EXPECT_TRUE(ReadLines(text).recognised) << text;
  }
  EXPECT_FALSE(ReadLines(Fixture("nginx.http")).recognised);
}

}  // namespace
}  // namespace CorvaneTest
