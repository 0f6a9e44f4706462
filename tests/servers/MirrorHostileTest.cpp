#include <gmock/gmock.h>

#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include "tests/servers/MirrorRuns.h"
#include "tests/support/ScriptedFtpServer.h"

// Listings that try to reach out of the target directory, from servers that would deliver whatever they are asked for.
// Around the directory lies a tree with everything that they aim at; after each run it is as it was, to the nanosecond.
namespace CorvaneTest {
namespace {

using namespace Corvane;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

namespace fs = std::filesystem;
using namespace std::string_literals;

constexpr const char* kEvil = "evil";

class CanaryTree {
 public:
  CanaryTree() {
    for (const char* const path :
         {"x", "victim", "etc/x", "up/x", "up/victim", "up/dir/x", "up/dir/.hidden", "b", "up/b"}) {
      WriteFile(m_folder / path, "canary of "s + path);
    }
    fs::create_directories(Target());
    fs::create_symlink("../x", m_folder / "up/link");
    m_before = TracesOf(m_folder.Path(), Target());
  }

  fs::path Target() const { return m_folder / "up/dir/target"; }
  std::string Victim() const { return (m_folder / "victim").string(); }  // absolute
  fs::path operator/(const std::string& path) const { return m_folder / path; }

  // The directory that holds the target may be looked at and nothing more, so its times count too.
  void ExpectUntouched() const { EXPECT_EQ(TracesOf(m_folder.Path(), Target()), m_before); }

 private:
  TempDir m_folder;
  Traces m_before;
};

void ExpectEvilFiles(const fs::path& target, const std::vector<std::string>& names) {
  Files files;
  for (const std::string& name : names) files[name] = kEvil;
  EXPECT_TRUE(HoldsExactly(target, files));
}

// --- pages

struct Link {
  std::string target;
  std::string label;
};

// With what a mirror may make of them: what follows the last slash.
std::vector<Link> HostileLinks(const CanaryTree& canary) {
  return {
      {"../../x", "x"},
      {"/etc/x", "x"},
      {canary.Victim(), "victim"},
      {"..", ".."},
      {".", "."},
      {"", ""},
      {"../..", ".."},
      {"../", "../"},
      {"%2e%2e", ".."},
      {"%2e", "."},
      {"%2e%2e%2fy1", "y1"},
      {"..%2fy2", "y2"},
      {"%2E%2E%2F%2E%2E%2Fvictim", "victim"},
      {"%2fetc%2fy3", "y3"},
      {"a/b", "b"},
      {"a/..", ".."},
      {"a%2f..", ".."},
      {"....//y4", "y4"},
      {"http://127.0.0.1:1/../y5", "y5"},
      {"file:///etc/y6", "y6"},
      {"%c0%ae%c0%ae%2fy7", "y7"},
      {"%252e%252e%252fy8", "%2e%2e%2fy8"},
      {"..\\..\\z1", "..\\..\\z1"},
      {"..%5cz2", "..\\z2"},
      {"C:\\z3", "C:\\z3"},
      {"%00", ""},
      {"z4%00", ""},
      {"..%00z5", ""},
      {"z6%00/../x", "x"},
      {"nul\0x"s, "nul\0x"s},
      {"z7%0d%0aDELE%20x%0d%0aX-Injected:%201", ""},
      {"~", "~"},
      {"~root", "~root"},
      {"$HOME", "$HOME"},
      {"|id", "|id"},
      {"-rf", "-rf"},
  };
}

std::vector<std::string> NamesOfHostileLinks() {
  return {"$HOME",
          "%2e%2e%2fy8",
          "-rf",
          "..\\..\\z1",
          "..\\z2",
          "C:\\z3",
          "b",
          "victim",
          "x",
          "y1",
          "y2",
          "y3",
          "y4",
          "y5",
          "y6",
          "y7",
          "z7\r\nDELE x\r\nX-Injected: 1",
          "|id",
          "~",
          "~root"};
}

std::string PlainPage(const std::vector<Link>& links) {
  std::string page = "<html><h1>Index of /</h1><hr><pre><a href=\"../\">../</a>\r\n";
  for (const Link& link : links)
    page += "<a href=\"" + link.target + "\">" + link.label + "</a>    01-Jan-2026 00:00    4\r\n";
  return page + "</pre><hr></html>";
}

std::string IisPage(const std::vector<Link>& links) {
  std::string page = "<html><pre><A HREF=\"/\">[To Parent Directory]</A><br><br>";
  for (const Link& link : links) {
    page += " 1/1/2026 10:00 AM            4 <A HREF=\"" + link.target + "\">" + link.label + "</A><br>";
  }
  return page + "</pre></html>";
}

class ZMultiDownloadHostilePages : public testing::TestWithParam<bool> {
 protected:
  // Every target but the directory itself is a file.
  static ScriptedServer::Handler Serving(const std::string& page) {
    const Responder listing = Status(200, page, {{"Server", GetParam() ? "Microsoft-IIS/10.0" : "any"}});
    const Responder file = Content(kEvil);
    return KeepAlive(
        [=](Connection& peer, const Request& request) { (request.target == "/dir/" ? listing : file)(peer, request); });
  }
};

TEST_P(ZMultiDownloadHostilePages, ChangeNothingOutsideTheDirectory) {
  const CanaryTree canary;
  const std::vector<Link> links = HostileLinks(canary);
  const ScriptedServer server(Serving(GetParam() ? IisPage(links) : PlainPage(links)));
  for (const bool resume : {false, true, false}) {
    const Outcome outcome = MirrorAfresh(server.Url("/dir"), canary.Target(), resume);
    EXPECT_THAT(outcome.code, IsCode(TRANSFER_S_FINISHED)) << outcome.error;
    ExpectEvilFiles(canary.Target(), NamesOfHostileLinks());
    canary.ExpectUntouched();
  }
  EXPECT_THAT(TargetsOf(server), Each(StartsWith("/dir/")));
  for (const Request& request : server.Requests()) EXPECT_EQ(request.Header("X-Injected"), std::nullopt);
}

// Each alone, so that one cannot hide behind another.
TEST_P(ZMultiDownloadHostilePages, ChangeNothingWithAnyLinkAlone) {
  const CanaryTree canary;
  for (const Link& link : HostileLinks(canary)) {
    SCOPED_TRACE(link.target);
    const ScriptedServer server(Serving(GetParam() ? IisPage({link}) : PlainPage({link})));
    const Outcome outcome = MirrorAfresh(server.Url("/dir"), canary.Target(), false);
    EXPECT_THAT(outcome.code, IsCode(TRANSFER_S_FINISHED)) << outcome.error;
    canary.ExpectUntouched();
    for (const std::string& name : NamesIn(canary.Target())) EXPECT_TRUE(fs::remove(canary.Target() / name));
  }
}

INSTANTIATE_TEST_SUITE_P(Styles, ZMultiDownloadHostilePages, testing::Values(false, true),
                         [](const auto& style) { return style.param ? "OfIis" : "OfOthers"; });

// --- FTP listings

std::vector<std::string> HostileNames(const CanaryTree& canary) {
  return {"../../x", "/etc/x",      canary.Victim(), "..",         ".",          "",
          "../..",   "../",         "a/b",           "a/..",       "//",         "....//y1",
          "%2e%2e",  "%2e%2e%2fy2", "..%2fy3",       "%2f%2e%2e",  "..\\..\\z1", "..\\",
          "nul\0x"s, "\0"s,         "..\0"s,         "../nul\0x"s, "z2%00",      "z3%0d%0aDELE x",
          "~",       "~root",       "$HOME",         "|id",        "-rf"};
}

std::vector<std::string> NamesOfHostileNames() {
  return {"$HOME", "%2e%2e", "%2e%2e%2fy2", "%2f%2e%2e",      "-rf", "..%2fy3", "..\\", "..\\..\\z1", "b", "victim",
          "x",     "y1",     "z2%00",       "z3%0d%0aDELE x", "|id", "~",       "~root"};
}

class ZMultiDownloadHostileListings : public testing::TestWithParam<bool> {
 protected:
  ZMultiDownloadHostileListings() {
    // Whatever is asked for is there: the answer is that to the one file there is.
    m_server.SetFile("/dir/anything", kEvil);
    for (const std::string& name : NamesOfHostileNames()) m_server.SetFile("/dir/" + name, kEvil);
    for (const char* const path : {"/x", "/etc/x", "/victim", "/b", "/dir/a/b", "/.."}) m_server.SetFile(path, kEvil);
  }

  void List(const std::vector<std::string>& names) {
    std::string listing = GetParam() ? "" : "total 4\r\n";
    for (const std::string& name : names) {
      listing += (GetParam() ? "01-01-20  10:00AM   4 " : "-rw-r--r-- 1 ftp ftp 4 Jan 01 2020 ") + name + "\r\n";
    }
    m_server.SetListing("/dir", listing);
  }

  // The server must have been asked for nothing but files of its directory, each by a plain name.
  void ExpectPlainCommands() const {
    for (const std::string& command : m_server.Commands()) {
      EXPECT_THAT(command, Not(StartsWith("DELE")));
      const std::string verb = command.substr(0, command.find(' '));
      EXPECT_TRUE(verb != "RETR" || command.find('/') == std::string::npos) << command;
      EXPECT_TRUE(verb != "CWD" || command == "CWD dir") << command;
    }
  }

  ScriptedFtpServer m_server;
  FtpDelay m_relay{m_server.Port()};
};

TEST_P(ZMultiDownloadHostileListings, ChangeNothingOutsideTheDirectory) {
  const CanaryTree canary;
  List(HostileNames(canary));
  for (const bool resume : {false, true, false}) {
    const Outcome outcome = MirrorAfresh(m_relay.Url("/dir"), canary.Target(), resume);
    EXPECT_THAT(outcome.code, IsCode(TRANSFER_S_FINISHED)) << outcome.error;
    ExpectEvilFiles(canary.Target(), NamesOfHostileNames());
    canary.ExpectUntouched();
  }
  ExpectPlainCommands();
}

TEST_P(ZMultiDownloadHostileListings, ChangeNothingWithAnyNameAlone) {
  const CanaryTree canary;
  for (const std::string& name : HostileNames(canary)) {
    SCOPED_TRACE(name);
    List({name});
    const Outcome outcome = MirrorAfresh(m_relay.Url("/dir"), canary.Target(), false);
    EXPECT_THAT(outcome.code, IsCode(TRANSFER_S_FINISHED)) << outcome.error;
    canary.ExpectUntouched();
    for (const std::string& file : NamesIn(canary.Target())) EXPECT_TRUE(fs::remove(canary.Target() / file));
  }
  ExpectPlainCommands();
}

INSTANTIATE_TEST_SUITE_P(Styles, ZMultiDownloadHostileListings, testing::Values(false, true),
                         [](const auto& style) { return style.param ? "InDosLines" : "InUnixLines"; });

// --- what lies in the target directory already

// No server can put a link there. One that a local user has put there is followed, as by any program that opens a file
// by its name, except that a link whose file is to be fetched afresh is removed beforehand.
TEST(ZMultiDownloadLinks, OfALocalUserAreReplacedWhenStaleAndFollowedOtherwise) {
  const std::string content = MakePattern(1000);
  const ScriptedServer server(KeepAlive(Directory({{"link", content}})));
  struct Case {
    const char* name;
    std::string outside;  // what the link points to, before
    bool resume;
    bool isFollowed;
  };
  const Case cases[] = {
      {"stale", std::string(2000, 'x'), true, false},
      {"to be fetched afresh", std::string(500, 'x'), false, false},
      {"as large as expected", std::string(1000, 'x'), false, true},
      {"partial", content.substr(0, 500), true, true},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const TempDir folder;
    WriteFile(folder / "outside", c.outside);
    fs::create_directory(folder / "target");
    fs::create_symlink("../outside", folder / "target/link");
    const Outcome outcome = MirrorAfresh(server.Url("/dir"), folder / "target", c.resume, {{L"link", content.size()}});
    EXPECT_THAT(outcome.code, IsCode(TRANSFER_S_FINISHED)) << outcome.error;
    EXPECT_EQ(fs::is_symlink(folder / "target/link"), c.isFollowed);
    EXPECT_TRUE(FileHolds(folder / "target/link", content));
    EXPECT_TRUE(FileHolds(folder / "outside", c.isFollowed ? content : c.outside));
  }
}

TEST(ZMultiDownloadLinks, ToNowhereAreReplaced) {
  const ScriptedServer server(KeepAlive(Directory({{"link", "1"}})));
  const TempDir folder;
  fs::create_directory(folder / "target");
  fs::create_symlink("../outside", folder / "target/link");
  EXPECT_THAT(MirrorAfresh(server.Url("/dir"), folder / "target", false).code, IsCode(TRANSFER_S_FINISHED));
  EXPECT_TRUE(HoldsExactly(folder / "target", {{"link", "1"}}));
  EXPECT_THAT(NamesIn(folder.Path()), ElementsAre("target"));
}

TEST(ZMultiDownloadLinks, AndFoldersInTheWayOfAFileEndTheRunAndStay) {
  const ScriptedServer server(KeepAlive(Directory({{"a", "1"}, {"b", "2"}, {"c", "3"}})));
  const TempDir folder;
  WriteFile(folder / "b/inside", "kept");
  const Outcome outcome = MirrorAfresh(server.Url("/dir"), folder.Path(), false);
  EXPECT_THAT(outcome.code, IsCode(TRANSFER_E_DOWNLOAD));
  EXPECT_THAT(outcome.error, HasSubstr((folder / "b").string()));
  EXPECT_THAT(NamesIn(folder.Path()), ElementsAre("a", "b"));
  EXPECT_TRUE(FileHolds(folder / "b/inside", "kept"));
}

}  // namespace
}  // namespace CorvaneTest
