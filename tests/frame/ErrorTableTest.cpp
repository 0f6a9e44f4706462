// The error table from the inside: the source is part of this program, which does not link the library, so that its
// file-local steps can be run again and again.
#include <Corvane/TransferErrorCodes.cpp>  // NOLINT(bugprone-suspicious-include): see above

#include <gtest/gtest.h>

#include <atomic>
#include <optional>
#include <thread>
#include <vector>

#include "tests/frame/Allocations.h"
#include "tests/frame/Registrations.h"

namespace Corvane {
namespace {

using CorvaneTest::Registration;
using CorvaneTest::RegistrationCall;

// Each test begins as a freshly unloaded library, and leaves a loaded one behind for the program's own static
// destructor.
class ErrorTable : public testing::Test {
 protected:
  ErrorTable() {
    Unload();
    CorvaneTest::WatchRegistrations([this](const RegistrationCall& call) {
      if (call.what == Registration::RegisterCodes) ++m_registered;
      if (call.what == Registration::UnregisterCodes) ++m_unregistered;
      m_facility = call.facility;
    });
  }
  ~ErrorTable() override {
    CorvaneTest::WatchRegistrations(nullptr);
    LoadErrors();
  }

  // What the library's static destructor does.
  static void Unload() { const ErrorCodesLifetime lifetime; }

  std::atomic<int> m_registered{0};
  std::atomic<int> m_unregistered{0};
  std::atomic<unsigned int> m_facility{0};
};

TEST_F(ErrorTable, IsAbsentBeforeTheLoad) {
  EXPECT_EQ(sm_ErrorMap.load(), nullptr);
  EXPECT_EQ(ZErrorDict::CountMessages(1), 0u);
}

TEST_F(ErrorTable, IsBuiltAndRegisteredOnceByManyCalls) {
  const TransferErrorMap* const map = LoadErrors();
  for (int call = 0; call < 100; ++call) LoadErrorCodes_TRANSFER();
  EXPECT_EQ(LoadErrors(), map);
  EXPECT_EQ(sm_ErrorMap.load(), map);
  EXPECT_EQ(map->size(), 12u);
  EXPECT_EQ(m_registered, 1);
  EXPECT_EQ(m_facility, 1u);
}

TEST_F(ErrorTable, IsBuiltOnceByManyThreadsThatComeFirst) {
  for (int round = 0; round < 50; ++round) {
    m_registered = 0;
    std::atomic<int> waiting{8};
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) {
      threads.emplace_back([&] {
        for (--waiting; waiting > 0;) std::this_thread::yield();
        LoadErrorCodes_TRANSFER();
      });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(m_registered, 1);
    EXPECT_EQ(ZErrorDict::CountMessages(1), 12u);
    Unload();
  }
}

TEST_F(ErrorTable, InitMapReplacesAnExistingMessageAndKeepsOtherCodes) {
  TransferErrorMap map;
  map[TRANSFER_E_POST] = L"an older text";
  map[0x80010007] = L"somebody else's";
  ErrorMapHolder::InitMap(map);
  EXPECT_EQ(map.size(), 13u);
  EXPECT_EQ(map[TRANSFER_E_POST], L"Post failed");
  EXPECT_EQ(map[0x80010007], L"somebody else's");
}

TEST_F(ErrorTable, UnloadWithdrawsAndFreesEverything) {
  const std::size_t before = CorvaneTest::LiveAllocations();
  LoadErrors();
  EXPECT_GT(CorvaneTest::LiveAllocations(), before + 12);
  Unload();
  EXPECT_EQ(CorvaneTest::LiveAllocations(), before);
  EXPECT_EQ(m_unregistered, 1);
  EXPECT_EQ(m_facility, 1u);
  EXPECT_EQ(sm_ErrorMap.load(), nullptr);
  EXPECT_EQ(ZErrorDict::CountMessages(1), 0u);
  EXPECT_EQ(ZGetErrorMsg(TRANSFER_E_ABORTED), L"Unknown error 0x80011003");
}

TEST_F(ErrorTable, SecondUnloadPassDoesNothing) {
  std::optional<ErrorCodesLifetime> first(std::in_place);
  std::optional<ErrorCodesLifetime> second(std::in_place);
  first.reset();
  ASSERT_EQ(m_unregistered, 1);

  // What another library has registered meanwhile must survive the second pass.
  const ZErrorMap theirs{{0x80010007, L"Connection refused"}};
  ZErrorDict::Register(1, &theirs);
  second.reset();
  EXPECT_EQ(m_unregistered, 1);
  EXPECT_EQ(ZGetErrorMsg(0x80010007), L"Connection refused");
  ZErrorDict::Unregister(1);
}

TEST_F(ErrorTable, UnloadLeavesATableThatAHostHasPutInItsPlace) {
  const ZErrorMap theirs{{TRANSFER_E_ABORTED, L"Cancelled"}};
  const std::size_t before = CorvaneTest::LiveAllocations();
  LoadErrors();
  ZErrorDict::Register(1, &theirs);
  Unload();
  EXPECT_EQ(sm_ErrorMap.load(), nullptr);
  EXPECT_EQ(CorvaneTest::LiveAllocations(), before);
  EXPECT_EQ(ZErrorDict::CountMessages(1), 1u);
  EXPECT_EQ(ZGetErrorMsg(TRANSFER_E_ABORTED), L"Cancelled");
  ZErrorDict::Unregister(1);
}

TEST_F(ErrorTable, CanBeLoadedAgainAfterTheUnload) {
  LoadErrors();
  Unload();
  LoadErrors();
  EXPECT_EQ(m_registered, 2);
  EXPECT_EQ(ZGetErrorMsg(TRANSFER_E_SIZE_MISMATCH), L"Download file size mismatch");
}

TEST_F(ErrorTable, FailedAllocationPassesOutAndFreesThePartlyBuiltMap) {
  const std::size_t before = CorvaneTest::LiveAllocations();
  std::size_t failures = 0;
  for (bool loaded = false; !loaded;) {
    std::size_t after = before;
    bool slotIsNull = true;
    try {
      const CorvaneTest::FailingAllocations failing(failures);
      LoadErrorCodes_TRANSFER();
      loaded = true;
    } catch (const std::bad_alloc&) {
      ++failures;
      after = CorvaneTest::LiveAllocations();
      slotIsNull = sm_ErrorMap.load() == nullptr;
    }
    ASSERT_EQ(after, before) << "after failure " << failures;
    ASSERT_TRUE(slotIsNull) << "after failure " << failures;
    ASSERT_LT(failures, 1000u);
  }
  EXPECT_GT(failures, 12u) << "every row of the table needs memory";
  EXPECT_EQ(m_registered, 1) << "a map that is not complete must not be registered";
  EXPECT_EQ(ZErrorDict::CountMessages(1), 12u);
}

}  // namespace
}  // namespace Corvane
