// The steps of the process-wide set-up that nobody sees from outside: their results, and what they do when they are
// called out of turn. This program holds the library, built against the recording stand-in for OpenSSL.
#include <Corvane/Transfer/ProcessSetupImpl.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/frame/CurlGlobals.h"
#include "tests/frame/LegacyCrypto.h"
#include "tests/frame/LineRecorder.h"

namespace Corvane {
namespace {

using CorvaneTest::CurlGlobals;
using CorvaneTest::LegacyCrypto;

using Calls = std::vector<std::string>;

class GlobalInitInside : public testing::Test {
 protected:
  GlobalInitInside() {
    CurlGlobals::Reset();
    LegacyCrypto::Forget();
    EXPECT_EQ(sm_nGlobalCounter, 0);
    EXPECT_EQ(sm_LockArray, nullptr);
  }
};

TEST_F(GlobalInitInside, CleanupWithoutAnInitDoesNothing) {
  const CorvaneTest::LineRecorder recorder;
  for (int call = 0; call < 3; ++call) CurlGlobalCleanup();
  EXPECT_EQ(sm_nGlobalCounter, 0) << "never negative";
  EXPECT_TRUE(recorder.Messages().empty());
  EXPECT_EQ(CurlGlobals::Calls(), Calls());
  EXPECT_EQ(LegacyCrypto::Calls(), Calls());

  EXPECT_EQ(CurlGlobalInit(), 0u);
  EXPECT_EQ(sm_nGlobalCounter, 1);
  EXPECT_NE(sm_LockArray, nullptr);
  CurlGlobalCleanup();
  EXPECT_EQ(CurlGlobals::Calls(), (Calls{"init(3)", "cleanup"}));
  EXPECT_EQ(sm_LockArray, nullptr);
}

TEST_F(GlobalInitInside, ReportsTheFailureOfLibcurlToTheFirstCallerOnly) {
  CurlGlobals::FailInit(2);
  EXPECT_EQ(CurlGlobalInit(), 0x80010002u);
  EXPECT_EQ(CurlGlobalInit(), 0u);
  EXPECT_EQ(sm_nGlobalCounter, 2);
  EXPECT_NE(sm_LockArray, nullptr) << "set up all the same";
  CurlGlobalCleanup();
  CurlGlobalCleanup();
  EXPECT_EQ(sm_nGlobalCounter, 0);
}

// An array that is there already is in use by OpenSSL: neither it nor the callbacks are replaced.
TEST_F(GlobalInitInside, KeepsAnArrayOfAnEarlierCycle) {
  ZMutex* const leftOver = new ZMutex[41];
  sm_LockArray = leftOver;
  EXPECT_EQ(CurlGlobalInit(), 0u);
  EXPECT_EQ(sm_LockArray, leftOver);
  EXPECT_EQ(CurlGlobals::Calls(), (Calls{"init(3)"})) << "libcurl is initialised all the same";
  EXPECT_EQ(LegacyCrypto::Calls(), Calls());
  CurlGlobalCleanup();
  EXPECT_EQ(sm_LockArray, nullptr);
  EXPECT_EQ(LegacyCrypto::Calls(), (Calls{"clear_id", "clear_locking"}));
}

TEST_F(GlobalInitInside, ReportsTheFailureOfLibcurlAlsoWithAnArrayOfAnEarlierCycle) {
  sm_LockArray = new ZMutex[41];
  CurlGlobals::FailInit(27);
  EXPECT_EQ(CurlGlobalInit(), 0x8001001Bu);
  CurlGlobalCleanup();
}

}  // namespace
}  // namespace Corvane
