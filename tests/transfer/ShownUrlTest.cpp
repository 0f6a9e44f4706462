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
};

TEST(ShownUrl, HidesWhatStandsForAPasswordAndNothingElse) {
  for (const auto& [url, shown] : kUrls) EXPECT_EQ(ShownUrl(url), ZString(shown)) << ZString(url).Length();
}

}  // namespace
}  // namespace Corvane
