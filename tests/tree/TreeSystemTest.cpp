#include <dlfcn.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <map>
#include <optional>
#include <string>

#include "tests/support/NextFunction.h"
#include "tests/tree/TreeTesting.h"

// What a run makes of a system that refuses what it never refuses on a test machine. This program has functions of these names, which the
// library calls in place of the real ones.
namespace {

// What is refused while one lives, by the name as the library gives it.
struct Refusals {
  Refusals() { current = this; }
  ~Refusals() { current = nullptr; }
  Refusals(const Refusals&) = delete;
  Refusals& operator=(const Refusals&) = delete;

  std::map<std::string, int> open;
  std::map<std::string, int> look;
  std::map<std::string, int> makeFolder;
  std::map<std::string, int> remove;
  int lock = 0;
  int space = 0;
  std::optional<unsigned long> freeBlocks;
  bool isMadeMeanwhile = false;  // a folder whose making is refused

  static Refusals* current;
};
Refusals* Refusals::current = nullptr;

bool Refuse(int error) {
  if (error != 0) errno = error;
  return error != 0;
}

bool Refuse(std::map<std::string, int> Refusals::*calls, const char* name) {
  if (Refusals::current == nullptr) return false;
  const std::map<std::string, int>& refused = Refusals::current->*calls;
  const auto found = refused.find(name);
  return found != refused.end() && Refuse(found->second);
}

}  // namespace

using CorvaneTest::NextFunction;

CORVANE_TEST_STANDS_IN int openat(int folder, const char* path, int flags, ...) {
  static const NextFunction<int(int, const char*, int, ...)> next("openat");
  std::va_list rest;
  va_start(rest, flags);
  const unsigned int mode = (flags & O_CREAT) != 0 ? va_arg(rest, unsigned int) : 0;
  va_end(rest);
  return Refuse(&Refusals::open, path) ? -1 : next(folder, path, flags, mode);
}

CORVANE_TEST_STANDS_IN int fstatat(int folder, const char* path, struct stat* status, int flags) noexcept {
  static const NextFunction<int(int, const char*, struct stat*, int)> next("fstatat");
  return Refuse(&Refusals::look, path) ? -1 : next(folder, path, status, flags);
}

CORVANE_TEST_STANDS_IN int mkdirat(int folder, const char* path, mode_t mode) noexcept {
  static const NextFunction<int(int, const char*, mode_t)> next("mkdirat");
  if (!Refuse(&Refusals::makeFolder, path)) return next(folder, path, mode);
  const int error = errno;
  if (Refusals::current->isMadeMeanwhile) next(folder, path, mode);
  errno = error;
  return -1;
}

CORVANE_TEST_STANDS_IN int unlinkat(int folder, const char* path, int flags) noexcept {
  static const NextFunction<int(int, const char*, int)> next("unlinkat");
  return Refuse(&Refusals::remove, path) ? -1 : next(folder, path, flags);
}

// By another name for the compiler: it would hide struct flock.
CORVANE_TEST_STANDS_IN int StandInForFlock(int descriptor, int operation) noexcept __asm__("flock");
int StandInForFlock(int descriptor, int operation) noexcept {
  static const NextFunction<int(int, int)> next("flock");
  return Refusals::current != nullptr && Refuse(Refusals::current->lock) ? -1 : next(descriptor, operation);
}

CORVANE_TEST_STANDS_IN int fstatvfs(int descriptor, struct statvfs* status) noexcept {
  static const NextFunction<int(int, struct statvfs*)> next("fstatvfs");
  if (Refusals::current != nullptr && Refuse(Refusals::current->space)) return -1;
  const int result = next(descriptor, status);
  if (Refusals::current == nullptr || !Refusals::current->freeBlocks) return result;
  status->f_frsize = 4096;
  status->f_bavail = *Refusals::current->freeBlocks;
  return result;
}

namespace CorvaneTest {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;

class TreeOnAnUnwillingSystem : public testing::Test {
 protected:
  std::filesystem::path Target() const { return folder / "target"; }
  TreeResult Download() { return client.Download(server.Url("/"), Target()); }
  void ExpectText(const TreeResult& result, const std::string& path, int error) {
    ASSERT_EQ(result.items.count(path), 1U) << path;
    EXPECT_THAT(result.ResultOf(path), IsCode(Corvane::TRANSFER_E_DOWNLOAD)) << path;
    EXPECT_EQ(Narrow(result.items.at(path).text), MessageOf(Corvane::ResultFromErrno(error))) << path;
  }

  TreeFiles files{{"a", "1"}, {"b/c", "22"}, {"d/e", "333"}};
  TreeSite site{files};
  ScriptedServer server{KeepAlive(site.Serve())};
  TreeClient client;
  TempDir folder;
};

TEST_F(TreeOnAnUnwillingSystem, AFolderThatCannotBeOpenedIsToldOnceAndLeftAlone) {
  ASSERT_THAT(Download().code, IsCode(Corvane::TRANSFER_S_FINISHED));
  WriteFile(Target() / "b/other", "x");
  client.options.deleteOthers = true;
  Refusals refusals;
  refusals.open["b"] = EACCES;
  const TreeResult result = Download();
  EXPECT_THAT(result.code, IsCode(Corvane::TRANSFER_E_DOWNLOAD));
  ExpectText(result, "b/", EACCES);
  EXPECT_EQ(result.PathsWith(Action::Refuse), (std::set<std::string>{"b/", "b/c"}));
  EXPECT_EQ(result.ReasonOf("b/"), Reason::None);
  EXPECT_EQ(result.ReasonOf("b/c"), Reason::None);
  EXPECT_EQ(result.TextOf("b/c"), "Its folder cannot be entered: " + MessageOf(Corvane::ResultFromErrno(EACCES)));
  EXPECT_EQ(result.statistics.foldersFailed, 1U);
  EXPECT_EQ(ReadFile(Target() / "b/other"), "x");
}

TEST_F(TreeOnAnUnwillingSystem, AFileThatCannotBeLookedAtIsNamedWithTheCause) {
  ASSERT_THAT(Download().code, IsCode(Corvane::TRANSFER_S_FINISHED));
  Refusals refusals;
  refusals.look["c"] = EACCES;
  const TreeResult result = Download();
  ExpectText(result, "b/c", EACCES);
  EXPECT_EQ(result.ActionOf("b/c"), Action::Refuse);
  EXPECT_EQ(result.ReasonOf("b/c"), Reason::None);
  EXPECT_TRUE(HoldsTree(Target(), {{"a", "1"}, {"b/c", "22"}, {"d/e", "333"}}));
}

TEST_F(TreeOnAnUnwillingSystem, AFolderThatCannotBeMadeLeavesTheOthersAlone) {
  Refusals refusals;
  refusals.makeFolder["b"] = EROFS;
  const TreeResult result = Download();
  ExpectText(result, "b/", EROFS);
  ExpectText(result, "b/c", EROFS);
  EXPECT_EQ(result.statistics.foldersFailed, 1U);
  EXPECT_TRUE(HoldsTree(Target(), {{"a", "1"}, {"d/e", "333"}}));
}

TEST_F(TreeOnAnUnwillingSystem, AFolderThatSomebodyElseMakesIsAsGood) {
  Refusals refusals;
  refusals.makeFolder["b"] = EEXIST;
  refusals.isMadeMeanwhile = true;
  EXPECT_THAT(Download().code, IsCode(Corvane::TRANSFER_S_FINISHED));
  EXPECT_TRUE(HoldsTree(Target(), files));
}

class TreeDeletesUnwillingly : public TreeOnAnUnwillingSystem {
 protected:
  TreeDeletesUnwillingly() {
    Download();
    client.options.deleteOthers = true;
    client.options.mostDeletes = 10;
    WriteFile(Target() / "other", "x");
    WriteFile(Target() / "gone/file", "x");
  }
};

TEST_F(TreeDeletesUnwillingly, WhatCannotBeLookedAtIsAFailure) {
  Refusals refusals;
  refusals.look["other"] = EACCES;
  const TreeResult result = Download();
  EXPECT_THAT(result.code, IsCode(Corvane::TRANSFER_E_DOWNLOAD));
  ExpectText(result, "other/", EACCES);  // for all that is known it is a folder
  EXPECT_EQ(result.ActionOf("other/"), Action::Delete);
  EXPECT_EQ(result.statistics.foldersFailed, 1U);
  EXPECT_TRUE(std::filesystem::exists(Target() / "other"));
  EXPECT_FALSE(std::filesystem::exists(Target() / "gone"));
}

TEST_F(TreeDeletesUnwillingly, WhatHasGoneMeanwhileIsNone) {
  Refusals refusals;
  refusals.look["other"] = ENOENT;
  const TreeResult result = Download();
  EXPECT_THAT(result.code, IsCode(Corvane::TRANSFER_S_FINISHED)) << result;
  EXPECT_EQ(result.PathsWith(Action::Delete), (std::set<std::string>{"gone/file"}));
}

TEST_F(TreeDeletesUnwillingly, AFolderThatCannotBeReadIsAFailure) {
  Refusals refusals;
  refusals.open["gone"] = EACCES;
  const TreeResult result = Download();
  ExpectText(result, "gone/", EACCES);
  EXPECT_TRUE(std::filesystem::exists(Target() / "gone/file"));
  EXPECT_FALSE(std::filesystem::exists(Target() / "other"));
}

TEST_F(TreeDeletesUnwillingly, AFileThatCannotBeRemovedIsAFailureAndTheOthersGo) {
  Refusals refusals;
  refusals.remove["other"] = EPERM;
  const TreeResult result = Download();
  EXPECT_THAT(result.code, IsCode(Corvane::TRANSFER_E_DOWNLOAD));
  ExpectText(result, "other", EPERM);
  EXPECT_EQ(result.statistics.filesFailed, 1U);
  EXPECT_EQ(result.statistics.filesDeleted, 1U);
  EXPECT_FALSE(std::filesystem::exists(Target() / "gone"));
}

TEST_F(TreeDeletesUnwillingly, AFileThatHasGoneMeanwhileIsNone) {
  Refusals refusals;
  refusals.remove["other"] = ENOENT;
  const TreeResult result = Download();
  EXPECT_THAT(result.code, IsCode(Corvane::TRANSFER_S_FINISHED)) << result;
  EXPECT_EQ(result.statistics.filesDeleted, 1U);
}

TEST_F(TreeDeletesUnwillingly, AFolderThatCannotBeRemovedIsAFailure) {
  Refusals refusals;
  refusals.remove["gone"] = EBUSY;
  const TreeResult result = Download();
  EXPECT_THAT(result.code, IsCode(Corvane::TRANSFER_E_DOWNLOAD));
  ExpectText(result, "gone/", EBUSY);
  EXPECT_EQ(result.statistics.filesDeleted, 2U);
}

// --- the room on the disk

// As nginx shows them, where sizes are exact.
Responder ListOf(const std::map<std::string, std::string>& sizes) {
  std::string page =
      "<html><head><title>Index of /</title></head>\r\n<body>\r\n<h1>Index of /</h1><hr><pre><a "
      "href=\"../\">../</a>\r\n";
  for (const auto& [name, size] : sizes) {
    page.append("<a href=\"").append(name).append("\">").append(name).append("</a>     22-Nov-2020 04:50");
    page.append(20 - size.size(), ' ').append(size).append("\r\n");
  }
  return Content(page + "</pre><hr></body>\r\n</html>\r\n");
}

TEST_F(TreeOnAnUnwillingSystem, RoomThatIsLackingIsToldBeforeTheFirstFile) {
  site.Answer("", ListOf({{"a", "8192"}, {"z", "4096"}}));
  Refusals refusals;
  refusals.freeBlocks = 2;
  const TreeResult result = Download();
  EXPECT_THAT(result.code, IsCode(Corvane::TRANSFER_E_DISK_SPACE));
  EXPECT_EQ(result.error, "Insufficient disk space to download " + server.Url("/") + " to " + Target().string() +
                              ". Required: 12 Kb. Available: 8 Kb.");
  EXPECT_EQ(RequestLines(server), (std::vector<std::string>{"GET "}));
}

TEST_F(TreeOnAnUnwillingSystem, SizesBeyondAllNumbersLackRoom) {
  site.Answer("", ListOf({{"a", "9999999999999999999"}, {"z", "9999999999999999999"}}));
  const TreeResult result = Download();
  EXPECT_THAT(result.code, IsCode(Corvane::TRANSFER_E_DISK_SPACE));
  EXPECT_THAT(result.error, HasSubstr("Required: 18014398509481983 Kb."));
}

TEST_F(TreeOnAnUnwillingSystem, RoomBeyondAllNumbersIsEnough) {
  site.Answer("", ListOf({{"a", "1"}}));
  Refusals refusals;
  refusals.freeBlocks = 1UL << 52U;  // of 4096 bytes each
  EXPECT_THAT(Download().code, IsCode(Corvane::TRANSFER_S_FINISHED));
}

TEST_F(TreeOnAnUnwillingSystem, RoomThatNobodyKnowsIsTakenForEnough) {
  site.SetFile("large", std::string(100000, 'x'));
  Refusals refusals;
  refusals.space = EIO;
  EXPECT_THAT(Download().code, IsCode(Corvane::TRANSFER_S_FINISHED));
  EXPECT_EQ(FileSize(Target() / "large"), 100000U);
}

// --- the folder of what is under way

TEST_F(TreeOnAnUnwillingSystem, WithoutLocksNothingIsBegun) {
  Refusals refusals;
  refusals.lock = ENOLCK;
  const TreeResult result = Download();
  EXPECT_THAT(result.code, IsCode(Corvane::TRANSFER_E_DOWNLOAD));
  EXPECT_EQ(result.error, Target().string() + ": " + MessageOf(Corvane::ResultFromErrno(ENOLCK)));
  EXPECT_THAT(server.Requests(), IsEmpty());
}

TEST_F(TreeOnAnUnwillingSystem, WithoutTheFolderNothingIsBegun) {
  for (const int error : {EROFS, EACCES}) {
    Refusals refusals;
    (error == EROFS ? refusals.makeFolder : refusals.open)[".corvane"] = error;
    const TreeResult result = Download();
    EXPECT_THAT(result.code, IsCode(Corvane::TRANSFER_E_DOWNLOAD));
    EXPECT_EQ(result.error, Target().string() + ": " + MessageOf(Corvane::ResultFromErrno(error)));
  }
  EXPECT_THAT(server.Requests(), IsEmpty());
}

// Other runs that end take the folder away again and again.
TEST_F(TreeOnAnUnwillingSystem, AFolderThatNeverStaysIsThatOfAnotherRun) {
  Refusals refusals;
  refusals.open[".corvane"] = ENOENT;
  const TreeResult result = Download();
  EXPECT_THAT(result.code, IsCode(Corvane::BASE_E_IN_USE));
  EXPECT_EQ(result.error, Target().string() + ": Another run is on in this directory");
  EXPECT_THAT(server.Requests(), IsEmpty());
}

TEST_F(TreeOnAnUnwillingSystem, ALockThatIsNeverInPlaceIsThatOfAnotherRun) {
  Refusals refusals;
  refusals.look[".corvane/lock"] = ENOENT;
  EXPECT_THAT(Download().code, IsCode(Corvane::BASE_E_IN_USE));
  EXPECT_THAT(server.Requests(), IsEmpty());
}

}  // namespace
}  // namespace CorvaneTest
