#include <Corvane/Base/ErrorDict.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <set>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include <Corvane/Base/ResultTableImpl.h>

#include "tests/frame/BlockedCall.h"
#include "tests/support/Env.h"
#include "tests/support/Gate.h"
#include "tests/unit/PrintTo.h"

namespace {

// Where a thread that set it stops at its next allocation: it says so, and waits until it may go on.
struct StopInAllocation {
  CorvaneTest::Gate reached;
  CorvaneTest::Gate goOn;
};
thread_local StopInAllocation* nextStop = nullptr;

}  // namespace

// Not inlined: with only one of the two calls in sight, the compiler warns of memory freed by the wrong function.
[[gnu::noinline]] void* operator new(std::size_t bytes) {
  if (StopInAllocation* const stop = std::exchange(nextStop, nullptr)) {
    stop->reached.Open();
    if (!stop->goOn.Wait()) std::abort();
  }
  void* const memory = std::malloc(bytes == 0 ? 1 : bytes);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}
[[gnu::noinline]] void operator delete(void* memory) noexcept { std::free(memory); }
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }

namespace Corvane {
namespace {

constexpr unsigned int kFacility = 0x123;
constexpr ZResult kCode = 0x81230007;

// Registers a map for its lifetime.
class Registration {
 public:
  Registration(unsigned int facility, ZErrorMap map) : m_facility(facility), m_map(std::move(map)) {
    ZErrorDict::Register(m_facility, &m_map);
  }
  ~Registration() { ZErrorDict::Unregister(m_facility); }
  Registration(const Registration&) = delete;
  Registration& operator=(const Registration&) = delete;

 private:
  unsigned int m_facility;
  ZErrorMap m_map;
};

TEST(ZErrorDict, KnowsEveryCodeOfTheTable) {
  for (const ResultRow& row : kResultTable) {
    EXPECT_EQ(ZGetErrorMsg(row.code), ZString(row.text)) << row.name;
    EXPECT_FALSE(std::wstring_view(row.text).empty()) << row.name;
  }
}

TEST(ZErrorDict, HasATableOfDistinctCodesOfFacilityZero) {
  std::set<ZResult> codes;
  std::set<std::string_view> names;
  std::set<std::wstring_view> texts;
  for (const ResultRow& row : kResultTable) {
    EXPECT_TRUE(codes.insert(row.code).second) << row.name;
    EXPECT_TRUE(names.insert(row.name).second) << row.name;
    EXPECT_TRUE(texts.insert(row.text).second) << row.name;
    EXPECT_EQ(FacilityOf(row.code), 0u) << row.name;
    EXPECT_EQ(IsFailure(row.code), std::string_view(row.name).substr(0, 7) == "BASE_E_") << row.name;
    EXPECT_FALSE(row.code >= BASE_E_ERRNO && row.code <= BASE_E_ERRNO + 4095) << row.name << " is an errno's code";
  }
}

TEST(ZErrorDict, GivesTheTextsThatHostsKnow) {
  EXPECT_EQ(ZGetErrorMsg(0), ZString(L"Success"));
  EXPECT_EQ(ZGetErrorMsg(0x8000005E), ZString(L"Object is busy"));
  EXPECT_EQ(ZGetErrorMsg(0x80000008), ZString(L"Object is in use"));
}

TEST(ZErrorDict, GivesTheSystemsTextForEveryErrno) {
  for (const char* locale : {"C", "C.UTF-8"}) {
    const CorvaneTest::ScopedLocale scoped(locale);
    for (int error = 1; error < 140; ++error) {
      EXPECT_EQ(ZGetErrorMsg(ResultFromErrno(error)), ZString(std::strerror(error))) << error;
    }
    EXPECT_EQ(ZGetErrorMsg(ResultFromErrno(ENOENT)), ZString(L"No such file or directory"));
    EXPECT_EQ(ZGetErrorMsg(ResultFromErrno(ENOSPC)), ZString(L"No space left on device"));
    EXPECT_FALSE(ZGetErrorMsg(ResultFromErrno(4095)).IsEmpty());
  }
}

struct UnknownCase {
  ZResult code;
  const wchar_t* text;
};
constexpr UnknownCase kUnknownCases[] = {
    {0x80010007, L"Unknown error 0x80010007"}, {0x00000001, L"Unknown error 0x00000001"},
    {0x80000000, L"Unknown error 0x80000000"}, {0x80001000, L"Unknown error 0x80001000"},
    {0x80002000, L"Unknown error 0x80002000"}, {0x8ABCDEF9, L"Unknown error 0x8ABCDEF9"},
    {0xFFFFFFFF, L"Unknown error 0xFFFFFFFF"}, {0x40000000, L"Unknown error 0x40000000"},
    {0xC0000008, L"Unknown error 0xC0000008"}, {0x88000008, L"Unknown error 0x88000008"},
};

TEST(ZErrorDict, NamesUnknownCodesInHexadecimal) {
  for (const UnknownCase& c : kUnknownCases) EXPECT_EQ(ZGetErrorMsg(c.code), ZString(c.text));
}

TEST(ZErrorDict, KnowsTheMessagesOfARegisteredFacility) {
  {
    const Registration registration(kFacility, {{kCode, L"Seven"}, {kCode + 1, L"Eight"}});
    EXPECT_EQ(ZErrorDict::CountMessages(kFacility), 2u);
    EXPECT_EQ(ZGetErrorMsg(kCode), ZString(L"Seven"));
    EXPECT_EQ(ZGetErrorMsg(kCode + 1), ZString(L"Eight"));
    EXPECT_EQ(ZGetErrorMsg(kCode + 2), ZString(L"Unknown error 0x81230009"));
  }
  EXPECT_EQ(ZErrorDict::CountMessages(kFacility), 0u);
  EXPECT_EQ(ZGetErrorMsg(kCode), ZString(L"Unknown error 0x81230007"));
}

TEST(ZErrorDict, KeepsAnEmptyMessageApartFromNone) {
  const Registration registration(kFacility, {{kCode, ZString()}});
  EXPECT_EQ(ZGetErrorMsg(kCode), ZString());
}

TEST(ZErrorDict, ReplacesTheMessagesOfAFacilityRegisteredAgain) {
  const ZErrorMap replacement = {{kCode, L"New"}};
  const Registration registration(kFacility, {{kCode, L"Old"}, {kCode + 1, L"Gone"}});
  ZErrorDict::Register(kFacility, &replacement);
  EXPECT_EQ(ZErrorDict::CountMessages(kFacility), 1u);
  EXPECT_EQ(ZGetErrorMsg(kCode), ZString(L"New"));
  EXPECT_EQ(ZGetErrorMsg(kCode + 1), ZString(L"Unknown error 0x81230008"));
  ZErrorDict::Unregister(kFacility);
}

TEST(ZErrorDict, TakesANullMapAsWithdrawal) {
  const Registration registration(kFacility, {{kCode, L"Seven"}});
  ZErrorDict::Register(kFacility, nullptr);
  EXPECT_EQ(ZErrorDict::CountMessages(kFacility), 0u);
  EXPECT_EQ(ZGetErrorMsg(kCode), ZString(L"Unknown error 0x81230007"));
}

TEST(ZErrorDict, LooksUpACodeInItsOwnFacilityOnly) {
  const Registration registration(kFacility, {{0x81240007, L"Stray"}, {BASE_E_BUSY, L"Stray"}});
  EXPECT_EQ(ZGetErrorMsg(0x81240007), ZString(L"Unknown error 0x81240007"));
  EXPECT_EQ(ZGetErrorMsg(BASE_E_BUSY), ZString(L"Object is busy"));
}

TEST(ZErrorDict, LetsNobodyReplaceFacilityZero) {
  const Registration registration(0, {{BASE_E_BUSY, L"Not mine"}, {0x80000200, L"Not mine"}});
  EXPECT_EQ(ZErrorDict::CountMessages(0), 0u);
  EXPECT_EQ(ZGetErrorMsg(BASE_E_BUSY), ZString(L"Object is busy"));
  EXPECT_EQ(ZGetErrorMsg(0x80000200), ZString(L"Unknown error 0x80000200"));
  ZErrorDict::Unregister(0);
  EXPECT_EQ(ZGetErrorMsg(BASE_E_BUSY), ZString(L"Object is busy"));
}

TEST(ZErrorDict, IgnoresFacilitiesThatNoCodeCanName) {
  const Registration largest(0x7FF, {{0x87FF0001, L"Largest"}});
  EXPECT_EQ(ZGetErrorMsg(0x87FF0001), ZString(L"Largest"));
  for (const unsigned int facility : {0x800u, 0x801u, 0xFFFFFFFFu}) {
    const Registration registration(facility, {{kCode, L"Nowhere"}});
    EXPECT_EQ(ZErrorDict::CountMessages(facility), 0u);
  }
  EXPECT_EQ(ZErrorDict::CountMessages(0x7FF), 1u);
}

TEST(ZErrorDict, TakesTheWithdrawalOfAnUnknownFacility) {
  ZErrorDict::Unregister(kFacility);
  ZErrorDict::Unregister(kFacility);
  EXPECT_EQ(ZErrorDict::CountMessages(kFacility), 0u);
}

// Each map is freed right after its withdrawal, so a reader that still looks at it is caught by the sanitizers.
TEST(ZErrorDict, NobodyReadsAMapAfterItsWithdrawal) {
  const ZString known(L"A message long enough not to be kept inside the string object itself");
  const ZString unknown(L"Unknown error 0x81230007");
  std::atomic<bool> isOver = false;
  std::atomic<long> wrong = 0;
  std::vector<std::thread> readers;
  readers.reserve(4);
  for (int i = 0; i < 4; ++i) {
    readers.emplace_back([&] {
      while (!isOver) {
        const ZString message = ZGetErrorMsg(kCode);
        if (message != known && message != unknown) ++wrong;
        if (ZErrorDict::CountMessages(kFacility) > 1) ++wrong;
        if (ZGetErrorMsg(ResultFromErrno(ENOENT)).IsEmpty()) ++wrong;
      }
    });
  }
  for (int i = 0; i < 3000; ++i) {
    auto map = std::make_unique<ZErrorMap>();
    map->emplace(kCode, known);
    ZErrorDict::Register(kFacility, map.get());
    EXPECT_EQ(ZGetErrorMsg(kCode), known);
    ZErrorDict::Unregister(kFacility);
  }
  isOver = true;
  for (std::thread& reader : readers) reader.join();
  EXPECT_EQ(wrong, 0);
}

// A reader is stopped while it copies a message, and a writer waits for it: whoever comes to read now must wait behind
// the writer, or the writers of a program that asks for messages all the time never get their turn.
TEST(ZErrorDict, LetsAWaitingWriterGoBeforeTheReadersThatComeAfterIt) {
  const ZErrorMap former{{kCode, L"A message long enough not to be kept inside the string object itself"}};
  const ZErrorMap latter{{kCode, L"New"}};
  ZErrorDict::Register(kFacility, &former);
  StopInAllocation stop;
  ZString readFirst;
  ZString readLast;
  {
    CorvaneTest::BlockedCall firstReader([&] {
      nextStop = &stop;
      readFirst = ZGetErrorMsg(kCode);
    });
    ASSERT_TRUE(stop.reached.Wait());
    CorvaneTest::BlockedCall writer([&] { ZErrorDict::Register(kFacility, &latter); });
    EXPECT_TRUE(writer.IsBlocked());
    CorvaneTest::BlockedCall lastReader([&] { readLast = ZGetErrorMsg(kCode); });
    EXPECT_TRUE(lastReader.IsBlocked());
    stop.goOn.Open();
  }
  EXPECT_EQ(readFirst, former.at(kCode));
  EXPECT_EQ(readLast, latter.at(kCode));
  ZErrorDict::Unregister(kFacility);
}

// Readers that no writer waits behind do not wait for each other.
TEST(ZErrorDict, LetsReadersReadAtTheSameTime) {
  const Registration registration(kFacility,
                                  {{kCode, L"A message long enough not to be kept inside the string itself"}});
  StopInAllocation stop;
  CorvaneTest::BlockedCall reader([&] {
    nextStop = &stop;
    EXPECT_EQ(ZGetErrorMsg(kCode).Length(), 61u);
  });
  ASSERT_TRUE(stop.reached.Wait());
  EXPECT_EQ(ZErrorDict::CountMessages(kFacility), 1u);
  EXPECT_EQ(ZGetErrorMsg(kCode).Length(), 61u);
  EXPECT_FALSE(reader.IsDone());
  stop.goOn.Open();
}

TEST(ZErrorDict, WithdrawsAMapOnlyWhileItIsTheOneRegistered) {
  const ZErrorMap mine = {{kCode, L"Mine"}};
  const ZErrorMap theirs = {{kCode, L"Theirs"}};
  ZErrorDict::Register(kFacility, &mine);
  ZErrorDict::Register(kFacility, &theirs);
  ZErrorDict::Unregister(kFacility, &mine);
  EXPECT_EQ(ZGetErrorMsg(kCode), ZString(L"Theirs"));
  ZErrorDict::Unregister(kFacility, nullptr);
  EXPECT_EQ(ZGetErrorMsg(kCode), ZString(L"Theirs"));
  ZErrorDict::Unregister(kFacility + 1, &theirs);
  EXPECT_EQ(ZGetErrorMsg(kCode), ZString(L"Theirs"));
  ZErrorDict::Unregister(kFacility, &theirs);
  EXPECT_EQ(ZErrorDict::CountMessages(kFacility), 0u);
  ZErrorDict::Unregister(kFacility, &theirs);
  for (const unsigned int facility : {0u, 0x800u, 0xFFFFFFFFu}) ZErrorDict::Unregister(facility, &mine);
  EXPECT_EQ(ZGetErrorMsg(BASE_E_BUSY), ZString(L"Object is busy"));
}

// Libraries register their codes before main and withdraw them after it.
struct RegistersOutsideMain {
  RegistersOutsideMain() { ZErrorDict::Register(0x124, &map); }
  ~RegistersOutsideMain() {
    ZErrorDict::Unregister(0x124);
    if (ZErrorDict::CountMessages(0x124) != 0) std::abort();  // too late for an assertion
  }
  ZErrorMap map = {{0x81240001, L"Early"}};
};
const RegistersOutsideMain registersOutsideMain;

TEST(ZErrorDict, TakesRegistrationsOfStaticInitialisersAndWithdrawalsOfDestructors) {
  EXPECT_EQ(ZGetErrorMsg(0x81240001), ZString(L"Early"));
}

}  // namespace
}  // namespace Corvane
