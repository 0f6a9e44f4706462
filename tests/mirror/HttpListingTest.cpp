#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "tests/mirror/LineRecorder.h"
#include "tests/mirror/ListingTesting.h"

namespace CorvaneTest {
namespace {

using Corvane::ZLogLevel;
using testing::ElementsAre;
using testing::IsEmpty;
using namespace std::string_literals;

// A page of any server but IIS, with this text as its listing.
std::string Page(const std::string& listing) {
  return "HTTP/1.1 200 OK\r\nServer: nginx\r\n\r\n<html><body><pre>" + listing + "</pre></body></html>";
}

// The line of a file as IIS shows it.
std::string IisLine(const std::string& size, const std::string& target, const std::string& label) {
  return "11/20/2026 10:00 AM " + std::string(12 - size.size(), ' ') + size + " <A HREF=\"" + target + "\">" + label +
         "</A><br>";
}

std::string IisPage(const std::string& listing) {
  return "HTTP/1.1 200 OK\r\nServer: Microsoft-IIS/10.0\r\n\r\n<html><body><pre>" + listing + "</pre></body></html>";
}

struct PageCase {
  const char* name;
  std::string listing;
  Entries entries;
};

void ExpectPageEntries(const std::vector<PageCase>& cases) {
  for (const PageCase& c : cases) EXPECT_EQ(ParseHttp(Page(c.listing)), c.entries) << c.name;
}

TEST(HttpListing, TakesAnchorsWhoseTextEndsTheirTarget) {
  ExpectPageEntries({
      {"target and text alike", R"(<a href="a.txt">a.txt</a>)", {{"a.txt", 0}}},
      {"in capitals", R"(<A HREF="A.txt">A.txt</A>)", {{"A.txt", 0}}},
      {"in apostrophes", R"(<a href='a.txt'>a.txt</a>)", {{"a.txt", 0}}},
      {"an apostrophe within the quotes", R"(<a href="it's">it's</a>)", {{"it's", 0}}},
      {"quotes within the apostrophes", R"(<a href='"a"'>"a"</a>)", {{"\"a\"", 0}}},
      {"the end of a tag within the quotes", R"(<a href="a>b">a>b</a>)", {{"a>b", 0}}},
      {"the end of a tag within the apostrophes", R"(<a href='>'>></a>)", {{">", 0}}},
      {"further attributes", R"(<a href="a" title="a file">a</a>)", {{"a", 0}}},
      {"an absolute target", R"(<a href="/dir/a.txt">a.txt</a>)", {{"a.txt", 0}}},
      {"a whole URL", R"(<a href="http://host/dir/a.txt">a.txt</a>)", {{"a.txt", 0}}},
      {"the end of the name alone", R"(<a href="a.txt">txt</a>)", {{"a.txt", 0}}},
      {"no text", R"(<a href="a.txt"></a>)", {{"a.txt", 0}}},
      {"escapes", R"(<a href="my%20file.txt">my file.txt</a>)", {{"my file.txt", 0}}},
      {"a plus is no blank", R"(<a href="a+b">a+b</a>)", {{"a+b", 0}}},
      {"escaped UTF-8", R"(<a href="%C3%9C.txt">Ü.txt</a>)", {{"Ü.txt", 0}}},
      {"an escape that is not UTF-8", R"(<a href="%DC.txt">Ü.txt</a>)", {{"Ü.txt", 0}}},
      {"a sign that begins no escape", R"(<a href="100%zz">100%zz</a>)", {{"100%zz", 0}}},
      {"an escaped percent sign is decoded once", R"(<a href="%252e">%2e</a>)", {{"%2e", 0}}},
      {"without the extension", R"(<a href="report.pdf">report</a>)", {{"report.pdf", 0}}},
      {"without the last extension", R"(<a href="a.tar.gz">a.tar</a>)", {{"a.tar.gz", 0}}},
      {"without what follows a dot in a folder's name", R"(<a href="/v1.2/file">/v1</a>)", {{"file", 0}}},
      {"not between a pair of tags that only begins like an anchor", R"(<abbr title="a">a</abbr></a>)", {}},
  });
}

TEST(HttpListing, SkipsAnchorsThatShowSomethingElse) {
  const std::string after = R"(<a href="z">z</a>)";
  ExpectPageEntries({
      {"a name before the target", R"(<a name="top" href="a.txt">a.txt</a>)" + after, {{"z", 0}}},
      {"a shortened text", R"(<a href="long-name.txt">long-na..&gt;</a>)" + after, {{"z", 0}}},
      {"a sort link", R"(<a href="?C=N;O=D">Name</a>)" + after, {{"z", 0}}},
      {"a folder", R"(<a href="sub/">sub/</a>)" + after, {{"z", 0}}},
      {"a folder without text", R"(<a href="sub/"></a>)" + after, {{"z", 0}}},
      {"the parent folder", R"(<a href="../">../</a>)" + after, {{"z", 0}}},
      {"the root folder", R"(<a href="/">/</a>)" + after, {{"z", 0}}},
      {"the text is not decoded", R"(<a href="my%20file.txt">my%20file.txt</a>)" + after, {{"z", 0}}},
      {"nor are its entities", R"(<a href="a%26b">a&amp;b</a>)" + after, {{"z", 0}}},
      {"the text is not trimmed", R"(<a href="a"> a </a>)" + after, {{"z", 0}}},
      {"capitals differ", R"(<a href="README">readme</a>)" + after, {{"z", 0}}},
      {"two extensions are missing", R"(<a href="a.tar.gz">a</a>)" + after, {{"z", 0}}},
      {"more than the target", R"(<a href="a">my a</a>)" + after, {{"z", 0}}},
      {"the beginning of the name", R"(<a href="ab">a</a>)" + after, {{"z", 0}}},
  });
}

TEST(HttpListing, EndsAtAnAnchorThatIsNotQuotedAsDirectoryPagesAre) {
  const std::string before = R"(<a href="a">a</a>)";
  const std::string after = R"(<a href="z">z</a>)";
  ExpectPageEntries({
      {"no quotes", before + "<a href=b>b</a>" + after, {{"a", 0}}},
      {"no quotes here or later", before + "<a href=b>b</a>", {{"a", 0}}},
      {"the quote is not closed", before + R"(<a href="b>b</a>)" + after, {{"a", 0}}},
      {"the quote is never closed", before + R"(<a href="b>b</a>)", {{"a", 0}}},
      {"closed by the other kind", before + R"(<a href="b'>b</a>)" + after, {{"a", 0}}},
      {"the tag is not closed", before + R"(<a href="b"</a>)" + after, {{"a", 0}}},
      {"the anchor is not closed", before + R"(<a href="b">b)", {{"a", 0}}},
      {"the anchor is closed by the next one's end", before + R"(<a href="b">b)" + after, {{"a", 0}}},
      {"the page ends within a tag", before + "<a", {{"a", 0}}},
  });
}

TEST(HttpListing, ListsBetweenTheFirstPreTagsOnly) {
  const std::string a = R"(<a href="a">a</a>)";
  const std::string b = R"(<a href="b">b</a>)";
  EXPECT_EQ(ParseHttp(a + "<pre>" + b + "</pre>"), (Entries{{"b", 0}})) << "before";
  EXPECT_EQ(ParseHttp("<pre>" + a + "</pre>" + b), (Entries{{"a", 0}})) << "behind";
  EXPECT_EQ(ParseHttp("<pre>" + a + "</pre><pre>" + b + "</pre>"), (Entries{{"a", 0}})) << "a second listing";
  EXPECT_EQ(ParseHttp("<PRE>" + a + "</PRE>"), (Entries{{"a", 0}})) << "capitals";
  EXPECT_EQ(ParseHttp("<pre>" + a + "<pre>" + b + "</pre>"), (Entries{{"a", 0}, {"b", 0}})) << "nested";
  EXPECT_EQ(ParseHttp("<pre><a href=\"a\">a</pre></a>"), Entries()) << "an anchor across the end";
  EXPECT_EQ(ParseHttp("</pre><pre>" + a + "</pre>"), Entries()) << "an end before the beginning";
}

TEST(HttpListing, WithoutPreTagsHasNoEntries) {
  const std::string a = R"(<a href="a">a</a>)";
  for (const std::string& page :
       {""s, a, "<pre>" + a, a + "</pre>", "<table>" + a + "</table>", "<pre >" + a + "</pre>"}) {
    EXPECT_EQ(ParseHttp(page), Entries()) << page;
  }
}

TEST(HttpListing, FindsTagsBehindCharactersWhoseLowerCaseIsLonger) {
  EXPECT_EQ(ParseHttp(Page("\u0130\u0130\u1E9E <A HREF=\"\u0130.TXT\">\u0130.TXT</A>")), (Entries{{"\u0130.TXT", 0}}));
}

// --- sizes

TEST(HttpListing, TakesSizesFromIisPagesOnly) {
  const std::string line = IisLine("12345", "/dir/file.txt", "file.txt");
  EXPECT_EQ(ParseHttp(IisPage(line)), (Entries{{"file.txt", 12345}}));
  EXPECT_EQ(ParseHttp(Page(line)), (Entries{{"file.txt", 0}}));
  EXPECT_EQ(ParseHttp("SERVER: MICROSOFT-IIS/6.0\r\n\r\n<pre>" + line + "</pre>"), (Entries{{"file.txt", 12345}}));
  EXPECT_EQ(ParseHttp("<pre>" + line + "</pre>server: microsoft-iis"), (Entries{{"file.txt", 12345}}))
      << "header and page are searched together";
  EXPECT_EQ(ParseHttp("Server: M\u0130crosoft-\u0130\u0130S\r\n\r\n<pre>" + line + "</pre>"),
            (Entries{{"file.txt", 12345}}))
      << "this letter's lower case is an i";
  EXPECT_EQ(ParseHttp("Server:Microsoft-IIS\r\n\r\n<pre>" + line + "</pre>"), (Entries{{"file.txt", 0}}));
}

TEST(HttpListing, ReadsTheFourteenCharactersBeforeTheBlankBeforeAnIisLink) {
  const struct {
    const char* name;
    std::string before;  // the anchor
    unsigned long long size;
  } cases[] = {
      {"a size", "10:00 AM        12345 ", 12345},
      {"no blank before the link takes the last digit's place", "10:00 AM        12345", 1234},
      {"any character before the link is left out", "10:00 AM        123456", 12345},
      {"thirteen digits behind another character", "M1234567890123 ", 1234567890123},
      {"fourteen digits fill the column, which then shows no size", "M12345678901234 ", 0},
      {"the column begins behind the fourteenth character", "x1y2345678901234 ", 2345678901234},
      {"blanks alone before the digits", "M              123 ", 0},
      {"thirteen characters of blanks and digits behind another one", "M          123 ", 123},
      {"zero", "10:00 AM            0 ", 0},
      {"a folder's mark", "10:00 AM        <dir> ", 0},
      {"a folder's mark in entities", "10:00 AM  &lt;dir&gt; ", 0},
      {"digits before a mark", "10:00 AM       12345K ", 0},
      {"digits behind a separator", "10:00 AM       12,345 ", 345},
      {"a sign", "10:00 AM       -12345 ", 12345},
      {"blanks at the end are trimmed", "10:00 AM   12345     ", 12345},
      {"blanks alone", "                           ", 0},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(ParseHttp(IisPage("some text before" + c.before + R"(<a href="/a">a</a>)")), (Entries{{"a", c.size}}))
        << c.name;
  }
}

// There the column begins with the text, which these pages begin with their listing.
TEST(HttpListing, ReadsTheColumnOfAnIisLinkNearTheBeginning) {
  const struct {
    std::string before;  // the anchor
    std::size_t position;
    unsigned long long size;
  } cases[] = {
      {"<pre>", 5, 0},
      {"<pre>1", 6, 0},
      {"<pre>1 ", 7, 1},
      {"<pre>12345678 ", 14, 12345678},
      {"<pre>123456789 ", 15, 123456789},
      {"<pre>1234567890 ", 16, 1234567890},
      {"<pre>12345678901 ", 17, 12345678901},
      {"<pre>1234567890123 ", 19, 1234567890123},
      {"<pre>12345678901234 ", 20, 0},
  };
  for (const auto& c : cases) {
    ASSERT_EQ(c.before.size(), c.position);
    EXPECT_EQ(ParseHttp(c.before + R"(<a href="a">a</a></pre>server: microsoft-iis)"), (Entries{{"a", c.size}}))
        << c.position;
  }
}

TEST(HttpListing, KeepsTheLaterSizeOfANameThatComesTwice) {
  EXPECT_EQ(ParseHttp(IisPage(IisLine("1", "/a", "a") + IisLine("22", "/b", "b") + IisLine("333", "/a", "a"))),
            (Entries{{"a", 333}, {"b", 22}}));
  EXPECT_EQ(ParseHttp(IisPage(IisLine("333", "/a", "a") + IisLine("?", "/x/a", "a"))), (Entries{{"a", 0}}));
}

// --- hostile names

TEST(HttpListing, KeepsNamesInsideTheTargetDirectory) {
  ExpectPageEntries({
      {"upwards", R"(<a href="../../x">x</a>)", {{"x", 0}}},
      {"upwards, shown", R"(<a href="../../x">../../x</a>)", {{"x", 0}}},
      {"absolute", R"(<a href="/etc/x">/etc/x</a>)", {{"x", 0}}},
      {"the parent", R"(<a href="..">..</a>)", {}},
      {"the parent, last", R"(<a href="/pub/..">..</a>)", {}},
      {"the parent, escaped", R"(<a href="%2e%2E">..</a>)", {}},
      {"the folder itself", R"(<a href=".">.</a>)", {}},
      {"the folder itself, escaped", R"(<a href="%2e"></a>)", {}},
      {"empty", R"(<a href=""></a>)", {}},
      {"a NUL", R"(<a href="%00"></a>)", {}},
      {"a NUL behind a name", R"(<a href="x%00.txt">.txt</a>)", {}},
      {"a NUL behind the parent", R"(<a href="..%00"></a>)", {}},
      {"an escaped slash upwards", R"(<a href="%2e%2e%2fx">x</a>)", {{"x", 0}}},
      {"an escaped slash within", R"(<a href="a%2Fb">a/b</a>)", {{"b", 0}}},
      {"an escaped slash at the end", R"(<a href="a%2F">a/</a>)", {}},
      {"escaped slashes before the parent", R"(<a href="a%2f..">..</a>)", {}},
      {"backslashes separate nothing here", R"(<a href="..\..\x">..\..\x</a>)", {{"..\\..\\x", 0}}},
      {"three dots are a name", R"(<a href="...">...</a>)", {{"...", 0}}},
  });
  EXPECT_EQ(ParseHttp(Page("<a href=\"a\0b\">b</a>"s)), Entries()) << "a NUL that is not escaped";
}

// --- log

TEST(HttpListing, LogsEntriesWithoutASizeAtInformationLevel) {
  const LineRecorder log;
  ParseHttp(Page(R"(<a href="100%2520">100%20</a><a href="sub/">sub/</a>)"));
  EXPECT_THAT(
      log.LinesOf("Corvane/MultiDownload"),
      ElementsAre(LogLine{
          ZLogLevel::Information,
          "Found valid non IIS HTTP directory entry. Name = 100%20. Size = unknown (will determine from header)",
          "Corvane/MultiDownload", 1413}));
}

TEST(HttpListing, LogsIisEntriesOnlyWhenTheColumnShowsNoSize) {
  const LineRecorder log;
  ParseHttp(IisPage(IisLine("12345", "/a", "a") + IisLine("0", "/zero", "zero") + IisLine("&lt;dir&gt;", "/b", "b") +
                    IisLine("&lt;dir&gt;", "/c/", "c")));
  EXPECT_THAT(
      log.LinesOf("Corvane/MultiDownload"),
      ElementsAre(LogLine{ZLogLevel::Information,
                          "Found valid IIS HTTP directory entry. Name = b. Size = unknown (will determine from header)",
                          "Corvane/MultiDownload", 1432}));
}

TEST(HttpListing, LogsNothingWhenTheLevelIsDisabled) {
  LineRecorder log;
  log.EnableUpTo(ZLogLevel::Warning);
  EXPECT_EQ(ParseHttp(Page(R"(<a href="a">a</a>)")).size(), 1u);
  EXPECT_EQ(ParseHttp(IisPage(IisLine("-", "/a", "a"))).size(), 1u);
  EXPECT_THAT(log.LinesOf("Corvane/MultiDownload"), IsEmpty());
}

// --- whole pages

TEST(HttpListing, ReadsAPageOfNginx) {
  // Names of which the page shows entities or only the beginning are not known to be names.
  EXPECT_EQ(ParseHttp(Fixture("nginx.http")), (Entries{{"archive.tar.gz", 0},
                                                       {"empty", 0},
                                                       {"grüß.txt", 0},
                                                       {"link.txt", 0},
                                                       {"my file.txt", 0},
                                                       {"readme.txt", 0}}));
}

TEST(HttpListing, ReadsAPageOfApache) {
  // This server writes the entity into the target too, and entities are not decoded: that name is taken as it stands.
  Entries entries{{".hidden", 0},  {"100%2 &amp; more.bin", 0}, {"archive.tar.gz", 0}, {"empty", 0}, {"grüß.txt", 0},
                  {"link.txt", 0}, {"my file.txt", 0},          {"readme.txt", 0}};
  EXPECT_EQ(ParseHttp(Fixture("apache-fancy-narrow.http")), entries);
  entries[kLongName] = 0;
  EXPECT_EQ(ParseHttp(Fixture("apache-fancy.http")), entries);
}

TEST(HttpListing, TakesNothingFromATableOfApache) { EXPECT_EQ(ParseHttp(Fixture("apache-table.http")), Entries()); }

TEST(HttpListing, ReadsAPageInTheFormatOfIis) {
  EXPECT_EQ(
      ParseHttp(Fixture("iis.http")),
      (Entries{
          {"file.txt", 12345}, {"my file.txt", 345}, {"empty", 0}, {"Large.ISO", 123456789012}, {"web.config", 168}}));
}

TEST(HttpListing, ReadsHeaderAndPageAsOneTextWhereverTheHeaderEnds) {
  const std::string line = IisLine("12345", "/a", "a");
  for (const std::string& text : {IisPage(line), "Server: Microsoft-IIS/10.0\r\n\r\n<pre>123456 " + line + "</pre>",
                                  "X: <pre>\r\nServer: microsoft-iis\r\n\r\n12 <a href='b'>b</a>" + line + "</pre>",
                                  "123\n456\n<pre><a href='b'>b</a></pre>server: microsoft-iis"s, "no listing\r\n\r\n"s,
                                  Fixture("iis.http"), Fixture("nginx.http")}) {
    const Entries whole = ParseHttp(text);
    for (std::size_t cut = 0; cut <= text.size(); ++cut) {
      // Within a character there is nothing to cut.
      if (cut < text.size() && (static_cast<unsigned char>(text[cut]) & 0xC0u) == 0x80u) continue;
      ASSERT_EQ(ParseHttp(text.substr(0, cut), text.substr(cut)), whole) << "cut at " << cut << " of " << text;
    }
  }
}

// A parser that searches the rest of the page for an absent kind of quote at each anchor needs hours for these.

std::string MillionAnchors(char quote) {
  std::string anchors;
  for (int i = 0; i < kMillion; ++i) {
    const std::string name = std::to_string(i);
    anchors.append("<a href=").append(1, quote).append(name).append(1, quote);
    anchors.append(1, '>').append(name).append("</a>\n");
  }
  return anchors;
}

TEST(HttpListing, ReadsAMillionEntriesWithoutAnApostrophe) {
  EXPECT_EQ(CountHttp(Page(MillionAnchors('"'))), static_cast<std::size_t>(kMillion));
}

TEST(HttpListing, ReadsAMillionEntriesWithoutADoubleQuote) {
  EXPECT_EQ(CountHttp(Page(MillionAnchors('\''))), static_cast<std::size_t>(kMillion));
}

TEST(HttpListing, ReadsAMillionEntriesOfIis) {
  std::string lines;
  for (int i = 0; i < kMillion; ++i)
    lines += "M        12345 <A HREF=\"" + std::to_string(i) + "\">" + std::to_string(i) + "</A>";
  EXPECT_EQ(CountHttp(IisPage(lines)), static_cast<std::size_t>(kMillion));
}

}  // namespace
}  // namespace CorvaneTest
