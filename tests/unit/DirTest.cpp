#include <Corvane/Base/Dir.h>

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <limits>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/Env.h"
#include "tests/support/TempDir.h"
#include "tests/unit/PrintTo.h"

namespace {

// What statvfs reports while it is set.
std::optional<struct statvfs> fakeFileSystem;

}  // namespace

// Stands in for the C library's function in the whole process; hidden, it would do so in this file only.
extern "C" __attribute__((visibility("default"))) int statvfs(const char* path, struct statvfs* status) noexcept {
  if (fakeFileSystem) {
    *status = *fakeFileSystem;
    return 0;
  }
  using Function = int (*)(const char*, struct statvfs*);
  static const auto real = reinterpret_cast<Function>(dlsym(RTLD_NEXT, "statvfs"));
  return real(path, status);
}

namespace Corvane {
namespace {

using CorvaneTest::TempDir;
using CorvaneTest::WriteFile;

ZString ToZString(const std::filesystem::path& path) { return ZString(path.c_str()); }

// Makes a folder the working directory for a scope.
class WorkingDirectory {
 public:
  explicit WorkingDirectory(const std::filesystem::path& path) : m_former(std::filesystem::current_path()) {
    std::filesystem::current_path(path);
  }
  ~WorkingDirectory() { std::filesystem::current_path(m_former); }
  WorkingDirectory(const WorkingDirectory&) = delete;
  WorkingDirectory& operator=(const WorkingDirectory&) = delete;

 private:
  std::filesystem::path m_former;
};

class Umask {
 public:
  explicit Umask(mode_t mask) : m_former(umask(mask)) {}
  ~Umask() { umask(m_former); }
  Umask(const Umask&) = delete;
  Umask& operator=(const Umask&) = delete;

 private:
  mode_t m_former;
};

struct CreateCase {
  const char* path;     // below the temporary folder
  const char* created;  // what has to be there afterwards
};
constexpr CreateCase kCreateCases[] = {
    {"a", "a"},
    {"b/c/d", "b/c/d"},
    {"e/", "e"},
    {"f//g///h//", "f/g/h"},
    {"./i/./j", "i/j"},
    {"k/../l", "l"},
    {"with blank/100%2", "with blank/100%2"},
    {"b/c/d/e/f", "b/c/d/e/f"},
    {"m/\xc3\xbc/\xe2\x82\xac", "m/\xc3\xbc/\xe2\x82\xac"},
};

TEST(ZDir, CreateRMakesTheDirectoryAndItsParents) {
  const CorvaneTest::ScopedLocale locale("C.UTF-8");
  for (const bool isRelative : {false, true}) {
    const TempDir dir;
    const WorkingDirectory here(dir.Path());
    for (const CreateCase& c : kCreateCases) {
      const ZString path = isRelative ? ZString(c.path) : ToZString(dir.Path()) + L"/" + ZString(c.path);
      EXPECT_EQ(ZDir::CreateR(path), BASE_S_OK) << c.path;
      EXPECT_TRUE(std::filesystem::is_directory(dir / c.created)) << c.path;
      EXPECT_EQ(ZDir::CreateR(path), BASE_S_OK) << "a second time: " << c.path;
    }
  }
}

TEST(ZDir, CreateRTakesWhatIsAlwaysThere) {
  for (const wchar_t* path : {L"", L".", L"..", L"/", L"//", L"/tmp", L"./", L"/."}) {
    EXPECT_EQ(ZDir::CreateR(path), BASE_S_OK) << ZStringEncoder(path, ZStringEncoder::Utf8).CStr();
  }
}

TEST(ZDir, CreateRGoesThroughLinksToDirectories) {
  const TempDir dir;
  std::filesystem::create_directory(dir / "real");
  std::filesystem::create_directory_symlink("real", dir / "link");
  EXPECT_EQ(ZDir::CreateR(ToZString(dir / "link")), BASE_S_OK);
  EXPECT_EQ(ZDir::CreateR(ToZString(dir / "link/a/b")), BASE_S_OK);
  EXPECT_TRUE(std::filesystem::is_directory(dir / "real/a/b"));
  EXPECT_TRUE(std::filesystem::is_symlink(dir / "link"));
}

TEST(ZDir, CreateRRefusesWhenAPartIsNoDirectory) {
  const TempDir dir;
  WriteFile(dir / "file", "kept");
  std::filesystem::create_symlink("file", dir / "link");
  for (const char* path : {"file", "file/", "file/a", "file/a/b", "link", "link/a"}) {
    EXPECT_EQ(ZDir::CreateR(ToZString(dir / path)), ResultFromErrno(ENOTDIR)) << path;
  }
  EXPECT_EQ(CorvaneTest::ReadFile(dir / "file"), "kept");
}

TEST(ZDir, CreateRReportsWhyItFailed) {
  const TempDir dir;
  std::filesystem::create_symlink("nowhere", dir / "dangling");
  EXPECT_EQ(ZDir::CreateR(ToZString(dir / "dangling")), ResultFromErrno(EEXIST));
  EXPECT_EQ(ZDir::CreateR(ToZString(dir / "made" / std::string(300, 'n') / "not made")), ResultFromErrno(ENAMETOOLONG));
  EXPECT_TRUE(std::filesystem::is_directory(dir / "made")) << "the parents created so far stay";
  EXPECT_NE(ZDir::CreateR(L"/proc/no such process/a"), BASE_S_OK);
}

TEST(ZDir, CreateRMakesDirectoriesWithTheModeThatTheUmaskLeaves) {
  const TempDir dir;
  for (const mode_t mask : {0022u, 0027u, 0077u, 0000u}) {
    const Umask scoped(mask);
    const std::filesystem::path path = dir / std::to_string(mask);
    EXPECT_EQ(ZDir::CreateR(ToZString(path / "below")), BASE_S_OK);
    for (const auto& made : {path, path / "below"}) {
      struct stat status {};
      ASSERT_EQ(stat(made.c_str(), &status), 0);
      EXPECT_EQ(status.st_mode & 07777, 0777u & ~mask) << made;
    }
  }
}

TEST(ZDir, CreateRSucceedsForEveryoneWhoMakesTheSameTreeAtOnce) {
  const TempDir dir;
  for (int round = 0; round < 50; ++round) {
    const ZString path = ToZString(dir / std::to_string(round) / "a/b/c/d/e/f/g/h");
    std::vector<ZResult> results(8, 77);
    std::vector<std::thread> threads;
    for (ZResult& result : results) threads.emplace_back([&] { result = ZDir::CreateR(path); });
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(results, std::vector<ZResult>(8, BASE_S_OK)) << round;
  }
}

TEST(ZDir, CreateRCreatesNothingForANameThatTheLocalEncodingCannotExpress) {
  const TempDir dir;
  const CorvaneTest::ScopedLocale locale("C");
  EXPECT_EQ(ZDir::CreateR(ToZString(dir / "a") + L"/\u20ac/b"), BASE_E_INVALID_NAME);
  EXPECT_EQ(ZDir::CreateR(ToZString(dir / "a") + ZString(L"\0b", 2)), BASE_E_INVALID_NAME);
  EXPECT_TRUE(std::filesystem::is_empty(dir.Path()));
}

struct SpaceCase {
  unsigned long blockBytes;      // f_frsize
  unsigned long blocks;          // f_bavail
  unsigned long preferredBytes;  // f_bsize
  unsigned long long kilobytes;
};
constexpr unsigned long kMost = std::numeric_limits<unsigned long>::max();
constexpr SpaceCase kSpaceCases[] = {
    {4096, 0, 4096, 0},
    {4096, 3, 65536, 12},
    {512, 1, 512, 0},
    {512, 2, 512, 1},
    {512, 3, 512, 1},
    {1024, kMost, 1024, kMost},
    {4096, 1ul << 60, 4096, 1ull << 62},
    {4096, 1ul << 62, 4096, kMost},
    {kMost, kMost, 4096, kMost},
    {0, 5, 4096, 20},  // some file systems leave the fragment size out
};

TEST(ZDir, GetFreeSpaceCountsWholeKilobytesForOrdinaryUsers) {
  for (const SpaceCase& c : kSpaceCases) {
    struct statvfs status {};
    status.f_frsize = c.blockBytes;
    status.f_bsize = c.preferredBytes;
    status.f_bavail = c.blocks;
    status.f_bfree = kMost;  // includes what is reserved for the administrator
    status.f_blocks = kMost;
    fakeFileSystem = status;
    unsigned long long kilobytes = 77;
    EXPECT_EQ(ZDir::GetFreeSpace(L"/tmp", kilobytes), BASE_S_OK);
    EXPECT_EQ(kilobytes, c.kilobytes) << c.blockBytes << " * " << c.blocks;
    fakeFileSystem.reset();
  }
}

TEST(ZDir, GetFreeSpaceLooksAtTheFileSystemOfThePath) {
  const TempDir dir;
  WriteFile(dir / "file", "x");
  const WorkingDirectory here(dir.Path());
  for (const ZString& path : {ToZString(dir.Path()), ToZString(dir / "file"), ZString(L"."), ZString()}) {
    unsigned long long kilobytes = 0;
    EXPECT_EQ(ZDir::GetFreeSpace(path, kilobytes), BASE_S_OK);
    EXPECT_GT(kilobytes, 0u);
  }
  unsigned long long kilobytes = 77;
  EXPECT_EQ(ZDir::GetFreeSpace(L"/proc", kilobytes), BASE_S_OK);
  EXPECT_EQ(kilobytes, 0u);
}

TEST(ZDir, GetFreeSpaceLeavesTheNumberAloneOnAFailure) {
  const CorvaneTest::ScopedLocale locale("C");
  unsigned long long kilobytes = 77;
  EXPECT_EQ(ZDir::GetFreeSpace(L"/no such folder", kilobytes), ResultFromErrno(ENOENT));
  EXPECT_EQ(ZDir::GetFreeSpace(L"/\u20ac", kilobytes), BASE_E_INVALID_NAME);
  EXPECT_EQ(kilobytes, 77u);
}

}  // namespace
}  // namespace Corvane
