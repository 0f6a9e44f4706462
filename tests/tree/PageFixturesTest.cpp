// What the readers make of the pages that real servers show of the same two folders. fixtures/make has made them; IIS,
// ProFTPD and Pure-FTPd by its own hand.

#include <gmock/gmock.h>

#include <string>

#include "tests/tree/PageTesting.h"

namespace CorvaneTest {
namespace {

using Corvane::Page;
using Corvane::PageEntry;
using namespace std::string_literals;
using testing::IsEmpty;

std::vector<std::string> Fixtures(const std::string& folder, const std::vector<std::string>& servers) {
  std::vector<std::string> names;
  names.reserve(servers.size());
  for (const std::string& server : servers) names.emplace_back(server).append(".").append(folder);
  return names;
}

const std::vector<std::string> kSizesPages{"nginx",
                                           "nginx-rounded",
                                           "nginx-localtime",
                                           "nginx-utf8",
                                           "nginx-rounded-localtime",
                                           "apache-none",
                                           "apache-fancy",
                                           "apache-fancy-wide",
                                           "apache-fancy-icons",
                                           "apache-fancy-nosize",
                                           "apache-fancy-nodate",
                                           "apache-fancy-olddate",
                                           "apache-fancy-bare",
                                           "apache-fancy-described",
                                           "apache-table",
                                           "apache-table-xhtml",
                                           "apache-table-nosize",
                                           "apache-table-nodate",
                                           "apache-table-described",
                                           "lighttpd",
                                           "caddy",
                                           "python",
                                           "iis",
                                           "vsftpd-list",
                                           "pyftpdlib-mlsd",
                                           "pyftpdlib-list",
                                           "proftpd-mlsd",
                                           "proftpd-list",
                                           "pureftpd-mlsd",
                                           "pureftpd-list",
                                           "iis-list"};

TEST(PageFixtures, EveryServerShowsEveryFile) {
  const auto truth = TrueFolder("sizes");
  ASSERT_EQ(truth.size(), 24U);
  for (const std::string& fixture : Fixtures("sizes", kSizesPages)) {
    const Page page = ReadFixture(fixture);
    EXPECT_TRUE(page.isListing) << fixture;
    EXPECT_EQ(page.entries.size(), truth.size()) << fixture;
    EXPECT_THAT(page.leftOutNames, IsEmpty()) << fixture;
    for (const PageEntry& entry : page.entries) {
      ASSERT_TRUE(truth.contains(entry.name)) << fixture << ": " << entry.name;
      EXPECT_EQ(entry.isFolder, truth.at(entry.name).kind == 'd') << fixture << ": " << entry.name;
    }
  }
}

// Which sizes are shown exactly: of files up to this size, or of none.
struct SizeCase {
  const char* server;
  unsigned long long shownUpTo;
  bool any = true;
};
constexpr unsigned long long kAll = ~0ULL;
constexpr SizeCase kSizeCases[] = {
    {"nginx", kAll},
    {"nginx-utf8", kAll},
    {"nginx-localtime", kAll},
    {"nginx-rounded", 9999},
    {"nginx-rounded-localtime", 9999},
    {"apache-none", 0, false},
    {"apache-fancy", 972},
    {"apache-fancy-icons", 972},
    {"apache-fancy-olddate", 972},
    {"apache-fancy-bare", 972},
    {"apache-fancy-wide", 0, false},  // nothing says which column is the size
    {"apache-fancy-nosize", 0, false},
    {"apache-fancy-nodate", 0, false},
    {"apache-fancy-described", 0, false},  // its descriptions are numbers
    {"apache-table", 972},
    {"apache-table-xhtml", 972},
    {"apache-table-nodate", 972},
    {"apache-table-described", 972},
    {"apache-table-nosize", 0, false},
    {"lighttpd", 0, false},
    {"caddy", kAll},
    {"python", 0, false},
    {"iis", kAll},
    {"vsftpd-list", kAll},
    {"pyftpdlib-mlsd", kAll},
    {"pyftpdlib-list", kAll},
    {"proftpd-mlsd", kAll},
    {"proftpd-list", kAll},
    {"pureftpd-mlsd", kAll},
    {"pureftpd-list", kAll},
    {"iis-list", kAll},
};

TEST(PageFixtures, SizesAreThoseOfTheFilesOrNone) {
  const auto truth = TrueFolder("sizes");
  for (const SizeCase& c : kSizeCases) {
    const Page page = ReadFixture(std::string(c.server) + ".sizes");
    for (const PageEntry& entry : page.entries) {
      const TrueEntry& file = truth.at(entry.name);
      const bool isShown = c.any && !entry.isFolder && file.size <= c.shownUpTo;
      EXPECT_EQ(entry.size, isShown ? std::optional(file.size) : std::nullopt) << c.server << ": " << entry.name;
    }
  }
  EXPECT_EQ(std::size(kSizeCases), kSizesPages.size());
}

// How exact the times are, in seconds; 0 for none. What is shown in a zone that the page does not tell is not used.
unsigned int TimeExactness(const std::string& fixture) {
  if (fixture.find("-mlsd.") != fixture.npos || fixture.starts_with("caddy.")) return 1;
  return fixture.starts_with("nginx") ? 60 : 0;
}

TEST(PageFixtures, TimesAreThoseOfTheFilesOrNone) {
  const auto truth = TrueFolder("sizes");
  // The administrator's choice of local times cannot be seen on the page.
  constexpr long long kZone = 5 * 3600 + 30 * 60;
  for (const std::string& fixture : Fixtures("sizes", kSizesPages)) {
    const long long shift = fixture.find("-localtime") == fixture.npos ? 0 : kZone;
    const unsigned int exactness = TimeExactness(fixture);
    for (const PageEntry& entry : ReadFixture(fixture).entries) {
      EXPECT_EQ(entry.timeExactness, exactness) << fixture << ": " << entry.name;
      if (exactness == 0) continue;
      const long long time = truth.at(entry.name).time + shift;
      EXPECT_EQ(entry.time, time - time % exactness) << fixture << ": " << entry.name;
    }
  }
}

TEST(PageFixtures, AnEmptyFolderIsAListing) {
  for (const std::string& fixture :
       Fixtures("empty", {"nginx", "apache-none", "apache-fancy", "apache-fancy-bare", "apache-table", "lighttpd",
                          "caddy", "python", "iis", "vsftpd-list", "pyftpdlib-mlsd", "pyftpdlib-list", "proftpd-mlsd",
                          "proftpd-list", "pureftpd-mlsd", "pureftpd-list"})) {
    const Page page = ReadFixture(fixture);
    EXPECT_TRUE(page.isListing) << fixture;
    EXPECT_THAT(NamesOf(page), IsEmpty()) << fixture;
    EXPECT_THAT(page.leftOutNames, IsEmpty()) << fixture;
  }
}

// nginx has these for programs; a server without a listing answers with a page of its own.
TEST(PageFixtures, WhatIsNoPageOfADirectoryIsNoListing) {
  for (const char* fixture : {"nginx-json.sizes", "nginx-xml.sizes", "busybox.sizes"}) {
    const Page page = ReadFixture(fixture);
    EXPECT_FALSE(page.isListing) << fixture;
    EXPECT_THAT(page.entries, IsEmpty()) << fixture;
  }
}

// What looks like nginx's page up to its columns: a size that means something else must not be compared with.
TEST(PageColumns, AreReadOnlyWhereTheyHaveNginxsExactForm) {
  const auto described = [](const std::string& columns) {
    return Described(
        ReadPage("<html><head><title>Index of /pub/dir/</title></head><body>\n<h1>Index of /pub/dir/</h1><hr><pre>"
                 "<a href=\"../\">../</a>\n<a href=\"a\">a</a>   " +
                 columns + "\n</pre></body></html>"));
  };
  const auto field = [](const std::string& size) { return ' ' + std::string(19 - size.size(), ' ') + size; };
  EXPECT_THAT(described("22-Nov-2026 04:50" + field("5")), testing::ElementsAre("a 5 1795323000/60"));
  for (const std::string& other :
       {"22/Nov/2026 04:50" + field("5"), "22-Nov-2026T04:50" + field("5"), "22-Nov-2026 04.50" + field("5"),
        "2-Nov-2026 04:50" + field("5"), "22-Nox-2026 04:50" + field("5"), "32-Nov-2026 04:50" + field("5"),
        "22-Nov-2026 04:50" + field("5") + ' ', "22-Nov-2026 04:50 5"s, "22-Nov-2026 04:50"s, "22-Nov"s, ""s}) {
    EXPECT_THAT(described(other), testing::ElementsAre("a - -")) << other;
  }
}

}  // namespace
}  // namespace CorvaneTest
