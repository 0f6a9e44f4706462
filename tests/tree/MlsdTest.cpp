#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "tests/tree/PageTesting.h"

namespace CorvaneTest {
namespace {

using namespace std::string_literals;

TEST(Mlsd, ReadsFacts) {
  ExpectPages(ReadMlsdLines,
              {
                  {"all of them", "type=file;size=12;modify=20261122045030; a\r\n", {"a 12 1795323030/1"}, {}},
                  {"in capitals", "TYPE=File;Size=12;MODIFY=20261122045030; a\r\n", {"a 12 1795323030/1"}, {}},
                  {"others, too", "unix.mode=0644;type=file;x.y=;perm=r; a\r\n", {"a - -"}, {}},
                  {"a folder", "type=dir;size=4096;modify=20261122045030; a\r\n", {"a/ - 1795323030/1"}, {}},
                  {"the folder itself and its parent", "type=cdir; .\r\ntype=PDIR; ..\r\n", {}, {}},
                  {"the folder itself by its path", "type=cdir; /pub/dir\r\n", {}, {}},
                  {"line ends of another system", "type=file; a\ntype=file; b\n", {"a - -", "b - -"}, {}},
                  {"no line end", "type=file; a", {"a - -"}, {}},
                  {"empty lines", "\r\n\ntype=file; a\r\n\r\n", {"a - -"}, {}},
                  {"a fact that is none", "type=file;size;; a\r\n", {"a - -"}, {}},
              });
}

TEST(Mlsd, NamesBeginBehindTheFirstBlank) {
  ExpectPages(ReadMlsdLines, {
                                 {"blanks", "type=file; a b \r\n", {"a b  - -"}, {}},
                                 {"blanks first", "type=file;   a\r\n", {"  a - -"}, {}},
                                 {"what separates facts", "type=file; a; type=dir; b\r\n", {"a; type=dir; b - -"}, {}},
                                 {"bytes that are no UTF-8", "type=file; \xFF\r\n", {"\xFF - -"}, {}},
                                 {"control characters", "type=file; a\rb\tc\x01\r\n", {"a\rb\tc\x01 - -"}, {}},
                                 {"nothing is decoded", "type=file; a%20b&amp;\r\n", {"a%20b&amp; - -"}, {}},
                             });
}

TEST(Mlsd, LeavesOutWhatIsNoFileAndNoFolder) {
  ExpectPages(ReadMlsdLines,
              {
                  {"a link", "type=OS.unix=slink:/target; a\r\n", {}, {"a"}},
                  {"a link of another server", "type=OS.unix=symlink; a\r\n", {}, {"a"}},
                  {"a device", "type=OS.unix=chr-1/3; null\r\n", {}, {"null"}},
                  {"no type", "size=12; a\r\n", {}, {"size=12; a"}},
                  {"no facts", " a\r\n", {}, {" a"}},
                  {"facts that are not ended", "type=file;size=12 a\r\n", {}, {"type=file;size=12 a"}},
                  {"a blank in a fact", "type=OS.unix=slink:/a b; c\r\n", {}, {"type=OS.unix=slink:/a b; c"}},
                  {"no name", "type=file;\r\n", {}, {"type=file;"}},
                  {"an empty name", "type=file; \r\n", {}, {""}},
                  {"another answer", "500 MLSD not understood\r\n", {}, {"500 MLSD not understood"}},
                  {"a path", "type=file; /pub/dir/a\r\n", {}, {"/pub/dir/a"}},
                  {"a way up", "type=dir; ..\r\ntype=file; .\r\n", {}, {"..", "."}},
                  {"a zero byte", "type=file; a\0b\r\n"s, {}, {"a\0b"s}},
                  {"the program's own", "type=dir; .corvane\r\n", {}, {".corvane"}},
                  {"a file and a folder", "type=file; a\r\ntype=dir; a\r\n", {"a/ - -"}, {"a"}},
              });
}

TEST(Mlsd, SizesAndTimesThatAreNone) {
  const auto read = [](const std::string& facts) {
    return Described(ReadMlsdLines("type=file;" + facts + "; a\r\n")).front();
  };
  EXPECT_EQ(read("size=18446744073709551615"), "a 18446744073709551615 -");
  EXPECT_EQ(read("size=18446744073709551616"), "a - -");
  EXPECT_EQ(read("size=-1"), "a - -");
  EXPECT_EQ(read("size=1K"), "a - -");
  EXPECT_EQ(read("size="), "a - -");
  EXPECT_EQ(read("modify=20261122045030.123"), "a - 1795323030/1");
  EXPECT_EQ(read("modify=20261122045030."), "a - -");
  EXPECT_EQ(read("modify=202611220450301"), "a - -");
  EXPECT_EQ(read("modify=2026112204503"), "a - -");
  EXPECT_EQ(read("modify=20260229045030"), "a - -");
  EXPECT_EQ(read("modify=20240229000000"), "a - 1709164800/1");
  EXPECT_EQ(read("modify=20261122240000"), "a - -");
  EXPECT_EQ(read("modify=20261122045060"), "a - 1795323060/1");
  EXPECT_EQ(read("modify=20261122045061"), "a - -");
  EXPECT_EQ(read("modify=19700101000000"), "a - 0/1");
  EXPECT_EQ(read("modify=19691231235959"), "a - -1/1");
  EXPECT_EQ(read("modify=99991231235959"), "a - 253402300799/1");
  EXPECT_EQ(read("modify=2026112204503x"), "a - -");
}

TEST(Mlsd, ALineInTheFormatMakesAListing) {
  EXPECT_TRUE(ReadMlsdLines("").isListing);
  EXPECT_TRUE(ReadMlsdLines("\r\n").isListing);
  EXPECT_TRUE(ReadMlsdLines("type=cdir; .\r\n").isListing);
  EXPECT_TRUE(ReadMlsdLines("what?\r\ntype=file; a\r\n").isListing);
  EXPECT_FALSE(ReadMlsdLines("what?\r\n").isListing);
  EXPECT_FALSE(ReadMlsdLines("-rw-r--r--    1 1000     1000        12345 Nov 20 10:00 a\r\n").isListing);
}

}  // namespace
}  // namespace CorvaneTest
