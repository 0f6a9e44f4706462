#include "apps/corvane/Options/ArgumentWords.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

// Which options and commands are defined depends on these answers: a wrong "no" would make a known option an unknown one.
namespace CorvaneTest {
namespace {

using CorvaneCli::ArgumentWords;

bool MayName(const std::vector<const char*>& words, const char* names) {
  return ArgumentWords(static_cast<int>(words.size()), words.data()).MayName(names);
}

TEST(ArgumentWords, MayNameAnOptionInEverySpelling) {
  for (const char* const word : {"-o", "-oFILE", "-qo", "-qvoFILE", "--output", "--output=FILE", "--output="}) {
    EXPECT_TRUE(MayName({"corvane", "get", "URL", word}, "-o,--output")) << word;
  }
}

TEST(ArgumentWords, NameNoOptionThatIsNotThere) {
  EXPECT_FALSE(MayName({}, "-o,--output"));
  for (const char* const word :
       {"", "-", "--", "o", "output", "-q", "--outpu", "--outputs", "--o", "-", "--resume=-o"}) {
    EXPECT_FALSE(MayName({"corvane", "get", word}, "-o,--output")) << word;
  }
}

TEST(ArgumentWords, MayNameAnOptionThatHasNoLetter) {
  EXPECT_TRUE(MayName({"--limit"}, "--limit"));
  EXPECT_FALSE(MayName({"--limit-percent"}, "--limit"));
  EXPECT_FALSE(MayName({"-l"}, "--limit"));
}

TEST(ArgumentWords, HoldWholeWordsOnly) {
  const std::vector<const char*> words = {"corvane", "get", "mirrors"};
  const ArgumentWords held(static_cast<int>(words.size()), words.data());
  EXPECT_TRUE(held.Hold("get"));
  EXPECT_FALSE(held.Hold("mirror"));
}

TEST(ArgumentWords, TellWhatOthersWouldTakeForALettersValue) {
  const auto behind = [](std::vector<const char*> words) {
    words.insert(words.begin(), "corvane");
    return std::string(ArgumentWords(static_cast<int>(words.size()), words.data()).Behind('O'));
  };
  EXPECT_EQ(behind({"get", "-O", "f"}), "f");
  EXPECT_EQ(behind({"get", "-qO", "f"}), "f");
  EXPECT_EQ(behind({"get", "-qO-"}), "-");
  EXPECT_EQ(behind({"get", "f", "-O"}), "");
  EXPECT_EQ(behind({"get", "--Only", "f", "O", "-"}), "");
}

}  // namespace
}  // namespace CorvaneTest
