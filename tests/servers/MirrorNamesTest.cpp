#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "tests/servers/MirrorRuns.h"

// Names that are awkward in URLs, pages, listings or file systems: each file arrives under its own name with its own
// content.
namespace CorvaneTest {
namespace {

using namespace Corvane;

// Shown by the pages of nginx and Apache as they are.
const std::vector<std::string> kPlainNames = {
    "a b  c",
    "#",
    "a#b",
    "%",
    "100%",
    "%2e%2e",
    "%2e%2e%2fx",
    "%41",
    "a%00b",
    "?",
    "a?b=c",
    "+",
    "a+b",
    ";",
    "x;type=a",
    "x;type=i",
    "-",
    "-rf",
    "--resume",
    "'",
    "it's",
    "a.",
    "a..",
    "a.b.",
    "a~",
    "!$()*,:=@",
    "[a-z]*",
    "{a,b}",
    "a\\b",
    "^|`",
    "UPPER",
    "upper",
    "Upper",
    "CON",
    "index",
    "0",
    "gr\xC3\xBC\xC3\x9F",
    "\xC3\xA9 composed",
    "e\xCC\x81 decomposed",
    "\xE4\xB8\xAD\xE6\x96\x87\xE5\x90\x8D",
    "\xF0\x9F\x98\x80 \xF0\x9F\x91\xA8\xE2\x80\x8D\xF0\x9F\x91\xA9",
    "no\xC2\xA0 break",
    "line\xE2\x80\xA8separator",
    "\xD7\xA9\xD7\x9C\xD7\x95\xD7\x9D",
};

// Lines of FTP listings are trimmed, and control characters have no place in them; pages show all of these as they are.
const std::vector<std::string> kNamesOfPages = {" leading",   "trailing ", " ",   "tab\tinside",
                                                "line\nfeed", "\x01",      "\x7F"};

// Shown by some pages in an escaped or shortened form, or not at all. FTP listings show them.
std::vector<std::string> OtherNames() {
  std::string ideographs;  // three bytes each
  for (int i = 0; i < 85; ++i) ideographs += "\xE4\xB8\xAD";
  return {"a&b", "a&amp;b", "\"",    "say \"hello\"",      "<a href=x>",          "a>b",     ".hidden",
          "...", "..a",     "..\\x", std::string(51, 'n'), std::string(255, 'x'), ideographs};
}

Files MakeNamed(const std::vector<std::string>& names) {
  Files files;
  for (const std::string& name : names) files[name] = "the content of " + name;
  return files;
}

Files AllNames() {
  Files files = MakeNamed(kPlainNames);
  files.merge(MakeNamed(OtherNames()));
  return files;
}

class ZMultiDownloadNames : public testing::TestWithParam<ServerKind> {
 protected:
  // vsftpd takes this name for the home folder, as a shell does.
  Files AllNamesOfServer() const {
    Files files = AllNames();
    if (!IsFtp(GetParam())) files.merge(MakeNamed(kNamesOfPages));
    if (GetParam() != ServerKind::kVsftpd) files["~"] = "home";
    return files;
  }

  void Serve(const Files& files) {
    WriteFiles(m_server.RootDir() / "pub dir", files);
    ASSERT_TRUE(HoldsExactly(m_server.RootDir() / "pub dir", files)) << "the file system keeps these names";
  }
  std::string Url() const { return m_server.Url("/pub%20dir"); }

  RemoteServer m_server{GetParam()};
  TempDir m_folder;
};

TEST_P(ZMultiDownloadNames, ArriveThroughTheListing) {
  Files files = AllNamesOfServer();
  if (!IsFtp(GetParam())) {
    files = MakeNamed(kPlainNames);
    files.merge(MakeNamed(kNamesOfPages));
  }
  Serve(files);
  const Outcome outcome = MirrorAfresh(Url(), m_folder.Path(), false);
  EXPECT_THAT(outcome.code, IsCode(TRANSFER_S_FINISHED)) << outcome.error;
  EXPECT_TRUE(HoldsExactly(m_folder.Path(), files));
}

TEST_P(ZMultiDownloadNames, ArriveThroughAListOfTheHost) {
  const Files files = AllNamesOfServer();
  Serve(files);
  const Outcome outcome = MirrorAfresh(Url(), m_folder.Path(), false, SizeListOf(files));
  EXPECT_THAT(outcome.code, IsCode(TRANSFER_S_FINISHED)) << outcome.error;
  EXPECT_TRUE(HoldsExactly(m_folder.Path(), files));
}

TEST_P(ZMultiDownloadNames, ArriveInPartsWhenResumed) {
  Files files;
  for (const auto& [name, content] : AllNamesOfServer()) files[name] = content + MakePattern(500, files.size());
  Serve(files);
  for (const auto& [name, content] : files) WriteFile(m_folder / name, content.substr(0, 300));
  const Outcome outcome = MirrorAfresh(Url(), m_folder.Path(), true, SizeListOf(files));
  EXPECT_THAT(outcome.code, IsCode(TRANSFER_S_FINISHED)) << outcome.error;
  EXPECT_TRUE(HoldsExactly(m_folder.Path(), files));
}

INSTANTIATE_TEST_SUITE_P(Daemons, ZMultiDownloadNames,
                         testing::Values(ServerKind::kNginx, ServerKind::kApache, ServerKind::kVsftpd,
                                         ServerKind::kPyftpdlib),
                         [](const auto& server) { return NameOf(server.param); });

// A page may show a name in a form that could also be another one. What it does name arrives whole.
TEST(ZMultiDownloadNamesOnPages, ThatAreEscapedOrShortenedAreLeftOut) {
  for (const ServerKind kind : {ServerKind::kNginx, ServerKind::kApache}) {
    const RemoteServer server(kind);
    Files files = AllNames();
    if (kind == ServerKind::kApache) {  // see the next test
      files.erase("a&b");
      files.erase("a&amp;b");
    }
    WriteFiles(server.RootDir() / "pub", files);
    const TempDir folder;
    const Outcome outcome = MirrorAfresh(server.Url("/pub"), folder.Path(), false);
    EXPECT_THAT(outcome.code, IsCode(TRANSFER_S_FINISHED)) << outcome.error;
    Files expected = MakeNamed(kPlainNames);
    if (kind == ServerKind::kApache) {  // it hides no name and shortens none
      expected.merge(MakeNamed({"...", "..a", "..\\x", ".hidden"}));
      for (const auto& [name, content] : files) {
        if (name.size() > 50) expected[name] = content;
      }
    }
    EXPECT_TRUE(HoldsExactly(folder.Path(), expected)) << NameOf(kind);
  }
}

// Apache escapes an ampersand in the target and in the text alike, so the page seems to name another file. That one is
// not there, which ends the run unless the name is ignored.
TEST(ZMultiDownloadNamesOnPages, WithAnAmpersandAreTakenAsApacheWritesThem) {
  ApacheServer server;
  WriteFiles(server.RootDir() / "pub", {{"a", "1"}, {"b & c", "2"}, {"d", "3"}});
  const TempDir folder;
  const Outcome outcome = MirrorAfresh(server.Url("/pub"), folder.Path(), false);
  EXPECT_THAT(outcome.code, IsCode(TRANSFER_E_CONNECT));
  EXPECT_THAT(outcome.error, testing::HasSubstr("/pub/b%20%26amp%3B%20c\nHTTP/1.1 404 Not Found\r\n"));
  EXPECT_TRUE(HoldsExactly(folder.Path(), {{"a", "1"}}));

  ZMultiDownload mirror;
  mirror.SetIgnoreList({L"b &amp; c"});
  EXPECT_THAT(mirror.Download(Wide(server.Url("/pub")), WidePath(folder.Path()), false), IsCode(TRANSFER_S_FINISHED));
  EXPECT_TRUE(HoldsExactly(folder.Path(), {{"a", "1"}, {"d", "3"}}));
}

// As it is trimmed, such a name is another one. No file of that name is there, so the run ends instead of leaving it
// out.
TEST(ZMultiDownloadNamesInFtpListings, WithBlanksAtTheirEndsAreNotFound) {
  for (const char* const name : {" leading", "trailing "}) {
    const RemoteServer server(ServerKind::kVsftpd);
    WriteFiles(server.RootDir() / "pub", {{"a", "1"}, {name, "blank"}});
    const TempDir folder;
    EXPECT_THAT(MirrorAfresh(server.Url("/pub"), folder.Path(), false).code, IsCode(CurlFailure(kRemoteFileNotFound)));
    EXPECT_TRUE(FileHolds(folder / "a", "1"));
    // A list of the host knows the name as it is.
    const Outcome outcome = MirrorAfresh(server.Url("/pub"), folder / "listed", false, {{Wide(name), 5}});
    EXPECT_THAT(outcome.code, IsCode(TRANSFER_S_FINISHED)) << outcome.error;
    EXPECT_TRUE(HoldsExactly(folder / "listed", {{name, "blank"}}));
  }
}

// The library knows names as text. A name that is none cannot be asked for again, over whatever protocol.
TEST(ZMultiDownloadNamesOnPages, ThatAreNotUtf8AreNeverTakenForAnotherFile) {
  for (const ServerKind kind : {ServerKind::kNginx, ServerKind::kApache, ServerKind::kVsftpd}) {
    const RemoteServer server(kind);
    WriteFiles(server.RootDir() / "pub", {{"a", "1"}, {"b\xE4", "latin"}});
    const TempDir folder;
    const Outcome outcome = MirrorAfresh(server.Url("/pub"), folder.Path(), false);
    EXPECT_EQ(IsFailure(outcome.code), IsFtp(kind)) << "over FTP a file that was listed is missing";
    EXPECT_TRUE(FileHolds(folder / "a", "1")) << NameOf(kind);
    for (const std::string& name : NamesIn(folder.Path())) {
      EXPECT_TRUE(FileHolds(folder / name, name == "a" ? "1" : "")) << NameOf(kind);
    }
  }
}

}  // namespace
}  // namespace CorvaneTest
