#include <fcntl.h>
#include <sys/stat.h>

#include <map>
#include <optional>
#include <utility>

#include <Corvane/MultiDownload.h>

#include "tests/mirror/MirrorTesting.h"
#include "tests/support/ScriptedFtpServer.h"
#include "tests/torture/Memory.h"
#include "tests/torture/Runs.h"

// Mirrors of one directory.
namespace CorvaneTest {
namespace {

using namespace Corvane;

namespace fs = std::filesystem;
using Files = std::map<std::string, std::string>;

constexpr long kTime = 1500000000;

Files FilesThere(const std::string& suffix = "") {
  return {
      {"a" + suffix, MakePattern(20000, 1)}, {"b" + suffix, MakePattern(100, 2)}, {"c" + suffix, MakePattern(5000, 3)}};
}

Files WithoutLast(Files files) {
  files.erase(std::prev(files.end()));
  return files;
}

void SetTime(const fs::path& file, long time) {
  const timespec times[2] = {{time, 0}, {time, 0}};
  ASSERT_EQ(utimensat(AT_FDCWD, file.c_str(), times, 0), 0) << file;
}

class MirrorRun : public Run {
 public:
  explicit MirrorRun(Files there = FilesThere()) : files(std::move(there)) {}
  void Prepare() override {
    room.Clear();
    mirror.emplace();
    Times times;
    for (const auto& [name, content] : files) times[Wide(name)] = kTime;
    EXPECT_THAT(mirror->SetFileTimeList(times), IsCode(BASE_S_OK));
  }
  [[nodiscard]] bool MayThrow() const override { return true; }

  void Check(const RunOutcome& outcome) override { Check(outcome, true); }

  void Repeat() override {
    const ZResult code = Execute();
    EXPECT_THAT(code, IsCode(TRANSFER_S_FINISHED)) << ErrorOf(*mirror);
    Check({code, Target::kLibraryMemory}, !KeepsWholeFiles());
  }
  void Discard() override { mirror.reset(); }

 protected:
  [[nodiscard]] fs::path Folder() const { return room / "new"; }
  // What a failure may leave under a name: the beginning of the file, or what was there before.
  [[nodiscard]] virtual bool WasThere(const std::string& /*name*/, const std::string& /*content*/) const {
    return false;
  }
  // Whether a file stays as it is that came whole in a run which failed before it had mode and time.
  [[nodiscard]] virtual bool KeepsWholeFiles() const { return false; }

  Room room;
  const Files files;
  const ZString folder = WidePath(Folder());
  std::optional<ZMultiDownload> mirror;

 private:
  void Check(const RunOutcome& outcome, bool areAttributesSet) {
    EXPECT_TRUE(mirror->Wait(0)) << "the object is not idle";
    if (outcome.code) {
      EXPECT_THAT(mirror->GetStatus(), IsCode(*outcome.code));
    }
    room.ExpectNothingElseTouched();
    const bool isDone = outcome.code == Expected();
    if (isDone) {
      for (const auto& [name, content] : files) {
        EXPECT_TRUE(IsWhole(Folder() / name, content));
        if (areAttributesSet) ExpectAttributes(name, outcome.target);
      }
    }
    if (!fs::exists(Folder())) return;
    for (const std::string& name : NamesIn(Folder())) ExpectKnown(name, isDone);
  }
  // A mode or a time that cannot be set is no failure of the run.
  void ExpectAttributes(const std::string& name, Target target) const {
    struct stat status {};
    ASSERT_EQ(stat((Folder() / name).c_str(), &status), 0) << name;
    if (target != Target::kTimes) {
      EXPECT_EQ(status.st_mtim.tv_sec, kTime) << name;
    }
    if (target != Target::kMode && IsFetched(name)) {
      EXPECT_EQ(status.st_mode & 07777U, 0755U) << name;
    }
  }
  void ExpectKnown(const std::string& name, bool isDone) const {
    ASSERT_EQ(files.count(name), 1U) << name;
    if (isDone || WasThere(name, ReadFile(Folder() / name))) return;
    EXPECT_TRUE(HoldsBeginning(Folder() / name, files.at(name)));
  }
  [[nodiscard]] virtual bool IsFetched(const std::string& /*name*/) const { return true; }
};

class HttpRun : public MirrorRun {
 public:
  ZResult Execute() override { return mirror->Download(m_url, folder, false); }

 protected:
  ScriptedServer m_server{KeepAlive(Directory(FilesThere()))};
  const ZString m_url = Wide(m_server.Url("/dir/"));
};

// One file is complete, one partial, and one older than the server's.
class ResumedRun final : public HttpRun {
 public:
  void Prepare() override {
    HttpRun::Prepare();
    Sizes sizes;
    for (const auto& [name, content] : files) sizes[Wide(name)] = content.size();
    EXPECT_THAT(mirror->SetFileSizeList(sizes), IsCode(BASE_S_OK));
    Put("a", files.at("a").substr(0, 8000), kTime);
    Put("b", files.at("b"), kTime);
    Put("c", kOld, kTime - 1000);
  }
  ZResult Execute() override { return mirror->Download(m_url, folder, true); }

 protected:
  [[nodiscard]] bool WasThere(const std::string& name, const std::string& content) const override {
    return name == "c" && content == kOld;
  }
  [[nodiscard]] bool KeepsWholeFiles() const override { return true; }
  [[nodiscard]] bool IsFetched(const std::string& name) const override { return name != "b"; }

 private:
  void Put(const std::string& name, const std::string& content, long time) const {
    WriteFile(Folder() / name, content);
    SetTime(Folder() / name, time);
  }
  const std::string kOld = "an old version";
};

class FtpRun final : public MirrorRun {
 public:
  // Two files: over FTP each takes its time.
  FtpRun() : MirrorRun(WithoutLast(FilesThere(kFtpSuffix))) {
    for (const auto& [name, content] : files) m_server.SetFile("/dir/" + name, content);
  }
  ZResult Execute() override { return mirror->Download(m_url, folder, false); }

 private:
  ScriptedFtpServer m_server;
  const ZString m_url = Wide(m_server.Url("/dir/"));
};

}  // namespace

std::vector<RunKind> MirrorRuns() {
  const std::set<Target> fresh = {Target::kOpen,   Target::kWrite, Target::kStatus,     Target::kClose,
                                  Target::kTimes,  Target::kMode,  Target::kMakeFolder, Target::kControl,
                                  Target::kStream, Target::kSpace};
  std::set<Target> resumed = fresh;
  resumed.insert({Target::kSeek, Target::kRemove});
  resumed.erase(Target::kMakeFolder);
  return {{"MirrorOverHttp", &MakeRun<HttpRun>, fresh},
          {"ResumedMirror", &MakeRun<ResumedRun>, resumed},
          {"MirrorOverFtp", &MakeRun<FtpRun>, fresh}};
}

}  // namespace CorvaneTest
