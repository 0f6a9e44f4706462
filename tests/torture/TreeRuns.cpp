#include <openssl/evp.h>
#include <sys/stat.h>

#include <array>
#include <map>
#include <optional>
#include <utility>

#include <Corvane/TreeDownload.h>

#include "tests/cli/VersionedFile.h"
#include "tests/support/ScriptedFtpServer.h"
#include "tests/torture/Runs.h"
#include "tests/tree/TreeTesting.h"

// Runs over whole trees.
namespace CorvaneTest {
namespace {

using namespace Corvane;

namespace fs = std::filesystem;

constexpr const char* kUnderWay = ".corvane/";
constexpr const char* kLarge = "folder/large";  // larger than what is kept in memory
constexpr std::size_t kLargeBytes = 100000;
constexpr long kTime = 1578304800;  // of all files: 2020-01-06 10:00:00 UTC
const std::vector<HeaderField> kVersion = {
    {"ETag", "\"one\""}, {"Last-Modified", "Mon, 06 Jan 2020 10:00:00 GMT"}, {"Date", "Tue, 07 Jan 2020 10:00:00 GMT"}};

TreeFiles FilesThere() {
  return {
      {"one.txt", MakePattern(100, 1)}, {"folder/two", MakePattern(3000, 2)}, {kLarge, MakePattern(kLargeBytes, 3)}};
}

class TreeDownloadRun : public Run {
 public:
  void Prepare() override {
    room.Clear();
    for (const auto& [path, content] : before) WriteFile(Folder() / path, content);
    tree.emplace();
    EXPECT_THAT(tree->SetOptions(options), IsCode(BASE_S_OK));
  }
  ZResult Execute() override { return tree->Download(url, folder); }
  void Check(const RunOutcome& outcome) override {
    CheckObject(outcome);
    const TreeFiles here = WithoutUnderWay(ReadTree(Folder()));
    for (const auto& [path, content] : here) ExpectOneVersion(path, content);
    if (outcome.code != Expected()) return;
    for (const auto& [path, content] : files) ExpectWhole(here, path);
    EXPECT_EQ(here.size(), files.size()) << "what the server does not list is still here";
  }
  // Nothing is left over then.
  void Repeat() override {
    const ZResult code = Execute();
    EXPECT_THAT(code, IsCode(Expected())) << Narrow(tree->GetError());
    Check({code, Target::kLibraryMemory});
    EXPECT_FALSE(fs::exists(Folder() / kUnderWay));
  }
  void Discard() override { tree.reset(); }

 protected:
  explicit TreeDownloadRun(TreeFiles there) : files(std::move(there)) {
    options.mostConnections = 2;
    options.mostRetries = 1;
    options.retryWaitMs = 0;
  }

  [[nodiscard]] fs::path Folder() const { return room / "tree"; }
  void CheckObject(const RunOutcome& outcome) {
    EXPECT_TRUE(tree->Wait(0)) << "the object is not idle";
    if (outcome.code) {
      EXPECT_THAT(tree->GetStatus(), IsCode(*outcome.code));
    }
    room.ExpectNothingElseTouched();
  }
  static TreeFiles WithoutUnderWay(TreeFiles files) {
    std::erase_if(files, [](const auto& file) { return file.first.starts_with(kUnderWay); });
    // An empty folder is no file.
    std::erase_if(files, [](const auto& file) { return file.first.ends_with('/'); });
    return files;
  }

  Room room;
  const TreeFiles files;  // on the server
  TreeFiles before;       // here before the run
  ZTreeOptions options;
  const ZString folder = WidePath(Folder());
  ZString url;
  std::optional<ZTreeDownload> tree;

 private:
  // Whatever failed: what has its final name is the server's, or what was here before.
  void ExpectOneVersion(const std::string& path, const std::string& content) const {
    const auto there = files.find(path);
    const auto old = before.find(path);
    const bool isServers = there != files.end() && there->second == content;
    const bool isOld = old != before.end() && old->second == content;
    EXPECT_TRUE(isServers || isOld) << path << " is of no version, with " << content.size() << " bytes";
  }
  void ExpectWhole(const TreeFiles& here, const std::string& path) const {
    const auto found = here.find(path);
    ASSERT_NE(found, here.end()) << path << " is missing";
    EXPECT_TRUE(found->second == files.at(path)) << path << " differs";
    struct stat status {};
    ASSERT_EQ(stat((Folder() / path).c_str(), &status), 0) << path;
    EXPECT_EQ(status.st_mtim.tv_sec, kTime) << path;
  }
};

class HttpTreeRun : public TreeDownloadRun {
 public:
  HttpTreeRun() : HttpTreeRun(FilesThere()) {}

 protected:
  explicit HttpTreeRun(TreeFiles there) : TreeDownloadRun(std::move(there)), m_site(files) {
    url = Wide(m_server.Url("/"));
  }

  TreeSite m_site;
  ScriptedServer m_server{KeepAlive(m_site.Serve())};
};

// A run broke off in the middle of the large file.
class ResumedTreeRun final : public HttpTreeRun {
 public:
  ResumedTreeRun() {
    m_site.Answer(kLarge, m_large.Serve());
    options.mostRetries = 0;
    m_large.BreakAfter({kLargeBytes * 3 / 4});
    HttpTreeRun::Prepare();
    EXPECT_THAT(Execute(), IsCode(CurlFailure(kPartialFile)));
    for (const auto& [path, content] : ReadTree(Folder())) {
      if (path.starts_with(kUnderWay) && !content.empty()) before[path] = content;
    }
    EXPECT_EQ(before.size(), 2U) << "what is under way and what is known of it";
    options.mostRetries = 1;
    HttpTreeRun::Prepare();
    EXPECT_THAT(Execute(), IsCode(TRANSFER_S_FINISHED));
    EXPECT_EQ(tree->GetStatistics().filesResumed, 1U);
    Discard();
  }

 private:
  VersionedFile m_large{{files.at(kLarge), kVersion}};
};

class FtpTreeRun final : public TreeDownloadRun {
 public:
  FtpTreeRun() : TreeDownloadRun(FilesThere()) {
    for (const auto& [path, content] : files) {
      m_server.SetFile("/tree/" + path, content);
      m_server.SetModificationTime("/tree/" + path, "20200106100000");
    }
    url = Wide(m_server.Url("/tree/"));
  }

 private:
  ScriptedFtpServer m_server;
};

std::string Sha256Of(const std::string& content) {
  std::array<unsigned char, EVP_MAX_MD_SIZE> bytes{};
  unsigned int count = 0;
  EXPECT_EQ(EVP_Digest(content.data(), content.size(), bytes.data(), &count, EVP_sha256(), nullptr), 1);
  std::string text;
  for (unsigned int i = 0; i < count; ++i) {
    std::array<char, 3> digits{};
    std::snprintf(digits.data(), digits.size(), "%02x", bytes[i]);
    text += digits.data();
  }
  return text;
}

TreeFiles WithChecksums(TreeFiles files) {
  std::string list;
  for (const auto& [path, content] : files) list.append(Sha256Of(content)).append("  ").append(path).append("\n");
  files["SHA256SUMS"] = list;
  return files;
}

// Brings a tree up to date: files are checked, and what the server does not list goes.
class ExactTreeRun : public HttpTreeRun {
 public:
  ExactTreeRun() : HttpTreeRun(WithChecksums(FilesThere())) {
    options.verify = true;
    options.deleteOthers = true;
    before = {{"one.txt", "an old version"},
              {"folder/two", files.at("folder/two")},
              {"surplus", "not on the server"},
              {"gone/surplus", "nor this"}};
  }
  void Check(const RunOutcome& outcome) override {
    HttpTreeRun::Check(outcome);
    EXPECT_NE(outcome.code, TRANSFER_E_SIZE_MISMATCH) << "what cannot be read is not for that the wrong file";
    if (outcome.code == Expected()) {
      EXPECT_FALSE(fs::exists(Folder() / "gone")) << "an empty folder is left";
    }
  }
};

class PlanRun final : public ExactTreeRun, private ZTreeDownload::Observer {
 public:
  void Prepare() override {
    ExactTreeRun::Prepare();
    EXPECT_THAT(tree->Attach(this), IsCode(BASE_S_OK));
    m_here = ReadTree(Folder());
  }
  ZResult Execute() override {
    m_actions.clear();
    return tree->Plan(url, folder);
  }
  void Check(const RunOutcome& outcome) override {
    CheckObject(outcome);
    EXPECT_TRUE(ReadTree(Folder()) == m_here) << "a plan has changed something";
    if (outcome.code != Expected()) return;
    const std::map<std::string, Action> actions = {{"SHA256SUMS", Action::Fetch},    {"one.txt", Action::Fetch},
                                                   {"folder/two", Action::Fetch},    {kLarge, Action::Fetch},
                                                   {"gone/surplus", Action::Delete}, {"surplus", Action::Delete}};
    EXPECT_EQ(m_actions, actions);
  }

 private:
  void Update(const ZTreeDownload::Item& item) override {
    const Injection::Pause pause;
    m_actions[item.path] = item.action;
  }

  TreeFiles m_here;
  std::map<std::string, Action> m_actions;
};

}  // namespace

std::vector<RunKind> TreeRuns() {
  const std::set<Target> fresh = {Target::kOpen,   Target::kWrite,  Target::kStatus,     Target::kClose,
                                  Target::kRemove, Target::kRename, Target::kMakeFolder, Target::kTimes,
                                  Target::kSpace,  Target::kLock,   Target::kReadFolder, Target::kSocket};
  std::set<Target> resumed = fresh;
  resumed.insert({Target::kRead, Target::kSeek});
  std::set<Target> exact = fresh;
  exact.insert(Target::kRead);
  const std::set<Target> plan = {Target::kOpen, Target::kStatus, Target::kClose, Target::kReadFolder, Target::kSocket};
  return {{"TreeOverHttp", &MakeRun<HttpTreeRun>, fresh},
          {"ResumedTree", &MakeRun<ResumedTreeRun>, resumed},
          {"TreeOverFtp", &MakeRun<FtpTreeRun>, fresh},
          {"ExactTree", &MakeRun<ExactTreeRun>, exact},
          {"Plan", &MakeRun<PlanRun>, plan}};
}

}  // namespace CorvaneTest
