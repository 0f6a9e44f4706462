#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include <Corvane/TreeDownload/PageImpl.h>

// What the tests of the page readers share.
namespace CorvaneTest {

inline constexpr std::size_t kAnyNumber = 10000000;

// The page as one of "http://files.example/pub/dir/", by a server that does not say what it is. Fails the test when a
// name is not a plain one or is there twice, or when what else is said of an entry cannot be.
Corvane::Page ReadPage(std::string_view page, std::string_view url = "http://files.example/pub/dir/",
                       std::string_view server = "");
Corvane::Page ReadMlsdLines(std::string_view text);
Corvane::Page ReadListLines(std::string_view text);

// The names in their order, those of folders with a slash behind them.
std::vector<std::string> NamesOf(const Corvane::Page& page);
// An entry as "name size time/exactness", with "-" for what is not known, in the page's order.
std::vector<std::string> Described(const Corvane::Page& page);

// A text, and what is to be read from it: entries as NamesOf or Described has them, and what is left out.
struct PageCase {
  const char* name;
  std::string text;
  std::vector<std::string> entries;
  std::vector<std::string> leftOut;
};
void ExpectPages(Corvane::Page (*read)(std::string_view), const std::vector<PageCase>& cases);
void ExpectAnchors(const std::vector<PageCase>& cases, std::string_view url = "http://files.example/pub/dir/");

// What is true of the folders that the fixtures show; see fixtures/make.
struct TrueEntry {
  char kind = 'f';  // d folder, f file, l link to a file, m link to a folder, p FIFO, x link to nothing
  unsigned long long size = 0;
  long long time = 0;
};
std::map<std::string, TrueEntry> TrueFolder(const std::string& folder);
// The bytes as a server sent them, and what is read from them at the address that they came from.
std::string TreeFixture(const std::string& name);
Corvane::Page ReadFixture(const std::string& name);

}  // namespace CorvaneTest
