#include <Corvane/Base/Sync.h>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <functional>
#include <limits>
#include <memory>
#include <thread>
#include <vector>

namespace Corvane {
namespace {

constexpr unsigned int kManualReset = 1;
constexpr unsigned int kAutomaticReset = 0;
constexpr unsigned long kWithoutLimit = 0xFFFFFFFF;
constexpr int kWaiters = 16;

std::vector<std::thread> StartThreads(int count, const std::function<void(int)>& work) {
  std::vector<std::thread> threads;
  threads.reserve(static_cast<std::size_t>(count));
  for (int i = 0; i < count; ++i) threads.emplace_back(work, i);
  return threads;
}

void JoinAll(std::vector<std::thread>& threads) {
  for (std::thread& thread : threads) thread.join();
}

// Ends when the condition holds; ctest ends a test in which it never does.
void AwaitCondition(const std::function<bool()>& condition) {
  while (!condition()) std::this_thread::yield();
}

TEST(ZMutex, KeepsThreadsOutOfEachOthersWay) {
  ZMutex mutex;
  long counter = 0;  // plain on purpose: two threads inside at once lose counts
  auto threads = StartThreads(8, [&](int) {
    for (int i = 0; i < 10000; ++i) {
      mutex.Lock();
      ++counter;
      mutex.Unlock();
    }
  });
  JoinAll(threads);
  EXPECT_EQ(counter, 80000);
}

TEST(ZRecursiveMutex, CanBeTakenAgainByItsHolder) {
  ZRecursiveMutex mutex;
  mutex.Lock();
  mutex.Lock();
  mutex.Unlock();
  mutex.Unlock();
}

TEST(ZRecursiveMutex, IsFreeForOthersAfterAsManyUnlocksAsLocks) {
  ZRecursiveMutex mutex;
  std::atomic<bool> isOtherStarted = false;
  std::atomic<bool> isLetGo = false;
  bool wasLetGo = false;
  mutex.Lock();
  mutex.Lock();
  std::thread other([&] {
    isOtherStarted = true;
    mutex.Lock();
    wasLetGo = isLetGo;
    mutex.Unlock();
  });
  AwaitCondition([&] { return isOtherStarted.load(); });
  mutex.Unlock();
  for (int i = 0; i < 1000; ++i) std::this_thread::yield();  // a mutex freed too early would be taken here
  isLetGo = true;
  mutex.Unlock();
  other.join();
  EXPECT_TRUE(wasLetGo);
}

TEST(ZEvent, IsConstructedSignalled) {
  for (const unsigned int resetFlag : {kManualReset, kAutomaticReset}) {
    ZEvent event(resetFlag);
    EXPECT_EQ(event.Wait(0), BASE_S_OK) << resetFlag;
  }
}

TEST(ZEvent, TimesOutAfterReset) {
  for (const unsigned int resetFlag : {kManualReset, kAutomaticReset}) {
    ZEvent event(resetFlag);
    event.Reset();
    EXPECT_EQ(event.Wait(0), BASE_E_TIMEOUT) << resetFlag;
    EXPECT_EQ(event.Wait(1), BASE_E_TIMEOUT) << resetFlag;
  }
}

TEST(ZEvent, DoesNotTimeOutEarly) {
  ZEvent event(kManualReset);
  event.Reset();
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(event.Wait(30), BASE_E_TIMEOUT);
  EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(30));
}

TEST(ZEvent, StaysSignalledUntilResetWithManualReset) {
  ZEvent event(kManualReset);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(event.Wait(0), BASE_S_OK);
  event.Set();
  event.Set();
  event.Reset();
  EXPECT_EQ(event.Wait(0), BASE_E_TIMEOUT) << "one Reset undoes any number of Sets";
}

TEST(ZEvent, LetsEverybodyThroughWithManualReset) {
  ZEvent event(kManualReset);
  event.Reset();
  int written = 0;  // plain on purpose: Set has to make it visible
  std::atomic<int> sawIt = 0;
  auto threads = StartThreads(kWaiters, [&](int) {
    if (event.Wait(kWithoutLimit) == BASE_S_OK && written == 42) ++sawIt;
  });
  written = 42;
  event.Set();
  JoinAll(threads);
  EXPECT_EQ(sawIt, kWaiters);
  EXPECT_EQ(event.Wait(0), BASE_S_OK);
}

TEST(ZEvent, LetsOneWaitReturnForEachSetWithAutomaticReset) {
  ZEvent event(kAutomaticReset);
  event.Reset();
  std::atomic<int> returned = 0;
  auto threads = StartThreads(kWaiters, [&](int) {
    if (event.Wait(kWithoutLimit) == BASE_S_OK) ++returned;
  });
  for (int sets = 1; sets <= kWaiters; ++sets) {
    event.Set();
    AwaitCondition([&] { return returned >= sets; });
    EXPECT_EQ(returned, sets);
    EXPECT_EQ(event.Wait(0), BASE_E_TIMEOUT);
  }
  JoinAll(threads);
}

// With a mere flag the second of two quick Sets is lost when no waiter woke up in between, and somebody waits for ever.
TEST(ZEvent, LosesNoneOfManyQuickSetsWithAutomaticReset) {
  ZEvent event(kAutomaticReset);
  event.Reset();
  auto threads = StartThreads(kWaiters, [&](int) { EXPECT_EQ(event.Wait(kWithoutLimit), BASE_S_OK); });
  for (int i = 0; i < kWaiters; ++i) event.Set();
  JoinAll(threads);
  EXPECT_EQ(event.Wait(0), BASE_E_TIMEOUT);
}

TEST(ZEvent, RemembersSetsWithAutomaticReset) {
  ZEvent event(kAutomaticReset);
  event.Reset();
  event.Set();
  event.Set();
  EXPECT_EQ(event.Wait(0), BASE_S_OK);
  EXPECT_EQ(event.Wait(0), BASE_S_OK);
  EXPECT_EQ(event.Wait(0), BASE_E_TIMEOUT);
}

// A deadline computed carelessly wraps round for these, and the wait times out at once.
TEST(ZEvent, WaitsForTheSetHoweverLongTheTime) {
  for (const unsigned long milliseconds : {0x7FFFFFFFul, 0x80000000ul, 0xFFFFFFFEul, 0xFFFFFFFFul, 0x100000000ul,
                                           std::numeric_limits<unsigned long>::max()}) {
    ZEvent event(kManualReset);
    event.Reset();
    std::atomic<bool> isStarted = false;
    std::thread waiter([&] {
      isStarted = true;
      EXPECT_EQ(event.Wait(milliseconds), BASE_S_OK) << milliseconds;
    });
    AwaitCondition([&] { return isStarted.load(); });
    for (int i = 0; i < 100; ++i) std::this_thread::yield();  // let the waiter reach its wait; it passes either way
    event.Set();
    waiter.join();
  }
}

// Run under the address sanitizer this fails when Set touches the event after it let the waiter go.
TEST(ZEvent, CanBeDestroyedAsSoonAsTheWaitHasReturned) {
  for (int i = 0; i < 500; ++i) {
    auto event = std::make_unique<ZEvent>(kManualReset);
    event->Reset();
    std::thread setter([&target = *event] { target.Set(); });
    EXPECT_EQ(event->Wait(kWithoutLimit), BASE_S_OK);
    event.reset();
    setter.join();
  }
}

}  // namespace
}  // namespace Corvane
