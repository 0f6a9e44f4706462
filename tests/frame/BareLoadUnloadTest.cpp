// Loads and unloads both libraries in a program that links neither: what a host sees that was written in another
// language. libcurl is linked, because it stays in a process once it was loaded, and would hide our own growth.

#include <curl/curl.h>
#include <gtest/gtest.h>

#include <cstddef>

#include "tests/frame/ProcessFootprint.h"
#include "tests/frame/SharedObject.h"

namespace CorvaneTest {
namespace {

constexpr const char* kTransferLibrary = CORVANE_ZN_FILE;
constexpr const char* kBaseLibrary = CORVANE_ZPS_FILE;

constexpr int kCycles = 1000;
constexpr int kWarmUp = 100;

void LoadAndUnload() {
  SharedObject probe(CORVANE_REGISTRATION_PROBE_FILE);
  auto* const messages = probe.Get<std::size_t(unsigned int)>("ProbeMessages");
  auto* const modules = probe.Get<std::size_t()>("ProbeModules");
  ASSERT_EQ(messages(1), 0u);
  ASSERT_EQ(modules(), 0u);

  SharedObject library(kTransferLibrary);
  ASSERT_EQ(messages(1), 12u);
  ASSERT_EQ(modules(), 1u);

  ASSERT_TRUE(library.Close());
  ASSERT_EQ(messages(1), 0u);
  ASSERT_EQ(modules(), 0u);
  ASSERT_FALSE(SharedObject::IsLoaded(kTransferLibrary));
  ASSERT_TRUE(SharedObject::IsLoaded(kBaseLibrary)) << "the probe still uses it";
  ASSERT_TRUE(probe.Close());
}

void ExpectNothingLoaded() {
  ASSERT_FALSE(SharedObject::IsLoaded(kTransferLibrary));
  ASSERT_FALSE(SharedObject::IsLoaded(kBaseLibrary));
  ASSERT_EQ(MappingsOf("libzn.so"), 0u);
  ASSERT_EQ(MappingsOf("libzps.so"), 0u);
}

TEST(BareLoadUnload, LoadsBothLibrariesAndUnloadsBoth) {
  ASSERT_NE(curl_version(), nullptr);
  ASSERT_NO_FATAL_FAILURE(ExpectNothingLoaded());
  SharedObject library(kTransferLibrary);
  EXPECT_GT(MappingsOf("libzn.so"), 0u);
  EXPECT_GT(MappingsOf("libzps.so"), 0u);
  ASSERT_TRUE(library.Close());
  ExpectNothingLoaded();
}

TEST(BareLoadUnload, LeavesNothingBehindAThousandTimes) {
  Footprint before;
  for (int i = 0; i < kCycles + kWarmUp; ++i) {
    if (i == kWarmUp) before = Footprint::Now();
    ASSERT_NO_FATAL_FAILURE(LoadAndUnload()) << "in cycle " << i;
    ASSERT_NO_FATAL_FAILURE(ExpectNothingLoaded()) << "in cycle " << i;
  }
  ExpectNoGrowth(before, Footprint::Now(), kCycles);
}

}  // namespace
}  // namespace CorvaneTest
