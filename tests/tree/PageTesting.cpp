#include "tests/tree/PageTesting.h"

#include <gmock/gmock.h>

#include <set>
#include <sstream>

#include <Corvane/TreeDownload/PageLinkImpl.h>

#include "tests/support/TempDir.h"

namespace CorvaneTest {
namespace {

using Corvane::Page;
using Corvane::PageEntry;

Page Checked(Page page) {
  std::set<std::string> names;
  for (const PageEntry& entry : page.entries) {
    EXPECT_TRUE(Corvane::IsPlainName(entry.name)) << entry.name;
    EXPECT_TRUE(names.insert(entry.name).second) << "twice: " << entry.name;
    EXPECT_FALSE(entry.isFolder && entry.size) << entry.name;
    EXPECT_EQ(entry.time.has_value(), entry.timeExactness != 0) << entry.name;
  }
  EXPECT_EQ(page.leftOutNames.size(), std::min(page.leftOut, Corvane::kMostLeftOutPageNames));
  return page;
}

}  // namespace

Page ReadPage(std::string_view page, std::string_view url, std::string_view server) {
  return Checked(Corvane::ReadHtmlPage(page, url, server, kAnyNumber));
}
Page ReadMlsdLines(std::string_view text) { return Checked(Corvane::ReadMlsd(text, kAnyNumber)); }
Page ReadListLines(std::string_view text) { return Checked(Corvane::ReadList(text, 1795323030, kAnyNumber)); }

std::vector<std::string> NamesOf(const Page& page) {
  std::vector<std::string> names;
  for (const PageEntry& entry : page.entries) names.push_back(entry.name + (entry.isFolder ? "/" : ""));
  return names;
}

std::vector<std::string> Described(const Page& page) {
  std::vector<std::string> lines;
  for (const PageEntry& entry : page.entries) {
    lines.push_back(entry.name + (entry.isFolder ? "/ " : " ") + (entry.size ? std::to_string(*entry.size) : "-") +
                    " " + (entry.time ? std::to_string(*entry.time) + "/" + std::to_string(entry.timeExactness) : "-"));
  }
  return lines;
}

void ExpectPages(Page (*read)(std::string_view), const std::vector<PageCase>& cases) {
  for (const PageCase& c : cases) {
    const Page page = read(c.text);
    EXPECT_EQ(Described(page), c.entries) << c.name;
    EXPECT_EQ(page.leftOutNames, c.leftOut) << c.name;
  }
}

void ExpectAnchors(const std::vector<PageCase>& cases, std::string_view url) {
  for (const PageCase& c : cases) {
    const Page page = ReadPage(c.text, url);
    EXPECT_EQ(NamesOf(page), c.entries) << c.name;
    EXPECT_EQ(page.leftOutNames, c.leftOut) << c.name;
  }
}

std::map<std::string, TrueEntry> TrueFolder(const std::string& folder) {
  std::map<std::string, TrueEntry> entries;
  std::istringstream lines(TreeFixture("tree"));
  TrueEntry entry;
  for (std::string path; lines >> entry.kind >> entry.size >> entry.time >> path;) {
    if (!path.starts_with(folder + "/")) continue;
    std::string name;
    Corvane::AppendUnescaped(path.substr(folder.size() + 1), name);
    entries.emplace(name, entry);
  }
  return entries;
}

Page ReadFixture(const std::string& name) {
  const std::string root = "http://files.example/it's%20a%20tree%20&%20more/";
  const std::string text = TreeFixture(name);
  if (name.find("-mlsd.") != name.npos) return ReadMlsdLines(text);
  if (name.find("-list.") != name.npos) return ReadListLines(text);
  if (name.ends_with(".empty")) return ReadPage(text, root + "awkward/empty/");
  return ReadPage(text, root + name.substr(name.find('.') + 1) + "/");
}

std::string TreeFixture(const std::string& name) { return ReadFile(std::string(CORVANE_TREE_FIXTURES "/") + name); }

}  // namespace CorvaneTest
