#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include <gtest/gtest.h>

#include <Corvane/Base/StringCoding.h>

#include "tests/support/Env.h"
#include "tests/unit/PrintTo.h"

namespace {

using Corvane::AppendUtf8;
using Corvane::ZString;
using Corvane::ZStringDecoder;
using Corvane::ZStringEncoder;
using CorvaneTest::ScopedLocale;
using CorvaneTest::ScopedVariable;

std::wstring FromUtf8(std::string_view bytes) { return ZStringDecoder::FromUtf8(bytes.data(), bytes.size()).Str(); }

// `character` in UTF-8, worked out from the definition: 6 bits to each continuation byte.
std::string EncodeByDefinition(std::uint32_t character) {
  std::string bytes;
  if (character < 0x80) return std::string(1, static_cast<char>(character));
  const int continuations = character < 0x800 ? 1 : character < 0x10000 ? 2 : 3;
  const std::uint32_t marks[] = {0, 0xC0, 0xE0, 0xF0};
  bytes.push_back(static_cast<char>(marks[continuations] | character >> (6 * continuations)));
  for (int i = continuations - 1; i >= 0; --i) bytes.push_back(static_cast<char>(0x80 | (character >> (6 * i) & 0x3F)));
  return bytes;
}

TEST(AppendUtf8, DecodesEveryScalarValue) {
  for (std::uint32_t character = 0; character <= 0x10FFFF; ++character) {
    if (character == 0xD800) character = 0xE000;  // surrogates are no scalar values
    const std::string bytes = EncodeByDefinition(character);
    ZString text;
    AppendUtf8(text, bytes.data(), bytes.size());
    ASSERT_EQ(text.Length(), 1u) << std::hex << character;
    ASSERT_EQ(static_cast<std::uint32_t>(text[0]), character) << std::hex << character;
  }
}

struct DecodeCase {
  std::string_view name;
  std::string_view bytes;
  std::wstring_view text;
};

using namespace std::string_view_literals;

constexpr DecodeCase kIllFormed[] = {
    {"lone continuation", "\x80"sv, L"\uFFFD"sv},
    {"last lone continuation", "\xBF"sv, L"\uFFFD"sv},
    {"two lone continuations", "\x80\xBF"sv, L"\uFFFD\uFFFD"sv},
    {"bytes that never occur", "\xC0\xC1\xF5\xFE\xFF"sv, L"\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD"sv},
    {"lone lead of 2", "\xC2"sv, L"\uFFFD"sv},
    {"lone lead of 3", "\xE1"sv, L"\uFFFD"sv},
    {"lone lead of 4", "\xF1"sv, L"\uFFFD"sv},
    {"2 of 3 at the end", "\xE2\x82"sv, L"\uFFFD"sv},
    {"2 of 4 at the end", "\xF0\x9F"sv, L"\uFFFD"sv},
    {"3 of 4 at the end", "\xF0\x9F\x98"sv, L"\uFFFD"sv},
    {"3 of 4 at the end, lowest lead", "\xF0\x90\x80"sv, L"\uFFFD"sv},
    {"3 of 4 at the end, highest lead", "\xF4\x80\x80"sv, L"\uFFFD"sv},
    {"2 of 3 at the end, lowest lead", "\xE0\xA0"sv, L"\uFFFD"sv},
    {"2 of 3 at the end, lead of the surrogates", "\xED\x80"sv, L"\uFFFD"sv},
    {"1 of 2 before text", "\xC3z"sv, L"\uFFFDz"sv},
    {"2 of 3 before text", "\xE2\x82z"sv, L"\uFFFDz"sv},
    {"3 of 4 before text", "\xF0\x9F\x98z"sv, L"\uFFFDz"sv},
    {"3 of 4 before text, highest lead", "\xF4\x80\x80z"sv, L"\uFFFDz"sv},
    {"lead before a whole sequence", "\xE2\xC3\xBC"sv, L"\uFFFD\u00FC"sv},
    {"broken off before a whole sequence", "\xF0\x9F\x98\xE2\x82\xAC"sv, L"\uFFFD\u20AC"sv},
    {"overlong of 2", "\xC0\xAF"sv, L"\uFFFD\uFFFD"sv},
    {"overlong of 3", "\xE0\x80\xAF"sv, L"\uFFFD\uFFFD\uFFFD"sv},
    {"longest overlong of 3", "\xE0\x9F\xBF"sv, L"\uFFFD\uFFFD\uFFFD"sv},
    {"overlong of 4", "\xF0\x80\x80\xAF"sv, L"\uFFFD\uFFFD\uFFFD\uFFFD"sv},
    {"longest overlong of 4", "\xF0\x8F\xBF\xBF"sv, L"\uFFFD\uFFFD\uFFFD\uFFFD"sv},
    {"overlong zero", "\xC0\x80"sv, L"\uFFFD\uFFFD"sv},
    {"first surrogate", "\xED\xA0\x80"sv, L"\uFFFD\uFFFD\uFFFD"sv},
    {"last surrogate", "\xED\xBF\xBF"sv, L"\uFFFD\uFFFD\uFFFD"sv},
    {"surrogate pair", "\xED\xA0\xBD\xED\xB8\x80"sv, L"\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD"sv},
    {"U+110000", "\xF4\x90\x80\x80"sv, L"\uFFFD\uFFFD\uFFFD\uFFFD"sv},
    {"5 bytes", "\xF8\x88\x80\x80\x80"sv, L"\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD"sv},
    {"6 bytes", "\xFC\x84\x80\x80\x80\x80"sv, L"\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD"sv},
    {"one continuation too many", "\xC3\xBC\xBC"sv, L"\u00FC\uFFFD"sv},
    // The Unicode standard's own examples (tables 3-8 to 3-11).
    {"table 3-8", "\xC0\xAF\xE0\x80\xBF\xF0\x81\x82\x41"sv,
     L"\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD\u0041"sv},
    {"table 3-9", "\xED\xA0\x80\xED\xBF\xBF\xED\xAF\x41"sv, L"\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD\uFFFDA"sv},
    {"table 3-10", "\xF4\x91\x92\x93\xFF\x41\x80\xBF\x42"sv, L"\uFFFD\uFFFD\uFFFD\uFFFD\uFFFDA\uFFFD\uFFFDB"sv},
    {"table 3-11", "\xE1\x80\xE2\xF0\x91\x92\xF1\xBF\x41"sv, L"\uFFFD\uFFFD\uFFFD\uFFFDA"sv},
};

TEST(AppendUtf8, ReplacesEachMaximalIllFormedPieceByOneReplacementCharacter) {
  for (const DecodeCase& c : kIllFormed) EXPECT_EQ(FromUtf8(c.bytes), c.text) << c.name;
}

TEST(AppendUtf8, DecodesTheSameAtEveryOffset) {
  // Every position of a piece relative to the blocks that are decoded at once, and to the end of the input.
  for (const DecodeCase& c : kIllFormed) {
    for (std::size_t before = 0; before < 40; ++before) {
      for (const std::size_t after : {0u, 1u, 7u, 15u, 16u, 17u, 40u}) {
        const std::string bytes = std::string(before, 'a') + std::string(c.bytes) + std::string(after, 'b');
        const std::wstring text = std::wstring(before, L'a') + std::wstring(c.text) + std::wstring(after, L'b');
        ASSERT_EQ(FromUtf8(bytes), text) << c.name << " behind " << before << " before " << after;
      }
    }
  }
}

TEST(AppendUtf8, DecodesLongMixedText) {
  std::string bytes;
  std::wstring text;
  for (std::size_t i = 0; i < 5000; ++i) {
    bytes += std::string(i % 37, 'x') + "\xC3\xA4\xE2\x82\xAC" + std::string(i % 3, 'y') + "\xF0\x9F\x98\x80\xFF";
    text += std::wstring(i % 37, L'x') + L"\u00E4\u20AC" + std::wstring(i % 3, L'y') + L"\U0001F600\uFFFD";
  }
  EXPECT_TRUE(FromUtf8(bytes) == text);
}

TEST(AppendUtf8, AcceptsNoncharactersZerosAndTheByteOrderMark) {
  EXPECT_EQ(FromUtf8("\xEF\xBF\xBE\xEF\xBF\xBF"sv), L"\uFFFE\uFFFF");
  EXPECT_EQ(FromUtf8("\xEF\xB7\x90\xF4\x8F\xBF\xBF"sv), L"\uFDD0\U0010FFFF");
  EXPECT_EQ(FromUtf8("a\0b"sv), std::wstring(L"a\0b", 3));
  EXPECT_EQ(FromUtf8("\xEF\xBB\xBFx"sv), L"\uFEFFx");
}

TEST(AppendUtf8, AppendsBehindWhatIsThere) {
  ZString text(L"head: ");
  AppendUtf8(text, "\xC3\xA4", 2);
  AppendUtf8(text, "", 0);
  AppendUtf8(text, nullptr, 0);
  EXPECT_EQ(text, ZString(L"head: \u00E4"));
}

TEST(AppendUtf8, TakesExactlyTheMemoryThatWellFormedTextNeeds) {
  std::string ascii(1000003, 'a');
  std::string mixed;
  while (mixed.size() < 1000000) mixed += "gr\xC3\xBC\xC3\x9F 5 \xE2\x82\xAC \xF0\x9F\x98\x80";
  for (const std::string& bytes : {ascii, mixed}) {
    ZString text;
    AppendUtf8(text, bytes.data(), bytes.size());
    EXPECT_EQ(text.Str().capacity(), text.Length());
  }
}

TEST(AppendUtf8, ManySmallPiecesAreLinear) {
  // A copy of everything for each piece would move 40 TB.
  ZString text;
  for (int i = 0; i < 1000000; ++i) AppendUtf8(text, "0123456789", 10);
  EXPECT_EQ(text.Length(), 10000000u);
}

TEST(AppendUtf8, HostileBodiesAreLinear) {
  // An exception for each byte, or looking ahead from each, would take longer than this test may run.
  constexpr std::size_t kLength = 16u << 20;
  struct Case {
    const char* name;
    std::string piece;
    std::size_t characters;  // that one piece decodes to
  };
  for (const Case& c : {Case{"never valid", "\xFF", 1}, Case{"continuations", "\x80", 1}, Case{"leads", "\xF0", 1},
                        Case{"broken off", "\xF0\x9F\x98", 1}, Case{"surrogates", "\xED\xA0\x80", 3}}) {
    std::string bytes;
    while (bytes.size() < kLength) bytes += c.piece;
    const std::wstring text = FromUtf8(bytes);
    EXPECT_EQ(text.size(), bytes.size() / c.piece.size() * c.characters) << c.name;
    EXPECT_EQ(text.find_first_not_of(L'\uFFFD'), std::wstring::npos) << c.name;
  }
}

TEST(ZStringDecoder, NullPointersGiveAnEmptyString) {
  EXPECT_TRUE(ZStringDecoder::FromLocal(nullptr).IsEmpty());
  EXPECT_TRUE(ZStringDecoder::FromLocal(nullptr, 5).IsEmpty());
  EXPECT_TRUE(ZStringDecoder::FromUtf8(nullptr).IsEmpty());
  EXPECT_TRUE(ZStringDecoder::FromUtf8(nullptr, 5).IsEmpty());
}

TEST(ZStringDecoder, ALengthOfAllOnesMeansUpToTheTerminatingZero) {
  EXPECT_EQ(ZStringDecoder::FromLocal("ab\0c", ZString::npos), ZString(L"ab"));
  EXPECT_EQ(ZStringDecoder::FromLocal("ab\0c"), ZString(L"ab"));
  EXPECT_EQ(ZStringDecoder::FromUtf8("\xC3\xA4\0c", ZString::npos), ZString(L"\u00E4"));
  EXPECT_EQ(ZStringDecoder::FromUtf8("\xC3\xA4\0c"), ZString(L"\u00E4"));
}

TEST(ZStringDecoder, AGivenLengthIsTakenLiterally) {
  EXPECT_EQ(ZStringDecoder::FromLocal("a\0b", 3), ZString(L"a\0b", 3));
  EXPECT_EQ(ZStringDecoder::FromLocal("abc", 0), ZString());
  EXPECT_EQ(ZStringDecoder::FromUtf8("a\0b", 3), ZString(L"a\0b", 3));
  EXPECT_EQ(ZStringDecoder::FromUtf8("\xE2\x82\xAC", 2), ZString(L"\uFFFD"));
}

TEST(ZStringDecoder, LocalTextDependsOnTheLocale) {
  const char* const bytes = "\xC3\xA4";
  {
    const ScopedLocale locale("C");
    EXPECT_EQ(ZStringDecoder::FromLocal(bytes), ZString(L"\u00C3\u00A4"));
  }
  const ScopedLocale locale("C.UTF-8");
  EXPECT_EQ(ZStringDecoder::FromLocal(bytes), ZString(L"\u00E4"));
}

TEST(ZStringDecoder, UndecodableLocalTextIsLinear) {
  constexpr std::size_t kLength = 4u << 20;
  for (const char* name : {"C", "C.UTF-8"}) {
    const ScopedLocale locale(name);
    const ZString text = ZStringDecoder::FromLocal(std::string(kLength, '\xF0').data(), kLength);
    EXPECT_EQ(text.Length(), kLength);
    EXPECT_EQ(text.FindFirstNotOf(L"\u00F0"), ZString::npos);
  }
}

TEST(ZStringDecoder, FollowsTheLocaleOfTheThread) {
  const locale_t utf8 = newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
  ASSERT_NE(utf8, nullptr);
  const locale_t before = uselocale(utf8);
  const ZString text = ZStringDecoder::FromLocal("\xC3\xA4");
  const ZStringEncoder encoder(text, ZStringEncoder::Local);
  uselocale(before);
  freelocale(utf8);
  EXPECT_EQ(text, ZString(L"\u00E4"));
  EXPECT_STREQ(encoder.CStr(), "\xC3\xA4");
}

TEST(ZStringEncoder, EncodesEveryScalarValueInUtf8) {
  for (std::uint32_t character = 0; character <= 0x10FFFF; ++character) {
    if (character == 0xD800) character = 0xE000;
    const wchar_t wide = static_cast<wchar_t>(character);
    const ZStringEncoder encoder(ZString(&wide, 1), ZStringEncoder::Utf8);
    ASSERT_EQ(std::string(encoder.CStr(), encoder.Length()), EncodeByDefinition(character)) << std::hex << character;
  }
}

TEST(ZStringEncoder, CharactersThatAreNoScalarValuesBecomeTheReplacementCharacterInUtf8) {
  for (const std::uint32_t character : {0xD800u, 0xDBFFu, 0xDC00u, 0xDFFFu, 0x110000u, 0x7FFFFFFFu, 0xFFFFFFFFu}) {
    const wchar_t wide[] = {L'a', static_cast<wchar_t>(character), L'b'};
    EXPECT_STREQ(ZStringEncoder(ZString(wide, 3), ZStringEncoder::Utf8).CStr(),
                 "a\xEF\xBF\xBD"
                 "b")
        << std::hex << character;
  }
}

TEST(ZStringEncoder, Utf8IsNeverNullAndTerminated) {
  const ZStringEncoder empty(ZString(), ZStringEncoder::Utf8);
  ASSERT_NE(empty.CStr(), nullptr);
  EXPECT_STREQ(empty.CStr(), "");
  EXPECT_EQ(empty.Length(), 0u);
  const ZStringEncoder zeros(ZString(L"a\0b", 3), ZStringEncoder::Utf8);
  EXPECT_EQ(std::string(zeros.CStr(), zeros.Length() + 1), std::string("a\0b\0", 4));
}

TEST(ZStringEncoder, Utf8DoesNotDependOnTheLocale) {
  const ScopedLocale locale("C");
  EXPECT_STREQ(ZStringEncoder(L"\u20AC", ZStringEncoder::Utf8).CStr(), "\xE2\x82\xAC");
}

TEST(ZStringEncoder, NamesNotRepresentableInTheCLocaleAreNull) {
  const ScopedLocale locale("C");
  for (const wchar_t* name : {L"\u0080", L"na\u00EFve", L"\u20AC.txt", L"file-\U0001F600", L"\u00FF"}) {
    const ZStringEncoder encoder(name, ZStringEncoder::Local);
    EXPECT_EQ(encoder.CStr(), nullptr);
    EXPECT_EQ(encoder.Length(), 0u);
  }
}

TEST(ZStringEncoder, AsciiIsRepresentableInEveryLocale) {
  for (const char* name : {"C", "C.UTF-8"}) {
    const ScopedLocale locale(name);
    for (wchar_t character = 1; character < 0x80; ++character) {
      const ZStringEncoder encoder(ZString(&character, 1), ZStringEncoder::Local);
      ASSERT_NE(encoder.CStr(), nullptr) << name;
      EXPECT_EQ(std::string(encoder.CStr()), std::string(1, static_cast<char>(character))) << name;
    }
    EXPECT_STREQ(ZStringEncoder(ZString(), ZStringEncoder::Local).CStr(), "") << name;
  }
}

TEST(ZStringEncoder, UnicodeNamesAreRepresentableInAUtf8Locale) {
  const ScopedLocale locale("C.UTF-8");
  const ZStringEncoder encoder(L"na\u00EFve \u20AC \U0001F600", ZStringEncoder::Local);
  EXPECT_STREQ(encoder.CStr(), "na\xC3\xAFve \xE2\x82\xAC \xF0\x9F\x98\x80");
  EXPECT_EQ(encoder.Length(), 15u);
}

TEST(ZStringEncoder, ZeroCharactersAndNonCharactersAreNotRepresentableLocally) {
  for (const char* name : {"C", "C.UTF-8"}) {
    const ScopedLocale locale(name);
    EXPECT_EQ(ZStringEncoder(ZString(L"a\0b", 3), ZStringEncoder::Local).CStr(), nullptr) << name;
    for (const std::uint32_t character : {0xD800u, 0xDFFFu, 0x110000u, 0x7FFFFFFFu, 0xFFFFFFFFu}) {
      const wchar_t wide = static_cast<wchar_t>(character);
      EXPECT_EQ(ZStringEncoder(ZString(&wide, 1), ZStringEncoder::Local).CStr(), nullptr) << name << character;
    }
  }
}

TEST(ZStringEncoder, ReadsNoEnvironmentVariable) {
  const ScopedLocale locale("C");
  const ScopedVariable variable("LC_ALL", "C.UTF-8");
  EXPECT_EQ(ZStringEncoder(L"\u20AC", ZStringEncoder::Local).CStr(), nullptr);
  EXPECT_EQ(ZStringDecoder::FromLocal("\xC3\xA4"), ZString(L"\u00C3\u00A4"));
}

void ExpectRoundTrip(std::uint32_t character) {
  const wchar_t wide = static_cast<wchar_t>(character);
  const ZString text(&wide, 1);
  const ZStringEncoder encoder(text, ZStringEncoder::Local);
  if (encoder.CStr() == nullptr) return;
  EXPECT_EQ(ZStringDecoder::FromLocal(encoder.CStr()), text) << std::hex << character;
}

TEST(ZStringEncoder, WhatIsRepresentableLocallyDecodesToTheSameText) {
  for (const char* name : {"C", "C.UTF-8"}) {
    const ScopedLocale locale(name);
    for (std::uint32_t character = 1; character <= 0x10FFFF; character += character < 0x3000 ? 1 : 61) {
      ExpectRoundTrip(character);
    }
  }
}

TEST(ZStringEncoder, OwnsItsResult) {
  ZStringEncoder copy(ZString(L"first"), ZStringEncoder::Utf8);
  {
    const ZStringEncoder second(ZString(L"second, long enough for memory of its own"), ZStringEncoder::Utf8);
    copy = second;
  }
  EXPECT_STREQ(copy.CStr(), "second, long enough for memory of its own");
}

}  // namespace
