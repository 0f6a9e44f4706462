// What reaches a terminal, or the output of --text.

#include <gtest/gtest.h>

#include <cstddef>
#include <random>
#include <string>
#include <string_view>

#include "apps/corvane/PrintedText.h"
#include "apps/corvane/Text.h"

namespace CorvaneCli {
namespace {

using namespace std::string_literals;

constexpr const char* kReplacement = "\xEF\xBF\xBD";

std::string Whole(std::string_view bytes) { return ToUtf8(FromUtf8(bytes)); }

// Texts that are good, cut off, overlong, out of range, and everything between.
const std::string kTexts[] = {
    "",
    "plain",
    "gr\xC3\xBC\xC3\x9F",
    "\xE6\xBC\xA2\xE5\xAD\x97",
    "\xF0\x9F\x98\x80",
    "a\0b"s,
    "\x80",
    "\xBF\xBF",
    "\xC0\xAF",
    "\xC1\xBF",
    "\xC2",
    "\xC2-",
    "\xE0\x80\x80",
    "\xE0\x9F\xBF",
    "\xE0\xA0",
    "\xED\xA0\x80\xED\xB0\x80",
    "\xED\x9F\xBF",
    "\xF0\x8F\xBF\xBF",
    "\xF0\x90\x80",
    "\xF0\x90",
    "\xF4\x8F\xBF\xBF",
    "\xF4\x90\x80\x80",
    "\xF5\x80\x80\x80",
    "\xFE\xFF",
    "\xE6\xBC-\xE6",
    "\xF0\x9F\x98\xF0\x9F\x98\x80",
    "\xEF\xBB\xBF with a mark",
    "\xEF\xBF\xBD",  // U+FFFD itself
};

TEST(TextDecoder, DecodesAsTheLibraryDoesWhereverTheTextIsSplit) {
  for (const std::string& text : kTexts) {
    for (std::size_t first = 0; first <= text.size(); ++first) {
      for (std::size_t second = first; second <= text.size(); ++second) {
        TextDecoder decoder;
        std::string decoded = decoder.Decode(text.substr(0, first));
        decoded += decoder.Decode(text.substr(first, second - first));
        decoded += decoder.Decode(text.substr(second));
        decoded += decoder.Finish();
        EXPECT_EQ(decoded, Whole(text)) << testing::PrintToString(text) << ' ' << first << ' ' << second;
        EXPECT_EQ(decoder.HasReplaced(), Whole(text) != text) << testing::PrintToString(text);
      }
    }
  }
}

std::string RandomText(std::mt19937& random) {
  std::string text;
  for (auto count = random() % 30; count > 0; --count) {
    if (random() % 2 == 0) {
      text += static_cast<char>(random() & 0xFF);
    } else {
      text += kTexts[random() % std::size(kTexts)];
    }
  }
  return text;
}

TEST(TextDecoder, DecodesRandomBytesInRandomBlocksAsTheLibraryDoes) {
  std::mt19937 random(5489);
  for (int round = 0; round < 50000; ++round) {
    const std::string text = RandomText(random);
    TextDecoder decoder;
    std::string decoded;
    for (std::string_view rest = text; !rest.empty();) {
      const std::string_view block = rest.substr(0, 1 + random() % 8);
      decoded += decoder.Decode(block);
      rest.remove_prefix(block.size());
    }
    decoded += decoder.Finish();
    ASSERT_EQ(decoded, Whole(text)) << testing::PrintToString(text);
  }
}

TEST(TextDecoder, ReturnsWhatIsCompleteAtOnce) {
  TextDecoder decoder;
  EXPECT_EQ(decoder.Decode("a\xE6\xBC"), "a");
  EXPECT_EQ(decoder.Decode(""), "");
  EXPECT_EQ(decoder.Decode("\xA2z"), "\xE6\xBC\xA2z");
  EXPECT_FALSE(decoder.HasReplaced());
  EXPECT_EQ(decoder.Decode("\xE6\xBC"), "");
  EXPECT_EQ(decoder.Decode("!"), std::string(kReplacement) + "!");
  EXPECT_TRUE(decoder.HasReplaced());
}

TEST(TextDecoder, EndsACharacterThatIsNotCompleteAndGoesOnAfresh) {
  TextDecoder decoder;
  EXPECT_EQ(decoder.Decode("\xF0\x9F\x98"), "");
  EXPECT_FALSE(decoder.HasReplaced());
  EXPECT_EQ(decoder.Finish(), kReplacement);
  EXPECT_TRUE(decoder.HasReplaced());
  EXPECT_EQ(decoder.Finish(), "");
  EXPECT_EQ(decoder.Decode("\x80"), kReplacement);
}

// --- TextCheck

bool IsText(std::string_view bytes) { return TextCheck().Take(bytes); }

TEST(TextCheck, TakesTextsWithLinesTabsAndOverstrikes) {
  for (const std::string& text : {""s, "line\nline\r\n\ttab\fpage"s, "N\bNA\bA"s, " ~"s, "gr\xC3\xBC\xC3\x9F"s,
                                  "\xC2\xA0"s, "\xED\x9F\xBF\xEE\x80\x80"s, "\xE0\xA0\x80"s,
                                  "\xF0\x90\x80\x80\xF4\x8F\xBF\xBF"s, "\xEF\xBB\xBFmark"s, "\xD7\xA9\xE2\x80\x8F"s}) {
    EXPECT_TRUE(IsText(text)) << testing::PrintToString(text);
  }
}

TEST(TextCheck, RefusesWhatIsNoText) {
  for (const std::string& text : {"\0"s,
                                  "a\0b"s,
                                  "\x1b[2J"s,
                                  "\a"s,
                                  "\v"s,
                                  "\x7F"s,
                                  "\x01"s,
                                  "\x0E"s,
                                  "\x1F"s,
                                  "\xC2\x80"s,
                                  "\xC2\x9B"s,
                                  "\xC2\x9F"s,
                                  "\x80"s,
                                  "\xC0\xAF"s,
                                  "\xC1\x81"s,
                                  "\xE0\x80\xAF"s,
                                  "\xED\xA0\x80"s,
                                  "\xF0\x80\x80\xAF"s,
                                  "\xF4\x90\x80\x80"s,
                                  "\xF5"s,
                                  "\xFF\xFE"s,
                                  "gr\xFC"s
                                  "n"s,
                                  "\xE6\xBC."s,
                                  "\x1F\x8B\x08"s,
                                  "PK\x03\x04"s,
                                  "\x7F"
                                  "ELF"s}) {
    EXPECT_FALSE(IsText(text)) << testing::PrintToString(text);
  }
}

TEST(TextCheck, WaitsForTheRestOfACharacter) {
  TextCheck check;
  EXPECT_TRUE(check.Take("\xE6"));
  EXPECT_TRUE(check.Take(""));
  EXPECT_TRUE(check.Take("\xBC"));
  EXPECT_TRUE(check.Take("\xA2z"));
  EXPECT_TRUE(check.Take("\xC2"));
  EXPECT_FALSE(check.Take("\x9B"));
  EXPECT_FALSE(check.Take("good again"));
}

TEST(TextCheck, FindsWhatIsWrongInTheBlockThatShowsIt) {
  TextCheck check;
  EXPECT_TRUE(check.Take("\xE0"));
  EXPECT_FALSE(check.Take("\x80"));  // overlong, whatever follows
}

bool HasForbiddenControl(std::string_view text) {
  const Corvane::ZString decoded = FromUtf8(text);
  for (const wchar_t character : decoded.Str()) {
    const bool isControl = character < 0x20 || (character >= 0x7F && character <= 0x9F);
    if (isControl && std::wstring_view(L"\b\t\n\f\r").find(character) == std::wstring_view::npos) return true;
  }
  return false;
}

TEST(TextCheck, AgreesWithTheLibraryAboutEveryCharacterInBlocksOfAnySize) {
  std::mt19937 random(5489);
  int good = 0;
  for (int round = 0; round < 50000; ++round) {
    std::string text = RandomText(random);
    if (random() % 2 == 0) text = Whole(text);
    std::erase_if(text, [](char c) { return c >= 0 && c < 0x20; });
    TextCheck check;
    bool isText = true;
    for (std::string_view rest = text; !rest.empty();) {
      const std::string_view block = rest.substr(0, 1 + random() % 8);
      isText = check.Take(block);
      rest.remove_prefix(block.size());
    }
    TextDecoder decoder;  // replaces what is ill-formed, but does not mind an incomplete end
    static_cast<void>(decoder.Decode(text));
    ASSERT_EQ(isText, !decoder.HasReplaced() && !HasForbiddenControl(text)) << testing::PrintToString(text);
    if (isText) ++good;
  }
  EXPECT_GT(good, 1000);
}

}  // namespace
}  // namespace CorvaneCli
