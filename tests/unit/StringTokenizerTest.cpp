#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <Corvane/Base/StringTokenizer.h>

#include "tests/unit/PrintTo.h"

namespace {

using Corvane::ZString;
using Corvane::ZStringTokenizer;
using Corvane::ZTokenizer;

using Tokens = std::vector<std::wstring>;

// All tokens, by number; checks that the walk gives the same ones.
Tokens AllTokens(ZTokenizer& tokenizer) {
  Tokens tokens;
  for (std::size_t i = 0; i < tokenizer.CountTokens(); ++i) tokens.push_back(tokenizer.GetToken(i).Str());
  Tokens walked;
  while (tokenizer.HasMoreTokens()) walked.push_back(tokenizer.NextToken().Str());
  EXPECT_EQ(walked, tokens);
  return tokens;
}

TEST(ZStringTokenizer, SplitsAtRunsOfDelimiters) {
  struct Case {
    const char* name;
    const wchar_t* text;
    const wchar_t* delimiters;
    Tokens tokens;
  };
  const Case cases[] = {
      {"empty text", L"", L" ", {}},
      {"only delimiters", L" \t ", L" \t", {}},
      {"one token", L"abc", L" ", {L"abc"}},
      {"two tokens", L"a b", L" ", {L"a", L"b"}},
      {"runs count as one", L"a \t  b", L" \t", {L"a", L"b"}},
      {"leading and trailing delimiters", L"  a b  ", L" ", {L"a", L"b"}},
      {"lines", L"one\r\ntwo\n\n\rthree\r\n", L"\n\r", {L"one", L"two", L"three"}},
      {"no other line breaks", L"a\u2028b\u0085c\vd\fe\n", L"\n\r", {L"a\u2028b\u0085c\vd\fe"}},
      {"no delimiters", L"a b", L"", {L"a b"}},
      {"delimiters beyond ASCII", L"a\u2028b\u00FFc", L"\u2028\u00FF", {L"a", L"b", L"c"}},
      {"characters that differ in the high bits", L"a\u0120b\u0100c", L" ", {L"a\u0120b\u0100c"}},
  };
  for (const Case& c : cases) {
    ZStringTokenizer tokenizer(c.text, c.delimiters);
    EXPECT_EQ(AllTokens(tokenizer), c.tokens) << c.name;
  }
}

TEST(ZStringTokenizer, AtMostSoManyTokensTheLastHoldsTheRemainder) {
  struct Case {
    const char* name;
    const wchar_t* text;
    std::size_t most;
    Tokens tokens;
  };
  const Case cases[] = {
      {"0 means no limit", L"a b c", 0, {L"a", L"b", L"c"}},
      {"1 is all from the first token on", L"  a b  c ", 1, {L"a b  c "}},
      {"delimiters inside the remainder", L"a b c  d", 3, {L"a", L"b", L"c  d"}},
      {"delimiters before the remainder are none of it", L"a   b   c d", 3, {L"a", L"b", L"c d"}},
      {"trailing delimiters stay in the remainder", L"a b  \t", 2, {L"a", L"b  \t"}},
      {"as many as there are", L"a b c", 3, {L"a", L"b", L"c"}},
      {"fewer than allowed", L" a b ", 9, {L"a", L"b"}},
      {"no remainder of delimiters only", L"a b  ", 3, {L"a", L"b"}},
      {"empty text", L"", 2, {}},
      {"only delimiters", L"  \t", 1, {}},
      {"largest limit", L"a b", static_cast<std::size_t>(-1), {L"a", L"b"}},
  };
  for (const Case& c : cases) {
    ZStringTokenizer tokenizer(c.text, L" \t", 0, c.most);
    EXPECT_EQ(AllTokens(tokenizer), c.tokens) << c.name;
  }
}

TEST(ZStringTokenizer, KeepsTheBlanksOfANameInTheLastField) {
  const ZStringTokenizer fields(L"-rw-r--r--   1 ftp ftp    1234 Jan  5 12:30 my  file .txt", L" \t", 0, 9);
  ASSERT_EQ(fields.CountTokens(), 9u);
  EXPECT_EQ(fields.GetToken(4), ZString(L"1234"));
  EXPECT_EQ(fields.GetToken(8), ZString(L"my  file .txt"));
}

TEST(ZStringTokenizer, MissingTokensAreEmptyStrings) {
  ZStringTokenizer tokenizer(L"a b", L" ");
  EXPECT_TRUE(tokenizer.GetToken(2).IsEmpty());
  EXPECT_TRUE(tokenizer.GetToken(static_cast<std::size_t>(-1)).IsEmpty());
  EXPECT_EQ(tokenizer.NextToken(), ZString(L"a"));
  EXPECT_TRUE(tokenizer.HasMoreTokens());
  EXPECT_EQ(tokenizer.NextToken(), ZString(L"b"));
  EXPECT_FALSE(tokenizer.HasMoreTokens());
  EXPECT_TRUE(tokenizer.NextToken().IsEmpty());
  EXPECT_TRUE(tokenizer.NextToken().IsEmpty());
  EXPECT_FALSE(tokenizer.HasMoreTokens());
}

TEST(ZStringTokenizer, GetTokenDoesNotDisturbTheWalk) {
  ZStringTokenizer tokenizer(L"a b c", L" ");
  EXPECT_EQ(tokenizer.NextToken(), ZString(L"a"));
  EXPECT_EQ(tokenizer.GetToken(2), ZString(L"c"));
  EXPECT_EQ(tokenizer.GetToken(0), ZString(L"a"));
  EXPECT_EQ(tokenizer.NextToken(), ZString(L"b"));
  EXPECT_EQ(tokenizer.CountTokens(), 3u);
}

TEST(ZStringTokenizer, KeepsTheText) {
  std::unique_ptr<ZStringTokenizer> tokenizer;
  {
    const ZString text(L"a text that is gone when the tokens are read");
    tokenizer = std::make_unique<ZStringTokenizer>(text, L" ");
  }
  EXPECT_EQ(tokenizer->GetToken(9), ZString(L"read"));
}

TEST(ZStringTokenizer, ZeroCharactersAreOrdinaryOnes) {
  ZStringTokenizer plain(ZString(L"a\0b c", 5), L" ");
  EXPECT_EQ(AllTokens(plain), (Tokens{std::wstring(L"a\0b", 3), L"c"}));
  ZStringTokenizer split(ZString(L"a\0b c", 5), ZString(L"\0", 1));
  EXPECT_EQ(AllTokens(split), (Tokens{L"a", L"b c"}));
}

TEST(ZStringTokenizer, AMillionLinesAreLinear) {
  // Counting from the beginning for each token would take hours.
  std::wstring text;
  for (int i = 0; i < 1000000; ++i) text += L"line\r\n";
  ZStringTokenizer lines(text, L"\r\n");
  ASSERT_EQ(lines.CountTokens(), 1000000u);
  std::size_t walked = 0;
  while (lines.HasMoreTokens()) walked += lines.NextToken().Length();
  EXPECT_EQ(walked, 4000000u);
}

TEST(ZStringTokenizer, IsUsableThroughItsInterface) {
  const std::unique_ptr<ZTokenizer> tokenizer = std::make_unique<ZStringTokenizer>(L"a b", L" ");
  EXPECT_EQ(AllTokens(*tokenizer), (Tokens{L"a", L"b"}));
}

}  // namespace
