#include <Corvane/Transfer/AnswerHeaderImpl.h>

#include <gtest/gtest.h>

#include <string>

namespace Corvane {
namespace {

struct HeaderCase {
  const char* name;
  std::string header;
  long status;
  std::string validator;
};

const std::string kDates = "Last-Modified: Sat, 21 Nov 2026 10:00:00 GMT\r\nDate: Sat, 21 Nov 2026 10:00:01 GMT\r\n";

const HeaderCase kHeaders[] = {
    {"nothing", "", 0, ""},
    {"no status line", "ETag: \"a\"\r\n", 0, "\"a\""},
    {"an unfinished line", "HTTP/1.1 200 OK", 0, ""},
    {"HTTP/1.1", "HTTP/1.1 200 OK\r\nETag: \"a\"\r\n\r\n", 200, "\"a\""},
    {"HTTP/2", "HTTP/2 206 \r\netag: \"a\"\r\n\r\n", 206, "\"a\""},
    {"no status", "HTTP/1.1 \r\n", 0, ""},
    {"a word for a status", "HTTP/1.1 OK\r\n", 0, ""},
    {"the last of several answers", "HTTP/1.1 302 X\r\nETag: \"a\"\r\n\r\nHTTP/1.1 200 OK\r\nETag: \"b\"\r\n\r\n", 200,
     "\"b\""},
    {"an earlier answer's tag", "HTTP/1.1 302 X\r\nETag: \"a\"\r\n\r\nHTTP/1.1 200 OK\r\n\r\n", 200, ""},
    {"a weak tag", "HTTP/1.1 200 OK\r\nETag: W/\"a\"\r\n\r\n", 200, ""},
    {"a tag without quotes", "HTTP/1.1 200 OK\r\nETag: a\r\n\r\n", 200, ""},
    {"half a tag", "HTTP/1.1 200 OK\r\nETag: \"\r\n\r\n", 200, ""},
    {"a tag without its end", "HTTP/1.1 200 OK\r\nETag: \"a\r\n\r\n", 200, ""},
    {"an empty tag", "HTTP/1.1 200 OK\r\nETag: \"\"\r\n\r\n", 200, "\"\""},
    {"two tags that differ", "HTTP/1.1 200 OK\r\nETag: \"a\"\r\nETag: \"b\"\r\n\r\n", 200, ""},
    {"three tags, the last two the same", "HTTP/1.1 200 OK\r\nETag: \"a\"\r\nETag: \"b\"\r\nETag: \"b\"\r\n\r\n", 200,
     ""},
    {"the same tag twice", "HTTP/1.1 200 OK\r\nETag: \"a\"\r\nETag: \"a\"\r\n\r\n", 200, "\"a\""},
    {"a date", "HTTP/1.1 200 OK\r\n" + kDates + "\r\n", 200, "Sat, 21 Nov 2026 10:00:00 GMT"},
    {"a date beside a weak tag", "HTTP/1.1 200 OK\r\nETag: W/\"a\"\r\n" + kDates + "\r\n", 200,
     "Sat, 21 Nov 2026 10:00:00 GMT"},
    {"a date beside a strong tag", "HTTP/1.1 200 OK\r\n" + kDates + "ETag: \"a\"\r\n\r\n", 200, "\"a\""},
    {"a date of the same second",
     "HTTP/1.1 200 OK\r\nLast-Modified: Sat, 21 Nov 2026 10:00:00 GMT\r\nDate: Sat, 21 Nov 2026 10:00:00 GMT\r\n\r\n",
     200, ""},
    {"a date without the server's own", "HTTP/1.1 200 OK\r\nLast-Modified: Sat, 21 Nov 2026 10:00:00 GMT\r\n\r\n", 200,
     ""},
    {"no date", "HTTP/1.1 200 OK\r\nLast-Modified: then\r\nDate: Sat, 21 Nov 2026 10:00:00 GMT\r\n\r\n", 200, ""},
};

TEST(AnswerHeader, TellsTheStatusAndTheValidatorOfTheLastAnswer) {
  for (const HeaderCase& c : kHeaders) {
    EXPECT_EQ(StatusOf(c.header), c.status) << c.name;
    EXPECT_EQ(ValidatorOf(c.header), c.validator) << c.name;
  }
}

TEST(AnswerHeader, IsOfAnotherVersionOnlyWhenItSaysSo) {
  const std::string tagged = "HTTP/1.1 206 X\r\nETag: \"a\"\r\n" + kDates + "\r\n";
  EXPECT_FALSE(IsOtherVersion(tagged, ""));
  EXPECT_FALSE(IsOtherVersion(tagged, "\"a\""));
  EXPECT_TRUE(IsOtherVersion(tagged, "\"b\""));
  EXPECT_FALSE(IsOtherVersion(tagged, "Sat, 21 Nov 2026 10:00:00 GMT"));
  EXPECT_TRUE(IsOtherVersion(tagged, "Sat, 21 Nov 2026 09:00:00 GMT"));
  EXPECT_FALSE(IsOtherVersion("HTTP/1.1 206 X\r\n\r\n", "\"a\"")) << "an answer that says nothing";
}

}  // namespace
}  // namespace Corvane
