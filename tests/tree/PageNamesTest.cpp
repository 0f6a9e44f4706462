// The folder of awkward names, as real servers show it. fixtures/make has made the pages; those of ProFTPD and Pure-FTPd
// by its own hand.

#include <gmock/gmock.h>

#include <algorithm>
#include <functional>
#include <set>
#include <string>
#include <vector>

#include "tests/tree/PageTesting.h"

namespace CorvaneTest {
namespace {

using Corvane::Page;

using Shows = std::function<bool(const std::string& name, char kind)>;

bool IsDotted(const std::string& name) { return name.starts_with('.'); }

struct NamesCase {
  const char* server;
  Shows shows;  // the names that the server shows at all
  std::vector<std::string> leftOut;
};

const NamesCase kNamesCases[] = {
    {"nginx", [](const std::string& name, char) { return !IsDotted(name); }, {}},
    {"nginx-utf8", [](const std::string& name, char) { return !IsDotted(name); }, {}},
    // What cannot be asked for is not shown by these: a FIFO, a link to nothing.
    {"apache-none", [](const std::string&, char kind) { return kind != 'p' && kind != 'x'; }, {".corvane"}},
    {"apache-fancy", [](const std::string&, char kind) { return kind != 'p' && kind != 'x'; }, {".corvane"}},
    {"apache-fancy-wide", [](const std::string&, char kind) { return kind != 'p' && kind != 'x'; }, {".corvane"}},
    {"apache-fancy-icons", [](const std::string&, char kind) { return kind != 'p' && kind != 'x'; }, {".corvane"}},
    {"apache-table-xhtml", [](const std::string&, char kind) { return kind != 'p' && kind != 'x'; }, {".corvane"}},
    {"lighttpd", [](const std::string& name, char kind) { return !IsDotted(name) && kind != 'x'; }, {}},
    {"lighttpd-all", [](const std::string&, char kind) { return kind != 'x'; }, {".corvane"}},
    {"caddy", [](const std::string&, char) { return true; }, {".corvane"}},
    {"python", [](const std::string&, char) { return true; }, {".corvane"}},
};

// python links what is no UTF-8 by a writing of its own, which it understands again when it is asked.
std::string LinkedByPython(const std::string& name) {
  if (name == "latin-\xE4.txt") return "latin-\xED\xB3\xA4.txt";
  return name == "\xFF\xFE" ? "\xED\xB3\xBF\xED\xB3\xBE" : name;
}

std::set<std::string> Expected(const NamesCase& c) {
  std::set<std::string> names;
  for (const auto& [name, entry] : TrueFolder("awkward")) {
    if (name == ".corvane" || !c.shows(name, entry.kind)) continue;
    const bool isPython = std::string_view(c.server) == "python";
    names.insert((isPython ? LinkedByPython(name) : name) + (entry.kind == 'd' || entry.kind == 'm' ? "/" : ""));
  }
  return names;
}

std::set<std::string> SortedNames(const Page& page) {
  const std::vector<std::string> names = NamesOf(page);
  return {names.begin(), names.end()};
}

TEST(PageNames, AwkwardNamesOfPagesAreReadAsTheyAre) {
  for (const NamesCase& c : kNamesCases) {
    const Page page = ReadFixture(std::string(c.server) + ".awkward");
    EXPECT_TRUE(page.isListing) << c.server;
    EXPECT_EQ(SortedNames(page), Expected(c)) << c.server;
    EXPECT_EQ(page.leftOutNames, c.leftOut) << c.server;
  }
}

TEST(PageNames, ALinkHasTheTimeOfItsTargetOrNone) {
  const TrueEntry link = TrueFolder("awkward").at("link");
  for (const NamesCase& c : kNamesCases) {
    const Page page = ReadFixture(std::string(c.server) + ".awkward");
    const auto shown = std::find_if(page.entries.begin(), page.entries.end(), [](auto& e) { return e.name == "link"; });
    ASSERT_NE(shown, page.entries.end()) << c.server;
    if (shown->size) {
      EXPECT_EQ(*shown->size, link.size) << c.server;
    }
    if (shown->time) {
      EXPECT_EQ(*shown->time, link.time - link.time % shown->timeExactness) << c.server;
    }
    EXPECT_EQ(shown->time.has_value(), std::string_view(c.server).starts_with("nginx")) << c.server;
  }
}

// Servers write a line end in a name as it is, which makes two lines of one: the first with the beginning of the name,
// the second in no format.
struct ListingCase {
  const char* server;
  Shows shows;
  std::vector<std::string> leftOut;
  bool showsLineEnd;
  bool showsLinks = false;    // as what they lead to
  const char* replaced = "";  // what the server shows for each byte of a name that is not UTF-8
};

const ListingCase kListingCases[] = {
    {"vsftpd-list",
     [](const std::string& name, char) { return !IsDotted(name); },
     {"dangling", "fifo", "in", "link", "link to folder"},
     true},
    {"vsftpd-localtime-list",
     [](const std::string&, char) { return true; },
     {".corvane", "dangling", "fifo", "in", "link", "link to folder"},
     true},
    {"proftpd-mlsd",
     [](const std::string&, char) { return true; },
     {".corvane", "dangling", "fifo", "link", "link to folder"},
     false},
    {"proftpd-list",
     [](const std::string&, char) { return true; },
     {".corvane", "dangling", "fifo", "link", "link to folder"},
     false},
    {"pureftpd-mlsd",
     [](const std::string&, char) { return true; },
     {".corvane", "dangling", "fifo", "link", "link to folder"},
     false},
    {"pureftpd-list",
     [](const std::string&, char) { return true; },
     {".corvane", "dangling", "fifo", "link", "link to folder"},
     false},
    {"pyftpdlib-mlsd", [](const std::string&, char) { return true; }, {".corvane", "in"}, true, true, "?"},
    {"pyftpdlib-list",
     [](const std::string&, char) { return true; },
     {".corvane", "dangling", "fifo", "in", "link", "link to folder"},
     true,
     false,
     "?"},
};

std::set<std::string> Expected(const ListingCase& c) {
  std::set<std::string> names;
  for (const auto& [name, entry] : TrueFolder("awkward")) {
    const bool isOther = std::string_view("fd").find(entry.kind) == std::string_view::npos;
    if (name == ".corvane" || !c.shows(name, entry.kind) || (isOther && !c.showsLinks) || entry.kind == 'x') continue;
    std::string shown = name;
    if (name == "line\nin") {
      if (!c.showsLineEnd) continue;
      shown = "line";
    }
    if (*c.replaced != '\0' && name == "latin-\xE4.txt") shown = "latin-?.txt";
    if (*c.replaced != '\0' && name == "\xFF\xFE") shown = "??";
    names.insert(shown + (entry.kind == 'd' || entry.kind == 'm' ? "/" : ""));
  }
  return names;
}

TEST(PageNames, AwkwardNamesOfListingsAreReadAsTheyAre) {
  for (const ListingCase& c : kListingCases) {
    const Page page = ReadFixture(std::string(c.server) + ".awkward");
    EXPECT_TRUE(page.isListing) << c.server;
    EXPECT_EQ(SortedNames(page), Expected(c)) << c.server;
    std::vector<std::string> leftOut = page.leftOutNames;
    std::sort(leftOut.begin(), leftOut.end());
    EXPECT_EQ(leftOut, c.leftOut) << c.server;
  }
}

}  // namespace
}  // namespace CorvaneTest
