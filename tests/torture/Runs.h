#pragma once

#include <gmock/gmock.h>

#include <filesystem>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include <Corvane/Base/Result.h>

#include "tests/support/TempDir.h"
#include "tests/torture/Injection.h"

// Typical runs of the library against servers in the same process, each small enough to be repeated thousands of times.
namespace CorvaneTest {

// How an operation ended in which something failed.
struct RunOutcome {
  std::optional<Corvane::ZResult> code;  // none: std::bad_alloc came out of it
  Target target = Target::kLibraryMemory;
};

// A folder for the files of a run, with something beside it that nobody may touch.
class Room {
 public:
  Room();
  [[nodiscard]] std::filesystem::path Target() const { return m_folder / "target"; }
  std::filesystem::path operator/(const std::filesystem::path& name) const { return Target() / name; }
  // Without anything in it; the folder itself is there.
  void Clear();
  void ExpectNothingElseTouched() const;

 private:
  TempDir m_folder;
};

class Run {
 public:
  Run() = default;
  virtual ~Run() = default;
  Run(const Run&) = delete;
  Run& operator=(const Run&) = delete;

  // Makes a new object, and everything as it is before the operation.
  virtual void Prepare() = 0;
  // The operation whose calls fail. Throws std::bad_alloc where the library may.
  virtual Corvane::ZResult Execute() = 0;
  // What it returns when nothing fails.
  [[nodiscard]] virtual Corvane::ZResult Expected() const;
  // Expects that the object is idle, and that what is here now is whole or what a failure may leave.
  virtual void Check(const RunOutcome& outcome) = 0;
  // The operation once more on the same object, with nothing that fails: expects that all is here then.
  virtual void Repeat() = 0;
  // Lets go of the object.
  virtual void Discard() = 0;

  // Whether memory that runs out may come out as std::bad_alloc.
  [[nodiscard]] virtual bool MayThrow() const { return false; }
};

// A run by its name, and the families of calls of the system that it makes.
struct RunKind {
  const char* name;
  std::unique_ptr<Run> (*make)();
  std::set<Target> calls;
};

template <class Kind>
std::unique_ptr<Run> MakeRun() {
  return std::make_unique<Kind>();
}

std::vector<RunKind> DownloadRuns();
std::vector<RunKind> PostRuns();
std::vector<RunKind> MirrorRuns();
std::vector<RunKind> TreeRuns();
std::vector<RunKind> AllRuns();

// For gtest: names in place of bytes.
void PrintTo(const RunKind& kind, std::ostream* stream);

// Text of so many bytes, with characters of more than one byte.
std::string MakeText(std::size_t bytes);
// Whether the file is there and holds exactly these bytes.
testing::AssertionResult IsWhole(const std::filesystem::path& file, std::string_view content);
// Whether the file holds the beginning of `content`, at least `atLeast` bytes of it.
testing::AssertionResult HoldsBeginning(const std::filesystem::path& file, std::string_view content,
                                        std::size_t atLeast = 0);

}  // namespace CorvaneTest
