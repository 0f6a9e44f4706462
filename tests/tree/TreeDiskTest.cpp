#include <fcntl.h>
#include <unistd.h>

#include <functional>

#include "tests/support/ScriptedFtpServer.h"
#include "tests/support/SmallFileSystem.h"
#include "tests/tree/TreeTesting.h"

// Trees that do not fit on the disk: known before the first byte, by the answer for a file, and only while a file comes.
namespace CorvaneTest {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

namespace fs = std::filesystem;

constexpr std::size_t kKilobyte = 1024;
constexpr std::size_t kLargeBytes = 1000 * kKilobyte;  // more than is kept in memory

class TreeOnASmallDisk : public testing::Test {
 protected:
  TreeOnASmallDisk() { client.options.mostConnections = 1; }

  fs::path Target() const { return disk / "target"; }
  void Fill(std::size_t bytes) const { WriteFile(disk / "filler", std::string(bytes, 'x')); }
  void MakeRoom() const { fs::remove(disk / "filler"); }
  TreeResult Download() { return client.Download(server->Url("/"), Target()); }
  void Serve() { server.emplace(KeepAlive(site.Serve())); }
  // What has its final name, and nothing of what is under way.
  TreeFiles Finished() const {
    TreeFiles here = ReadTree(Target());
    std::erase_if(here, [](const auto& file) { return file.first.starts_with(".corvane"); });
    return here;
  }

  const SmallFileSystem disk{"2m"};  // the first: a process with one thread may mount without privileges
  const TreeFiles files = {{"a small one", "a"}, {"large", MakePattern(kLargeBytes, 3)}, {"small", "s"}};
  TreeSite site{files};
  TreeClient client;
  std::optional<ScriptedServer> server;
};

TEST_F(TreeOnASmallDisk, IsRefusedBeforeTheFirstByteWhereTheSizesAreKnown) {
  ScriptedFtpServer ftp;
  for (const auto& [path, content] : files) ftp.SetFile("/tree/" + path, content);
  Fill(1500 * kKilobyte);
  const TreeResult refused = client.Download(ftp.Url("/tree/"), Target());
  EXPECT_THAT(refused.code, IsCode(Corvane::TRANSFER_E_DISK_SPACE));
  EXPECT_THAT(refused.error, StartsWith("Insufficient disk space to download ftp://127.0.0.1:"));
  EXPECT_THAT(refused.error, HasSubstr(" to " + Target().string() + ". Required: 1000 Kb. Available: "));
  for (const std::string& command : ftp.Commands()) EXPECT_FALSE(command.starts_with("RETR")) << command;
  EXPECT_THAT(ReadTree(Target()), IsEmpty());

  MakeRoom();
  const TreeResult result = client.Download(ftp.Url("/tree/"), Target());
  EXPECT_THAT(result.code, IsCode(Corvane::TRANSFER_S_FINISHED)) << result;
  EXPECT_TRUE(HoldsTree(Target(), files));
}

TEST_F(TreeOnASmallDisk, EndsAtTheFileWhoseAnswerTellsThatItDoesNotFit) {
  Serve();
  Fill(1500 * kKilobyte);
  const TreeResult refused = Download();
  EXPECT_THAT(refused.code, IsCode(Corvane::TRANSFER_E_DISK_SPACE));
  EXPECT_EQ(refused.error, "large: No space left on device");
  EXPECT_EQ(refused.statistics.receivedBytes, 1U) << "of the large file not a byte was taken";
  EXPECT_EQ(refused.statistics.filesFailed, 1U);
  EXPECT_EQ(Finished(), (TreeFiles{{"a small one", "a"}}));

  MakeRoom();
  const TreeResult result = Download();
  EXPECT_THAT(result.code, IsCode(Corvane::TRANSFER_S_FINISHED)) << result;
  EXPECT_EQ(result.statistics.filesKept, 1U);
  EXPECT_TRUE(HoldsTree(Target(), files));
}

// Takes all the room that there is.
void FillUp(const fs::path& file) {
  const int number = open(file.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0666);
  const std::string block(4096, 'x');
  while (write(number, block.data(), block.size()) > 0) continue;
  close(number);
}

// The bytes of the file that is under way.
std::uintmax_t BytesUnderWay(const fs::path& target) {
  std::error_code ignored;
  for (const auto& entry : fs::directory_iterator(target / ".corvane", ignored)) {
    if (entry.path().extension() == ".part") return entry.file_size(ignored);
  }
  return 0;
}

TEST_F(TreeOnASmallDisk, EndsAtTheFileWithWhichItFillsUpAndContinuesItLater) {
  // The room is enough when the answer comes, and gone when half of the file is here.
  const std::string content = files.at("large");
  const std::string half = content.substr(0, kLargeBytes / 2);
  const std::vector<HeaderField> headers = {{"ETag", "\"one\""}, {"Content-Length", std::to_string(kLargeBytes)}};
  site.Answer("large", [&](Connection& peer, const Request&) {
    peer.Send(FormatHead(200, headers) + half);
    EXPECT_TRUE(WaitUntil([&] { return BytesUnderWay(Target()) == half.size(); }));
    FillUp(disk / "filler");
    peer.Send(content.substr(half.size()));
  });
  Serve();
  const TreeResult broken = Download();
  EXPECT_THAT(broken.code, IsCode(Corvane::TRANSFER_E_DISK_SPACE));
  EXPECT_EQ(broken.error, "large: No space left on device");
  EXPECT_EQ(Finished(), (TreeFiles{{"a small one", "a"}}));

  ContentOptions options;
  options.headers = {headers.front()};
  site.Answer("large", Content(content, options));
  MakeRoom();
  const TreeResult result = Download();
  EXPECT_THAT(result.code, IsCode(Corvane::TRANSFER_S_FINISHED)) << result;
  EXPECT_EQ(result.ActionOf("large"), Action::Continue);
  EXPECT_TRUE(HoldsTree(Target(), files));
}

// There is no room even for the files that are collected in memory, nor for what is noted of those that are not.
TEST_F(TreeOnASmallDisk, ThatIsFullHasNoFileUnderItsName) {
  for (const char* const name : {"a small one", "large"}) {
    SCOPED_TRACE(name);
    TreeSite one({{name, files.at(name)}});
    // Without a length nobody knows before that it does not fit.
    ContentOptions options;
    options.framing = ContentOptions::Framing::kChunked;
    options.headers = {{"ETag", "\"one\""}};
    one.Answer(name, Content(files.at(name), options));
    ScriptedServer small(KeepAlive(one.Serve()));
    fs::remove_all(Target());
    fs::create_directories(Target() / ".corvane");  // these names need room, too
    WriteFile(Target() / ".corvane/lock", "");
    FillUp(disk / "filler");
    const TreeResult full = client.Download(small.Url("/"), Target());
    EXPECT_THAT(full.code, IsCode(Corvane::TRANSFER_E_DISK_SPACE)) << full;
    EXPECT_THAT(Finished(), IsEmpty());
    MakeRoom();
    EXPECT_THAT(client.Download(small.Url("/"), Target()).code, IsCode(Corvane::TRANSFER_S_FINISHED));
    EXPECT_TRUE(HoldsTree(Target(), {{name, files.at(name)}}));
  }
}

}  // namespace
}  // namespace CorvaneTest
