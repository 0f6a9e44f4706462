#include <fcntl.h>
#include <gmock/gmock.h>
#include <signal.h>
#include <sys/stat.h>

#include <algorithm>
#include <random>
#include <thread>

#include "tests/cli/CliTesting.h"
#include "tests/servers/MirrorTree.h"
#include "tests/tree/TreeFiles.h"

// The program killed a hundred times in the middle of a tree that changes meanwhile: at each moment a file under its name is complete
// and of one version, and in the end all is as at the source.
namespace CorvaneTest {
namespace {

namespace fs = std::filesystem;

constexpr int kKills = 100;

class CorvaneSyncKilled : public testing::Test {
 protected:
  CorvaneSyncKilled() {
    for (std::size_t i = 0; i < 60; ++i) Publish(i);
  }

  // Every tenth file is large enough to be under way for a while.
  static std::string PathOf(std::size_t i) { return "d" + std::to_string(i % 5) + "/file " + std::to_string(i); }
  static std::size_t SizeOf(std::size_t i) { return i % 10 == 9 ? 300000 + 20000 * i : 1000 * i; }

  // A new version. Files change by being replaced, as those who publish do it: a server never sends half of one.
  void Publish(std::size_t i) {
    std::vector<std::string>& versions = m_versions[PathOf(i)];
    versions.push_back(MakePattern(SizeOf(i), i + 1000 * versions.size()));
    const fs::path file = server.RootDir() / "pub" / PathOf(i);
    const fs::path successor = server.RootDir() / "successor";
    WriteFile(successor, versions.back());
    const auto time = static_cast<std::time_t>(1500000000 + 100 * versions.size());  // nginx shows minutes
    const timespec times[2] = {{time, 0}, {time, 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, successor.c_str(), times, 0), 0);
    fs::create_directories(file.parent_path());
    fs::rename(successor, file);
  }

  // Whether every file here is one that the source had at some time, whole.
  testing::AssertionResult HoldsWholeVersions() const {
    for (const auto& [path, content] : ReadTree(Target())) {
      if (path.starts_with(".corvane") || path.ends_with('/')) continue;
      const std::vector<std::string>& versions = m_versions.at(path);
      const bool isWhole = std::find(versions.rbegin(), versions.rend(), content) != versions.rend();
      if (!isWhole)
        return testing::AssertionFailure()
               << path << " with " << content.size() << " bytes is no version of its source";
    }
    return testing::AssertionSuccess();
  }

  TreeFiles Source() const { return ReadTree(server.RootDir() / "pub"); }
  fs::path Target() const { return m_folder / "target"; }
  std::vector<std::string> Arguments() const { return {"sync", "-q", server.Url("/pub/"), Target()}; }

  WatchedNginx server{WatchedOptions{3000000}};
  TempDir m_folder;
  std::map<std::string, std::vector<std::string>> m_versions;  // by path
};

TEST_F(CorvaneSyncKilled, AHundredTimesHoldsWholeFilesAtEachMomentAndIsCompletedByTheNextRun) {
  const auto seed = std::random_device{}();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  int killed = 0;
  int underWay = 0;
  for (int round = 0; killed < kKills; ++round) {
    ASSERT_LT(round, 10 * kKills);
    const auto program = StartCorvane(Arguments());
    // What is left of a run that was killed is there at once; then it is at its beginning, too, that the next one is killed.
    const Deadline deadline = After(kPatience);
    while (!fs::exists(Target() / ".corvane") && program->IsRunning() && Clock::now() < deadline)
      std::this_thread::yield();
    std::this_thread::sleep_for(std::chrono::microseconds(random() % 250000));
    program->Kill(SIGKILL);
    const std::optional<ProgramResult> result = program->Wait();
    ASSERT_TRUE(result.has_value());
    ASSERT_TRUE(HoldsWholeVersions());
    if (result->signal == SIGKILL) {
      ++killed;
      underWay += fs::exists(Target() / ".corvane") ? 1 : 0;
      if (killed % 3 == 0) Publish(9 + 10 * (random() % 6));
      continue;
    }
    ASSERT_EQ(result->exitCode, 0) << result->Describe();
    // It was done: something is to do again.
    fs::remove_all(Target() / ("d" + std::to_string(random() % 5)));
  }
  EXPECT_GT(underWay, kKills / 4);

  const ProgramResult last = RunCorvane(Arguments());
  EXPECT_EQ(last.exitCode, 0) << last.Describe();
  EXPECT_TRUE(HoldsTree(Target(), Source()));
}

}  // namespace
}  // namespace CorvaneTest
