#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "tests/mirror/ListingTesting.h"

namespace CorvaneTest {
namespace {

using namespace std::string_literals;

constexpr unsigned long long kLargest = ~0ULL;

std::string UnixLine(const std::string& size, const std::string& name) {
  return "-rw-r--r--    1 1000     1000     " + size + " Nov 20 10:00 " + name;
}

std::string DosLine(const std::string& size, const std::string& name) {
  return "11-20-26  10:00AM     " + size + " " + name;
}

struct ListingCase {
  const char* name;
  std::string listing;
  Entries entries;
};

void ExpectLineEntries(const std::vector<ListingCase>& cases) {
  for (const ListingCase& c : cases) EXPECT_EQ(ParseFtp(c.listing), c.entries) << c.name;
}

TEST(FtpListing, TakesRegularFilesFromUnixLines) {
  ExpectLineEntries({
      {"a file", UnixLine("12345", "file.txt"), {{"file.txt", 12345}}},
      {"blanks in the name", UnixLine("1", "my  own file.txt"), {{"my  own file.txt", 1}}},
      {"tabs between the fields", "-rw-r--r--\t1\tme\tus\t7\tNov\t20\t10:00\ta\tb", {{"a\tb", 7}}},
      {"blanks before the line", "  \t" + UnixLine("7", "a"), {{"a", 7}}},
      {"blanks behind the line", UnixLine("7", "a") + " \t ", {{"a", 7}}},
      {"a name like a link", UnixLine("7", "a -> b"), {{"a -> b", 7}}},
      {"a name that begins with a dash", UnixLine("7", "-rf"), {{"-rf", 7}}},
      {"a name that is a number", UnixLine("7", "2026"), {{"2026", 7}}},
      {"no digit anywhere", "- a b c d e f g name", {{"name", 0}}},
      {"nothing but nine fields", "- - - - 5 - - - -", {{"-", 5}}},
      {"a plus is no blank and a percent sign no escape", UnixLine("7", "a+b%20c"), {{"a+b%20c", 7}}},
      {"other letters", UnixLine("7", "grüß.txt"), {{"grüß.txt", 7}}},
  });
}

TEST(FtpListing, SkipsUnixLinesOfAnythingElse) {
  ExpectLineEntries({
      {"the group is missing", "-rw-r--r-- 1 1000 12345 Nov 20 10:00 file.txt", {}},
      {"the group is missing and the name has a blank: its first word is the time's",
       "-rw-r--r-- 1 1000 5 Nov 20 10:00 my file",
       {{"file", 0}}},
      {"the name is missing", UnixLine("7", ""), {}},
      {"a folder", "drwxr-xr-x 2 0 0 4096 Nov 20 10:00 sub", {}},
      {"a symbolic link", "lrwxrwxrwx 1 0 0 10 Nov 20 10:00 a -> b", {}},
      {"a FIFO", "prw-r--r-- 1 0 0 0 Nov 20 10:00 fifo", {}},
      {"a device", "crw-r--r-- 1 0 0 1, 3 Nov 20 10:00 null", {}},
      {"the total", "total 1000", {}},
      {"a banner", "Welcome to - this - server - of - ours - today - now -", {}},
      {"another kind of dash", "\u2013rw-r--r-- 1 0 0 7 Nov 20 10:00 a", {}},
      {"one dash", "-", {}},
      {"nothing", "", {}},
      {"blanks", " \t \r\n \n", {}},
  });
}

TEST(FtpListing, TakesFilesFromDosLines) {
  ExpectLineEntries({
      {"a file", DosLine("12345", "file.txt"), {{"file.txt", 12345}}},
      {"blanks in the name", DosLine("1", "my  own file.txt"), {{"my  own file.txt", 1}}},
      {"blanks before the line", "  \t" + DosLine("7", "a"), {{"a", 7}}},
      {"tabs between the fields", "11-20-26\t10:00AM\t7\ta\tb", {{"a\tb", 7}}},
      {"a folder", DosLine("<DIR>", "sub"), {}},
      {"a folder in small letters", DosLine("<dir>", "sub"), {}},
      {"a junction", DosLine("<JUNCTION>", "sub"), {}},
      {"a size with a letter", DosLine("12K", "a"), {}},
      {"a size with a separator", DosLine("12,345", "a"), {}},
      {"a size with a sign", DosLine("-1", "a"), {}},
      {"a size in other digits", DosLine("\u0661\u0662", "a"), {}},
      {"three fields", "11-20-26 10:00AM 12345", {}},
      {"one field", "7", {}},
      {"four fields of digits", "1 2 3 4", {{"4", 3}}},
      {"other digits begin no such line", "\u0661 2 3 4", {}},
  });
}

TEST(FtpListing, ReadsSizesAsNumbersWithoutErrors) {
  ExpectLineEntries({
      {"not a number", UnixLine("large", "a"), {{"a", 0}}},
      {"a negative number", UnixLine("-5", "a"), {{"a", 0}}},
      {"a number and more", UnixLine("12K", "a"), {{"a", 12}}},
      {"leading zeros", UnixLine("00012", "a"), {{"a", 12}}},
      {"beyond 32 bits", UnixLine("4294967296", "a"), {{"a", 4294967296}}},
      {"the largest", UnixLine("18446744073709551615", "a"), {{"a", kLargest}}},
      {"one above", UnixLine("18446744073709551616", "a"), {{"a", kLargest}}},
      {"far above", UnixLine(std::string(1000, '9'), "a"), {{"a", kLargest}}},
      {"far above in a DOS line", DosLine(std::string(1000, '9'), "a"), {{"a", kLargest}}},
  });
}

TEST(FtpListing, KeepsTheLaterSizeOfANameThatComesTwice) {
  EXPECT_EQ(ParseFtp(UnixLine("1", "a") + "\n" + UnixLine("22", "b") + "\n" + DosLine("333", "a")),
            (Entries{{"a", 333}, {"b", 22}}));
}

// --- lines

TEST(FtpListing, EndsLinesAtCarriageReturnsAndLineFeeds) {
  const Entries both{{"a", 1}, {"b", 2}};
  for (const std::string& end : {"\n"s, "\r"s, "\r\n"s, "\n\r"s, "\r\n\r\n\n"s}) {
    std::string listing = UnixLine("1", "a");
    listing.append(end).append(UnixLine("2", "b"));
    EXPECT_EQ(ParseFtp(listing), both) << testing::PrintToString(end);
    listing.insert(0, end).append(end);
    EXPECT_EQ(ParseFtp(listing), both) << testing::PrintToString(end);
  }
}

TEST(FtpListing, EndsLinesAtNoOtherLineBreak) {
  for (const std::string& inside : {"\v"s, "\f"s, "\x1c"s, "\u0085"s, "\u2028"s, "\u2029"s}) {
    const std::string name = "a" + inside + UnixLine("2", "b");
    EXPECT_EQ(ParseFtp(UnixLine("1", name)), (Entries{{name, 1}})) << testing::PrintToString(inside);
    EXPECT_EQ(ParseFtp(DosLine("1", name)), (Entries{{name, 1}})) << testing::PrintToString(inside);
  }
}

// --- hostile names

TEST(FtpListing, KeepsNamesInsideTheTargetDirectory) {
  const struct {
    std::string shown;
    std::string stored;  // empty: no entry
  } cases[] = {
      {"../../x", "x"},
      {"/etc/x", "x"},
      {"a/b", "b"},
      {"..", ""},
      {".", ""},
      {"/", ""},
      {"../", ""},
      {"a/..", ""},
      {"a/.", ""},
      {"sub/", ""},
      {"\0"s, ""},
      {"a\0b"s, ""},
      {"..\0"s, ""},
      {"...", "..."},
      // Nothing is decoded here, and the URL made from such a name escapes the percent sign.
      {"%00", "%00"},
      {"%2e%2e", "%2e%2e"},
      {"%2e%2e%2fx", "%2e%2e%2fx"},
      {"a%2Fb", "a%2Fb"},
      {"..\\..\\x", "..\\..\\x"},
  };
  for (const auto& c : cases) {
    const Entries entries = c.stored.empty() ? Entries() : Entries{{c.stored, 7}};
    EXPECT_EQ(ParseFtp(UnixLine("7", c.shown)), entries) << c.shown;
    EXPECT_EQ(ParseFtp(DosLine("7", c.shown)), entries) << c.shown;
  }
}

// --- whole listings

TEST(FtpListing, ReadsAListingOfVsftpd) {
  EXPECT_EQ(ParseFtp(Fixture("vsftpd.ftp")), (Entries{{"100%2 & more.bin", 6789},
                                                      {kLongName, 77},
                                                      {"archive.tar.gz", 1234567},
                                                      {"empty", 0},
                                                      {"grüß.txt", 42},
                                                      {"my file.txt", 345},
                                                      {"readme.txt", 12}}));
}

TEST(FtpListing, ReadsAListingOfPyftpdlib) {
  EXPECT_EQ(ParseFtp(Fixture("pyftpdlib.ftp")), (Entries{{".hidden", 3},
                                                         {"100%2 & more.bin", 6789},
                                                         {kLongName, 77},
                                                         {"archive.tar.gz", 1234567},
                                                         {"empty", 0},
                                                         {"grüß.txt", 42},
                                                         {"my file.txt", 345},
                                                         {"readme.txt", 12}}));
}

TEST(FtpListing, ReadsAListingInTheDosFormat) {
  EXPECT_EQ(ParseFtp(Fixture("dos.ftp")),
            (Entries{{"file.txt", 12345}, {"my file.txt", 345}, {"empty", 0}, {"Large.ISO", 123456789012}}));
}

TEST(FtpListing, TakesNothingFromAPage) { EXPECT_EQ(ParseFtp(Fixture("nginx.http")), Entries()); }

TEST(FtpListing, ReadsAMillionEntries) {
  std::string lines;
  for (int i = 0; i < kMillion; ++i) lines += "- 1 u g 5 N 2 1 " + std::to_string(i) + "\r\n";
  EXPECT_EQ(CountFtp(lines), static_cast<std::size_t>(kMillion));
}

TEST(FtpListing, ReadsAMillionDosEntries) {
  std::string lines;
  for (int i = 0; i < kMillion; ++i) lines += "1 1 5 " + std::to_string(i) + "\r\n";
  EXPECT_EQ(CountFtp(lines), static_cast<std::size_t>(kMillion));
}

// A line's rest is looked at once, however long it is.
TEST(FtpListing, ReadsANameOfAMillionBlanksAndLetters) {
  std::string name;
  for (int i = 0; i < kMillion; ++i) name += "x ";
  name.pop_back();
  EXPECT_EQ(ParseFtp(UnixLine("7", name)), (Entries{{name, 7}}));
}

}  // namespace
}  // namespace CorvaneTest
