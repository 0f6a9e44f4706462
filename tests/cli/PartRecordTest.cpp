// What the program remembers of an incomplete file.

#include <gtest/gtest.h>

#include <limits>
#include <nlohmann/json.hpp>
#include <random>
#include <string>

#include "apps/corvane/PartRecord.h"

namespace CorvaneCli {
namespace {

const PartRecord kRecord{"https://h/a?b=\xC3\xBC", "\"v1\"", 1024};

TEST(PartRecord, ComesBackAsItWasWritten) {
  const PartRecord records[] = {
      kRecord,
      {"ftp://h/a", "", std::nullopt},
      {"http://h/\"\\/", "Sun, 06 Nov 1994 08:49:37 GMT", 0},
      {"http://h/", "\"\xE6\xBC\xA2\"", std::numeric_limits<unsigned long long>::max()},
  };
  for (const PartRecord& record : records) EXPECT_EQ(ParsePartRecord(Format(record)), record) << record.url;
}

TEST(PartRecord, IsOneLineOfJsonThatSaysWhoseItIs) {
  const std::string text = Format({"http://h/", "v", std::nullopt});
  EXPECT_EQ(text, "{\"corvane\":1,\"url\":\"http://h/\",\"validator\":\"v\",\"size\":null}\n");
}

TEST(PartRecord, IsWrittenWhateverTheTextsHold) {
  const std::string text = Format({"http://h/\xFF", "\xC3", 1});
  EXPECT_EQ(nlohmann::json::parse(text)["url"], "http://h/\xEF\xBF\xBD");
}

TEST(PartRecord, IgnoresKeysItDoesNotKnow) {
  EXPECT_EQ(
      ParsePartRecord(R"( {"size": 1, "extra": {"a": [1, {"b": 2}]}, "validator": "v", "url": "u", "corvane": 1} )"),
      (PartRecord{"u", "v", 1}));
  EXPECT_EQ(ParsePartRecord(R"({"corvane": 1, "url": "u", "validator": "v"})"), (PartRecord{"u", "v", std::nullopt}));
}

TEST(PartRecord, RefusesWhatIsNoRecord) {
  const char* const texts[] = {
      "",
      " ",
      "null",
      "true",
      "1",
      "\"u\"",
      "[]",
      "{}",
      "{",
      R"([{"corvane": 1, "url": "u", "validator": "v"}])",
      R"({"corvane": 1, "url": "u", "validator": "v", "size": 1)",
      R"({"corvane": 1, "url": "u", "validator": "v", "size": 1} x)",
      R"({"url": "u", "validator": "v", "size": 1})",
      R"({"corvane": 2, "url": "u", "validator": "v", "size": 1})",
      R"({"corvane": 0, "url": "u", "validator": "v", "size": 1})",
      R"({"corvane": -1, "url": "u", "validator": "v", "size": 1})",
      R"({"corvane": 1.0, "url": "u", "validator": "v", "size": 1})",
      R"({"corvane": "1", "url": "u", "validator": "v", "size": 1})",
      R"({"corvane": 4294967297, "url": "u", "validator": "v", "size": 1})",
      R"({"corvane": 1, "validator": "v", "size": 1})",
      R"({"corvane": 1, "url": null, "validator": "v", "size": 1})",
      R"({"corvane": 1, "url": ["u"], "validator": "v", "size": 1})",
      R"({"corvane": 1, "url": "u", "size": 1})",
      R"({"corvane": 1, "url": "u", "validator": 1, "size": 1})",
      R"({"corvane": 1, "url": "u", "validator": "v", "size": -1})",
      R"({"corvane": 1, "url": "u", "validator": "v", "size": 1.5})",
      R"({"corvane": 1, "url": "u", "validator": "v", "size": "1"})",
      R"({"corvane": 1, "url": "u", "validator": "v", "size": true})",
      R"({"corvane": 1, "url": "u", "validator": "v", "size": 18446744073709551616})",
      R"({"corvane": 1, "url": "u", "validator": "v", "size": 1e3})",
      R"({"corvane": 1, "url": "u", "validator": "v\r\nHost: evil", "size": 1})",
      R"({"corvane": 1, "url": "u\u0000", "validator": "v", "size": 1})",
      R"({"corvane": 1, "url": "u", "validator": "\u007f", "size": 1})",
      "{\"corvane\": 1, \"url\": \"u\xFF\", \"validator\": \"v\", \"size\": 1}",
      R"({"corvane": 1, "url": "u\ud800", "validator": "v", "size": 1})",
  };
  for (const char* const text : texts) EXPECT_EQ(ParsePartRecord(text), std::nullopt) << text;
  EXPECT_EQ(ParsePartRecord(std::string(3, '\0')), std::nullopt);
}

std::string WithPadding(std::size_t bytes) {
  const std::string begin = R"({"corvane": 1, "url": "u", "validator": "v", "x": ")";
  return begin + std::string(bytes - begin.size() - 2, 'x') + "\"}";
}

TEST(PartRecord, IsAtMost64KibibytesLong) {
  EXPECT_NE(ParsePartRecord(WithPadding(65536)), std::nullopt);
  EXPECT_EQ(ParsePartRecord(WithPadding(65537)), std::nullopt);
}

std::string WithDepth(std::size_t depth) {
  return R"({"corvane": 1, "url": "u", "validator": "v", "x": )" + std::string(depth, '[') + std::string(depth, ']') +
         "}";
}

TEST(PartRecord, RefusesWhatIsNestedDeeply) {
  EXPECT_NE(ParsePartRecord(WithDepth(4)), std::nullopt);
  for (const std::size_t depth : {9U, 1000U, 32000U})
    EXPECT_EQ(ParsePartRecord(WithDepth(depth)), std::nullopt) << depth;
  EXPECT_EQ(ParsePartRecord(std::string(65536, '[')), std::nullopt);
  std::string objects;
  for (int i = 0; i < 10000; ++i) objects += "{\"a\":";
  EXPECT_EQ(ParsePartRecord(objects), std::nullopt);
}

TEST(PartRecord, GivesARecordOrNothingForAnyText) {
  std::mt19937 random(5489);
  const std::string good = Format(kRecord);
  std::size_t records = 0;
  for (int round = 0; round < 20000; ++round) {
    std::string text = good;
    for (auto change = random() % 4; change > 0; --change) {
      text[random() % text.size()] = static_cast<char>(random() & 0xFF);
    }
    if (random() % 4 == 0) text.resize(random() % text.size());
    if (const std::optional<PartRecord> record = ParsePartRecord(text)) {
      ++records;
      EXPECT_EQ(ParsePartRecord(Format(*record)), record);
    }
  }
  EXPECT_GT(records, 0U);
}

}  // namespace
}  // namespace CorvaneCli
