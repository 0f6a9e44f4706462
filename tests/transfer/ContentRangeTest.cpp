#include <Corvane/Transfer/ContentRangeImpl.h>

#include <gtest/gtest.h>

#include <string>

namespace Corvane {

static void PrintTo(const ContentRange& range, std::ostream* out) {
  const auto print = [&](const auto& number) { number ? *out << *number : *out << '*'; };
  *out << range.first << '-';
  print(range.last);
  *out << '/';
  print(range.total);
}

namespace {

struct RangeCase {
  const char* value;
  std::optional<ContentRange> range;
};

constexpr unsigned long long kLargestNumber = 18446744073709551615ULL;

const RangeCase kRanges[] = {
    {"bytes 88-199/200", ContentRange{88, 199, 200}},
    {" bytes 88-199/200\r\n", ContentRange{88, 199, 200}},
    {"88-199/200", ContentRange{88, 199, 200}},
    {"bytes: 88-199/200", ContentRange{88, 199, 200}},
    {"bytes=0-0/1", ContentRange{0, 0, 1}},
    {"bytes 88-199/*", ContentRange{88, 199, std::nullopt}},
    {"bytes 88-199", ContentRange{88, 199, std::nullopt}},
    {"bytes 88-", ContentRange{88, std::nullopt, std::nullopt}},
    {"bytes 88-/200", ContentRange{88, std::nullopt, 200}},
    {"bytes 0-18446744073709551614/18446744073709551615", ContentRange{0, kLargestNumber - 1, kLargestNumber}},
    {"", std::nullopt},
    {"bytes", std::nullopt},
    {"bytes */200", std::nullopt},
    {"bytes 88", std::nullopt},
    {"bytes 88-87/200", std::nullopt},
    {"bytes 88-199/199", std::nullopt},
    {"bytes 88-/88", std::nullopt},
    {"bytes 88-199/200x", std::nullopt},
    {"bytes 88-x/200", std::nullopt},
    {"bytes 88-199/x", std::nullopt},
    {"bytes 88-199/", std::nullopt},
    {"bytes 18446744073709551616-199/200", std::nullopt},
    {"bytes 88-18446744073709551616/200", std::nullopt},
    {"bytes 88-199/18446744073709551616", std::nullopt},
};

TEST(ContentRange, TellsFirstLastAndTotal) {
  for (const RangeCase& c : kRanges) EXPECT_EQ(ParseContentRange(c.value), c.range) << c.value;
}

struct AnnouncedCase {
  const char* name;
  const char* header;
  std::optional<ContentRange> range;
};

const AnnouncedCase kAnnounced[] = {
    {"none", "HTTP/1.1 206 Partial Content\r\n\r\n", std::nullopt},
    {"one", "HTTP/1.1 206 X\r\nContent-Range: bytes 1-2/3\r\n\r\n", ContentRange{1, 2, 3}},
    {"in any case", "HTTP/2 206\r\ncontent-RANGE:bytes 1-2/3\r\n\r\n", ContentRange{1, 2, 3}},
    {"twice the same", "HTTP/1.1 206 X\r\nContent-Range: bytes 1-2/3\r\nContent-Range: bytes 1-2/3\r\n\r\n",
     ContentRange{1, 2, 3}},
    {"two that differ", "HTTP/1.1 206 X\r\nContent-Range: bytes 1-2/3\r\nContent-Range: bytes 1-2/4\r\n\r\n",
     std::nullopt},
    {"three of which the last two agree",
     "HTTP/1.1 206 X\r\nContent-Range: bytes 0-2/3\r\nContent-Range: bytes 1-2/3\r\nContent-Range: bytes 1-2/3\r\n\r\n",
     std::nullopt},
    {"one that is none beside a good one",
     "HTTP/1.1 206 X\r\nContent-Range: bytes */3\r\nContent-Range: bytes 1-2/3\r\n\r\n", std::nullopt},
    {"of an earlier answer", "HTTP/1.1 401 X\r\nContent-Range: bytes 0-2/3\r\n\r\nHTTP/1.1 206 X\r\n\r\n",
     std::nullopt},
    {"of the last answer",
     "HTTP/1.1 401 X\r\nContent-Range: bytes 0-2/3\r\n\r\nHTTP/1.1 206 X\r\nContent-Range: bytes 1-2/3\r\n\r\n",
     ContentRange{1, 2, 3}},
    {"in a field of another name", "HTTP/1.1 206 X\r\nX-Content-Range: bytes 1-2/3\r\n\r\n", std::nullopt},
    {"in another field's value", "HTTP/1.1 206 X\r\nX: Content-Range: bytes 1-2/3\r\n\r\n", std::nullopt},
    {"on a last line without its end", "HTTP/1.1 206 X\r\nContent-Range: bytes 1-2/3", std::nullopt},
};

TEST(ContentRange, OfAnAnswerIsWhatItsLinesAgreeOn) {
  for (const AnnouncedCase& c : kAnnounced) EXPECT_EQ(AnnouncedRange(c.header), c.range) << c.name;
}

}  // namespace
}  // namespace Corvane
