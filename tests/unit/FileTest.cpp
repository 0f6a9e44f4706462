#include <Corvane/Base/File.h>

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "tests/support/Env.h"
#include "tests/support/FileDescriptor.h"
#include "tests/support/TempDir.h"
#include "tests/unit/PrintTo.h"

namespace Corvane {
namespace {

using CorvaneTest::TempDir;
using CorvaneTest::WriteFile;

const ZString kEuroName(L"price \u20ac.txt");  // three bytes in UTF-8, unknown to the C locale

ZString ToZString(const std::filesystem::path& path) { return ZString(path.c_str()); }

mode_t PermissionsOf(const std::filesystem::path& path) {
  struct stat status {};
  EXPECT_EQ(stat(path.c_str(), &status), 0);
  return status.st_mode & 07777;
}

// Whether there is something of that name, a dangling link included.
bool IsThere(const std::filesystem::path& path) {
  struct stat status {};
  return lstat(path.c_str(), &status) == 0;
}

TEST(ZFile, ExistsForEverythingThatHasTheName) {
  const TempDir dir;
  WriteFile(dir / "file", "x");
  std::filesystem::create_directory(dir / "folder");
  std::filesystem::create_symlink("file", dir / "link");
  for (const auto& path : {dir / "file", dir / "folder", dir / "link", std::filesystem::path("/dev/null")}) {
    ZResult result = 77;
    EXPECT_TRUE(ZFile::Exists(ToZString(path), 0, &result)) << path;
    EXPECT_EQ(result, BASE_S_OK) << path;
    EXPECT_TRUE(ZFile::Exists(ToZString(path), 0, nullptr)) << path;
  }
}

TEST(ZFile, ExistsReportsWhyItIsNotKnown) {
  const TempDir dir;
  WriteFile(dir / "file", "x");
  std::filesystem::create_symlink("nowhere", dir / "dangling");
  std::filesystem::create_symlink("loop", dir / "loop");
  struct Case {
    std::filesystem::path path;
    int error;
  };
  const Case cases[] = {{dir / "missing", ENOENT},
                        {dir / "dangling", ENOENT},
                        {dir / "file/below", ENOTDIR},
                        {dir / "loop", ELOOP},
                        {dir / std::string(300, 'n'), ENAMETOOLONG},
                        {"", ENOENT}};
  for (const Case& c : cases) {
    ZResult result = 77;
    EXPECT_FALSE(ZFile::Exists(ToZString(c.path), 0, &result)) << c.path;
    EXPECT_EQ(result, ResultFromErrno(c.error)) << c.path;
    EXPECT_FALSE(ZFile::Exists(ToZString(c.path), 0, nullptr)) << c.path;
  }
}

TEST(ZFile, IsDirectoryForDirectoriesAndLinksToThemOnly) {
  const TempDir dir;
  WriteFile(dir / "file", "x");
  std::filesystem::create_directory(dir / "folder");
  std::filesystem::create_directory_symlink("folder", dir / "link");
  struct Case {
    std::filesystem::path path;
    bool isDirectory;
    ZResult result;
  };
  const Case cases[] = {{dir / "folder", true, BASE_S_OK}, {dir / "folder/", true, BASE_S_OK},
                        {dir / "link", true, BASE_S_OK},   {dir / "file", false, BASE_S_OK},
                        {"/dev/null", false, BASE_S_OK},   {dir / "missing", false, ResultFromErrno(ENOENT)}};
  for (const Case& c : cases) {
    ZResult result = 77;
    EXPECT_EQ(ZFile::IsDirectory(ToZString(c.path), 0, &result), c.isDirectory) << c.path;
    EXPECT_EQ(result, c.result) << c.path;
    EXPECT_EQ(ZFile::IsDirectory(ToZString(c.path), 0, nullptr), c.isDirectory) << c.path;
  }
}

TEST(ZFile, IsRegularFileForFilesAndLinksToThemOnly) {
  const TempDir dir;
  WriteFile(dir / "file", "x");
  std::filesystem::create_directory(dir / "folder");
  std::filesystem::create_symlink("file", dir / "link");
  std::filesystem::create_symlink("link", dir / "link to link");
  std::filesystem::create_directory_symlink("folder", dir / "link to folder");
  std::filesystem::create_symlink("nowhere", dir / "dangling");
  ASSERT_EQ(mkfifo((dir / "pipe").c_str(), 0600), 0);
  struct Case {
    std::filesystem::path path;
    bool isRegular;
    ZResult result;
  };
  const Case cases[] = {{dir / "file", true, BASE_S_OK},
                        {dir / "link", true, BASE_S_OK},
                        {dir / "link to link", true, BASE_S_OK},
                        {dir / "folder", false, BASE_S_OK},
                        {dir / "link to folder", false, BASE_S_OK},
                        {dir / "pipe", false, BASE_S_OK},
                        {"/dev/null", false, BASE_S_OK},
                        {dir / "dangling", false, ResultFromErrno(ENOENT)},
                        {dir / "missing", false, ResultFromErrno(ENOENT)},
                        {dir / "file/", false, ResultFromErrno(ENOTDIR)}};
  for (const Case& c : cases) {
    ZResult result = 77;
    EXPECT_EQ(ZFile::IsRegularFile(ToZString(c.path), 0, &result), c.isRegular) << c.path;
    EXPECT_EQ(result, c.result) << c.path;
    EXPECT_EQ(ZFile::IsRegularFile(ToZString(c.path), 0, nullptr), c.isRegular) << c.path;
    EXPECT_EQ(ZFileInfo(ToZString(c.path), 0).IsRegularFile(), c.isRegular) << c.path;
  }
}

TEST(ZFile, GetSizeGivesTheBytesOfTheFileOrOfWhatALinkLeadsTo) {
  const TempDir dir;
  WriteFile(dir / "empty", "");
  WriteFile(dir / "some", std::string(12345, 'x'));
  std::filesystem::create_symlink("some", dir / "link");
  WriteFile(dir / "large", "");
  std::filesystem::resize_file(dir / "large", 5'000'000'000);  // sparse: more than 32 bits can count
  struct Case {
    const char* name;
    unsigned long long size;
  };
  for (const Case& c : {Case{"empty", 0}, Case{"some", 12345}, Case{"link", 12345}, Case{"large", 5'000'000'000}}) {
    unsigned long long size = 77;
    EXPECT_EQ(ZFile::GetSize(ToZString(dir / c.name), size), BASE_S_OK) << c.name;
    EXPECT_EQ(size, c.size) << c.name;
  }
}

TEST(ZFile, GetSizeLeavesTheSizeAloneOnAFailure) {
  unsigned long long size = 77;
  EXPECT_EQ(ZFile::GetSize(ToZString(TempDir() / "missing"), size), ResultFromErrno(ENOENT));
  EXPECT_EQ(size, 77u);
}

TEST(ZFile, RemovesARegularFile) {
  const TempDir dir;
  WriteFile(dir / "file", "x");
  EXPECT_EQ(ZFile::Remove(ToZString(dir / "file"), 0), BASE_S_OK);
  EXPECT_FALSE(IsThere(dir / "file"));
  EXPECT_EQ(ZFile::Remove(ToZString(dir / "file"), 0), ResultFromErrno(ENOENT));
}

TEST(ZFile, RemovesALinkAndNotWhatItLeadsTo) {
  const TempDir dir;
  WriteFile(dir / "file", "x");
  std::filesystem::create_directory(dir / "folder");
  std::filesystem::create_symlink("file", dir / "to file");
  std::filesystem::create_directory_symlink("folder", dir / "to folder");
  std::filesystem::create_symlink("nowhere", dir / "dangling");
  for (const char* link : {"to file", "to folder", "dangling"}) {
    EXPECT_EQ(ZFile::Remove(ToZString(dir / link), 0), BASE_S_OK) << link;
    EXPECT_FALSE(IsThere(dir / link)) << link;
  }
  EXPECT_TRUE(IsThere(dir / "file"));
  EXPECT_TRUE(IsThere(dir / "folder"));
}

// A socket of that name, there as long as the folder.
CorvaneTest::FileDescriptor ListenAt(const std::filesystem::path& path) {
  CorvaneTest::FileDescriptor descriptor(socket(AF_UNIX, SOCK_STREAM, 0));
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path.string().copy(address.sun_path, sizeof address.sun_path - 1);
  EXPECT_EQ(bind(descriptor.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  return descriptor;
}

TEST(ZFile, RefusesToRemoveAnythingButFilesAndLinks) {
  const TempDir dir;
  std::filesystem::create_directory(dir / "empty folder");
  ASSERT_EQ(mkfifo((dir / "fifo").c_str(), 0600), 0);
  const CorvaneTest::FileDescriptor listener = ListenAt(dir / "socket");
  std::vector<std::filesystem::path> paths = {dir / "empty folder", dir / "empty folder/", dir / "fifo",
                                              dir / "socket"};
  // A device of our own where the account may make one. An ordinary account cannot harm the machine's.
  if (mknod((dir / "device").c_str(), S_IFCHR | 0600, makedev(1, 3)) == 0) {
    paths.push_back(dir / "device");
  } else if (geteuid() != 0) {
    paths.push_back("/dev/null");
  }
  for (const auto& path : paths) {
    EXPECT_EQ(ZFile::Remove(ToZString(path), 0), BASE_E_NOT_A_FILE) << path;
    EXPECT_TRUE(IsThere(path)) << path;
  }
}

TEST(ZFile, SetTimeSetsBothTimesToTheSecond) {
  const TempDir dir;
  WriteFile(dir / "file", "x");
  std::filesystem::create_symlink("file", dir / "link");
  struct Case {
    const char* name;
    long access, modification;
  };
  for (const Case& c :
       {Case{"file", 1000000000, 1100000000}, Case{"link", 1, 0}, Case{"file", 4102444800, 4102444801}}) {
    EXPECT_EQ(ZFile::SetTime(ToZString(dir / c.name), c.access, c.modification), BASE_S_OK);
    struct stat status {};
    ASSERT_EQ(stat((dir / "file").c_str(), &status), 0);
    EXPECT_EQ(status.st_atim.tv_sec, c.access);
    EXPECT_EQ(status.st_atim.tv_nsec, 0);
    EXPECT_EQ(status.st_mtim.tv_sec, c.modification);
    EXPECT_EQ(status.st_mtim.tv_nsec, 0);
  }
}

TEST(ZFile, ChmodSetsThePermissionBits) {
  const TempDir dir;
  WriteFile(dir / "file", "x");
  for (const unsigned int mode : {0755u, 0600u, 0444u, 0u, 0777u}) {
    EXPECT_EQ(ZFile::Chmod(ToZString(dir / "file"), mode, 0), BASE_S_OK);
    EXPECT_EQ(PermissionsOf(dir / "file"), mode);
  }
}

TEST(ZFile, ReportsAMissingFileWhateverTheOperation) {
  const ZString missing = ToZString(TempDir() / "missing");
  EXPECT_EQ(ZFile::Remove(missing, 0), ResultFromErrno(ENOENT));
  EXPECT_EQ(ZFile::SetTime(missing, 1, 1), ResultFromErrno(ENOENT));
  EXPECT_EQ(ZFile::Chmod(missing, 0644, 0), ResultFromErrno(ENOENT));
}

// Every operation, each as a call that returns its code.
using Operation = std::function<ZResult(const ZString&)>;
const std::vector<std::pair<const char*, Operation>>& AllOperations() {
  static const std::vector<std::pair<const char*, Operation>> operations = {
      {"Exists",
       [](const ZString& path) {
         ZResult result = 77;
         return ZFile::Exists(path, 0, &result) ? BASE_S_OK : result;
       }},
      {"IsDirectory",
       [](const ZString& path) {
         ZResult result = 77;
         return ZFile::IsDirectory(path, 0, &result) ? 77 : result;  // it is none
       }},
      {"IsRegularFile",
       [](const ZString& path) {
         ZResult result = 77;
         return ZFile::IsRegularFile(path, 0, &result) ? BASE_S_OK : result;
       }},
      {"GetSize",
       [](const ZString& path) {
         unsigned long long size = 0;
         return ZFile::GetSize(path, size);
       }},
      {"SetTime", [](const ZString& path) { return ZFile::SetTime(path, 1, 1); }},
      {"Chmod", [](const ZString& path) { return ZFile::Chmod(path, 0600, 0); }},
      {"Update", [](const ZString& path) { return ZFileInfo(path, 0).Update(); }},
      {"Remove", [](const ZString& path) { return ZFile::Remove(path, 0); }},  // last: the others need the file
  };
  return operations;
}

TEST(ZFile, TakesNamesInTheLocalEncoding) {
  const TempDir dir;
  WriteFile(dir / "price \xe2\x82\xac.txt", "x");
  const CorvaneTest::ScopedLocale locale("C.UTF-8");
  const ZString path = ToZString(dir.Path()) + L"/" + kEuroName;
  for (const auto& [name, operation] : AllOperations()) EXPECT_EQ(operation(path), BASE_S_OK) << name;
  EXPECT_FALSE(IsThere(dir / "price \xe2\x82\xac.txt"));
}

TEST(ZFile, RefusesNamesThatTheLocalEncodingCannotExpress) {
  const TempDir dir;
  const CorvaneTest::ScopedLocale locale("C");
  const ZString path = ToZString(dir.Path()) + L"/" + kEuroName;
  for (const auto& [name, operation] : AllOperations()) EXPECT_EQ(operation(path), BASE_E_INVALID_NAME) << name;
  EXPECT_TRUE(std::filesystem::is_empty(dir.Path()));
}

// A C string would end at the zero, and some other file be meant.
TEST(ZFile, RefusesNamesWithAZeroCharacter) {
  const TempDir dir;
  WriteFile(dir / "file", "x");
  const ZString path = ToZString(dir / "file") + ZString(L"\0.part", 6);
  for (const auto& [name, operation] : AllOperations()) EXPECT_EQ(operation(path), BASE_E_INVALID_NAME) << name;
  EXPECT_TRUE(IsThere(dir / "file"));
}

// Short paths take another way to the system than long ones.
TEST(ZFile, TakesPathsOfAnyLength) {
  const TempDir dir;
  WriteFile(dir / "file", "12345");
  const std::string name = "/file";
  for (std::size_t length = 250; length <= 260; ++length) {
    std::string path = (dir / "").string();
    path.append(length - path.size() - name.size(), '/').append(name);
    ASSERT_EQ(path.size(), length);
    unsigned long long size = 0;
    EXPECT_EQ(ZFile::GetSize(ZString(path.c_str()), size), BASE_S_OK) << length;
    EXPECT_EQ(size, 5u) << length;
    EXPECT_FALSE(ZFile::Exists(ZString((path + "2").c_str()), 0, nullptr)) << length;
  }
}

TEST(ZFileInfo, KnowsAFileThatIsThere) {
  const TempDir dir;
  WriteFile(dir / "file", "12345");
  const ZString path = ToZString(dir / "file");
  ASSERT_EQ(ZFile::SetTime(path, 1, 1234567890), BASE_S_OK);
  const ZFileInfo info(path, 0);
  EXPECT_TRUE(info.IsValid());
  EXPECT_EQ(info.Name(), path);
  EXPECT_EQ(info.Size(), 5u);
  EXPECT_EQ(info.ModTime(), 1234567890);
}

TEST(ZFileInfo, IsInvalidForAMissingFile) {
  const ZFileInfo info(L"no such folder/no such file", 0);
  EXPECT_FALSE(info.IsValid());
  EXPECT_EQ(info.Name(), ZString(L"no such folder/no such file"));
  EXPECT_EQ(info.Size(), 0u);
  EXPECT_EQ(info.ModTime(), 0);
}

TEST(ZFileInfo, UpdateSeesTheFileComeChangeAndGo) {
  const TempDir dir;
  const ZString path = ToZString(dir / "file");
  ZFileInfo info(path, 0);
  EXPECT_EQ(info.Update(), ResultFromErrno(ENOENT));
  WriteFile(dir / "file", "12345");
  EXPECT_FALSE(info.IsValid()) << "nothing is read before Update";
  EXPECT_EQ(info.Update(), BASE_S_OK);
  EXPECT_TRUE(info.IsValid());
  EXPECT_EQ(info.Size(), 5u);
  EXPECT_NE(info.ModTime(), 0);
  WriteFile(dir / "file", "1234567");
  EXPECT_EQ(info.Size(), 5u);
  EXPECT_EQ(info.Update(), BASE_S_OK);
  EXPECT_EQ(info.Size(), 7u);
  ASSERT_EQ(ZFile::Remove(path, 0), BASE_S_OK);
  EXPECT_EQ(info.Update(), ResultFromErrno(ENOENT));
  EXPECT_FALSE(info.IsValid());
  EXPECT_FALSE(info.IsRegularFile());
  EXPECT_EQ(info.Size(), 0u);
  EXPECT_EQ(info.ModTime(), 0);
}

TEST(ZFileInfo, FollowsALink) {
  const TempDir dir;
  WriteFile(dir / "file", "12345");
  std::filesystem::create_symlink("file", dir / "link");
  EXPECT_EQ(ZFileInfo(ToZString(dir / "link"), 0).Size(), 5u);
}

}  // namespace
}  // namespace Corvane
