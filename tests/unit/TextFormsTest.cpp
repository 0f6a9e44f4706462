#include <gtest/gtest.h>

#include <clocale>
#include <filesystem>
#include <iomanip>
#include <sstream>
#include <string>
#include <unordered_map>

#include <Corvane/Base/Path.h>
#include <Corvane/Base/String.h>

#include "tests/unit/PrintTo.h"

// Strings and paths in the forms that host programs hold: UTF-8, std::filesystem::path, streams, hash tables.
namespace Corvane {
namespace {

constexpr const char* kUtf8 =
    "Gr\xC3\xBC\xC3\x9F"
    "e \xE2\x82\xAC \xF0\x9F\x99\x82";
constexpr const wchar_t* kWide = L"Gr\u00FC\u00DFe \u20AC \U0001F642";

TEST(ZStringUtf8, IsTakenAndGivenWhateverTheLocale) {
  const std::string former = std::setlocale(LC_CTYPE, nullptr);
  for (const char* const locale : {"C", "C.UTF-8"}) {
    ASSERT_NE(std::setlocale(LC_CTYPE, locale), nullptr);
    EXPECT_EQ(ZString::FromUtf8(kUtf8), ZString(kWide)) << locale;
    EXPECT_EQ(ZString(kWide).ToUtf8(), kUtf8) << locale;
  }
  std::setlocale(LC_CTYPE, former.c_str());
}

TEST(ZStringUtf8, KeepsZeroCharactersAndTakesNothing) {
  const std::string text("a\0b", 3);
  EXPECT_EQ(ZString::FromUtf8(text).Length(), 3u);
  EXPECT_EQ(ZString::FromUtf8(text).ToUtf8(), text);
  EXPECT_EQ(ZString::FromUtf8({}), ZString());
  EXPECT_EQ(ZString().ToUtf8(), "");
}

TEST(ZStringUtf8, ReplacesWhatIsIllFormed) {
  EXPECT_EQ(ZString::FromUtf8("a\xFFz"), ZString(L"a\uFFFDz"));
  EXPECT_EQ(ZString(std::wstring{L'a', static_cast<wchar_t>(0xD800)}).ToUtf8(), "a\xEF\xBF\xBD");
}

TEST(ZStringStream, WritesUtf8AsATextOfTheStreamsWidth) {
  std::ostringstream stream;
  stream << ZString(kWide) << '|' << std::setw(4) << ZString(L"ab") << '|' << ZString();
  EXPECT_EQ(stream.str(), std::string(kUtf8) + "|  ab|");
}

TEST(ZStringOrder, IsThatOfCompareInAllSixOperators) {
  const ZString a(L"a");
  const ZString b(L"b");
  EXPECT_TRUE(a < b && a <= b && a != b && b > a && b >= a);
  EXPECT_FALSE(b < a || b <= a || a == b || a > b || a >= b);
  EXPECT_TRUE(a <= ZString(L"a") && a >= ZString(L"a") && a == ZString(L"a"));
}

TEST(ZStringHash, FindsAnEqualString) {
  std::unordered_map<ZString, int> numbers{{L"one", 1}, {L"two", 2}};
  EXPECT_EQ(numbers.at(ZString("two")), 2);
  EXPECT_EQ(numbers.count(L"three"), 0u);
  // What Arg inserted is marked, and the text is the same for all that.
  EXPECT_EQ(std::hash<ZString>()(ZString(L"%1").Arg(L"one")), std::hash<ZString>()(L"one"));
}

TEST(ZPathStandard, ComesAndGoesAsTheLocaleSpellsIt) {
  const std::string former = std::setlocale(LC_CTYPE, nullptr);
  ASSERT_NE(std::setlocale(LC_CTYPE, "C.UTF-8"), nullptr);
  const std::filesystem::path path(std::string("/tmp/") + kUtf8);
  EXPECT_EQ(ZPath::From(path).ToString(), ZString(L"/tmp/") + kWide);
  EXPECT_EQ(ZPath::From(path).ToStandard(), path);
  ASSERT_NE(std::setlocale(LC_CTYPE, "C"), nullptr);
  EXPECT_EQ(ZPath(ZString(kWide)).ToStandard(), std::filesystem::path()) << "the locale cannot express it";
  std::setlocale(LC_CTYPE, former.c_str());
}

TEST(ZPathStandard, IsComparedAsText) {
  EXPECT_TRUE(ZPath(L"a") == ZPath(L"a") && ZPath(L"a") != ZPath(L"./a") && ZPath(L"a") < ZPath(L"b"));
}

}  // namespace
}  // namespace Corvane
