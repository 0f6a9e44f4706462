#include <gmock/gmock.h>

#include <ctime>
#include <set>
#include <string>
#include <vector>

#include "tests/servers/MirrorRuns.h"

// Whole directories from real servers: what arrives, what a second run asks for, and over how many connections.
namespace CorvaneTest {
namespace {

using namespace Corvane;
using testing::ElementsAre;
using testing::SizeIs;

namespace fs = std::filesystem;

constexpr std::size_t kFileCount = 1000;

// Times for every other file.
Times TimeListOf(const Files& files) {
  Times times;
  long number = 0;
  for (const auto& [name, content] : files) {
    if (++number % 2 == 0) times[Wide(name)] = 1000000000 + number * 86399;
  }
  return times;
}

Files WithoutEmptyOnes(Files files) {
  for (auto file = files.begin(); file != files.end();)
    file = file->second.empty() ? files.erase(file) : std::next(file);
  return files;
}

void ExpectModesAndTimes(const fs::path& folder, const Files& files, const Times& times, std::time_t begin) {
  for (const auto& [name, content] : files) {
    const struct stat status = StatusOf(folder / name);
    EXPECT_EQ(status.st_mode & 07777, 0755U) << name;
    const auto time = times.find(Wide(name));
    if (time != times.end()) {
      EXPECT_EQ(status.st_mtime, time->second) << name;
    } else {
      EXPECT_GE(status.st_mtime, begin - 1) << name << " has no time but that of its download";
    }
  }
}

std::vector<std::string> PathsOf(const std::vector<std::string>& requests) {
  std::vector<std::string> paths;
  paths.reserve(requests.size());
  for (const std::string& line : requests) paths.push_back(line.substr(line.find('/')));
  return paths;
}

class ZMultiDownloadOnServer : public testing::TestWithParam<ServerKind> {
 protected:
  ZResult Run(const std::string& path, bool resume = false) {
    return m_mirror.Download(Wide(m_server.Url(path)), WidePath(m_folder.Path()), resume);
  }

  RemoteServer m_server{GetParam()};
  TempDir m_folder;
  ZMultiDownload m_mirror;
};

TEST_P(ZMultiDownloadOnServer, FetchesAThousandFilesAsTheyAre) {
  const Files files = MakeFiles(kFileCount);
  ASSERT_EQ(files.size(), kFileCount);
  WriteFiles(m_server.RootDir() / "pub", files);
  WriteFile(m_server.RootDir() / "pub/folder/deep", "not fetched");
  fs::create_directory(m_server.RootDir() / "pub/empty folder");
  const Times times = TimeListOf(files);
  ASSERT_EQ(times.size(), kFileCount / 2);
  m_mirror.SetFileTimeList(times);
  const std::time_t begin = std::time(nullptr);
  ASSERT_THAT(Run("/pub"), IsCode(TRANSFER_S_FINISHED)) << ErrorOf(m_mirror) << m_server.Log();
  EXPECT_TRUE(HoldsExactly(m_folder.Path(), files));
  ExpectModesAndTimes(m_folder.Path(), files, times, begin);
  unsigned long long total = 0;
  for (const auto& [name, content] : files) total += content.size();
  EXPECT_EQ(m_mirror.GetDownloadSize(), total);
  EXPECT_GT(m_mirror.GetTransferSize(), total);
}

// Remembers which files were there when each transfer got its first data.
class FolderObserver : public ZTransfer::Observer {
 public:
  explicit FolderObserver(fs::path folder) : m_folder(std::move(folder)) {}
  void Update(int event, long value) override {
    EXPECT_EQ(event, 1);
    EXPECT_THAT(static_cast<ZResult>(value), IsCode(TRANSFER_E_IN_PROGRESS));
    m_names.push_back(NamesIn(m_folder));
  }
  const std::vector<std::vector<std::string>>& Names() const { return m_names; }

 private:
  fs::path m_folder;
  std::vector<std::vector<std::string>> m_names;
};

TEST_P(ZMultiDownloadOnServer, ShowsItsObserversTheListingAndThenEachFileInOrder) {
  const Files files = MakeFiles(60);
  WriteFiles(m_server.RootDir() / "pub", files);
  FolderObserver first(m_folder.Path());
  FolderObserver second(m_folder.Path());
  m_mirror.Attach(&first);
  m_mirror.Attach(&second);
  ASSERT_THAT(Run("/pub"), IsCode(TRANSFER_S_FINISHED)) << ErrorOf(m_mirror);

  std::vector<std::vector<std::string>> expected = {{}};  // the listing
  std::vector<std::string> names;
  for (const auto& [name, content] : files) {
    names.push_back(name);
    if (!content.empty()) expected.push_back(names);  // an empty file has no data to tell of
  }
  EXPECT_EQ(first.Names(), expected);
  EXPECT_EQ(second.Names(), expected);
}

INSTANTIATE_TEST_SUITE_P(Daemons, ZMultiDownloadOnServer,
                         testing::Values(ServerKind::kNginx, ServerKind::kApache, ServerKind::kVsftpd,
                                         ServerKind::kPyftpdlib),
                         [](const auto& server) { return NameOf(server.param); });

// --- connections

TEST(ZMultiDownloadConnections, AreOneForAThousandFilesOverHttp) {
  WatchedNginx nginx;
  const Files files = MakeFiles(kFileCount);
  WriteFiles(nginx.RootDir() / "pub", files);
  const TempDir folder;
  ZMultiDownload mirror;
  ASSERT_THAT(mirror.Download(Wide(nginx.Url("/pub")), WidePath(folder.Path()), false), IsCode(TRANSFER_S_FINISHED));
  EXPECT_TRUE(HoldsExactly(folder.Path(), files));
  const std::vector<std::string> requests = nginx.Requests();
  EXPECT_THAT(requests, SizeIs(kFileCount + 1));
  std::set<std::string> connections;
  for (const std::string& line : requests) connections.insert(line.substr(0, line.find(' ')));
  EXPECT_THAT(connections, SizeIs(1));
}

TEST(ZMultiDownloadConnections, AreMadeAnewWhenTheServerClosesThem) {
  NginxOptions options;
  options.httpLines = "keepalive_requests 3;\n";
  NginxServer server(options);
  const Files files = MakeFiles(40);
  WriteFiles(server.RootDir() / "pub", files);
  const TempDir folder;
  ZMultiDownload mirror;
  ASSERT_THAT(mirror.Download(Wide(server.Url("/pub")), WidePath(folder.Path()), false), IsCode(TRANSFER_S_FINISHED));
  EXPECT_TRUE(HoldsExactly(folder.Path(), files));
}

TEST(ZMultiDownloadConnections, AreOneForCommandsOverFtp) {
  WatchedVsftpd vsftpd;
  const Files files = MakeFiles(200);
  WriteFiles(vsftpd.RootDir() / "pub", files);
  const TempDir folder;
  ZMultiDownload mirror;
  ASSERT_THAT(mirror.Download(Wide(vsftpd.Url("/pub")), WidePath(folder.Path()), false), IsCode(TRANSFER_S_FINISHED));
  EXPECT_TRUE(HoldsExactly(folder.Path(), files));
  EXPECT_EQ(vsftpd.CountConnections(), 1U);
  EXPECT_EQ(vsftpd.CountCommands("USER"), 1U);
  EXPECT_EQ(vsftpd.CountCommands("LIST"), 1U);
  EXPECT_EQ(vsftpd.CountCommands("RETR"), files.size());
}

// --- a second run

TEST(ZMultiDownloadSecondRun, AsksForTheListingOnlyOverFtp) {
  WatchedVsftpd vsftpd;
  const Files files = WithoutEmptyOnes(MakeFiles(kFileCount));
  WriteFiles(vsftpd.RootDir() / "pub", files);
  const std::string url = vsftpd.Url("/pub");
  const TempDir folder;
  const Times times = TimeListOf(files);
  ASSERT_THAT(MirrorAfresh(url, folder.Path(), true, {}, times).code, IsCode(TRANSFER_S_FINISHED));
  EXPECT_EQ(vsftpd.CountCommands("RETR"), files.size());
  ASSERT_EQ(vsftpd.CountCommands("LIST"), 1U);
  const Traces before = TracesOf(folder.Path());

  ASSERT_THAT(MirrorAfresh(url, folder.Path(), true, {}, times).code, IsCode(TRANSFER_S_FINISHED));
  EXPECT_EQ(vsftpd.CountCommands("RETR"), files.size()) << "no file again";
  EXPECT_EQ(vsftpd.CountCommands("LIST"), 2U);
  EXPECT_EQ(vsftpd.CountCommands("SIZE"), files.size());
  EXPECT_EQ(TracesOf(folder.Path()), before) << "no file was touched";
}

// A size of 0 means that it is not known.
TEST(ZMultiDownloadSecondRun, FetchesEmptyFilesAgainAndNoOther) {
  WatchedVsftpd vsftpd;
  WriteFiles(vsftpd.RootDir() / "pub", {{"a", "1"}, {"empty", ""}, {"z", "26"}});
  const TempDir folder;
  ASSERT_THAT(MirrorAfresh(vsftpd.Url("/pub"), folder.Path(), true).code, IsCode(TRANSFER_S_FINISHED));
  const std::size_t former = vsftpd.Commands().size();
  ASSERT_THAT(MirrorAfresh(vsftpd.Url("/pub"), folder.Path(), true).code, IsCode(TRANSFER_S_FINISHED));
  std::vector<std::string> fetched;
  const std::vector<std::string> commands = vsftpd.Commands();
  for (std::size_t i = former; i < commands.size(); ++i) {
    if (commands[i].compare(0, 4, "RETR") == 0) fetched.push_back(commands[i]);
  }
  EXPECT_THAT(fetched, ElementsAre("RETR empty"));
  EXPECT_TRUE(HoldsExactly(folder.Path(), {{"a", "1"}, {"empty", ""}, {"z", "26"}}));
}

TEST(ZMultiDownloadSecondRun, AsksForNothingOverHttpWhenTheSizesAreKnown) {
  WatchedNginx nginx;
  const Files files = WithoutEmptyOnes(MakeFiles(kFileCount));
  WriteFiles(nginx.RootDir() / "pub", files);
  const std::string url = nginx.Url("/pub");
  const TempDir folder;
  const Sizes sizes = SizeListOf(files);
  const Times times = TimeListOf(files);
  ASSERT_THAT(MirrorAfresh(url, folder.Path(), true, sizes, times).code, IsCode(TRANSFER_S_FINISHED));
  EXPECT_TRUE(HoldsExactly(folder.Path(), files));
  EXPECT_THAT(nginx.Requests(), SizeIs(files.size())) << "the files and no listing";
  const Traces before = TracesOf(folder.Path());

  ASSERT_THAT(MirrorAfresh(url, folder.Path(), true, sizes, times).code, IsCode(TRANSFER_S_FINISHED));
  EXPECT_THAT(nginx.Requests(), SizeIs(files.size()));
  EXPECT_EQ(TracesOf(folder.Path()), before) << "no file was touched";
}

TEST(ZMultiDownloadSecondRun, FetchesOnlyWhatIsMissingPartialOrStale) {
  WatchedNginx nginx;
  const Files files = {{"complete", MakePattern(5000, 1)},
                       {"grown", MakePattern(5000, 2)},
                       {"missing", MakePattern(5000, 3)},
                       {"old", MakePattern(5000, 4)},
                       {"partial", MakePattern(5000, 5)}};
  WriteFiles(nginx.RootDir() / "pub", files);
  const TempDir folder;
  WriteFiles(folder.Path(), {{"complete", MakePattern(5000, 1)},
                             {"grown", MakePattern(5001, 9)},
                             {"old", MakePattern(5000, 9)},
                             {"partial", MakePattern(3000, 5)}});
  // "old" is as large as expected but older.
  const std::time_t now = std::time(nullptr);
  const Times times = {{L"complete", now - 1000}, {L"old", now + 1000}, {L"partial", now - 500}};
  ASSERT_THAT(MirrorAfresh(nginx.Url("/pub"), folder.Path(), true, SizeListOf(files), times).code,
              IsCode(TRANSFER_S_FINISHED));
  EXPECT_TRUE(HoldsExactly(folder.Path(), files));
  std::vector<std::string> answers;
  for (const std::string& line : nginx.Requests()) answers.push_back(line.substr(line.find(' ') + 1));
  EXPECT_THAT(answers, ElementsAre("200 /pub/grown", "200 /pub/missing", "200 /pub/old", "206 /pub/partial"));
  EXPECT_EQ(StatusOf(folder / "old").st_mtime, now + 1000);
  EXPECT_EQ(StatusOf(folder / "partial").st_mtime, now - 500);
  EXPECT_GE(StatusOf(folder / "complete").st_mtime, now - 1) << "was not fetched, so its time stays";
}

TEST(ZMultiDownloadSecondRun, FetchesAllAgainOverHttpWhenTheSizesAreNotKnown) {
  WatchedNginx nginx;
  const Files files = MakeFiles(30);
  WriteFiles(nginx.RootDir() / "pub", files);
  const TempDir folder;
  std::vector<std::string> paths = {"/pub/"};
  for (const auto& [name, content] : files) paths.push_back("/pub/" + name);
  for (const bool resume : {false, true, true}) {
    const std::size_t former = nginx.Requests().size();
    ASSERT_THAT(MirrorAfresh(nginx.Url("/pub"), folder.Path(), resume).code, IsCode(TRANSFER_S_FINISHED));
    std::vector<std::string> requests = nginx.Requests();
    requests.erase(requests.begin(), requests.begin() + static_cast<std::ptrdiff_t>(former));
    EXPECT_EQ(PathsOf(requests), paths);
    EXPECT_TRUE(HoldsExactly(folder.Path(), files));
  }
}

}  // namespace
}  // namespace CorvaneTest
