// Which pages are taken for those of directories: files may be removed for being on none of them.

#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "tests/tree/PageTesting.h"

namespace CorvaneTest {
namespace {

struct SignCase {
  const char* name;
  std::string page;
  bool isListing;
};

void ExpectListing(const std::vector<SignCase>& cases, std::string_view server = "") {
  for (const SignCase& c : cases) {
    EXPECT_EQ(ReadPage(c.page, "http://files.example/pub/dir/", server).isListing, c.isListing) << c.name;
  }
}

const char* const kLinks = R"(<a href="a.tgz">the program</a> <a href="b.pdf">its manual</a>)";

TEST(HtmlSigns, TitlesAndHeadingsOfDirectoryPages) {
  const std::string links = kLinks;
  ExpectListing({
      {"a title", "<title>Index of /pub/dir</title>" + links, true},
      {"a heading", "<h1>Index of /pub/dir/</h1>" + links, true},
      {"a second heading", "<h2 class=x>Index of /</h2>" + links, true},
      {"in capitals and on lines", "<TITLE>\n INDEX OF /pub\n</TITLE>" + links, true},
      {"tags within", "<h1>Index of <b>/pub/</b></h1>" + links, true},
      {"references", "<h1>Index of &#47;pub</h1>" + links, true},
      {"in other words", "<title>Directory listing for /pub/dir/</title>" + links, true},
      {"in yet other words", "<h1>Listing of /pub</h1>" + links, true},
      {"on an empty page", "<title>Index of /pub/dir</title>", true},
      {"of something else", "<title>Index of refraction</title>" + links, false},
      {"of a path that is none", "<title>Index of files</title>" + links, false},
      {"within a sentence", "<title>The Index of /pub</title>" + links, false},
      {"a paragraph", "<p>Index of /pub/dir</p>" + links, false},
      {"a heading that is not closed", "<h1>Index of /pub/dir" + links, false},
      {"in a comment", "<!-- <title>Index of /pub</title> -->" + links, false},
      {"too long for a title", "<title>Index of /" + std::string(5000, 'x') + "</title>" + links, false},
  });
}

TEST(HtmlSigns, TitleAndHeadingOfIis) {
  const std::string links = kLinks;
  const std::string both = "<title>files.example - /pub/dir/</title><H1>files.example - /pub/dir/</H1>" + links;
  const std::string inner = "<title>inner - /pub/dir/</title><H1>inner - /pub/dir/</H1>" + links;
  ExpectListing({
      {"both", both, true},
      {"another host", inner, false},
      {"only a title", "<title>files.example - /pub/dir/</title>" + links, false},
      {"only a heading", "<h1>files.example - /pub/dir/</h1>" + links, false},
      {"not alike", "<title>files.example - /pub/dir/</title><h1>files.example - /pub/</h1>" + links, false},
      {"no path", "<title>files.example - files</title><h1>files.example - files</h1>" + links, false},
      {"several words", "<title>our files.example - /</title><h1>our files.example - /</h1>" + links, false},
  });
  ExpectListing({{"another host", inner, true}, {"no title", links, false}}, "Microsoft-IIS/10.0");
  ExpectListing({{"another host", inner, false}}, "not Microsoft-IIS/10.0");
}

TEST(HtmlSigns, LinksThatOrderThePage) {
  const std::string links = kLinks;
  ExpectListing({
      {"Apache's", R"(<a href="?C=N;O=D">Name</a>)" + links, true},
      {"Apache's in XHTML", R"(<a href="?C=M&amp;O=A">Name</a>)" + links, true},
      {"Caddy's", R"(<a href="?sort=namedirfirst&order=desc"></a>)" + links, true},
      {"a shop's", R"(<a href="?sort=price&order=asc">cheapest first</a>)" + links, false},
      {"a column that is none", R"(<a href="?C=X;O=D">Name</a>)" + links, false},
      {"half of it", R"(<a href="?C=N">Name</a>)" + links, false},
      {"of another page", R"(<a href="../?C=N;O=D">Name</a>)" + links, false},
  });
}

TEST(HtmlSigns, AListOfAnUnknownServer) {
  ExpectListing({
      {"one file", R"(<a href="a">a</a>)", true},
      {"files and folders", R"(<li><a href="a">a</a><li><a href="b/">b/</a><li><a href="c/">c</a>)", true},
      {"names in escapes and references", R"(<a href="a%20b&amp;c">a b&amp;c</a>)", true},
      {"names cut", R"(<a href="a-long-name.tgz">a-long-..&gt;</a><a href="b-long-name">b-long...</a>)", true},
      {"names cut with a sign", "<a href=\"a-long-name.tgz\">a-long\xE2\x80\xA6</a>", true},
      {"blanks and tags around names", "<a href=\"a\">\n <svg><use></svg> <span>a</span>\n </a>", true},
      {"an icon beside each", R"(<a href="a"><img></a><a href="a">a</a>)", true},
      {"a link to get each", R"(<a href="a">a</a> <a href="a">Download</a>)", true},
      {"leading around, too", R"(<a href="/">Home</a><a href="https://other.example/">x</a><a href="a">a</a>)", true},
      {"a name that is refused", R"(<a href="a">a</a><a href="b%2fc">b/c</a>)", true},
      {"links that order it", R"(<a href="?sort=size&order=desc">Size</a><a href="?M=A">Time</a><a href="a">a</a>)",
       true},
      {"an empty query", R"(<a href="?">again</a><a href="a">a</a>)", true},
      {"blanks around a name", R"(<a href="%20a%20"> a </a>)", true},
  });
}

TEST(HtmlSigns, AHomePageIsNoListing) {
  ExpectListing({
      {"nothing", "", false},
      {"a text", "Hello.", false},
      {"no links", "<h1>Welcome</h1><p>Hello.</p>", false},
      {"files under words", kLinks, false},
      {"a file under its name, another under words", R"(<a href="a">a</a><a href="b">the manual</a>)", false},
      {"a page without a text", R"(<a href="a"></a>)", false},
      {"only links around", R"(<a href="/">Home</a><a href="https://other.example/">x</a>)", false},
      {"a name, and another page of the server", R"(<a href="a">a</a><a href="/about.html">about</a>)", false},
      {"a name, and one further below", R"(<a href="a">a</a><a href="b/c">b/c</a>)", false},
      {"a name, and one with a query", R"(<a href="a">a</a><a href="b?c">b</a>)", false},
      {"a name, and a query of the page", R"(<a href="a">a</a><a href="?download=zip">all</a>)", false},
      {"a name cut to nothing", R"(<a href="a">...</a><a href="b">..</a>)", false},
      {"another name cut", R"(<a href="a-long-name">b-long...</a>)", false},
  });
}

// What is on the other pages would be taken for gone.
TEST(HtmlSigns, APartOfAListingIsNone) {
  const std::string index = "<title>Index of /pub/dir/</title>";
  ExpectListing({
      {"the next page", index + R"(<a href="?page=2">next</a>)", false},
      {"the next page, by its path", index + R"(<a href="/pub/dir/?Page=2">next</a>)", false},
      {"the next page in an order", index + R"(<a href="?C=N;O=D&amp;offset=100">next</a>)", false},
      {"a limit", R"(<a href="?sort=namedirfirst&order=desc&limit=100">Name</a>)", false},
      {"of an unknown server", R"(<a href="a">a</a><a href="?start=100">100</a>)", false},
      {"the next page of another one", index + R"(<a href="../?page=2">next</a>)", true},
      {"a word with such a beginning", index + R"(<a href="?pages">all</a>)", true},
  });
}

TEST(HtmlSigns, AnEmptyListOfAnUnknownServer) {
  ExpectListing({
      {"the parent as it is", R"(<a href="../">../</a>)", true},
      {"the parent by its path", R"(<a href="/pub/">Parent Directory</a>)", true},
      {"the parent in brackets", R"(<a href="/pub/">[To Parent Directory]</a>)", true},
      {"a way up", R"(<a href="../">Back to the overview</a>)", false},
      {"a parent elsewhere", R"(<a href="http://other.example/">Parent Directory</a>)", false},
      {"the parent, and files under words", R"(<a href="../">../</a>)" + std::string(kLinks), false},
  });
}

// What stands in a column hangs on the shape of the page; what only looks like it has none.
TEST(HtmlColumns, LikenessesHaveNoSizesAndTimes) {
  const std::string title = "<title>Index of /pub/dir/</title>";
  const std::string nginx = title + "<hr><pre><a href=\"../\">../</a>\r\n";
  const auto row = [](const std::string& date, const std::string& size, const std::string& href = "a",
                      std::size_t width = 19) {
    return "<a href=\"" + href + "\">a</a>          " + date + " " + std::string(width - size.size(), ' ') + size +
           "\r\n";
  };
  const std::string date = "22-Nov-2026 04:50";
  const std::string plain = row(date, "12");
  struct Case {
    const char* name;
    std::string page;
    const char* expected;
  };
  const std::vector<Case> cases{
      {"nginx", nginx + plain, "a 12 1795323000/60"},
      {"nginx, rounded", nginx + row(date, "12", "a", 7), "a 12 1795323000/60"},
      {"its title missing", nginx.substr(title.size()) + plain, "a - -"},
      {"its parent missing", title + "<hr><pre>" + plain, "a - -"},
      {"its parent with a time", title + "<hr><pre>" + row(date, "-", "../") + plain, "a - -"},
      {"another width", nginx + row(date, "12", "a", 18), "a - -"},
      {"another narrow width", nginx + row(date, "12", "a", 6), "a - -"},
      {"more behind it", nginx + row(date, "12 x"), "a - 1795323000/60"},
      {"more behind its end", nginx + plain.substr(0, plain.size() - 2) + " x\r\n", "a - -"},
      {"no line end", nginx + plain.substr(0, plain.size() - 2), "a - -"},
      {"a day that is none", nginx + row("31-Feb-2026 04:50", "12"), "a - -"},
      {"a month that is none", nginx + row("22-ovD-2026 04:50", "12"), "a - -"},
      {"a month by its number", nginx + row("22-011-2026 04:50", "12"), "a - -"},
      {"an hour that is none", nginx + row("22-Nov-2026 24:50", "12"), "a - -"},
      {"a minute that is none", nginx + row("22-Nov-2026 04:60", "12"), "a - -"},
      {"a sign", nginx + row("+2-Nov-2026 04:50", "12"), "a - -"},
      {"no bytes", nginx + row(date, "1.2K"), "a - 1795323000/60"},
      {"the largest", nginx + row(date, "9999999999999999999"), "a 9999999999999999999 1795323000/60"},
      {"the number of a folder", nginx + row(date, "12", "a/"), "a/ - 1795323000/60"},
      {"two sizes for one name", nginx + plain + row(date, "1", "b") + row(date, "13"), "a - 1795323000/60"},
      {"two times for one name", nginx + plain + row(date, "1", "b") + row("22-Nov-2026 04:51", "12"), "a 12 -"},
      {"the same twice", nginx + plain + row(date, "1", "b") + plain, "a 12 1795323000/60"},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(Described(ReadPage(c.page)).front(), c.expected) << c.name;
  }
}

TEST(HtmlColumns, OfIis) {
  const std::string title = "<title>files.example - /pub/dir/</title><H1>files.example - /pub/dir/</H1><pre>";
  const auto sizeOf = [&](const std::string& before) {
    return Described(ReadPage(title + "<br>" + before + "<A HREF=\"/pub/dir/a\">a</A><br>")).front();
  };
  EXPECT_EQ(sizeOf("11/20/2026  9:05 AM        12345 "), "a 12345 -");
  EXPECT_EQ(sizeOf("20.11.2026    09:05        12345 "), "a 12345 -");
  EXPECT_EQ(sizeOf("11/20/2026  9:05 AM    123456789012345678 "), "a 123456789012345678 -");
  EXPECT_EQ(sizeOf("11/20/2026  9:05 AM        12345"), "a - -");
  EXPECT_EQ(sizeOf("11/20/2026  9:05 AM        &lt;dir&gt; "), "a - -");
  EXPECT_EQ(sizeOf("12345 "), "a - -");
  EXPECT_EQ(sizeOf(" 12345 "), "a - -");
  EXPECT_EQ(sizeOf("11/20/2026  9:05 AM    99999999999999999999 "), "a - -");
}

TEST(HtmlColumns, OfCaddy) {
  const auto row = [](const std::string& icon, const std::string& size, const std::string& time) {
    return R"(<a href="?sort=namedirfirst&order=desc"></a><tr><td><a href="./a"><svg><use xlink:href=")" + icon +
           R"("></use></svg><span>a</span></a></td><td data-order=")" + size + R"("></td><td><time datetime=")" + time +
           R"("></time></td></tr><tr><td data-order="7">)";
  };
  const auto read = [](const std::string& page) { return Described(ReadPage(page)).front(); };
  EXPECT_EQ(read(row("#file", "12", " 2026-11-22T04:50:30Z")), "a 12 1795323030/1");
  EXPECT_EQ(read(row("#file-shortcut", "12", "2026-11-22T04:50:30Z")), "a - -");  // the time is the link's
  EXPECT_EQ(read(row("#file", "1.2K", "2026-11-22 04:50:30")), "a - -");
  EXPECT_EQ(read(row("#file", "", "2026-11-22T04:50:30+01:00")), "a - -");
  EXPECT_EQ(read(row("#file", "12", "")), "a 12 -");
}

}  // namespace
}  // namespace CorvaneTest
