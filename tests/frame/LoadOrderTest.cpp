// The order of the library's load and unload steps, watched from a program that does not link it: the registrations
// through the program's own definitions of them, the rest through its operator delete.

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <iterator>
#include <string>
#include <vector>

#include <Corvane/Base/ErrorDict.h>
#include <Corvane/Base/Sync.h>
#include <Corvane/Throttle.h>

#include "tests/frame/Allocations.h"
#include "tests/frame/CurlGlobals.h"
#include "tests/frame/Registrations.h"
#include "tests/frame/SharedObject.h"

namespace Corvane {
namespace {

using CorvaneTest::CurlGlobals;
using CorvaneTest::Registration;
using CorvaneTest::RegistrationCall;
using CorvaneTest::SharedObject;

using Steps = std::vector<std::string>;

// Follows the blocks of the process-wide objects. Everything stands in plain arrays: it is used inside operator new and
// delete.
struct Block {
  void* address;
  const char* freed;  // the step that its end is
};
std::array<Block, 4096> blocks{};
std::size_t blockCount = 0;
std::array<const char*, 64> steps{};
std::size_t stepCount = 0;
enum class Phase { Loading, Loaded, Unloading } phase = Phase::Loading;

void Step(const char* step) {
  if (stepCount < steps.size()) steps[stepCount++] = step;
}

void Follow(void* address, const char* freed) {
  if (blockCount < blocks.size()) blocks[blockCount++] = {address, freed};
}

// The mutex and the throttle are made by the first use, after the load, and are told by their sizes. Other blocks of
// these sizes are gone before the unload.
void BlockMade(void* address, std::size_t size) {
  if (phase != Phase::Loaded) return;
  if (size == sizeof(ZMutex)) Follow(address, "global mutex freed");
  if (size == sizeof(ZThrottle)) Follow(address, "throttle freed");
}

void BlockFreed(void* address) {
  Block* const end = blocks.data() + blockCount;
  Block* const block = std::find_if(blocks.data(), end, [&](const Block& b) { return b.address == address; });
  if (block == end) return;
  if (phase == Phase::Unloading) Step(block->freed);
  *block = blocks[--blockCount];
}

const char* NameOf(const RegistrationCall& call) {
  switch (call.what) {
    case Registration::RegisterModule:
      return "module registered";
    case Registration::UnregisterModule:
      return "module unregistered";
    case Registration::RegisterCodes:
      return call.facility == 1 ? "codes registered" : "wrong facility registered";
    case Registration::UnregisterCodes:
      return call.facility == 1 ? "codes unregistered" : "wrong facility unregistered";
  }
  return "?";
}

class LoadOrder : public testing::Test {
 protected:
  LoadOrder() {
    static_assert(sizeof(ZMutex) != sizeof(ZThrottle));
    blockCount = 0;
    stepCount = 0;
    phase = Phase::Loading;
    CorvaneTest::WatchAllocations({BlockMade, BlockFreed});
    CorvaneTest::WatchRegistrations([this](const RegistrationCall& call) {
      Step(NameOf(call));
      if (call.what == Registration::RegisterCodes) Follow(const_cast<ZErrorMap*>(call.map), "error table freed");
      if (call.what == Registration::RegisterModule) m_registeredName = call.module;
      if (call.what == Registration::UnregisterModule) m_unregisteredName = call.module;
    });
  }
  ~LoadOrder() override {
    CorvaneTest::WatchAllocations({});
    CorvaneTest::WatchRegistrations(nullptr);
  }

  static Steps TakeSteps() {
    Steps taken(steps.begin(), steps.begin() + static_cast<std::ptrdiff_t>(stepCount));
    stepCount = 0;
    return taken;
  }

  // Loads the library, itself or by way of the plug-in.
  static SharedObject Load(const char* file) {
    phase = Phase::Loading;
    SharedObject loaded(file);
    phase = Phase::Loaded;
    return loaded;
  }

  // Closes the library and tells what happened meanwhile.
  static Steps UnloadSteps(SharedObject& library) {
    TakeSteps();
    phase = Phase::Unloading;
    EXPECT_TRUE(library.Close());
    phase = Phase::Loading;
    return TakeSteps();
  }

  ZString m_registeredName;
  ZString m_unregisteredName;
};

const Steps kLoad = {"module registered", "codes registered"};
const Steps kUnloadUnused = {"codes unregistered", "error table freed", "module unregistered"};
const Steps kUnloadUsed = {"codes unregistered", "error table freed", "module unregistered", "global mutex freed",
                           "throttle freed"};

TEST_F(LoadOrder, RegistersTheModuleBeforeTheCodes) {
  SharedObject library = Load(CORVANE_ZN_FILE);
  EXPECT_EQ(TakeSteps(), kLoad);
}

TEST_F(LoadOrder, UnloadsAnUnusedLibraryInReverse) {
  SharedObject library = Load(CORVANE_ZN_FILE);
  EXPECT_EQ(UnloadSteps(library), kUnloadUnused);
}

TEST_F(LoadOrder, UnregistersTheModuleUnderTheNameItRegistered) {
  SharedObject library = Load(CORVANE_ZN_FILE);
  EXPECT_FALSE(m_registeredName.IsEmpty());
  EXPECT_TRUE(library.Close());
  EXPECT_EQ(m_unregisteredName, m_registeredName);
}

TEST_F(LoadOrder, FreesTheGlobalMutexAndThenTheThrottleLast) {
  SharedObject plugin = Load(CORVANE_TRANSFER_PLUGIN_FILE);
  void* const transfer = plugin.Get<void*()>("PluginMakeTransfer")();
  plugin.Get<void(void*)>("PluginDestroyTransfer")(transfer);
  EXPECT_EQ(UnloadSteps(plugin), kUnloadUsed);
}

// The throttle may be there without the mutex: it is configured before the first transfer object is made.
TEST_F(LoadOrder, FreesOnlyWhatWasMade) {
  SharedObject plugin = Load(CORVANE_TRANSFER_PLUGIN_FILE);
  plugin.Get<void()>("PluginSetThrottling")();
  Steps expected = kUnloadUnused;
  expected.emplace_back("throttle freed");
  EXPECT_EQ(UnloadSteps(plugin), expected);
}

TEST_F(LoadOrder, FreesTheMutexAndTheThrottleAlsoWhenTheThrottleWasMadeFirst) {
  SharedObject plugin = Load(CORVANE_TRANSFER_PLUGIN_FILE);
  plugin.Get<void()>("PluginSetThrottling")();
  void* const transfer = plugin.Get<void*()>("PluginMakeTransfer")();
  plugin.Get<void(void*)>("PluginDestroyTransfer")(transfer);
  EXPECT_EQ(UnloadSteps(plugin), kUnloadUsed);
}

TEST_F(LoadOrder, UnloadWithALiveTransferLeavesLibcurlInitialised) {
  CurlGlobals::Reset();
  SharedObject plugin = Load(CORVANE_TRANSFER_PLUGIN_FILE);
  // Never destroyed: its code goes with the library. Its memory is left to the process, which is why the pointer stays.
  static void* volatile transfer = nullptr;
  transfer = plugin.Get<void*()>("PluginMakeTransfer")();
  ASSERT_NE(transfer, nullptr);
  ASSERT_EQ(CurlGlobals::Calls(), (std::vector<std::string>{"init(3)"}));
  EXPECT_EQ(UnloadSteps(plugin), kUnloadUsed);
  EXPECT_EQ(CurlGlobals::Calls(), (std::vector<std::string>{"init(3)"})) << "no cleanup";
  EXPECT_FALSE(SharedObject::IsLoaded(CORVANE_ZN_FILE));
}

TEST_F(LoadOrder, IsTheSameInEveryCycle) {
  for (int cycle = 0; cycle < 50; ++cycle) {
    SharedObject plugin = Load(CORVANE_TRANSFER_PLUGIN_FILE);
    ASSERT_EQ(TakeSteps(), kLoad);
    void* const transfer = plugin.Get<void*()>("PluginMakeTransfer")();
    plugin.Get<void(void*)>("PluginDestroyTransfer")(transfer);
    ASSERT_EQ(UnloadSteps(plugin), kUnloadUsed);
  }
}

}  // namespace
}  // namespace Corvane
