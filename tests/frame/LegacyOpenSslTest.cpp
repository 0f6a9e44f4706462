// The lock callbacks for an OpenSSL of the 1.0 era. With today's OpenSSL they are macros without effect; here the
// library's sources are compiled once more, against a stand-in header whose functions record what they are given.

#include <Corvane/Transfer.h>

#include <gtest/gtest.h>
#include <pthread.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <new>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <Corvane/Base/Sync.h>

#include "tests/frame/Allocations.h"
#include "tests/frame/BlockedCall.h"
#include "tests/frame/CurlGlobals.h"
#include "tests/frame/LegacyCrypto.h"
#include "tests/frame/LineRecorder.h"

namespace Corvane {
namespace {

using CorvaneTest::BlockedCall;
using CorvaneTest::CurlGlobals;
using CorvaneTest::LegacyCrypto;

using Calls = std::vector<std::string>;

constexpr int kLock = 1;
constexpr int kUnlock = 2;
constexpr int kRead = 4;
constexpr int kWrite = 8;
constexpr int kLockCount = 41;

const Calls kSetUp = {"num_locks", "set_id", "set_locking"};
const Calls kTakenDown = {"clear_id", "clear_locking"};

// The blocks of the size of the lock array that are alive.
std::size_t arraySize = 0;
std::array<void*, 16> arrays{};
std::size_t arrayCount = 0;

void BlockMade(void* block, std::size_t size) {
  if (size == arraySize && arrayCount < arrays.size()) arrays[arrayCount++] = block;
}

void BlockFreed(void* block) {
  for (std::size_t i = 0; i < arrayCount; ++i) {
    if (arrays[i] == block) arrays[i] = arrays[--arrayCount];
  }
}

class LegacyOpenSsl : public testing::Test {
 protected:
  LegacyOpenSsl() {
    LegacyCrypto::SetLockCount(kLockCount);
    LegacyCrypto::Forget();
    CurlGlobals::Reset();
    WatchArraysOf(kLockCount);
  }
  ~LegacyOpenSsl() override { CorvaneTest::WatchAllocations({}); }

  // Follows arrays of `count` mutexes from now on. No other block of the library has such a size.
  static void WatchArraysOf(std::size_t count) {
    arraySize = count * sizeof(ZMutex);
    arrayCount = 0;
    CorvaneTest::WatchAllocations({BlockMade, BlockFreed});
  }

  static void Call(int mode, int number) { LegacyCrypto::Locking()(mode, number, "file.c", 1); }

  // The array's mutex `number`, as the callback uses it.
  static pthread_mutex_t* Mutex(int number) {
    static_assert(sizeof(ZMutex) == sizeof(pthread_mutex_t));
    return static_cast<pthread_mutex_t*>(arrays[0]) + number;
  }

  static bool IsLocked(int number) {
    if (pthread_mutex_trylock(Mutex(number)) != 0) return true;
    pthread_mutex_unlock(Mutex(number));
    return false;
  }
};

TEST_F(LegacyOpenSsl, FirstObjectInstallsTheIdAndThenTheLockingCallback) {
  const ZTransfer first;
  const ZTransfer second;
  EXPECT_EQ(LegacyCrypto::Calls(), kSetUp) << "once for both";
  EXPECT_NE(LegacyCrypto::Id(), nullptr);
  EXPECT_NE(LegacyCrypto::Locking(), nullptr);
}

TEST_F(LegacyOpenSsl, LastObjectRemovesThemInTheSameOrder) {
  std::optional<ZTransfer> first(std::in_place);
  std::optional<ZTransfer> second(std::in_place);
  LegacyCrypto::Forget();
  first.reset();
  EXPECT_EQ(LegacyCrypto::Calls(), Calls());
  second.reset();
  EXPECT_EQ(LegacyCrypto::Calls(), kTakenDown);
  EXPECT_EQ(LegacyCrypto::Id(), nullptr);
  EXPECT_EQ(LegacyCrypto::Locking(), nullptr);
}

TEST_F(LegacyOpenSsl, MakesOneMutexForEachLockAndFreesThemAtTheEnd) {
  for (const int count : {2, 40, 41, 1000}) {
    LegacyCrypto::SetLockCount(count);
    WatchArraysOf(static_cast<std::size_t>(count));
    {
      const ZTransfer transfer;
      EXPECT_EQ(arrayCount, 1u) << count;
    }
    EXPECT_EQ(arrayCount, 0u) << count;
  }
}

TEST_F(LegacyOpenSsl, EachCycleBuildsAFreshArrayOfTheCurrentSize) {
  { const ZTransfer transfer; }
  LegacyCrypto::Forget();
  LegacyCrypto::SetLockCount(57);
  WatchArraysOf(57);
  {
    const ZTransfer transfer;
    EXPECT_EQ(LegacyCrypto::Calls(), kSetUp);
    ASSERT_EQ(arrayCount, 1u);
    Call(kLock, 56);
    EXPECT_TRUE(IsLocked(56));
    Call(kUnlock, 56);
  }
  EXPECT_EQ(arrayCount, 0u);
}

TEST_F(LegacyOpenSsl, LocksAndUnlocksTheMutexOfTheNumber) {
  const ZTransfer transfer;
  ASSERT_EQ(arrayCount, 1u);
  for (int number = 0; number < kLockCount; ++number) {
    Call(kLock, number);
    for (int other = 0; other < kLockCount; ++other)
      ASSERT_EQ(IsLocked(other), other == number) << number << ' ' << other;
    Call(kUnlock, number);
    ASSERT_FALSE(IsLocked(number));
  }
}

TEST_F(LegacyOpenSsl, IgnoresTheReadAndWriteBits) {
  const ZTransfer transfer;
  ASSERT_EQ(arrayCount, 1u);
  for (const int kind : {0, kRead, kWrite, kRead | kWrite}) {
    Call(kLock | kind, 3);
    EXPECT_TRUE(IsLocked(3)) << kind;
    Call(kind, 3);
    EXPECT_TRUE(IsLocked(3)) << kind << ": neither locks nor unlocks";
    Call(kUnlock | kind, 3);
    EXPECT_FALSE(IsLocked(3)) << kind;
  }
}

TEST_F(LegacyOpenSsl, ReadLocksAreExclusive) {
  const ZTransfer transfer;
  Call(kLock | kRead, 5);
  BlockedCall reader([] {
    Call(kLock | kRead, 5);
    Call(kUnlock | kRead, 5);
  });
  EXPECT_TRUE(reader.IsBlocked());
  Call(kUnlock | kRead, 5);
  reader.Join();
}

TEST_F(LegacyOpenSsl, ModeThreeLeavesTheMutexFree) {
  const ZTransfer transfer;
  ASSERT_EQ(arrayCount, 1u);
  Call(kLock | kUnlock, 7);
  EXPECT_FALSE(IsLocked(7));
  Call(kLock | kUnlock, 7);  // would wait for itself if the first had only locked
}

TEST_F(LegacyOpenSsl, ModeThreeLocksBeforeItUnlocks) {
  const ZTransfer transfer;
  Call(kLock, 7);
  BlockedCall both([] { Call(kLock | kUnlock, 7); });
  EXPECT_TRUE(both.IsBlocked());
  EXPECT_TRUE(IsLocked(7)) << "not unlocked by the one that waits";
  Call(kUnlock, 7);
  both.Join();
  EXPECT_FALSE(IsLocked(7));
}

TEST_F(LegacyOpenSsl, LocksExcludeThreads) {
  const ZTransfer transfer;
  std::array<long, 3> counters{};  // each guarded by the lock of its number
  std::vector<std::thread> threads;
  for (int i = 0; i < 6; ++i) {
    threads.emplace_back([&counters] {
      for (int round = 0; round < 3000; ++round) {
        const int number = round % 3;
        Call(kLock | kWrite, number);
        const long before = counters[static_cast<std::size_t>(number)];
        if (round % 64 == 0) std::this_thread::yield();
        counters[static_cast<std::size_t>(number)] = before + 1;
        Call(kUnlock | kWrite, number);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  for (const long counter : counters) EXPECT_EQ(counter, 6000);
}

TEST_F(LegacyOpenSsl, IdIsThatOfTheCallingThread) {
  const ZTransfer transfer;
  EXPECT_EQ(LegacyCrypto::Id()(), static_cast<unsigned long>(pthread_self()));
  unsigned long theirs = 0;
  unsigned long expected = 0;
  std::thread([&] {
    theirs = LegacyCrypto::Id()();
    expected = static_cast<unsigned long>(pthread_self());
  }).join();
  EXPECT_EQ(theirs, expected);
  EXPECT_NE(theirs, LegacyCrypto::Id()());
}

TEST_F(LegacyOpenSsl, FailedInitialisationOfLibcurlSetsTheLocksUpAllTheSame) {
  CurlGlobals::FailInit(2);
  {
    const ZTransfer transfer;
    EXPECT_EQ(LegacyCrypto::Calls(), kSetUp);
    EXPECT_EQ(arrayCount, 1u);
  }
  EXPECT_EQ(arrayCount, 0u);
  EXPECT_EQ(LegacyCrypto::Id(), nullptr);
}

TEST_F(LegacyOpenSsl, ArrayThatCannotBeAllocatedLeavesTheConstructorBalanced) {
  LegacyCrypto::SetLockCount(-1);  // no array is that large
  EXPECT_THROW(ZTransfer(), std::bad_alloc);
  EXPECT_EQ(LegacyCrypto::Calls(), (Calls{"num_locks"})) << "no callback without locks";
  EXPECT_EQ(CurlGlobals::Calls(), (Calls{"init(3)", "cleanup"}));

  LegacyCrypto::SetLockCount(kLockCount);
  LegacyCrypto::Forget();
  CurlGlobals::Reset();
  { const ZTransfer transfer; }
  EXPECT_EQ(LegacyCrypto::Calls().size(), kSetUp.size() + kTakenDown.size());
  EXPECT_EQ(CurlGlobals::Calls(), (Calls{"init(3)", "cleanup"}));
}

TEST_F(LegacyOpenSsl, ExceptionOfTheLoggerDoesNotKeepTheLocks) {
  {
    CorvaneTest::LineRecorder logger;
    logger.onWrite = [](const CorvaneTest::LogLine& line) {
      if (line.message.find(L"cleanup") != std::wstring::npos) throw std::runtime_error("log is full");
    };
    const ZTransfer transfer;
    LegacyCrypto::Forget();
  }
  EXPECT_EQ(LegacyCrypto::Calls(), kTakenDown);
  EXPECT_EQ(arrayCount, 0u);
  EXPECT_EQ(LegacyCrypto::Id(), nullptr);
  EXPECT_EQ(LegacyCrypto::Locking(), nullptr);
}

}  // namespace
}  // namespace Corvane
