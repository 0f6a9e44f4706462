// Unloading the library while transfer objects are alive, seen by an OpenSSL of the 1.0 era: its callbacks and the
// locks stay.

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <string>
#include <vector>

#include <Corvane/Base/Sync.h>

#include "tests/frame/Allocations.h"
#include "tests/frame/CurlGlobals.h"
#include "tests/frame/LegacyCrypto.h"
#include "tests/frame/SharedObject.h"

namespace Corvane {
namespace {

using CorvaneTest::CurlGlobals;
using CorvaneTest::LegacyCrypto;
using CorvaneTest::SharedObject;

using Calls = std::vector<std::string>;

constexpr std::size_t kArraySize = 41 * sizeof(ZMutex);
void* lockArray = nullptr;
bool arrayFreed = false;

class LegacyUnload : public testing::Test {
 protected:
  LegacyUnload() {
    LegacyCrypto::Forget();
    CurlGlobals::Reset();
    lockArray = nullptr;
    arrayFreed = false;
    CorvaneTest::WatchAllocations(
        {[](void* block, std::size_t size) {
           if (size == kArraySize) lockArray = block;
         },
         [](void* block) { arrayFreed = arrayFreed || (block != nullptr && block == lockArray); }});
  }
  ~LegacyUnload() override { CorvaneTest::WatchAllocations({}); }
};

TEST_F(LegacyUnload, WithoutAliveObjectsNothingIsLeft) {
  SharedObject plugin(CORVANE_LEGACY_PLUGIN_FILE);
  plugin.Get<void(void*)>("PluginDestroyTransfer")(plugin.Get<void*()>("PluginMakeTransfer")());
  EXPECT_NE(lockArray, nullptr);
  EXPECT_TRUE(arrayFreed);
  EXPECT_TRUE(plugin.Close());
  EXPECT_FALSE(SharedObject::IsLoaded(CORVANE_LEGACY_ZN_FILE));
  EXPECT_EQ(LegacyCrypto::Calls(), (Calls{"num_locks", "set_id", "set_locking", "clear_id", "clear_locking"}));
}

TEST_F(LegacyUnload, WithAnAliveObjectTheLocksStay) {
  SharedObject plugin(CORVANE_LEGACY_PLUGIN_FILE);
  // Never destroyed: its code goes with the library. Its memory is left to the process, which is why the pointer stays.
  static void* volatile transfer = nullptr;
  transfer = plugin.Get<void*()>("PluginMakeTransfer")();
  ASSERT_NE(transfer, nullptr);
  ASSERT_NE(lockArray, nullptr);
  EXPECT_TRUE(plugin.Close());
  EXPECT_FALSE(SharedObject::IsLoaded(CORVANE_LEGACY_ZN_FILE));
  EXPECT_FALSE(arrayFreed);
  EXPECT_EQ(LegacyCrypto::Calls(), (Calls{"num_locks", "set_id", "set_locking"})) << "the callbacks are not removed";
  EXPECT_EQ(CurlGlobals::Calls(), (Calls{"init(3)"}));
}

}  // namespace
}  // namespace Corvane
