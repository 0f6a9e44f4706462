#include "tests/torture/Runs.h"

#include <Corvane/TransferErrorCodes.h>

#include "tests/loopback/TransferTesting.h"

namespace CorvaneTest {

namespace fs = std::filesystem;

namespace {

constexpr const char* kBeside = "beside";

}  // namespace

Room::Room() {
  WriteFile(m_folder / kBeside, kBeside);
  Clear();
}

void Room::Clear() {
  fs::remove_all(Target());
  fs::create_directory(Target());
}

void Room::ExpectNothingElseTouched() const {
  EXPECT_THAT(NamesIn(m_folder.Path()), testing::ElementsAre(kBeside, "target"));
  EXPECT_EQ(ReadFile(m_folder / kBeside), kBeside);
}

Corvane::ZResult Run::Expected() const { return Corvane::TRANSFER_S_FINISHED; }

std::vector<RunKind> AllRuns() {
  std::vector<RunKind> all;
  for (const auto& runs : {DownloadRuns(), PostRuns(), MirrorRuns(), TreeRuns()}) {
    all.insert(all.end(), runs.begin(), runs.end());
  }
  return all;
}

void PrintTo(const RunKind& kind, std::ostream* stream) { *stream << kind.name; }

std::string MakeText(std::size_t bytes) {
  std::string text;
  while (text.size() < bytes) text += "line " + std::to_string(text.size()) + " of \xC3\xA4 page \xE2\x82\xAC\n";
  return text;
}

testing::AssertionResult IsWhole(const fs::path& file, std::string_view content) {
  return fs::exists(file) ? FileHolds(file, content) : testing::AssertionFailure() << file << " is missing";
}

testing::AssertionResult HoldsBeginning(const fs::path& file, std::string_view content, std::size_t atLeast) {
  const std::string bytes = ReadFile(file);
  if (bytes.size() < atLeast)
    return testing::AssertionFailure() << file << " holds " << bytes.size() << " bytes, not even " << atLeast;
  if (bytes == content.substr(0, bytes.size())) return testing::AssertionSuccess();
  return testing::AssertionFailure() << file << " holds " << bytes.size() << " bytes of something else";
}

}  // namespace CorvaneTest
