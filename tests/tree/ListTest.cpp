#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "tests/tree/PageTesting.h"

namespace CorvaneTest {
namespace {

using namespace std::string_literals;

TEST(List, ReadsTheUnixFormat) {
  ExpectPages(
      ReadListLines,
      {
          {"a file", "-rw-r--r--    1 1000     1000        12345 Nov 20 10:00 a\r\n", {"a 12345 -"}, {}},
          {"a year", "-rw-r--r-- 1 u g 12345 Nov 20  2025 a\r\n", {"a 12345 -"}, {}},
          {"a folder", "drwxr-xr-x 2 u g 4096 Nov 20 10:00 a\r\n", {"a/ - -"}, {}},
          {"the folder itself and its parent",
           "drwxr-xr-x 2 u g 4096 Nov 20 10:00 .\ndrwxr-xr-x 2 u g 4096 Nov 20 10:00 ..\n",
           {},
           {}},
          {"a mark behind the mode", "-rw-r--r--+ 1 u g 12 Nov 20 10:00 a\r\n", {"a 12 -"}, {}},
          {"no group", "-rw-r--r-- 1 u 12 Nov 20 10:00 a b\r\n", {"a b 12 -"}, {}},
          {"no number of links", "-rw-r--r-- u g 12 Nov 20 10:00 a b\r\n", {"a b 12 -"}, {}},
          {"a group of two words", "-rw-r--r-- 1 u Domain Users 12 Nov 20 10:00 a\r\n", {"a 12 -"}, {}},
          {"numbers for owners", "-rw-r--r-- 1 11 12 13 Nov 20 10:00 a\r\n", {"a 13 -"}, {}},
          {"the day first", "-rw-r--r-- 1 u g 12 20 Nov 10:00 a\r\n", {"a 12 -"}, {}},
          {"another language", "-rw-r--r-- 1 u g 12 20. M\xC3\xA4r 10:00 a\r\n", {"a 12 -"}, {}},
          {"a date in numbers", "-rw-r--r-- 1 u g 12 2026-11-20 10:00 a b\r\n", {"a b 12 -"}, {}},
          {"seconds", "-rw-r--r-- 1 u g 12 2026-11-20 10:00:00.000 a\r\n", {"a 12 -"}, {}},
          {"tabulators", "-rw-r--r--\t1\tu\tg\t12\tNov\t20\t10:00\ta\tb\r\n", {"a\tb 12 -"}, {}},
          {"a name that is a date",
           "-rw-r--r-- 1 u g 12 Nov 20 10:00 13 Nov 21 11:00 b\r\n",
           {"13 Nov 21 11:00 b 12 -"},
           {}},
          {"a size that does not fit", "-rw-r--r-- 1 u g 18446744073709551616 Nov 20 10:00 a\r\n", {"a - -"}, {}},
          {"the largest size",
           "-rw-r--r-- 1 u g 18446744073709551615 Nov 20 10:00 a\r\n",
           {"a 18446744073709551615 -"},
           {}},
          {"a total", "total 12\r\n-rw-r--r-- 1 u g 12 Nov 20 10:00 a\r\n", {"a 12 -"}, {}},
          {"line ends of another system",
           "-rw-r--r-- 1 u g 1 Nov 20 10:00 a\n-rw-r--r-- 1 u g 2 Nov 20 10:00 b",
           {"a 1 -", "b 2 -"},
           {}},
      });
}

// As lftp takes them; libcurl's own reader of such lines drops blanks that a name begins with.
TEST(List, OneBlankAloneSeparatesTheName) {
  const std::string line = "-rw-r--r-- 1 u g 12 Nov 20 10:00 ";
  ExpectPages(ReadListLines, {
                                 {"blanks first", line + "  a\r\n", {"  a 12 -"}, {}},
                                 {"blanks last", line + "a  \r\n", {"a   12 -"}, {}},
                                 {"blanks within", line + "a  b\r\n", {"a  b 12 -"}, {}},
                                 {"nothing but blanks", line + "  \r\n", {"   12 -"}, {}},
                                 {"a carriage return", line + "a\rb\r\n", {"a\rb 12 -"}, {}},
                                 {"an arrow", line + "a -> b\r\n", {"a -> b 12 -"}, {}},
                                 {"bytes that are no UTF-8", line + "\xFF\r\n", {"\xFF 12 -"}, {}},
                                 {"nothing is decoded", line + "a%20b\r\n", {"a%20b 12 -"}, {}},
                             });
}

TEST(List, ReadsTheDosFormat) {
  ExpectPages(
      ReadListLines,
      {
          {"a file", "11-20-26  10:00AM                12345 a b\r\n", {"a b 12345 -"}, {}},
          {"four digits of the year", "11-20-2026  10:00AM                12345 a\r\n", {"a 12345 -"}, {}},
          {"a folder", "11-20-26  10:00AM       <DIR>          a b\r\n", {"a b/ - -"}, {}},
          {"a folder in small letters", "11-20-26  10:00AM       <dir>          a\r\n", {"a/ - -"}, {}},
          {"the folder itself",
           "11-20-26  10:00AM       <DIR>          .\r\n11-20-26  10:00AM       <DIR>          ..\r\n",
           {},
           {}},
          {"blanks first", "11-20-26  10:00AM                12345   a\r\n", {"  a 12345 -"}, {}},
          {"a junction", "11-20-26  10:00AM       <JUNCTION>     a [b]\r\n", {}, {"a [b]"}},
          {"no name", "11-20-26  10:00AM                12345\r\n", {}, {"11-20-26  10:00AM                12345"}},
          {"no name of a folder", "11-20-26  10:00AM       <DIR>     \r\n", {}, {"11-20-26  10:00AM       <DIR>     "}},
          {"no size", "11-20-26  10:00AM a\r\n", {}, {"11-20-26  10:00AM a"}},
          {"no date", "11 20 30 a\r\n", {}, {"11 20 30 a"}},
          {"a date alone", "11-20-26\r\n", {}, {"11-20-26"}},
      });
}

TEST(List, LeavesOutWhatIsNoFileAndNoFolder) {
  ExpectPages(ReadListLines,
              {
                  {"a link", "lrwxrwxrwx 1 u g 4 Nov 20 10:00 a b -> c -> d\r\n", {}, {"a b"}},
                  {"a link without a target", "lrwxrwxrwx 1 u g 4 Nov 20 10:00 a\r\n", {}, {"a"}},
                  {"a device", "crw-rw-rw- 1 u g 1, 3 Nov 20 10:00 null\r\n", {}, {"null"}},
                  {"others",
                   "brw-rw---- 1 u g 8, 0 Nov 20 10:00 b\r\nprw-r--r-- 1 u g 0 Nov 20 10:00 p\r\nsrw-r--r-- 1 u g 0 "
                   "Nov 20 10:00 "
                   "s\r\n",
                   {},
                   {"b", "p", "s"}},
                  {"no name", "-rw-r--r-- 1 u g 12 Nov 20 10:00\r\n", {}, {"-rw-r--r-- 1 u g 12 Nov 20 10:00"}},
                  {"an empty name", "-rw-r--r-- 1 u g 12 Nov 20 10:00 \r\n", {}, {"-rw-r--r-- 1 u g 12 Nov 20 10:00 "}},
                  {"no date", "-rw-r--r-- 1 u g 12 a b c d\r\n", {}, {"-rw-r--r-- 1 u g 12 a b c d"}},
                  {"no size", "-rw-r--r-- 1 u g Nov 20 10:00 a\r\n", {}, {"-rw-r--r-- 1 u g Nov 20 10:00 a"}},
                  {"a word with such a letter", "please wait\r\ndir\r\n", {}, {"please wait", "dir"}},
                  {"another answer", "450 No files found\r\n", {}, {"450 No files found"}},
                  {"a path", "-rw-r--r-- 1 u g 12 Nov 20 10:00 /pub/a\r\n", {}, {"/pub/a"}},
                  {"a way up of a file", "-rw-r--r-- 1 u g 12 Nov 20 10:00 ..\r\n", {}, {".."}},
                  {"a zero byte", "-rw-r--r-- 1 u g 12 Nov 20 10:00 a\0b\r\n"s, {}, {"a\0b"s}},
                  {"the program's own", "drwxr-xr-x 2 u g 4096 Nov 20 10:00 .corvane\r\n", {}, {".corvane"}},
              });
}

TEST(List, ALineInAFormatMakesAListing) {
  EXPECT_TRUE(ReadListLines("").isListing);
  EXPECT_TRUE(ReadListLines("total 0\r\n").isListing);
  EXPECT_TRUE(ReadListLines("lrwxrwxrwx 1 u g 4 Nov 20 10:00 a -> b\r\n").isListing);
  EXPECT_TRUE(ReadListLines("what?\r\n11-20-26  10:00AM       <DIR>          a\r\n").isListing);
  EXPECT_FALSE(ReadListLines("what?\r\n").isListing);
  EXPECT_FALSE(ReadListLines("type=file;size=1; a\r\n").isListing);
  EXPECT_FALSE(ReadListLines("<html><a href=\"a\">a</a></html>\r\n").isListing);
}

}  // namespace
}  // namespace CorvaneTest
