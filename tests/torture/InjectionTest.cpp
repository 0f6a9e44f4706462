#include "tests/torture/Injection.h"

#include <curl/curl.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <openssl/crypto.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <memory>
#include <new>
#include <string>
#include <thread>

#include <Corvane/Base/File.h>
#include <Corvane/Base/StringCoding.h>
#include <Corvane/Base/Sys.h>

#include "tests/support/TempDir.h"

// The failures themselves: the right call, on the right thread, and nothing else.
namespace CorvaneTest {
namespace {

using Corvane::ResultFromErrno;
using Corvane::ZString;
using Corvane::Wrappers::Sys::Fclose;
using Corvane::Wrappers::Sys::Fopen;
using Corvane::Wrappers::Sys::Fwrite;
using testing::HasSubstr;

// Longer than what a string keeps in itself.
const std::string kLong(100, 'x');

bool Allocates() {
  try {
    return !std::string(kLong).empty();
  } catch (const std::bad_alloc&) {
    return false;
  }
}

TEST(Injection, FailsTheAllocationWithTheNumber) {
  const Injection injection(Target::kLibraryMemory, 2);
  EXPECT_TRUE(Allocates());
  EXPECT_FALSE(injection.HasFailed());
  EXPECT_FALSE(Allocates());
  EXPECT_TRUE(injection.HasFailed());
  EXPECT_TRUE(Allocates()) << "one failure is enough";
  EXPECT_EQ(injection.Calls(), 3U);
}

TEST(Injection, LeavesOtherThreadsAlone) {
  bool isFine = false;
  std::size_t calls = 0;
  std::thread other;
  {
    const Injection injection(Target::kAllMemory, 1000000);
    {
      const Injection::Pause pause;
      other = std::thread([&] { isFine = Allocates(); });
      other.join();
    }
    calls = injection.Calls();
  }
  EXPECT_TRUE(isFine);
  EXPECT_EQ(calls, 0U);
}

TEST(Injection, CountsNothingWhilePaused) {
  const Injection injection(Target::kLibraryMemory, 1);
  {
    const Injection::Pause pause;
    EXPECT_TRUE(Allocates());
  }
  EXPECT_EQ(injection.Calls(), 0U);
  EXPECT_FALSE(Allocates());
}

struct EasyDeleter {
  void operator()(CURL* easy) const noexcept { curl_easy_cleanup(easy); }
};
using Easy = std::unique_ptr<CURL, EasyDeleter>;

TEST(Injection, ReachesLibcurlAndOpenSslOnlyWhenAsked) {
  {
    const Injection injection(Target::kLibraryMemory, 1);
    EXPECT_NE(Easy(curl_easy_init()), nullptr);
    EXPECT_EQ(injection.Calls(), 0U);
  }
  {
    const Injection injection(Target::kAllMemory, 1);
    EXPECT_EQ(Easy(curl_easy_init()), nullptr);
    EXPECT_TRUE(injection.HasFailed());
  }
  const Injection injection(Target::kAllMemory, 1);
  EXPECT_EQ(OPENSSL_malloc(8), nullptr);
  EXPECT_THAT(injection.Place(), HasSubstr("InjectionTest.cpp:")) << "OpenSSL tells who asked";
}

class InjectedCall : public testing::Test {
 protected:
  const TempDir folder;
  const std::string path = (folder / "file").string();
};

TEST_F(InjectedCall, IsTheLibrarysAndNotTheTests) {
  const Injection injection(Target::kOpen, 1, {EMFILE});
  const int own = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  EXPECT_GE(own, 0);
  close(own);
  std::FILE* file = nullptr;
  EXPECT_EQ(Fopen(&file, path.c_str(), "r"), ResultFromErrno(EMFILE));
  EXPECT_EQ(file, nullptr);
  EXPECT_EQ(injection.Calls(), 1U);
  EXPECT_THAT(injection.Place(), HasSubstr("open"));
}

TEST_F(InjectedCall, WritesHalfOrNothing) {
  for (const bool isHalf : {false, true}) {
    std::FILE* file = nullptr;
    ASSERT_EQ(Fopen(&file, path.c_str(), "w"), 0U);
    std::size_t written = 0;
    {
      const Injection injection(Target::kWrite, 1, {ENOSPC, isHalf});
      EXPECT_EQ(Fwrite(kLong.data(), kLong.size(), file, written), ResultFromErrno(ENOSPC));
    }
    EXPECT_EQ(Fclose(file), 0U);
    EXPECT_EQ(written, isHalf ? kLong.size() / 2 : 0U);
    EXPECT_EQ(FileSize(path), written);
  }
}

TEST_F(InjectedCall, ClosesAllTheSame) {
  std::FILE* file = nullptr;
  ASSERT_EQ(Fopen(&file, path.c_str(), "w"), 0U);
  const int number = fileno(file);
  {
    const Injection injection(Target::kClose, 1, {EIO});
    EXPECT_EQ(Fclose(file), ResultFromErrno(EIO));
  }
  EXPECT_EQ(fcntl(number, F_GETFD), -1) << "it is still open";
}

TEST_F(InjectedCall, IsOneOfItsFamily) {
  WriteFile(path, "content");
  const ZString name = Corvane::ZStringDecoder::FromUtf8(path.c_str());
  unsigned long long size = 0;
  {
    const Injection injection(Target::kStatus, 1, {EACCES});
    EXPECT_EQ(Corvane::ZFile::GetSize(name, size), ResultFromErrno(EACCES));
  }
  {
    const Injection injection(Target::kRemove, 1, {EBUSY});
    EXPECT_EQ(Corvane::ZFile::Remove(name, 0), ResultFromErrno(EBUSY));
  }
  {
    const Injection injection(Target::kTimes, 1, {EPERM});
    EXPECT_EQ(Corvane::ZFile::SetTime(name, 1, 1), ResultFromErrno(EPERM));
  }
  const Injection injection(Target::kMode, 1, {EPERM});
  EXPECT_EQ(Corvane::ZFile::Chmod(name, 0600, 0), ResultFromErrno(EPERM));
}

}  // namespace
}  // namespace CorvaneTest
