#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tests/mirror/MirrorTesting.h"
#include "tests/mirror/ScriptedSystem.h"
#include "tests/support/TempDir.h"

// What the tests of a run over its files share.
namespace CorvaneTest {

inline constexpr long kTime = 1500000000;
inline constexpr unsigned long long kLargest = ~0ULL;

// Does these steps whenever a transfer's first data comes.
class AtFirstData : public Corvane::ZTransfer::Observer {
 public:
  explicit AtFirstData(std::function<void()> steps) : m_steps(std::move(steps)) {}
  void Update(int /*event*/, long /*value*/) override { m_steps(); }

 private:
  std::function<void()> m_steps;
};

// A run on the test's thread, with every answer that the system can give.
class FetchLoop : public testing::Test {
 protected:
  using Files = std::map<std::string, std::string>;

  void Serve(const Files& files) { Serve(Directory(files)); }
  void Serve(const Responder& responder) { m_server.emplace(KeepAlive(responder)); }
  Corvane::ZResult Run(bool resume) { return m_mirror.Download(Wide(Url()), Wide(Folder()), resume); }
  Corvane::ZResult Run(const Sizes& sizes, bool resume = false) {
    m_mirror.SetFileSizeList(sizes);
    return Run(resume);
  }

  std::string Url() const { return m_server->Url("/dir/"); }
  std::string Folder() const { return m_folder.Path().native(); }
  std::filesystem::path Local(const std::string& name) const { return m_folder / name; }
  std::vector<std::string> Names() const { return NamesIn(m_folder.Path()); }
  std::vector<std::string> Targets() const { return TargetsOf(*m_server); }

  void WriteLocal(const std::string& name, const std::string& content, long time = kTime) {
    WriteFile(Local(name), content);
    const timespec times[2] = {{time, 0}, {time, 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, Local(name).c_str(), times, 0), 0);
    m_system.calls.clear();  // this was the test's own
  }
  struct stat StatusOf(const std::string& name) const {
    struct stat status {};
    EXPECT_EQ(stat(Local(name).c_str(), &status), 0) << name;
    return status;
  }
  long TimeOf(const std::string& name) const { return StatusOf(name).st_mtim.tv_sec; }
  std::string Mismatch(const std::string& name, unsigned long long size, unsigned long long expected) const {
    return MessageOf(Corvane::TRANSFER_E_SIZE_MISMATCH) + ", File: " + Local(name).native() +
           " Size: " + std::to_string(size) + " Expected size: " + std::to_string(expected);
  }
  // Aborts the run right before this call of the system is made.
  void AbortAt(const std::string& call) {
    m_system.onCall = [this, call](const std::string& made) {
      if (made == call) m_mirror.Abort();
    };
  }

  const TempDir m_folder;
  std::optional<ScriptedServer> m_server;
  Corvane::ZMultiDownload m_mirror;
  ScriptedSystem m_system{m_folder.Path()};
};

}  // namespace CorvaneTest
