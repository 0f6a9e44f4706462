#include <Corvane/Base/Singleton.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <thread>
#include <vector>

namespace Corvane {
namespace {

struct Object {
  int number = 0;  // plain on purpose: what the factory wrote has to be visible to everybody who finds the slot set
};

// Empties the slot and frees its object when the test ends.
struct SlotCleaner {
  std::atomic<Object*>& slot;
  ~SlotCleaner() { delete slot.exchange(nullptr); }
};

TEST(ZSingleton, CheckInitStoresWhatTheFactoryMade) {
  static std::atomic<Object*> slot{nullptr};
  const SlotCleaner cleaner{slot};
  ZSingleton::CheckInit<Object>(slot, [] { return new Object{7}; });
  ASSERT_NE(slot.load(), nullptr);
  EXPECT_EQ(slot.load()->number, 7);
}

TEST(ZSingleton, CheckInitLeavesASetSlotAlone) {
  static std::atomic<Object*> slot{nullptr};
  const SlotCleaner cleaner{slot};
  Object* const first = new Object;
  slot = first;
  ZSingleton::CheckInit<Object>(slot, []() -> Object* { throw std::logic_error("the factory must not run"); });
  EXPECT_EQ(slot.load(), first);
}

TEST(ZSingleton, CheckInitRunsTheFactoryOnceForSixteenRacingThreads) {
  static std::atomic<Object*> slot{nullptr};
  static std::atomic<int> runs{0};
  for (int round = 0; round < 200; ++round) {
    const SlotCleaner cleaner{slot};
    runs = 0;
    std::atomic<int> arrived = 0;
    std::atomic<int> sawTheObject = 0;
    std::vector<std::thread> threads;
    threads.reserve(16);
    for (int i = 0; i < 16; ++i) {
      threads.emplace_back([&] {
        ++arrived;
        while (arrived < 16) std::this_thread::yield();
        ZSingleton::CheckInit<Object>(slot, [] { return new Object{++runs}; });
        if (slot.load(std::memory_order_acquire)->number == 1) ++sawTheObject;
      });
    }
    for (std::thread& thread : threads) thread.join();
    ASSERT_EQ(runs, 1);
    ASSERT_EQ(sawTheObject, 16);
  }
}

TEST(ZSingleton, CheckInitTriesAgainAfterAFactoryThatThrew) {
  static std::atomic<Object*> slot{nullptr};
  const SlotCleaner cleaner{slot};
  for (int i = 0; i < 2; ++i) {
    EXPECT_THROW(ZSingleton::CheckInit<Object>(slot, []() -> Object* { throw std::runtime_error("out of luck"); }),
                 std::runtime_error);
    EXPECT_EQ(slot.load(), nullptr);
  }
  // Another thread can take the creation lock: the exceptions have let go of it.
  std::thread([] { ZSingleton::CheckInit<Object>(slot, [] { return new Object{3}; }); }).join();
  ASSERT_NE(slot.load(), nullptr);
  EXPECT_EQ(slot.load()->number, 3);
}

TEST(ZSingleton, CheckInitMayBeCalledByAFactoryForAnotherSlot) {
  static std::atomic<Object*> inner{nullptr};
  static std::atomic<Object*> outer{nullptr};
  const SlotCleaner innerCleaner{inner};
  const SlotCleaner outerCleaner{outer};
  ZSingleton::CheckInit<Object>(outer, [] {
    ZSingleton::CheckInit<Object>(inner, [] { return new Object{1}; });
    return new Object{inner.load()->number + 1};
  });
  ASSERT_NE(inner.load(), nullptr);
  ASSERT_NE(outer.load(), nullptr);
  EXPECT_EQ(outer.load()->number, 2);
}

// Two factories that each need the other's object would deadlock here if every slot had a lock of its own.
TEST(ZSingleton, CheckInitOfTwoSlotsNestedInBothOrdersDoesNotDeadlock) {
  static std::atomic<Object*> first{nullptr};
  static std::atomic<Object*> second{nullptr};
  for (int round = 0; round < 200; ++round) {
    const SlotCleaner firstCleaner{first};
    const SlotCleaner secondCleaner{second};
    std::thread one([] {
      ZSingleton::CheckInit<Object>(first, [] {
        ZSingleton::CheckInit<Object>(second, [] { return new Object; });
        return new Object;
      });
    });
    std::thread other([] {
      ZSingleton::CheckInit<Object>(second, [] {
        ZSingleton::CheckInit<Object>(first, [] { return new Object; });
        return new Object;
      });
    });
    one.join();
    other.join();
    ASSERT_NE(first.load(), nullptr);
    ASSERT_NE(second.load(), nullptr);
  }
}

TEST(ZSingleton, CheckInitCreatesAgainInAClearedSlot) {
  static std::atomic<Object*> slot{nullptr};
  const SlotCleaner cleaner{slot};
  ZSingleton::CheckInit<Object>(slot, [] { return new Object{1}; });
  delete slot.exchange(nullptr);
  ZSingleton::CheckInit<Object>(slot, [] { return new Object{2}; });
  ASSERT_NE(slot.load(), nullptr);
  EXPECT_EQ(slot.load()->number, 2);
}

// The lock must be usable before main and after it, whatever the order in which objects come and go.
struct UsesSingletonOutsideMain {
  UsesSingletonOutsideMain() {
    ZSingleton::CheckInit<Object>(slot, [] { return &early; });
  }
  ~UsesSingletonOutsideMain() {
    slot = nullptr;
    ZSingleton::CheckInit<Object>(slot, [] { return &late; });
    if (slot != &late) std::abort();  // too late for an assertion
  }
  static constinit Object early;
  static constinit Object late;
  static constinit std::atomic<Object*> slot;
};
constinit Object UsesSingletonOutsideMain::early;
constinit Object UsesSingletonOutsideMain::late;
constinit std::atomic<Object*> UsesSingletonOutsideMain::slot{nullptr};
const UsesSingletonOutsideMain usesSingletonOutsideMain;

TEST(ZSingleton, CheckInitWorksInStaticInitialisersAndDestructors) {
  EXPECT_EQ(UsesSingletonOutsideMain::slot.load(), &UsesSingletonOutsideMain::early);
}

}  // namespace
}  // namespace Corvane
