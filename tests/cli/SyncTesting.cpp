#include "tests/cli/SyncTesting.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <system_error>
#include <thread>

#include "tests/support/TempDir.h"

namespace CorvaneTest {

namespace fs = std::filesystem;

void PublishTree(const fs::path& folder, const Tree& tree, std::chrono::minutes later) {
  fs::file_time_type time = fs::file_time_type::clock::now() - std::chrono::hours(48) + later;
  for (const auto& [path, content] : tree) {
    if (path.ends_with('/')) {
      fs::create_directories(folder / path);
      continue;
    }
    WriteFile(folder / path, content);
    fs::last_write_time(folder / path, time);
    time -= std::chrono::minutes(3);
  }
}

Tree TreeIn(const fs::path& folder) {
  Tree tree;
  for (const fs::directory_entry& entry : fs::recursive_directory_iterator(folder)) {
    const std::string path = entry.path().lexically_relative(folder).string();
    if (entry.is_symlink()) {
      tree[path] = "-> " + fs::read_symlink(entry.path()).string();
    } else if (!entry.is_directory()) {
      tree[path] = ReadFile(entry.path());
    } else if (fs::is_empty(entry.path())) {
      tree[path + '/'] = "";
    }
  }
  return tree;
}

ProgramResult RunSync(const std::string& url, const fs::path& folder, std::vector<std::string> more,
                      const ProgramOptions& options) {
  more.insert(more.begin(), {"sync", url, folder.string()});
  return RunCorvane(more, options);
}

std::map<std::string, std::string> ActionsIn(const nlohmann::json& report) {
  std::map<std::string, std::string> actions;
  for (const nlohmann::json& file : report.at("files")) {
    const std::string path = file.at("path");
    EXPECT_TRUE(actions.emplace(path, file.at("action")).second) << path << " is there twice";
  }
  return actions;
}

nlohmann::json FileIn(const nlohmann::json& report, const std::string& path) {
  for (const nlohmann::json& file : report.at("files")) {
    if (file.at("path") == path) return file;
  }
  ADD_FAILURE() << path << " is not in " << report.dump(1);
  return nlohmann::json::object();
}

testing::AssertionResult AwaitPartIn(const fs::path& folder, std::uintmax_t size) {
  const Deadline deadline = After(kPatience);
  while (Clock::now() < deadline) {
    std::error_code error;
    for (const fs::directory_entry& entry : fs::directory_iterator(folder / ".corvane", error)) {
      const std::uintmax_t here = entry.file_size(error);
      if (!error && entry.path().extension() == ".part" && here >= size) return testing::AssertionSuccess();
    }
    std::this_thread::yield();
  }
  return testing::AssertionFailure() << "nothing of " << size << " bytes is under way in " << folder;
}

testing::AssertionResult AwaitFile(const fs::path& path) {
  const Deadline deadline = After(kPatience);
  while (Clock::now() < deadline) {
    if (fs::exists(path)) return testing::AssertionSuccess();
    std::this_thread::yield();
  }
  return testing::AssertionFailure() << path << " is not there";
}

}  // namespace CorvaneTest
