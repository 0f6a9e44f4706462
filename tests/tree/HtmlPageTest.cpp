// Which anchors of a page are entries of its directory, and under what names.

#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "tests/tree/PageTesting.h"

namespace CorvaneTest {
namespace {

using Corvane::Page;
using Names = std::vector<std::string>;
using namespace std::string_literals;

TEST(HtmlPage, FindsAnchorsAsBrowsersDo) {
  ExpectAnchors({
      {"double quotes", R"(<a href="a">)", {"a"}, {}},
      {"single quotes", R"(<a href='a'>)", {"a"}, {}},
      {"no quotes", R"(<a href=a>)", {"a"}, {}},
      {"no quotes, a slash at the end", R"(<a href=a/>)", {"a/"}, {}},
      {"capitals", R"(<A HREF="A">)", {"A"}, {}},
      {"white space everywhere", "<a\n\t class = x\r\n href \n=\n \"a\"\n>", {"a"}, {}},
      {"other attributes first", R"(<a class="href" title='href="b"' href="a">)", {"a"}, {}},
      {"an attribute without a value", R"(<a download href="a">)", {"a"}, {}},
      {"an attribute that only ends alike", R"(<a data-href="b" xhref="c" href="a">)", {"a"}, {}},
      {"the first of two", R"(<a href="a" href="b">)", {"a"}, {}},
      {"a slash between attributes", R"(<a/href="a"/>)", {"a"}, {}},
      {"the end of a tag within quotes", R"(<a title=">" href="a">)", {"a"}, {}},
      {"a quote within the others", R"(<a href="it's">)", {"it's"}, {}},
      {"blanks around the link", "<a href=\" \n a\t \">", {"a"}, {}},
      {"a line end within the link", "<a href=\"a\r\n\tb\">", {"ab"}, {}},
      {"a blank within the link", R"(<a href="a b">)", {"a b"}, {}},
      {"no anchor but a longer name", R"(<abbr href="a"><area href="b"><link href="c">)", {}, {}},
      {"an end tag", R"(</a href="a">)", {}, {}},
      {"no link", R"(<a name="a"></a>)", {}, {}},
      {"an anchor in an anchor", R"(<a href="a"><a href="b">)", {"a", "b"}, {}},
      {"a comment", R"(<!-- <a href="a"> --><a href="b">)", {"b"}, {}},
      {"a comment with a quote", R"(<!-- it's --><a href='b'>)", {"b"}, {}},
      {"an empty comment", R"(<!--><a href="a"><!---><a href="b">)", {"a", "b"}, {}},
      {"a declaration", R"(<!DOCTYPE html><?xml <a href="b"?><a href="a">)", {"a"}, {}},
      {"a script", R"(<script>document.write('<a href="b">')</SCRIPT><a href="a">)", {"a"}, {}},
      {"a style", R"(<style>a::before { content: '<a href="b">' }</style ><a href="a">)", {"a"}, {}},
      {"a longer end tag in a script", R"(<script></scripts><a href="b"></script><a href="a">)", {"a"}, {}},
      {"a title", R"(<title><a href="b"></title><a href="a">)", {"a"}, {}},
      {"less than something", R"(1 < 2 <3 <<a href="a">)", {"a"}, {}},
  });
}

TEST(HtmlPage, WhatIsNotClosedEndsThePage) {
  ExpectAnchors({
      {"a tag", R"(<a href="a"><a href="b")", {"a"}, {}},
      {"a quote", R"(<a href="a"><a href="b>...<a href=c>)", {"a"}, {}},
      {"a comment", R"(<a href="a"><!-- <a href="b">)", {"a"}, {}},
      {"a script", R"(<a href="a"><script> <a href="b">)", {"a"}, {}},
      {"a reference", R"(<a href="a&amp">)", {"a&"}, {}},
      {"a mark", R"(<a href="a"><)", {"a"}, {}},
      {"an end mark", R"(<a href="a"></)", {"a"}, {}},
  });
}

TEST(HtmlPage, TakesWhatIsOneSegmentBelow) {
  ExpectAnchors({
      {"a file and a folder", R"(<a href="a"><a href="b/">)", {"a", "b/"}, {}},
      {"from here", R"(<a href="./a"><a href="././b">)", {"a", "b"}, {}},
      {"from above", R"(<a href="../dir/a"><a href="../../pub/dir/b/">)", {"a", "b/"}, {}},
      {"from the root", R"(<a href="/pub/dir/a"><a href="/pub/dir/b/">)", {"a", "b/"}, {}},
      {"the path in other escapes", R"(<a href="/p%75b/%64ir/a">)", {"a"}, {}},
      {"the server", R"(<a href="http://files.example/pub/dir/a">)", {"a"}, {}},
      {"the server in capitals", R"(<a href="HTTP://Files.EXAMPLE/pub/dir/a">)", {"a"}, {}},
      {"the server with its port", R"(<a href="http://files.example:80/pub/dir/a">)", {"a"}, {}},
      {"the server without a scheme", R"(<a href="//files.example/pub/dir/a">)", {"a"}, {}},
      {"a fragment", R"(<a href="a#b"><a href="c/#">)", {"a", "c/"}, {}},
      {"through another folder", R"(<a href="x/../a">)", {"a"}, {}},
      {"through escaped dots", R"(<a href="x/%2e%2E/a"><a href="%2e/b">)", {"a", "b"}, {}},
      {"a colon behind a dot", R"(<a href="./a:b">)", {"a:b"}, {}},
      {"an escaped colon", R"(<a href="mailto%3Ab">)", {"mailto:b"}, {}},
  });
}

TEST(HtmlPage, WhatLeadsAroundIsNeitherEntryNorLeftOut) {
  for (const char* href : {"",
                           "#top",
                           "?C=N;O=D",
                           "?",
                           ".",
                           "./",
                           "..",
                           "../",
                           "/",
                           "../..",
                           "../../",
                           "/pub",
                           "/pub/",
                           "/pub/dir/",
                           "/pub/dir",
                           "?sort=size&order=asc",
                           "/?x",
                           "../?C=N;O=D",
                           "../../../..",
                           "mailto:a@files.example",
                           "javascript:void(0)",
                           "ftp://files.example/pub/dir/a",
                           "data:,a",
                           "http://other.example/pub/dir/a",
                           "https://files.example/pub/dir/a",
                           "tel:1",
                           "http://files.example:8080/pub/dir/a",
                           "//other.example/",
                           "http://files.example/",
                           "%2e%2e/",
                           "%2E",
                           "http://files.example:80"}) {
    const Page page = ReadPage("<a href=\""s + href + "\">x</a>");
    EXPECT_THAT(page.entries, testing::IsEmpty()) << href;
    EXPECT_THAT(page.leftOutNames, testing::IsEmpty()) << href;
  }
}

TEST(HtmlPage, CountsWhatElseIsOnTheServer) {
  ExpectAnchors({
      {"two segments below", R"(<a href="a/b">)", {}, {"/pub/dir/a/b"}},
      {"two segments below, a folder", R"(<a href="/pub/dir/a/b/">)", {}, {"/pub/dir/a/b/"}},
      {"beside the directory", R"(<a href="../other/">)", {}, {"/pub/other/"}},
      {"a longer directory", R"(<a href="/pub/directory/a">)", {}, {"/pub/directory/a"}},
      {"in another case", R"(<a href="/Pub/dir/a">)", {}, {"/Pub/dir/a"}},
      {"a query", R"(<a href="a?b"><a href="c/?d=e">)", {}, {"/pub/dir/a?b", "/pub/dir/c/?d=e"}},
      {"an empty query", R"(<a href="a?">)", {}, {"/pub/dir/a?"}},
      {"a doubled slash", R"(<a href="/pub/dir//a">)", {}, {"/pub/dir//a"}},
      {"a folder with a doubled slash", R"(<a href="a//">)", {}, {"/pub/dir/a//"}},
      {"no address", R"(<a href="http://[files.example/">)", {}, {"http://[files.example/"}},
      {"the same again at once", R"(<a href="a/b"></a><a href="a/b">)", {}, {"/pub/dir/a/b"}},
  });
}

TEST(HtmlPage, NamesAreTheBytesOfTheServer) {
  ExpectAnchors({
      {"escapes", R"(<a href="a%20b%3fc%23">)", {"a b?c#"}, {}},
      {"UTF-8", R"(<a href="%C3%9C"><a href="ö">)", {"Ü", "ö"}, {}},
      {"no UTF-8", R"(<a href="%FF%fe">)", {"\xFF\xFE"}, {}},
      {"an escaped percent sign", R"(<a href="100%25"><a href="%2541">)", {"100%", "%41"}, {}},
      {"no escapes", R"(<a href="100%"><a href="%zz"><a href="%4">)", {"100%", "%zz", "%4"}, {}},
      {"a plus is no blank", R"(<a href="a+b">)", {"a+b"}, {}},
      {"a backslash is no slash", R"(<a href="a\b"><a href="c%5cd">)", {"a\\b", "c\\d"}, {}},
      {"a semicolon", R"(<a href="a;type=a">)", {"a;type=a"}, {}},
      {"dots", R"(<a href="..a"><a href="a.."><a href="...">)", {"..a", "a..", "..."}, {}},
      {"control characters",
       "<a href=\"a%01%0Ab\"><a href=\"c\x01"
       "d\">",
       {"a\x01\nb",
        "c\x01"
        "d"},
       {}},
      {"references", R"(<a href="a&amp;b&lt;&gt;&quot;&apos;c">)", {"a&b<>\"'c"}, {}},
      {"numbers", R"(<a href="&#65;&#x42;&#X43;&#228;&#x1F600;">)", {"ABC\xC3\xA4\xF0\x9F\x98\x80"}, {}},
      {"a reference in an escape", R"(<a href="%2&#53;41">)", {"%41"}, {}},
      {"no reference", R"(<a href="a&b&lt=c&copy;&;&#;&#x;">)", {"a&b&lt=c&copy;&;&"}, {}},
  });
}

TEST(HtmlPage, RefusesNamesThatAreNoneOfAFile) {
  const std::string longest(255, 'x');
  ExpectAnchors({
      {"a slash", R"(<a href="a%2fb"><a href="%2F">)", {}, {"a/b", "/"}},
      {"a slash at the end", R"(<a href="a%2f">)", {}, {"a/"}},
      {"a zero byte", R"(<a href="a%00b">)", {}, {"a\0b"s}},
      {"a zero byte as it is", "<a href=\"a\0b\">"s, {}, {"a\0b"s}},
      {"the program's own",
       R"(<a href=".corvane"><a href=".CorVane/"><a href=".corvane2">)",
       {".corvane2"},
       {".corvane", ".CorVane"}},
      {"the longest", "<a href=\"" + longest + "\">", {longest}, {}},
      {"one byte more", "<a href=\"" + longest + "x\">", {}, {longest}},
      {"a longer folder", "<a href=\"" + longest + "x/\">", {}, {longest}},
      {"as long in escapes", "<a href=\"" + longest.substr(1) + "%20\">", {longest.substr(1) + " "}, {}},
  });
}

TEST(HtmlPage, EachNameOnce) {
  ExpectAnchors({
      {"an icon and a text", R"(<a href="a"><img></a> <a href="a">a</a>)", {"a"}, {}},
      {"icons in a row of their own", R"(<a href="a"><a href="b"><a href="a"><a href="b">)", {"a", "b"}, {}},
      {"in other ways", R"(<a href="a"><a href="./a"><a href="/pub/dir/%61">)", {"a"}, {}},
      {"a file and a folder", R"(<a href="a"><a href="b"><a href="a/">)", {"b", "a/"}, {"a"}},
      {"a folder and files",
       R"(<a href="a/"><a href="b"><a href="a"><a href="c"><a href="a">)",
       {"a/", "b", "c"},
       {"a"}},
      {"in another case", R"(<a href="a"><a href="A">)", {"a", "A"}, {}},
  });
}

}  // namespace
}  // namespace CorvaneTest
