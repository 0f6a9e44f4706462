#include <Corvane/ShownUrlImpl.h>

#include <gtest/gtest.h>

#include <utility>

namespace Corvane {
namespace {

const std::pair<const wchar_t*, const wchar_t*> kUrls[] = {
    {L"", L""},
    {L"http://h/a", L"http://h/a"},
    {L"http://h:80/a@b:c", L"http://h:80/a@b:c"},
    {L"http://h/a:b@c", L"http://h/a:b@c"},
    {L"http://[::1]/a@b", L"http://[::1]/a@b"},
    {L"http://[::1]:80/a@b", L"http://[::1]:80/a@b"},
    {L"http://ada@h/a", L"http://ada@h/a"},
    {L"http://ada@h:80/a", L"http://ada@h:80/a"},
    {L"http://ada:pw@h/a", L"http://ada:***@h/a"},
    {L"http://ada:@h/a", L"http://ada:***@h/a"},
    {L"http://:pw@h/a", L"http://:***@h/a"},
    {L"http://ada:pw@h:80/a", L"http://ada:***@h:80/a"},
    {L"http://ada:p:w@h/a", L"http://ada:***@h/a"},
    {L"http://ada:p@w@h/a", L"http://ada:***@h/a"},
    {L"http://ada:80@h/a", L"http://ada:***@h/a"},
    {L"ftp://ada:pw@h", L"ftp://ada:***@h"},
    {L"ada:pw@h/a", L"ada:***@h/a"},
    {L"http://ada:pw@h?x=@", L"http://ada:***@h?x=@"},
    {L"http://ada:pw@h#:@", L"http://ada:***@h#:@"},
    {L"http://ada:p/w@h/a", L"http://ada:***@h/a"},
    {L"http://ada:p?w@h/a", L"http://ada:***@h/a"},
    {L"http://ada:p#w@h/a", L"http://ada:***@h/a"},
    {L"http:/ada:pw@h/a", L"http:/ada:***@h/a"},
    {L"http:///ada:pw@h/a", L"http:///ada:***@h/a"},
    {L"ada:pw@h/?u=http://i/", L"ada:***@h/?u=http://i/"},
    {L"file:///a/b:c@d", L"file:///a/b:c@d"},
    {L"file:///b:c@d", L"file:///b:c@d"},
    {L"http:/", L"http:/"},
};

TEST(ShownUrl, HidesWhatStandsForAPasswordAndNothingElse) {
  for (const auto& [url, shown] : kUrls) EXPECT_EQ(ShownUrl(url), ZString(shown)) << ZString(url).Length();
}

constexpr std::pair<const wchar_t*, const wchar_t*> kTexts[] = {
    {L"", L""},
    {L"no URL at all, but a:b@c", L"no URL at all, but a:b@c"},
    {L"http://h:80/ and a@b", L"http://h:80/ and a@b"},
    {L"http://a:b@h", L"http://a:***@h"},
    {L"'http://a:b@h' 'ftp://c:d@i'", L"'http://a:***@h' 'ftp://c:***@i'"},
    {L"http://a:b@h/http://c:d@i", L"http://a:***@h/http://c:***@i"},
    {L"//a:b@h\t//c:d@i", L"//a:***@h\t//c:***@i"},
    {L"http://a:b/c@h d", L"http://a:***@h d"},
    {L"http:/a:b@h http:///a:b@h", L"http:/a:***@h http:///a:***@h"},
    {L"///a:b@h ////a:b@h", L"///a:***@h ////a:***@h"},
    {L"http://a:b c@h", L"http://a:b c@h"},
};

TEST(ShownUrls, HideThePasswordsOfAllUrlsInAText) {
  for (const auto& [text, shown] : kTexts) EXPECT_EQ(ShownUrls(text), ZString(shown));
  EXPECT_EQ(ShownUrls(L"X http://a:b c@h", true), ZString(L"X http://a:***@h"));
}

}  // namespace
}  // namespace Corvane
