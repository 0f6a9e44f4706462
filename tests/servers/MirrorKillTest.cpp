#include <gmock/gmock.h>
#include <signal.h>

#include <chrono>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "tests/cli/CliTesting.h"
#include "tests/servers/MirrorTree.h"

// The program killed again and again in the middle of a mirror: what it left is continued, and in the end all is as at
// the source.
namespace CorvaneTest {
namespace {

namespace fs = std::filesystem;

constexpr int kKills = 50;

// Files of many sizes, in all enough that fifty small steps do not get far beyond the end.
Files MakeKillFiles() {
  Files files;
  for (std::size_t i = 0; i < 14; ++i) {
    files["file " + std::to_string(i)] = MakePattern(i % 5 == 4 ? 100 * i + 1 : 100000 + 31013 * i, 40 + i);
  }
  files["empty"] = "";
  files["one byte"] = "x";
  return files;
}

std::uintmax_t BytesIn(const fs::path& folder) {
  std::uintmax_t bytes = 0;
  std::error_code isNotThere;
  for (fs::directory_iterator entry(folder, isNotThere), end; !isNotThere && entry != end;
       entry.increment(isNotThere)) {
    std::error_code isGone;
    const std::uintmax_t size = entry->file_size(isGone);
    if (!isGone) bytes += size;
  }
  return bytes;
}

bool HasPartialFile(const fs::path& folder, const Files& files) {
  for (const std::string& name : NamesIn(folder)) {
    const std::uintmax_t size = FileSize(folder / name);
    if (size > 0 && size < files.at(name).size()) return true;
  }
  return false;
}

// What became of the runs.
struct Tally {
  int killed = 0;        // ended by the signal
  int killedInFile = 0;  // ... and left a file that had begun to arrive
  int completed = 0;     // had ended by themselves
};

class CorvaneMirrorKilled : public testing::TestWithParam<ServerKind> {
 protected:
  CorvaneMirrorKilled() {
    if (IsFtp(GetParam())) {
      m_vsftpd = std::make_unique<WatchedVsftpd>(WatchedOptions{3000000});
      m_url = m_vsftpd->Url("/pub");
    } else {
      m_nginx = std::make_unique<WatchedNginx>(WatchedOptions{3000000});
      m_url = m_nginx->Url("/pub");
    }
    WriteFiles((m_vsftpd ? m_vsftpd->RootDir() : m_nginx->RootDir()) / "pub", m_files);
    WriteNumberList(m_lists / "sizes", SizesOf(m_files));
  }

  fs::path Target() const { return m_folder / "target"; }

  std::vector<std::string> Arguments() const {
    std::vector<std::string> arguments = {"mirror", m_url, Target(), "--resume"};
    if (m_nginx) arguments.insert(arguments.end(), {"--sizes", m_lists / "sizes"});
    return arguments;
  }

  // Starts a run and kills it when it has stored a random number of bytes and a random moment has passed.
  void RunAndKill(std::mt19937& random, Tally& tally) {
    const std::uintmax_t goal = BytesIn(Target()) + 1 + random() % 120000;
    const auto moment = std::chrono::microseconds(random() % 3000);
    const auto program = StartCorvane(Arguments());
    const Deadline deadline = After(kPatience);
    while (BytesIn(Target()) < goal && program->IsRunning()) {
      ASSERT_LT(Clock::now(), deadline) << program->ErrorOutput();
      std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
    std::this_thread::sleep_for(moment);
    program->Kill(SIGKILL);
    const std::optional<ProgramResult> result = program->Wait();
    ASSERT_TRUE(result.has_value());
    if (result->signal == SIGKILL) {
      ++tally.killed;
      if (HasPartialFile(Target(), m_files)) ++tally.killedInFile;
      ASSERT_TRUE(HoldsBeginningsOf(Target(), m_files));
      return;
    }
    ++tally.completed;
    ASSERT_EQ(result->exitCode, 0) << result->Describe();
    ASSERT_TRUE(HoldsExactly(Target(), m_files));
    fs::remove_all(Target());
  }

  const Files m_files = MakeKillFiles();
  std::unique_ptr<WatchedNginx> m_nginx;
  std::unique_ptr<WatchedVsftpd> m_vsftpd;
  std::string m_url;
  TempDir m_folder;
  TempDir m_lists;
};

TEST_P(CorvaneMirrorKilled, FiftyTimesIsCompletedByResuming) {
  const auto seed = std::random_device{}();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  Tally tally;
  for (int i = 0; i < kKills; ++i) {
    SCOPED_TRACE("run " + std::to_string(i));
    RunAndKill(random, tally);
    if (HasFatalFailure()) return;
  }
  RecordProperty("killed", tally.killed);
  RecordProperty("killedInFile", tally.killedInFile);
  EXPECT_GE(tally.killed, kKills * 4 / 5) << "too few of the runs were hit";
  EXPECT_GE(tally.killedInFile, kKills / 2) << "too few of the runs were hit in a file";

  const ProgramResult result = RunCorvane(Arguments());
  EXPECT_EQ(result.exitCode, 0) << result.Describe();
  EXPECT_TRUE(HoldsExactly(Target(), m_files));
  EXPECT_THAT(NamesIn(m_folder.Path()), testing::ElementsAre("target")) << "nothing was left beside it";
}

INSTANTIATE_TEST_SUITE_P(Daemons, CorvaneMirrorKilled, testing::Values(ServerKind::kNginx, ServerKind::kVsftpd),
                         [](const auto& server) { return NameOf(server.param); });

}  // namespace
}  // namespace CorvaneTest
