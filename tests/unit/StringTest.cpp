#include <dlfcn.h>

#include <cstddef>
#include <cwctype>
#include <limits>
#include <new>
#include <string>
#include <type_traits>
#include <utility>

#include <gtest/gtest.h>

#include <Corvane/Base/String.h>

#include "tests/support/Env.h"
#include "tests/unit/PrintTo.h"

// Few systems have a Turkish locale installed, so the tests bring its two peculiar letters: the functions replace the C
// library's in the whole process and pass on everything else.
static bool turkish = false;

static std::wint_t CallNext(const char* name, std::wint_t character) {
  using Function = std::wint_t (*)(std::wint_t);
  return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name))(character);
}

extern "C" __attribute__((visibility("default"))) std::wint_t towlower(std::wint_t character) noexcept {
  return turkish && character == L'I' ? 0x131 : CallNext("towlower", character);
}

extern "C" __attribute__((visibility("default"))) std::wint_t towupper(std::wint_t character) noexcept {
  return turkish && character == L'i' ? 0x130 : CallNext("towupper", character);
}

namespace {

using Corvane::ZString;
using CorvaneTest::ScopedLocale;

constexpr std::size_t npos = ZString::npos;

TEST(ZString, IsEmptyByDefault) {
  const ZString text;
  EXPECT_TRUE(text.IsEmpty());
  EXPECT_EQ(text.Length(), 0u);
  EXPECT_STREQ(text.CStr(), L"");
}

TEST(ZString, NullPointersGiveAnEmptyString) {
  EXPECT_TRUE(ZString(static_cast<const char*>(nullptr)).IsEmpty());
  EXPECT_TRUE(ZString(static_cast<const char*>(nullptr), 5).IsEmpty());
  EXPECT_TRUE(ZString(static_cast<const wchar_t*>(nullptr)).IsEmpty());
  EXPECT_TRUE(ZString(static_cast<const wchar_t*>(nullptr), 5).IsEmpty());
  EXPECT_TRUE(ZString(L"old").Assign(static_cast<const char*>(nullptr)).IsEmpty());
  EXPECT_EQ(ZString(L"old").Append(static_cast<const wchar_t*>(nullptr), 3), ZString(L"old"));
  EXPECT_EQ(ZString(L"old").Append(static_cast<const char*>(nullptr), 3), ZString(L"old"));
}

TEST(ZString, ConstructsFromNarrowAndWideText) {
  EXPECT_EQ(ZString("abc").Str(), L"abc");
  EXPECT_EQ(ZString("abc", 2).Str(), L"ab");
  EXPECT_EQ(ZString(L"a\u00E4\U0001F600").Str(), L"a\u00E4\U0001F600");
  EXPECT_EQ(ZString(L"abc", 2).Str(), L"ab");
  EXPECT_EQ(ZString(std::wstring(L"abc")).Str(), L"abc");
}

TEST(ZString, AGivenLengthMaySpanZeroCharacters) {
  EXPECT_EQ(ZString("a\0b", 3).Str(), std::wstring(L"a\0b", 3));
  EXPECT_EQ(ZString(L"a\0b", 3).Str(), std::wstring(L"a\0b", 3));
}

TEST(ZString, CStrIsTerminatedByAZeroCharacter) {
  ZString text(L"abc");
  EXPECT_EQ(text.CStr()[3], L'\0');
  EXPECT_EQ(text[3], L'\0');
  EXPECT_EQ(text[1], L'b');
}

TEST(ZString, CopiesAreDeep) {
  ZString original(L"text");
  ZString copy = original;
  copy.Append(L'!');
  EXPECT_EQ(original, ZString(L"text"));
  EXPECT_EQ(copy, ZString(L"text!"));
}

TEST(ZString, MovesTakeTheMemory) {
  ZString original(std::wstring(100, L'x'));
  const wchar_t* const memory = original.CStr();
  const ZString moved = std::move(original);
  EXPECT_EQ(moved.CStr(), memory);
  EXPECT_TRUE(std::is_nothrow_move_constructible_v<ZString>);
  EXPECT_TRUE(std::is_nothrow_move_assignable_v<ZString>);
}

TEST(ZString, AssignReplacesTheText) {
  ZString text(L"old");
  EXPECT_EQ(&text.Assign(ZString(L"new")), &text);
  EXPECT_EQ(text, ZString(L"new"));
  EXPECT_EQ(text.Assign("narrow"), ZString(L"narrow"));
  EXPECT_EQ(text.Assign("narrow", 3), ZString(L"nar"));
  EXPECT_EQ(text.Assign(text), ZString(L"nar"));
}

TEST(ZString, AppendAddsAtTheEnd) {
  ZString text(L"a");
  EXPECT_EQ(&text.Append(ZString(L"b")), &text);
  text.Append("cx", 1).Append(L"dx", 1).Append(L'e');
  text += L"f";
  EXPECT_EQ(text, ZString(L"abcdef"));
}

TEST(ZString, AppendsItself) {
  ZString text(L"ab");
  EXPECT_EQ(text.Append(text), ZString(L"abab"));
  EXPECT_EQ(text.Append(text.CStr() + 1, 2), ZString(L"ababba"));
}

TEST(ZString, ConcatenationLeavesItsOperandsAlone) {
  const ZString left(L"left");
  const ZString right(L"right");
  EXPECT_EQ(left + right, ZString(L"leftright"));
  EXPECT_EQ(left, ZString(L"left"));
  EXPECT_EQ(right, ZString(L"right"));
}

TEST(ZString, ClearEmptiesTheText) {
  ZString text(L"abc");
  EXPECT_EQ(&text.Clear(), &text);
  EXPECT_TRUE(text.IsEmpty());
}

TEST(ZString, ReserveMakesRoomAndNeverTakesItAway) {
  ZString text(L"abc");
  text.Reserve(1000);
  EXPECT_GE(text.Str().capacity(), 1000u);
  text.Reserve(10);
  EXPECT_GE(text.Str().capacity(), 1000u);
  EXPECT_EQ(text, ZString(L"abc"));
}

TEST(ZString, ReserveOfMoreThanThereIsThrowsBadAllocAndKeepsTheText) {
  for (const std::size_t length : {npos, npos - 1, npos / 2, npos / sizeof(wchar_t)}) {
    ZString text(L"abc");
    EXPECT_THROW(text.Reserve(length), std::bad_alloc) << length;
    EXPECT_EQ(text, ZString(L"abc"));
  }
}

TEST(ZString, ALengthOfAllOnesMeansUpToTheTerminatingZero) {
  EXPECT_EQ(ZString("abc", npos), ZString(L"abc"));
  EXPECT_EQ(ZString(L"abc", npos), ZString(L"abc"));
  EXPECT_EQ(ZString(L"old").Assign("abc", npos), ZString(L"abc"));
  EXPECT_EQ(ZString(L"old").Append("abc", npos), ZString(L"oldabc"));
  EXPECT_EQ(ZString(L"old").Append(L"abc", npos), ZString(L"oldabc"));
  EXPECT_TRUE(ZString(static_cast<const char*>(nullptr), npos).IsEmpty());
  EXPECT_TRUE(ZString(static_cast<const wchar_t*>(nullptr), npos).IsEmpty());
}

TEST(ZString, AppendingManySmallPiecesKeepsEveryOne) {
  // One piece at a time, as a hostile header arrives: with a copy of all for each piece this would take minutes.
  const std::string piece = "X-Header: \xFF\xFE 16";
  ZString text;
  for (int i = 0; i < 100000; ++i) text.Append(piece.data(), piece.size());
  ASSERT_EQ(text.Length(), 100000 * piece.size());
  EXPECT_EQ(text.Substr(text.Length() - piece.size()), ZString(L"X-Header: \u00FF\u00FE 16"));
}

TEST(ZString, BytesThatTheCLocaleDoesNotDecodeBecomeTheCharacterOfTheSameNumber) {
  const ScopedLocale locale("C");
  for (int byte = 1; byte <= 0xFF; ++byte) {
    const char text[] = {static_cast<char>(byte), '\0'};
    EXPECT_EQ(ZString(text).Str(), std::wstring(1, static_cast<wchar_t>(byte))) << "byte " << byte;
  }
}

TEST(ZString, NarrowTextDecodesByTheCurrentLocale) {
  const ScopedLocale locale("C.UTF-8");
  EXPECT_EQ(ZString("gr\xC3\xBC\xC3\x9F"), ZString(L"gr\u00FC\u00DF"));
  EXPECT_EQ(ZString().Assign("\xE2\x82\xAC"), ZString(L"\u20AC"));
  EXPECT_EQ(ZString(L"5 ").Append("\xF0\x9F\x98\x80", 4), ZString(L"5 \U0001F600"));
}

TEST(ZString, UndecodableBytesInAMultibyteLocaleKeepTheirNumbers) {
  const ScopedLocale locale("C.UTF-8");
  struct Case {
    const char* name;
    std::string bytes;
    std::wstring text;
  };
  const Case cases[] = {
      {"lone lead", "a\xC3z", L"a\u00C3z"},
      {"lone continuation", "\x80", L"\u0080"},
      {"incomplete at the end", "a\xE2\x82", L"a\u00E2\u0082"},
      {"incomplete before text", "\xE2\x82x", L"\u00E2\u0082x"},
      {"never valid", "\xFF\xFE", L"\u00FF\u00FE"},
      {"overlong", "\xC0\x80", L"\u00C0\u0080"},
      {"surrogate", "\xED\xA0\x80", L"\u00ED\u00A0\u0080"},
      {"beyond Unicode", "\xF4\x90\x80\x80", L"\u00F4\u0090\u0080\u0080"},
      {"good after bad", "\xFF\xC3\xBC", L"\u00FF\u00FC"},
  };
  for (const Case& c : cases) EXPECT_EQ(ZString(c.bytes.data(), c.bytes.size()).Str(), c.text) << c.name;
}

TEST(ZString, LongNarrowTextDecodesAcrossEveryBlockBoundary) {
  const ScopedLocale locale("C.UTF-8");
  for (std::size_t before = 0; before < 2100; ++before) {
    const std::string bytes = std::string(before, 'a') + "\xC3\xBC" + std::string(20, 'b');
    const std::wstring text = std::wstring(before, L'a') + L"\u00FC" + std::wstring(20, L'b');
    ASSERT_EQ(ZString(bytes.c_str()).Str(), text) << before;
  }
}

TEST(ZString, TrimsWhiteSpace) {
  struct Case {
    const wchar_t* text;
    const wchar_t* left;
    const wchar_t* right;
  };
  const Case cases[] = {
      {L"", L"", L""},
      {L" ", L"", L""},
      {L" \t\n\v\f\r", L"", L""},
      {L"a", L"a", L"a"},
      {L"  a b  ", L"a b  ", L"  a b"},
      {L"\r\nline\r\n", L"line\r\n", L"\r\nline"},
      {L"\u00A0\u2003\u3000a\u00A0", L"\u00A0\u2003\u3000a\u00A0", L"\u00A0\u2003\u3000a\u00A0"},  // part of a name
  };
  for (const char* name : {"C", "C.UTF-8"}) {
    const ScopedLocale locale(name);
    for (const Case& c : cases) {
      EXPECT_EQ(ZString(c.text).TrimLeft(), ZString(c.left)) << name;
      EXPECT_EQ(ZString(c.text).TrimRight(), ZString(c.right)) << name;
    }
  }
}

TEST(ZString, TrimStopsAtAZeroCharacter) {
  const std::wstring zero(1, L'\0');
  EXPECT_EQ(ZString(L" " + zero + L" ").TrimLeft().TrimRight().Str(), zero);
}

TEST(ZString, SetNumFormatsByDefaultAfterTheType) {
  EXPECT_EQ(ZString().SetNum(-7), ZString(L"-7"));
  EXPECT_EQ(ZString().SetNum(7u), ZString(L"7"));
  EXPECT_EQ(ZString().SetNum(0), ZString(L"0"));
  EXPECT_EQ(ZString().SetNum(std::numeric_limits<int>::min()), ZString(L"-2147483648"));
  EXPECT_EQ(ZString().SetNum(std::numeric_limits<unsigned int>::max()), ZString(L"4294967295"));
  EXPECT_EQ(ZString().SetNum(std::numeric_limits<long long>::min()), ZString(L"-9223372036854775808"));
  EXPECT_EQ(ZString().SetNum(std::numeric_limits<unsigned long long>::max()), ZString(L"18446744073709551615"));
}

TEST(ZString, SetNumUsesTheArgumentsOwnWidth) {
  EXPECT_EQ(ZString().SetNum(-1, 'u'), ZString(L"4294967295"));
  EXPECT_EQ(ZString().SetNum(-1, 'x'), ZString(L"ffffffff"));
  EXPECT_EQ(ZString().SetNum(-1LL, 'u'), ZString(L"18446744073709551615"));
  EXPECT_EQ(ZString().SetNum(-1LL, 'x'), ZString(L"ffffffffffffffff"));
  EXPECT_EQ(ZString().SetNum(0x80010000u, 'd'), ZString(L"-2147418112"));
  EXPECT_EQ(ZString().SetNum(0x80010000ull, 'd'), ZString(L"2147549184"));
  const long minusOne = -1;
  EXPECT_EQ(ZString().SetNum(minusOne, 'u'), ZString().SetNum(std::numeric_limits<unsigned long>::max()));
  EXPECT_EQ(ZString().SetNum(std::numeric_limits<unsigned long>::max(), 'd'), ZString(L"-1"));
}

TEST(ZString, SetNumWritesHexadecimalInLowerCaseWithoutPrefix) {
  EXPECT_EQ(ZString().SetNum(0x8001138Cu, 'x'), ZString(L"8001138c"));
  EXPECT_EQ(ZString().SetNum(0, 'x'), ZString(L"0"));
}

TEST(ZString, SetNumTakesAnUnknownFormatAsTheDefault) {
  EXPECT_EQ(ZString().SetNum(-5, '?'), ZString(L"-5"));
  EXPECT_EQ(ZString().SetNum(std::numeric_limits<unsigned int>::max(), '?'), ZString(L"4294967295"));
}

TEST(ZString, SetNumReplacesTheTextAndReturnsTheString) {
  ZString text(L"a much longer text than the number");
  EXPECT_EQ(&text.SetNum(12), &text);
  EXPECT_EQ(text, ZString(L"12"));
}

TEST(ZString, ArgFillsTheLowestNumberedPlaceholderLeft) {
  EXPECT_EQ(ZString(L"%1, %2").Arg(L"a").Arg(L"b"), ZString(L"a, b"));
  EXPECT_EQ(ZString(L"%2, %1").Arg(L"a").Arg(L"b"), ZString(L"b, a"));
  EXPECT_EQ(ZString(L"%7 %3 %99").Arg(L"a").Arg(L"b").Arg(L"c"), ZString(L"b a c"));
}

TEST(ZString, ArgFillsEveryOccurrence) {
  EXPECT_EQ(ZString(L"%1%1 %2 %1").Arg(L"ab").Arg(L"c"), ZString(L"abab c ab"));
}

TEST(ZString, ArgWithoutAPlaceholderReturnsAnUnchangedCopy) {
  for (const wchar_t* text : {L"", L"plain", L"%", L"100%", L"%0", L"%00", L"%01", L"%x1", L"% 1", L"%%", L"%\u0661"}) {
    EXPECT_EQ(ZString(text).Arg(L"value"), ZString(text));
  }
}

TEST(ZString, ArgTakesAtMostTwoDigits) {
  struct Case {
    const wchar_t* text;
    const wchar_t* filled;
  };
  const Case cases[] = {
      {L"%10", L"v"},  {L"%99", L"v"},  {L"%100", L"v0"},  {L"%123", L"v3"},    {L"%1a", L"va"},
      {L"%%1", L"%v"}, {L"%1%", L"v%"}, {L"%0%1", L"%0v"}, {L"%10%9", L"%10v"},  // 9 is the lower number
  };
  for (const Case& c : cases) EXPECT_EQ(ZString(c.text).Arg(L"v"), ZString(c.filled));
}

TEST(ZString, ArgNeverSearchesInsertedText) {
  EXPECT_EQ(ZString(L"%1: %2").Arg(L"100%2.txt").Arg(L"ok"), ZString(L"100%2.txt: ok"));
  EXPECT_EQ(ZString(L"%1, %2").Arg(L"http://h/a%20b%1").Arg(L"%1%2"), ZString(L"http://h/a%20b%1, %1%2"));
  EXPECT_EQ(ZString(L"%1").Arg(L"%1").Arg(L"x"), ZString(L"%1"));
}

TEST(ZString, NoPlaceholderStraddlesTheBorderOfInsertedText) {
  struct Case {
    const char* name;
    ZString filled;
    const wchar_t* expected;
  };
  const Case cases[] = {
      {"percent sign before a value", ZString(L"%%1").Arg(L"2").Arg(L"x"), L"%2"},
      {"value ends with a percent sign", ZString(L"%1%2").Arg(L"100%").Arg(L"5").Arg(L"x"), L"100%5"},
      {"value ends with a percent sign before a digit", ZString(L"%103").Arg(L"%").Arg(L"x"), L"%3"},
      {"value begins with a digit", ZString(L"%2%1").Arg(L"7").Arg(L"x"), L"x7"},
      {"empty value between percent sign and digit", ZString(L"%%123").Arg(L"").Arg(L"x"), L"%3"},
      {"empty value between two digits", ZString(L"%2%105").Arg(L"a").Arg(L"").Arg(L"x"), L"a5"},
  };
  for (const Case& c : cases) EXPECT_EQ(c.filled, ZString(c.expected)) << c.name;
}

TEST(ZString, EarlierValuesStayProtectedWhileLaterOnesAreFilledIn) {
  EXPECT_EQ(ZString(L"%1%2 %3").Arg(L"%3").Arg(L"long value").Arg(L"x"), ZString(L"%3long value x"));
  EXPECT_EQ(ZString(L"%3 %2%1").Arg(L"%3").Arg(L"").Arg(L"x"), ZString(L"x %3"));
  EXPECT_EQ(ZString(L"%1 %2 %1 %3").Arg(L"%2").Arg(L"%3").Arg(L"x"), ZString(L"%2 %3 %2 x"));
}

TEST(ZString, ArgLeavesItsStringAlone) {
  const ZString format(L"%1");
  EXPECT_EQ(format.Arg(L"a"), ZString(L"a"));
  EXPECT_EQ(format, ZString(L"%1"));
}

TEST(ZString, ArgAcceptsItsOwnString) {
  const ZString text(L"<%1>");
  EXPECT_EQ(text.Arg(text), ZString(L"<<%1>>"));
}

TEST(ZString, FilledTextStaysProtectedInCopiesAndMoves) {
  const ZString half = ZString(L"%1 %2").Arg(L"%2");
  ZString copy = half;
  EXPECT_EQ(copy.Arg(L"x"), ZString(L"%2 x"));
  const ZString moved = std::move(copy);
  EXPECT_EQ(moved.Arg(L"x"), ZString(L"%2 x"));
  ZString assigned;
  assigned.Assign(half);
  EXPECT_EQ(assigned.Arg(L"x"), ZString(L"%2 x"));
}

TEST(ZString, FilledTextStaysProtectedWhenTextIsAppended) {
  const ZString value = ZString(L"%1").Arg(L"%1");
  EXPECT_EQ(ZString(value).Append(L" %1", 3).Arg(L"x"), ZString(L"%1 x"));
  EXPECT_EQ(ZString(L"%1 ").Append(value).Arg(L"x"), ZString(L"x %1"));
  EXPECT_EQ((ZString(L"%1 ") + value + L" %1").Arg(L"x"), ZString(L"x %1 x"));
  ZString twice = value;
  twice.Append(twice);
  EXPECT_EQ(twice.Append(L"%3", 2).Arg(L"x"), ZString(L"%1%1x"));
}

TEST(ZString, FilledTextStaysProtectedWhenTheStringIsTrimmed) {
  EXPECT_EQ(ZString(L"  %1 %2  ").Arg(L"%2").TrimLeft().Arg(L"x"), ZString(L"%2 x  "));
  EXPECT_EQ(ZString(L"  %1 %2  ").Arg(L"%2").TrimRight().Arg(L"x"), ZString(L"  %2 x"));
  // The blanks that go belong to the value.
  EXPECT_EQ(ZString(L"%1 %2").Arg(L"  %2").TrimLeft().Arg(L"x"), ZString(L"%2 x"));
  EXPECT_EQ(ZString(L"%2 %1").Arg(L"%2  ").TrimRight().Arg(L"x"), ZString(L"x %2"));
  EXPECT_EQ(ZString(L"%1").Arg(L"   ").TrimLeft().Append(L"%1", 2).Arg(L"x"), ZString(L"x"));
  EXPECT_EQ(ZString(L"%1").Arg(L"   ").TrimRight().Append(L"%1", 2).Arg(L"x"), ZString(L"x"));
}

TEST(ZString, AnEmptyValueAtTheEndStaysABorderWhenTheStringIsTrimmed) {
  EXPECT_EQ(ZString(L"%%1").Arg(L"").TrimLeft().TrimRight().Append(L"2", 1).Arg(L"x"), ZString(L"%2"));
}

TEST(ZString, FilledTextStaysProtectedInSubstringsAndOtherCase) {
  const ZString half = ZString(L"a%1b%2").Arg(L"%2");
  EXPECT_EQ(half.Substr(1).Arg(L"x"), ZString(L"%2bx"));
  EXPECT_EQ(half.Substr(2).Arg(L"x"), ZString(L"2bx"));
  EXPECT_EQ(half.Substr(0, 3).Arg(L"x"), ZString(L"a%2"));
  EXPECT_EQ(half.Upper().Arg(L"x"), ZString(L"A%2Bx"));
  EXPECT_EQ(half.Lower().Arg(L"x"), ZString(L"a%2bx"));
}

TEST(ZString, ReplacedTextIsNoLongerProtected) {
  const ZString filled = ZString(L"%1").Arg(L"value");
  EXPECT_EQ(ZString(filled).Assign("%1").Arg(L"x"), ZString(L"x"));
  EXPECT_EQ(ZString(filled).Clear().Append(L"%1", 2).Arg(L"x"), ZString(L"x"));
  EXPECT_EQ(ZString(filled).SetNum(5).Append(L"%1", 2).Arg(L"x"), ZString(L"5x"));
}

TEST(ZString, ComparesByCharacterNumber) {
  struct Case {
    const wchar_t* a;
    const wchar_t* b;
    int sign;
  };
  const Case cases[] = {
      {L"", L"", 0},    {L"", L"a", -1},  {L"a", L"", 1},        {L"a", L"a", 0},
      {L"a", L"b", -1}, {L"Z", L"a", -1}, {L"a", L"\u00E4", -1}, {L"z", L"\u00E4", -1},
      {L"ab", L"a", 1}, {L"a", L"A", 1},  {L"10", L"9", -1},     {L"\uFFFD", L"\U00010000", -1},
  };
  for (const Case& c : cases) {
    const ZString a(c.a);
    const ZString b(c.b);
    const int order = a.Compare(b);
    EXPECT_EQ((order > 0) - (order < 0), c.sign);
    EXPECT_EQ(a == b, c.sign == 0);
    EXPECT_EQ(a != b, c.sign != 0);
    EXPECT_EQ(a < b, c.sign < 0);
  }
}

TEST(ZString, FindsTextForwards) {
  const ZString text(L"abcabc");
  EXPECT_EQ(text.Find(L"bc"), 1u);
  EXPECT_EQ(text.Find(L"bc", 1), 1u);
  EXPECT_EQ(text.Find(L"bc", 2), 4u);
  EXPECT_EQ(text.Find(L"bc", 5), npos);
  EXPECT_EQ(text.Find(L"x"), npos);
  EXPECT_EQ(text.Find(L"abcabcd"), npos);
  EXPECT_EQ(text.Find(L""), 0u);
  EXPECT_EQ(text.Find(L"", 6), 6u);
  EXPECT_EQ(text.Find(L'c'), 2u);
  EXPECT_EQ(text.Find(L'c', 3), 5u);
  EXPECT_EQ(text.Find(L'x'), npos);
}

TEST(ZString, FindsTextBackwards) {
  const ZString text(L"abcabc");
  EXPECT_EQ(text.FindR(L"bc"), 4u);
  EXPECT_EQ(text.FindR(L"bc", 4), 4u);  // begins at or before
  EXPECT_EQ(text.FindR(L"bc", 3), 1u);
  EXPECT_EQ(text.FindR(L"bc", 0), npos);
  EXPECT_EQ(text.FindR(L"ab", 0), 0u);
  EXPECT_EQ(text.FindR(L"x"), npos);
  EXPECT_EQ(text.FindR(L"abcabcd"), npos);
  EXPECT_EQ(text.FindR(L""), 6u);
  EXPECT_EQ(text.FindR(L'a'), 3u);
  EXPECT_EQ(text.FindR(L'a', 2), 0u);
  EXPECT_EQ(text.FindR(L'x'), npos);
  EXPECT_EQ(ZString().FindR(L'x'), npos);
}

TEST(ZString, FindsMembersOfASet) {
  const ZString text(L"12ab34");
  EXPECT_EQ(text.FindFirstOf(L"ba"), 2u);
  EXPECT_EQ(text.FindFirstOf(L"ba", 3), 3u);
  EXPECT_EQ(text.FindFirstOf(L"xyz"), npos);
  EXPECT_EQ(text.FindFirstOf(L""), npos);
  EXPECT_EQ(text.FindFirstNotOf(L"0123456789"), 2u);
  EXPECT_EQ(text.FindFirstNotOf(L"0123456789", 4), npos);
  EXPECT_EQ(text.FindFirstNotOf(L""), 0u);
  EXPECT_EQ(text.FindLastNotOf(L"0123456789"), 3u);
  EXPECT_EQ(text.FindLastNotOf(L"0123456789", 1), npos);
  EXPECT_EQ(text.FindLastNotOf(L""), 5u);
  EXPECT_EQ(ZString().FindLastNotOf(L"0123456789"), npos);
}

TEST(ZString, APositionPastTheEndIsNoError) {
  const ZString text(L"abc");
  EXPECT_EQ(text.Find(L"a", 4), npos);
  EXPECT_EQ(text.Find(L'a', npos), npos);
  EXPECT_EQ(text.FindR(L"a", 100), 0u);
  EXPECT_EQ(text.FindFirstOf(L"abc", 3), npos);
  EXPECT_EQ(text.FindFirstOf(L"abc", npos), npos);
  EXPECT_EQ(text.FindFirstNotOf(L"x", 100), npos);
  EXPECT_EQ(text.FindLastNotOf(L"x", 100), 2u);
  EXPECT_TRUE(text.Substr(3).IsEmpty());
  EXPECT_TRUE(text.Substr(4).IsEmpty());
  EXPECT_TRUE(text.Substr(npos, npos).IsEmpty());
  for (const std::size_t position : {std::size_t{3}, std::size_t{4}, std::size_t{1} << 40, npos}) {
    EXPECT_EQ(text[position], L'\0') << position;
    EXPECT_EQ(ZString()[position], L'\0') << position;
  }
}

TEST(ZString, SubstrEndsWithTheString) {
  const ZString text(L"abcdef");
  EXPECT_EQ(text.Substr(0), text);
  EXPECT_EQ(text.Substr(2, 3), ZString(L"cde"));
  EXPECT_EQ(text.Substr(4, 100), ZString(L"ef"));
  EXPECT_EQ(text.Substr(2, 0), ZString());
  EXPECT_EQ(text.Substr(1, npos), ZString(L"bcdef"));
}

TEST(ZString, StartsWithComparesThePrefix) {
  const ZString text(L"HTTP/1.1 200");
  EXPECT_TRUE(text.StartsWith(L"HTTP"));
  EXPECT_TRUE(text.StartsWith(L""));
  EXPECT_TRUE(text.StartsWith(text));
  EXPECT_FALSE(text.StartsWith(L"http"));
  EXPECT_FALSE(text.StartsWith(L"TTP"));
  EXPECT_FALSE(ZString(L"HT").StartsWith(L"HTTP"));
  EXPECT_FALSE(ZString().StartsWith(L"a"));
}

TEST(ZString, StartsWithIgnoresCaseOnRequest) {
  EXPECT_TRUE(ZString(L"HTTP/1.1").StartsWith(L"http/", true));
  EXPECT_TRUE(ZString(L"http/1.1").StartsWith(L"HTTP/", true));
  EXPECT_FALSE(ZString(L"http").StartsWith(L"HTTPS", true));
  EXPECT_FALSE(ZString(L"[").StartsWith(L"{", true));  // 32 apart, as the letters are
  const ScopedLocale locale("C.UTF-8");
  EXPECT_TRUE(ZString(L"\u00C4rger").StartsWith(L"\u00E4", true));
}

TEST(ZString, MapsAsciiLettersAndNothingElseOfAscii) {
  for (const char* name : {"C", "C.UTF-8"}) {
    const ScopedLocale locale(name);
    for (wchar_t c = 0; c < 0x80; ++c) {
      const ZString text(&c, 1);
      const bool isUpper = c >= L'A' && c <= L'Z';
      const bool isLower = c >= L'a' && c <= L'z';
      EXPECT_EQ(text.Lower()[0], isUpper ? c + 32 : c) << name;
      EXPECT_EQ(text.Upper()[0], isLower ? c - 32 : c) << name;
    }
  }
}

TEST(ZString, MapsAsciiLettersToAsciiLettersInATurkishLocale) {
  turkish = true;
  const bool isTurkish = std::towlower(L'I') == 0x131 && std::towupper(L'i') == 0x130;
  const ZString lower = ZString(L"MICROSOFT-IIS").Lower();
  const ZString upper = ZString(L"microsoft-iis").Upper();
  const bool startsWith = ZString(L"File").StartsWith(L"FILE", true);
  turkish = false;
  EXPECT_TRUE(isTurkish);
  EXPECT_EQ(lower, ZString(L"microsoft-iis"));
  EXPECT_EQ(upper, ZString(L"MICROSOFT-IIS"));
  EXPECT_TRUE(startsWith);
}

TEST(ZString, MapsOtherLettersByTheLocale) {
  const ScopedLocale locale("C.UTF-8");
  EXPECT_EQ(ZString(L"\u00C4\u0416\u03A9").Lower(), ZString(L"\u00E4\u0436\u03C9"));
  EXPECT_EQ(ZString(L"\u00E4\u0436\u03C9").Upper(), ZString(L"\u00C4\u0416\u03A9"));
}

TEST(ZString, EveryCharacterKeepsItsPositionWhenTheCaseChanges) {
  const ScopedLocale locale("C.UTF-8");
  // The sharp s, the dotted I, a ligature, a zero character and numbers that are no characters at all.
  const std::wstring odd = std::wstring(L"\u00DF\u0130\uFB01\0x", 5) + static_cast<wchar_t>(-1) + wchar_t{0x110000};
  EXPECT_EQ(ZString(odd).Lower().Length(), odd.size());
  EXPECT_EQ(ZString(odd).Upper().Length(), odd.size());
  EXPECT_EQ(ZString(odd).Upper()[4], L'X');
  EXPECT_EQ(ZString(odd).Upper()[5], static_cast<wchar_t>(-1));
}

struct NumberCase {
  const char* name;
  const wchar_t* text;
  int base;
  unsigned long long number;
  bool ok;
};

constexpr unsigned long long kLargest = std::numeric_limits<unsigned long long>::max();

constexpr NumberCase kNumberCases[] = {
    {"empty", L"", 10, 0, false},
    {"zero", L"0", 10, 0, true},
    {"plain", L"1234567890", 10, 1234567890, true},
    {"leading zeros", L"000000000000000000000000000042", 10, 42, true},
    {"leading white space", L" \t\r\n42", 10, 42, true},
    {"trailing blank", L"42 ", 10, 42, false},
    {"trailing letters", L"42kB", 10, 42, false},
    {"text after blanks", L"  x", 10, 0, false},
    {"only blanks", L"   ", 10, 0, false},
    {"no digits", L"<DIR>", 10, 0, false},
    {"minus sign", L"-5", 10, 0, false},
    {"plus sign", L"+5", 10, 0, false},
    {"largest", L"18446744073709551615", 10, kLargest, true},
    {"largest + 1", L"18446744073709551616", 10, kLargest, false},
    {"far too large", L"99999999999999999999999999", 10, kLargest, false},
    {"too large, then text", L"99999999999999999999999999 x", 10, kLargest, false},
    {"binary", L"1011", 2, 11, true},
    {"binary with other digits", L"1012", 2, 5, false},
    {"octal", L"755", 8, 0755, true},
    {"hexadecimal", L"8001138C", 16, 0x8001138C, true},
    {"hexadecimal in lower case", L"ffffffffffffffff", 16, kLargest, true},
    {"hexadecimal too large", L"10000000000000000", 16, kLargest, false},
    {"hexadecimal prefix", L"0x10", 16, 0, false},
    {"base 36", L"Zz", 36, 35 * 36 + 35, true},
    {"letters in base 10", L"ff", 10, 0, false},
    {"other scripts' digits", L"\u0661\uFF11", 10, 0, false},
    {"base 1", L"0", 1, 0, false},
    {"base 0", L"10", 0, 0, false},
    {"base 37", L"10", 37, 0, false},
    {"negative base", L"10", -10, 0, false},
};

TEST(ZString, ReadsUnsignedNumbers) {
  for (const NumberCase& c : kNumberCases) {
    bool ok = !c.ok;
    EXPECT_EQ(ZString(c.text).ToULongLong(c.base, &ok), c.number) << c.name;
    EXPECT_EQ(ok, c.ok) << c.name;
    EXPECT_EQ(ZString(c.text).ToULongLong(c.base), c.number) << c.name;
  }
}

TEST(ZString, ReadsNumbersOfTheWidthOfLong) {
  constexpr unsigned long kLargestLong = std::numeric_limits<unsigned long>::max();
  for (const NumberCase& c : kNumberCases) {
    bool ok = !c.ok;
    const unsigned long number = ZString(c.text).ToULong(c.base, &ok);
    EXPECT_EQ(number, c.number > kLargestLong ? kLargestLong : c.number) << c.name;
    EXPECT_EQ(ok, c.ok && c.number <= kLargestLong) << c.name;
  }
}

TEST(ZString, ReadsWhatItWrote) {
  for (const unsigned long long number : {0ull, 1ull, 9ull, 10ull, 0x7FFFFFFFFFFFFFFFull, kLargest}) {
    EXPECT_EQ(ZString().SetNum(number).ToULongLong(), number);
    EXPECT_EQ(ZString().SetNum(number, 'x').ToULongLong(16), number);
  }
}

}  // namespace
