// Loads and unloads the library as a host with plug-ins does. This program does not link it; it links the base library,
// so that it can look into the registries, and libcurl: that one, and the libraries behind it, stay in a process once
// they were loaded (OpenSSL asks the loader for it), which is none of our doing and would hide our own growth.

#include <curl/curl.h>
#include <gtest/gtest.h>

#include <array>
#include <string>
#include <thread>
#include <vector>

#include <Corvane/Base/ErrorDict.h>
#include <Corvane/Base/Module.h>

#include "tests/frame/ProcessFootprint.h"
#include "tests/frame/SharedObject.h"
#include "tests/support/Gate.h"

namespace Corvane {
namespace {

using CorvaneTest::Footprint;
using CorvaneTest::Gate;
using CorvaneTest::MappingsOf;
using CorvaneTest::SharedObject;

constexpr const char* kLibrary = CORVANE_ZN_FILE;
constexpr const char* kLibraryName = "libzn.so";
constexpr const char* kPlugin = CORVANE_TRANSFER_PLUGIN_FILE;
constexpr const char* kPluginName = "frame_transfer_plugin";

constexpr int kCycles = 1000;
constexpr int kWarmUp = 100;  // the loader and the allocator have their working memory by then

// The modules that registered as a transfer library, as "name version".
std::vector<std::wstring> NetworkModules() {
  std::vector<std::wstring> found;
  for (const ZModule& module : ZModuleRegistry::GetModules()) {
    found.push_back(module.GetName().Str() + L' ' + module.GetVersion().ToString().Str());
  }
  return found;
}

bool EndsWith(const std::wstring& text, const std::wstring& ending) {
  return text.size() > ending.size() && text.compare(text.size() - ending.size(), ending.size(), ending) == 0;
}

void ExpectRegistered() {
  ASSERT_EQ(ZErrorDict::CountMessages(1), 12u);
  ASSERT_EQ(ZGetErrorMsg(0x80011003), ZString(L"Download aborted by user"));
  const std::vector<std::wstring> modules = NetworkModules();
  ASSERT_EQ(modules.size(), 1u);
  ASSERT_TRUE(EndsWith(modules[0], L".network 6.2.1591")) << ZString(modules[0]).Str();
}

void ExpectGone() {
  ASSERT_EQ(ZErrorDict::CountMessages(1), 0u);
  ASSERT_EQ(ZGetErrorMsg(0x80011003), ZString(L"Unknown error 0x80011003"));
  ASSERT_TRUE(NetworkModules().empty());
  ASSERT_FALSE(SharedObject::IsLoaded(kLibrary));
  ASSERT_EQ(MappingsOf(kLibraryName), 0u);
}

// Runs `cycle` so often, and compares the process after the warm-up with that at the end.
template <class Cycle>
void ExpectNoGrowthOver(Cycle cycle) {
  ASSERT_NE(curl_version(), nullptr);  // keeps libcurl linked
  Footprint before;
  for (int i = 0; i < kCycles + kWarmUp; ++i) {
    if (i == kWarmUp) before = Footprint::Now();
    ASSERT_NO_FATAL_FAILURE(cycle()) << "in cycle " << i;
  }
  CorvaneTest::ExpectNoGrowth(before, Footprint::Now(), kCycles);
}

TEST(LoadUnload, IsNotLinked) { ExpectGone(); }

TEST(LoadUnload, RegistersAtLoadAndLeavesNothingBehindAThousandTimes) {
  ExpectNoGrowthOver([] {
    SharedObject library(kLibrary);
    ExpectRegistered();
    ASSERT_TRUE(library.Close());
    ExpectGone();
  });
}

void DestroyThreeTransfersAndUnload() {
  SharedObject plugin(kPlugin);
  ExpectRegistered();
  std::array<void*, 3> transfers{};
  for (void*& transfer : transfers) transfer = plugin.Get<void*()>("PluginMakeTransfer")();
  for (void* transfer : transfers) {
    ASSERT_EQ(plugin.Get<unsigned int(void*)>("PluginUseTransfer")(transfer), 0x80010000u | CURLE_UNSUPPORTED_PROTOCOL);
  }
  for (void* transfer : transfers) plugin.Get<void(void*)>("PluginDestroyTransfer")(transfer);
  ASSERT_TRUE(plugin.Close());
  ASSERT_EQ(MappingsOf(kPluginName), 0u);
  ExpectGone();
}

TEST(LoadUnload, LeavesNothingBehindAfterTransfersAThousandTimes) {
  ExpectNoGrowthOver(DestroyThreeTransfersAndUnload);
}

TEST(LoadUnload, FreesTheThrottleThatWasMadeWithoutAnyTransfer) {
  ExpectNoGrowthOver([] {
    SharedObject plugin(kPlugin);
    plugin.Get<void()>("PluginSetThrottling")();
    ASSERT_TRUE(plugin.Close());
    ExpectGone();
  });
}

// A thread that has used the library must not keep it in the process (a thread-local destructor would, until its end).
TEST(LoadUnload, IsNotKeptByAThreadThatUsedIt) {
  SharedObject plugin(kPlugin);
  void* const transfer = plugin.Get<void*()>("PluginMakeTransfer")();
  Gate used;
  Gate unloaded;
  std::thread user([&] {
    plugin.Get<unsigned int(void*)>("PluginUseTransfer")(transfer);
    used.Open();
    EXPECT_TRUE(unloaded.Wait());
  });
  EXPECT_TRUE(used.Wait());
  plugin.Get<void(void*)>("PluginDestroyTransfer")(transfer);
  EXPECT_TRUE(plugin.Close());
  ExpectGone();
  unloaded.Open();
  user.join();
}

TEST(LoadUnload, StaysRegisteredUntilTheLastHandleIsClosed) {
  SharedObject first(kLibrary);
  SharedObject second(kLibrary);
  ASSERT_TRUE(first.Close());
  ExpectRegistered();
  ASSERT_TRUE(second.Close());
  ExpectGone();
}

// A host that has its own words for the library's codes keeps them when the library goes.
TEST(LoadUnload, LeavesATableThatTheHostHasPutInItsPlace) {
  const ZErrorMap theirs{{0x80011003, L"Cancelled"}};
  SharedObject library(kLibrary);
  ZErrorDict::Register(1, &theirs);
  ASSERT_TRUE(library.Close());
  EXPECT_EQ(ZErrorDict::CountMessages(1), 1u);
  EXPECT_EQ(ZGetErrorMsg(0x80011003), ZString(L"Cancelled"));
  ZErrorDict::Unregister(1);
  ExpectGone();
}

TEST(LoadUnload, CanBeLoadedAndUnloadedByAnotherThreadEachTime) {
  for (int i = 0; i < 20; ++i) {
    std::thread([] {
      SharedObject library(kLibrary);
      ExpectRegistered();
      EXPECT_TRUE(library.Close());
    }).join();
    ExpectGone();
  }
}

}  // namespace
}  // namespace Corvane
