#include <Corvane/Base/Path.h>

#include <gtest/gtest.h>

#include "tests/unit/PrintTo.h"

namespace Corvane {
namespace {

struct DirectoryCase {
  const wchar_t* path;
  const wchar_t* directory;
};
constexpr DirectoryCase kDirectoryCases[] = {
    {L"", L""},        {L"a", L""},
    {L"a/b", L"a"},    {L"a/b/c.txt", L"a/b"},
    {L"/", L"/"},      {L"/a", L"/"},
    {L"/a/b", L"/a"},  {L"a/", L"a"},
    {L"a/b/", L"a/b"}, {L"a//b", L"a/"},
    {L"./a", L"."},    {L"../a", L".."},
    {L"//", L"/"},     {L"\u00fc\u20ac/\u00e9", L"\u00fc\u20ac"},
    {L"a\\b", L""},    {L"a b/c d", L"a b"},
};

TEST(ZPath, GetDirectoryIsWhatStandsBeforeTheLastSlash) {
  for (const DirectoryCase& c : kDirectoryCases) EXPECT_EQ(ZPath::GetDirectory(c.path), ZString(c.directory));
}

struct JoinCase {
  const wchar_t* path;
  const wchar_t* name;
  const wchar_t* joined;
};
constexpr JoinCase kJoinCases[] = {
    {L"a", L"b", L"a/b"},
    {L"a/", L"b", L"a/b"},
    {L"a/b", L"c.txt", L"a/b/c.txt"},
    {L"", L"b", L"b"},
    {L"", L"/b", L"/b"},
    {L"", L"", L""},
    {L"/", L"b", L"/b"},
    {L"a", L"", L"a/"},
    {L"a/", L"", L"a/"},
    {L"a", L"/b", L"a/b"},
    {L"a/", L"/b", L"a/b"},
    {L"a", L"//b", L"a/b"},
    {L"a", L"/", L"a/"},
    {L"a//", L"b", L"a//b"},
    {L"a", L"b/c", L"a/b/c"},
    {L"a", L"b//c/", L"a/b//c/"},
    {L"a", L"..", L"a/.."},
    {L".", L"b", L"./b"},
    {L"\u00fc", L"\u20ac %1", L"\u00fc/\u20ac %1"},
};

TEST(ZPath, JoinsWithOneSlash) {
  for (const JoinCase& c : kJoinCases) EXPECT_EQ((ZPath(c.path) / c.name).ToString(), ZString(c.joined));
}

TEST(ZPath, KeepsItsTextAsGiven) {
  for (const wchar_t* path : {L"", L"/", L"a//b/../c/.", L"./a/", L"~/a", L"a\\b", L"\u20ac"}) {
    EXPECT_EQ(ZPath(path).ToString(), ZString(path));
  }
  EXPECT_EQ(ZPath().ToString(), ZString());
}

TEST(ZPath, CanBeAssignedFromAString) {
  ZPath path(L"before");
  path = ZString(L"after");
  EXPECT_EQ(path.ToString(), ZString(L"after"));
}

TEST(ZPath, JoiningLeavesThePathItself) {
  const ZPath path(L"a");
  EXPECT_EQ((path / L"b" / L"c").ToString(), ZString(L"a/b/c"));
  EXPECT_EQ(path.ToString(), ZString(L"a"));
}

}  // namespace
}  // namespace Corvane
