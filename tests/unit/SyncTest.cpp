#include <Corvane/Base/Sync.h>

#include <gtest/gtest.h>
#include <pthread.h>
#include <time.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <functional>
#include <limits>
#include <memory>
#include <thread>
#include <vector>

#include "tests/support/Deadline.h"
#include "tests/support/NextFunction.h"

namespace {

// How many threads have begun to wait on a condition variable. A thread is counted while it still holds the mutex that
// the variable goes with: whoever has seen the count and takes that mutex finds the thread waiting.
std::atomic<int> waitingThreads{0};

void CountThisThread() {
  thread_local bool isCounted = false;  // a wait that wakes up for nothing begins again
  if (!isCounted) ++waitingThreads;
  isCounted = true;
}

// What the last wait was given: the point in time on the steady clock up to which it may last, or that it has none.
constexpr long long kNoDeadline = -1;
constexpr long long kOtherClock = -2;
std::atomic<long long> lastDeadlineMs{0};

long long ToMilliseconds(const timespec& time) { return time.tv_sec * 1000LL + time.tv_nsec / 1000000; }

}  // namespace

CORVANE_TEST_STANDS_IN int pthread_cond_wait(pthread_cond_t* condition, pthread_mutex_t* mutex) {
  lastDeadlineMs = kNoDeadline;
  CountThisThread();
  static const CorvaneTest::NextFunction<int(pthread_cond_t*, pthread_mutex_t*)> next("pthread_cond_wait");
  return next(condition, mutex);
}

CORVANE_TEST_STANDS_IN int pthread_cond_timedwait(pthread_cond_t* condition, pthread_mutex_t* mutex,
                                                  const timespec* time) {
  lastDeadlineMs = kOtherClock;
  CountThisThread();
  static const CorvaneTest::NextFunction<int(pthread_cond_t*, pthread_mutex_t*, const timespec*)> next(
      "pthread_cond_timedwait");
  return next(condition, mutex, time);
}

CORVANE_TEST_STANDS_IN int pthread_cond_clockwait(pthread_cond_t* condition, pthread_mutex_t* mutex, clockid_t clock,
                                                  const timespec* time) {
  lastDeadlineMs = clock == CLOCK_MONOTONIC ? ToMilliseconds(*time) : kOtherClock;
  CountThisThread();
  static const CorvaneTest::NextFunction<int(pthread_cond_t*, pthread_mutex_t*, clockid_t, const timespec*)> next(
      "pthread_cond_clockwait");
  return next(condition, mutex, clock, time);
}

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

// Threads that have all reached the inside of their Wait when the constructor returns.
class Waiters {
 public:
  Waiters(ZEvent& event, int count, unsigned long milliseconds) : m_event(event), m_count(count) {
    const int before = waitingThreads;
    m_threads = StartThreads(count, [this, milliseconds](int) {
      if (m_event.Wait(milliseconds) == BASE_S_OK) ++m_released;
    });
    AwaitCondition([&] { return waitingThreads == before + count; });
  }
  ~Waiters() {
    for (int i = 0; i < m_count; ++i) m_event.Set();  // for those that the test has not released
    JoinAll(m_threads);
  }
  Waiters(const Waiters&) = delete;
  Waiters& operator=(const Waiters&) = delete;

  // How many Waits have returned 0, once it is `expected` or nobody waits for more any longer.
  [[nodiscard]] int Released(int expected) const {
    for (const auto deadline = CorvaneTest::After(std::chrono::seconds(20));
         m_released < expected && CorvaneTest::Clock::now() < deadline;) {
      std::this_thread::yield();
    }
    return m_released;
  }

 private:
  ZEvent& m_event;
  int m_count;
  std::atomic<int> m_released{0};
  std::vector<std::thread> m_threads;
};

long long SteadyMilliseconds() {
  return std::chrono::floor<std::chrono::milliseconds>(std::chrono::steady_clock::now()).time_since_epoch().count();
}

TEST(ZEvent, WaitsOnTheSteadyClock) {
  for (const unsigned long milliseconds : {60000ul, 0x7FFFFFFFul, 0x80000000ul, 0xFFFFFFFEul}) {
    ZEvent event(kManualReset);
    event.Reset();
    const long long before = SteadyMilliseconds();
    Waiters waiters(event, 1, milliseconds);
    const long long after = SteadyMilliseconds();
    EXPECT_GE(lastDeadlineMs, before + static_cast<long long>(milliseconds)) << milliseconds;
    EXPECT_LE(lastDeadlineMs, after + static_cast<long long>(milliseconds)) << milliseconds;
    event.Set();
    EXPECT_EQ(waiters.Released(1), 1) << milliseconds;
  }
}

// A deadline computed carelessly wraps round for these, and the wait times out at once.
TEST(ZEvent, WaitsWithoutLimitFrom32BitsOfOnesOn) {
  for (const unsigned long milliseconds :
       {0xFFFFFFFFul, 0x100000000ul, 0x100000001ul, 1ul << 63, std::numeric_limits<unsigned long>::max()}) {
    ZEvent event(kManualReset);
    event.Reset();
    Waiters waiters(event, 1, milliseconds);
    EXPECT_EQ(lastDeadlineMs, kNoDeadline) << milliseconds;
    event.Set();
    EXPECT_EQ(waiters.Released(1), 1) << milliseconds;
  }
}

// A thread that wakes up and looks only at the event's state finds it reset, and sleeps through what it waited for.
TEST(ZEvent, ReleasesEverybodyWhoWaitedAlsoWhenResetFollowsAtOnce) {
  for (const unsigned long milliseconds : {kWithoutLimit, 60000ul}) {
    for (int round = 0; round < 50; ++round) {
      ZEvent event(kManualReset);
      event.Reset();
      Waiters waiters(event, kWaiters, milliseconds);
      event.Set();
      event.Reset();
      ASSERT_EQ(waiters.Released(kWaiters), kWaiters) << milliseconds << " ms, round " << round;
      ASSERT_EQ(event.Wait(0), BASE_E_TIMEOUT) << "the release belongs to those who waited";
    }
  }
}

TEST(ZEvent, HoldsBackThoseWhoComeAfterTheReset) {
  for (const unsigned int resetFlag : {kManualReset, kAutomaticReset}) {
    for (int round = 0; round < 50; ++round) {
      ZEvent event(resetFlag);
      event.Reset();
      Waiters early(event, 1, kWithoutLimit);
      event.Set();
      event.Reset();
      Waiters late(event, 1, kWithoutLimit);
      ASSERT_EQ(early.Released(1), 1) << resetFlag;
      for (int i = 0; i < 100; ++i) std::this_thread::yield();  // time to come out by mistake
      ASSERT_EQ(late.Released(0), 0) << resetFlag;
      event.Set();
      ASSERT_EQ(late.Released(1), 1) << resetFlag;
      event.Reset();
    }
  }
}

TEST(ZEvent, ReleasesOneWhoWaitedForEachSetWithAutomaticResetAlsoWhenResetFollowsAtOnce) {
  constexpr int kSets = 5;
  for (int round = 0; round < 50; ++round) {
    ZEvent event(kAutomaticReset);
    event.Reset();
    Waiters waiters(event, kWaiters, kWithoutLimit);
    for (int i = 0; i < kSets; ++i) event.Set();
    event.Reset();
    ASSERT_EQ(waiters.Released(kSets), kSets) << "round " << round;
    ASSERT_EQ(event.Wait(0), BASE_E_TIMEOUT);
  }
}

// More Sets than anybody waits for: what is left over is remembered, and is what Reset takes back.
TEST(ZEvent, RemembersTheSetsThatNobodyWaitedForWithAutomaticReset) {
  ZEvent event(kAutomaticReset);
  event.Reset();
  Waiters waiters(event, 2, kWithoutLimit);
  for (int i = 0; i < 5; ++i) event.Set();
  EXPECT_EQ(waiters.Released(2), 2);
  EXPECT_EQ(event.Wait(0), BASE_S_OK);
  event.Reset();
  EXPECT_EQ(event.Wait(0), BASE_E_TIMEOUT);
}

// What a wait that timed out leaves behind must not count as somebody who waits.
TEST(ZEvent, RemembersASetAfterWaitsThatTimedOutWithAutomaticReset) {
  ZEvent event(kAutomaticReset);
  event.Reset();
  for (int i = 0; i < 3; ++i) EXPECT_EQ(event.Wait(1), BASE_E_TIMEOUT);
  event.Set();
  EXPECT_EQ(event.Wait(0), BASE_S_OK);
  EXPECT_EQ(event.Wait(0), BASE_E_TIMEOUT);
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
