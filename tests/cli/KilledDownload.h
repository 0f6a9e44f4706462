#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/Process.h"
#include "tests/support/TempDir.h"

namespace CorvaneTest {

// Lasts far longer at 200 KiB a second than the program lives.
inline constexpr std::size_t kLarge = 4 << 20;

// A file on a server whose time lies a day, less `later`, in the past: no answer is of the same second as the file, and the times of
// two versions differ when `later` does.
void Publish(const std::filesystem::path& file, const std::string& content, std::chrono::seconds later = {});

// "corvane get URL -o FILE" that a SIGKILL ended in the middle, in a folder of its own, and the runs that go on with it.
class KilledDownload {
 public:
  // Returns when the program is dead. `slowness` are options that make the transfer last far longer than the program lives;
  // `options` are those of every run. Fails the test when there is no part in the end, or more than that.
  KilledDownload(std::string url, const std::vector<std::string>& slowness, std::vector<std::string> options = {});

  [[nodiscard]] ProgramResult Resume(std::vector<std::string> more = {}) const;

  std::uintmax_t PartSize() const { return m_partSize; }        // when the program was dead
  const std::string& Validator() const { return m_validator; }  // which the part's record held then
  bool Holds(const std::string& content) const;                 // the file is there, complete, and nothing else is

 private:
  std::filesystem::path File() const { return m_folder / "f"; }
  std::filesystem::path Part() const { return m_folder / "f.part"; }
  std::vector<std::string> Command(const std::vector<std::string>& more) const;
  bool AwaitPart() const;

  const std::string m_url;
  const std::vector<std::string> m_options;
  TempDir m_folder;
  std::uintmax_t m_partSize = 0;
  std::string m_validator;
};

}  // namespace CorvaneTest
