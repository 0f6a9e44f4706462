#include <Corvane/Base/Guard.h>
#include <Corvane/Base/Sync.h>

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <type_traits>

namespace Corvane {
namespace {

// Writes down what is done to it.
struct Recorder {
  void Lock() { steps += "lock "; }
  void Unlock() { steps += "unlock "; }
  std::string steps;
};

// A class with a bracket of its own, which refuses when it is closed.
struct Bracketed {
  bool isOpen = true;
  std::string steps;
};

}  // namespace

template <>
bool ZGuardImpl<Bracketed>::ZDoLock(Bracketed& object) {
  object.steps += object.isOpen ? "begin " : "refused ";
  return object.isOpen;
}

template <>
void ZGuardImpl<Bracketed>::ZDoUnlock(Bracketed& object) {
  object.steps += "end ";
}

namespace {

TEST(ZGuard, LocksAtTheBeginningOfItsScopeAndUnlocksAtTheEnd) {
  Recorder recorder;
  {
    const ZGuardImpl<Recorder> guard(recorder);
    EXPECT_TRUE(guard.IsHeld());
    EXPECT_EQ(recorder.steps, "lock ");
  }
  EXPECT_EQ(recorder.steps, "lock unlock ");
}

TEST(ZGuard, UnlocksWhenAnExceptionLeavesTheScope) {
  Recorder recorder;
  try {
    const ZGuardImpl<Recorder> guard(recorder);
    throw std::runtime_error("on the way out");
  } catch (const std::runtime_error&) {
    EXPECT_EQ(recorder.steps, "lock unlock ");
  }
}

TEST(ZGuard, ReleaseUnlocksNowAndOnlyOnce) {
  Recorder recorder;
  {
    ZGuardImpl<Recorder> guard(recorder);
    guard.Release();
    EXPECT_FALSE(guard.IsHeld());
    EXPECT_EQ(recorder.steps, "lock unlock ");
    guard.Release();
  }
  EXPECT_EQ(recorder.steps, "lock unlock ");
}

TEST(ZGuard, RunsTheStepsThatAClassSpecialises) {
  Bracketed object;
  {
    const ZInitGuard<Bracketed> guard(object);
    EXPECT_TRUE(guard.IsHeld());
  }
  EXPECT_EQ(object.steps, "begin end ");
}

TEST(ZGuard, RunsNoUnlockStepAfterARefusedLockStep) {
  Bracketed object;
  object.isOpen = false;
  {
    ZInitGuard<Bracketed> guard(object);
    EXPECT_FALSE(guard.IsHeld());
    guard.Release();
  }
  EXPECT_EQ(object.steps, "refused ");
}

TEST(ZGuard, GuardsBothKindsOfMutex) {
  ZMutex mutex;
  ZRecursiveMutex recursiveMutex;
  for (int i = 0; i < 2; ++i) {  // the second round hangs if the first one did not unlock
    const ZGuardImpl<ZMutex> guard(mutex);
    const ZGuardImpl<ZRecursiveMutex> outer(recursiveMutex);
    const ZGuardImpl<ZRecursiveMutex> inner(recursiveMutex);
    EXPECT_TRUE(guard.IsHeld() && outer.IsHeld() && inner.IsHeld());
  }
}

TEST(ZGuard, CannotBeCopied) {
  EXPECT_FALSE(std::is_copy_constructible_v<ZGuardImpl<ZMutex>>);
  EXPECT_FALSE(std::is_copy_assignable_v<ZGuardImpl<ZMutex>>);
}

}  // namespace
}  // namespace Corvane
