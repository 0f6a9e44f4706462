#include "tests/cli/KilledDownload.h"

#include <gmock/gmock.h>
#include <signal.h>

#include <nlohmann/json.hpp>
#include <system_error>
#include <thread>
#include <utility>

#include "tests/cli/CliTesting.h"

namespace CorvaneTest {

namespace fs = std::filesystem;

// Well above the size from which on a part is continued, and less than any of the servers sends in its first second.
constexpr std::uintmax_t kSome = 50000;

void Publish(const fs::path& file, const std::string& content, std::chrono::seconds later) {
  WriteFile(file, content);
  fs::last_write_time(file, fs::file_time_type::clock::now() - std::chrono::hours(24) + later);
}

KilledDownload::KilledDownload(std::string url, const std::vector<std::string>& slowness,
                               std::vector<std::string> options)
    : m_url(std::move(url)), m_options(std::move(options)) {
  const auto program = StartCorvane(Command(slowness));
  EXPECT_TRUE(AwaitPart()) << program->ErrorOutput();
  program->Kill(SIGKILL);
  const auto result = program->Wait();
  EXPECT_TRUE(result && result->signal == SIGKILL) << (result ? result->Describe() : "it is not dead");
  EXPECT_THAT(NamesIn(m_folder.Path()), testing::ElementsAre("f.part", "f.part.json"));
  m_partSize = FileSize(Part());
  m_validator = nlohmann::json::parse(ReadFile(Part().string() + ".json")).at("validator");
}

ProgramResult KilledDownload::Resume(std::vector<std::string> more) const {
  more.emplace_back("--resume");
  return RunCorvane(Command(more));
}

bool KilledDownload::Holds(const std::string& content) const {
  return NamesIn(m_folder.Path()) == std::vector<std::string>{"f"} && ReadFile(File()) == content;
}

std::vector<std::string> KilledDownload::Command(const std::vector<std::string>& more) const {
  std::vector<std::string> command = {"get", m_url, "-o", File().string()};
  command.insert(command.end(), m_options.begin(), m_options.end());
  command.insert(command.end(), more.begin(), more.end());
  return command;
}

bool KilledDownload::AwaitPart() const {
  const Deadline deadline = After(kPatience);
  std::error_code error;
  while (Clock::now() < deadline) {
    const std::uintmax_t size = fs::file_size(Part(), error);
    if (!error && size >= kSome) return true;
    std::this_thread::yield();
  }
  return false;
}

}  // namespace CorvaneTest
