#include <Corvane/GetHostByName.h>

#include <netdb.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <new>
#include <string>
#include <type_traits>
#include <vector>

#include <gtest/gtest.h>

#include "tests/support/Env.h"
#include "tests/support/NextFunction.h"

namespace {

// One call that the library made, and what the resolver answers.
struct Call {
  std::string name;
  char* buffer;
  std::size_t bytes;
  int hostErrorBefore;
};
struct Answer {
  int returned = 0;
  int hostError = 0;
  bool found = false;
  bool leavesOutputs = false;  // touches neither the result nor the host error
};

bool s_asksSystem = false;  // who is then asked, and not the test's own resolver
std::vector<Call> s_calls;
std::function<Answer(const Call&)> s_answer;

// Allocations that are large enough to be a buffer fail when they are counted down to 0; -1: never.
int s_buffersUntilFailure = -1;
std::vector<std::size_t> s_buffers;  // sizes allocated, in order

constexpr std::size_t kUnit = 1024;
constexpr int kTooSmall = 34;  // as the system's ERANGE

const Answer kNotFound{0, HOST_NOT_FOUND, false, false};
const Answer kFound{0, 0, true, false};
const Answer kAskAgain{ERANGE, kTooSmall, false, false};

class GetHostByName : public testing::Test {
 protected:
  void SetUp() override {
    s_asksSystem = false;
    s_calls.clear();
    s_buffers.clear();
    s_buffersUntilFailure = -1;
    s_answer = [](const Call&) { return kFound; };
  }

  static std::vector<std::size_t> Sizes() {
    std::vector<std::size_t> sizes;
    for (const Call& call : s_calls) sizes.push_back(call.bytes);
    return sizes;
  }
};

}  // namespace

// The program's definitions take the place of the system's for the library too.

extern "C" __attribute__((visibility("default"))) int gethostbyname_r(const char* name, hostent* entry, char* buffer,
                                                                      std::size_t bytes, hostent** result,
                                                                      int* hostError) {
  if (s_asksSystem) {
    using Resolver = int(const char*, hostent*, char*, std::size_t, hostent**, int*);
    return CorvaneTest::NextFunction<Resolver>("gethostbyname_r")(name, entry, buffer, bytes, result, hostError);
  }
  s_calls.push_back({name, buffer, bytes, *hostError});
  const Answer answer = s_answer(s_calls.back());
  if (answer.leavesOutputs) return answer.returned;
  *hostError = answer.hostError;
  *result = nullptr;
  if (answer.found) {
    std::strncpy(buffer, name, bytes - 1);
    buffer[bytes - 1] = '\0';
    *entry = hostent{};
    entry->h_name = buffer;
    *result = entry;
  }
  return answer.returned;
}

__attribute__((visibility("default"))) void* operator new[](std::size_t bytes) {
  if (bytes >= kUnit) {
    if (s_buffersUntilFailure == 0) throw std::bad_alloc();
    if (s_buffersUntilFailure > 0) --s_buffersUntilFailure;
    s_buffers.push_back(bytes);
  }
  void* const memory = std::malloc(bytes == 0 ? 1 : bytes);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}
__attribute__((visibility("default"))) void operator delete[](void* memory) noexcept { std::free(memory); }
__attribute__((visibility("default"))) void operator delete[](void* memory, std::size_t) noexcept { std::free(memory); }

namespace {

using Corvane::ZGetHostByName;
using Corvane::ZString;

static_assert(!std::is_copy_constructible_v<ZGetHostByName> && !std::is_copy_assignable_v<ZGetHostByName>);
static_assert(std::has_virtual_destructor_v<ZGetHostByName>);
static_assert(!std::is_convertible_v<const char*, ZGetHostByName>);

TEST_F(GetHostByName, DefaultConstructedObjectHasNoEntryAndAsksNobody) {
  const ZGetHostByName lookup;
  EXPECT_EQ(lookup.GetHostEnt(), nullptr);
  EXPECT_TRUE(s_calls.empty());
  EXPECT_TRUE(s_buffers.empty());
}

TEST_F(GetHostByName, ConstructorResolvesAtOnceWith1024Bytes) {
  const ZGetHostByName lookup("host.example");
  ASSERT_EQ(s_calls.size(), 1u);
  EXPECT_EQ(s_calls[0].name, "host.example");
  EXPECT_EQ(s_calls[0].bytes, kUnit);
  EXPECT_EQ(s_calls[0].hostErrorBefore, 0);
  ASSERT_NE(lookup.GetHostEnt(), nullptr);
  EXPECT_STREQ(lookup.GetHostEnt()->h_name, "host.example");
}

TEST_F(GetHostByName, InitOnDefaultConstructedObjectAllocates1024BytesBeforeTheFirstCall) {
  ZGetHostByName lookup;
  s_answer = [](const Call&) {
    EXPECT_EQ(s_buffers, std::vector<std::size_t>{kUnit});
    return kFound;
  };
  lookup.Init("host.example");
  EXPECT_EQ(Sizes(), std::vector<std::size_t>{kUnit});
  EXPECT_NE(lookup.GetHostEnt(), nullptr);
}

TEST_F(GetHostByName, WideNamesAreConvertedToTheLocalEncoding) {
  ZGetHostByName lookup(ZString(L"b\u00fccher.example"));
  lookup.Init(ZString(L"\u20ac.example"));
  ASSERT_EQ(s_calls.size(), 2u);
  EXPECT_EQ(s_calls[0].name,
            "b\xc3\xbc"
            "cher.example");
  EXPECT_EQ(s_calls[1].name, "\xe2\x82\xac.example");
}

TEST_F(GetHostByName, NarrowNamesGoAsTheyAreWithAllTheirOddBytes) {
  const std::string odd = "\x01\xff%n \xc3(";
  const ZGetHostByName lookup(odd.c_str());
  ASSERT_EQ(s_calls.size(), 1u);
  EXPECT_EQ(s_calls[0].name, odd);
}

TEST_F(GetHostByName, NameThatTheLocaleCannotExpressIsNotFoundAndDropsTheOldResult) {
  ZGetHostByName lookup("host.example");
  ASSERT_NE(lookup.GetHostEnt(), nullptr);
  const CorvaneTest::ScopedLocale c("C");
  lookup.Init(ZString(L"\u20ac.example"));
  EXPECT_EQ(lookup.GetHostEnt(), nullptr);
  lookup.Init(ZString(std::wstring(L"a\0b", 3)));
  EXPECT_EQ(lookup.GetHostEnt(), nullptr);
  EXPECT_EQ(s_calls.size(), 1u);
}

TEST_F(GetHostByName, UnknownNameLeavesNoEntryAndIsAskedOnce) {
  s_answer = [](const Call&) { return kNotFound; };
  const ZGetHostByName lookup("nobody.invalid");
  EXPECT_EQ(lookup.GetHostEnt(), nullptr);
  EXPECT_EQ(s_calls.size(), 1u);
}

TEST_F(GetHostByName, BufferGrowsByOneUnitWhileTheResolverReportsItTooSmallInItsHostError) {
  s_answer = [](const Call& call) { return call.bytes < 4 * kUnit ? kAskAgain : kFound; };
  const ZGetHostByName lookup("aliases.example");
  EXPECT_EQ(Sizes(), (std::vector<std::size_t>{1024, 2048, 3072, 4096}));
  EXPECT_EQ(s_buffers, Sizes());
  ASSERT_NE(lookup.GetHostEnt(), nullptr);
  EXPECT_EQ(lookup.GetHostEnt()->h_name, s_calls.back().buffer);
}

TEST_F(GetHostByName, ReturnValueAloneDoesNotGrowTheBuffer) {
  s_answer = [](const Call&) { return Answer{ERANGE, NETDB_INTERNAL, false, false}; };
  const ZGetHostByName lookup("aliases.example");
  EXPECT_EQ(lookup.GetHostEnt(), nullptr);
  EXPECT_EQ(s_calls.size(), 1u);
}

// Numbers need no network.
TEST_F(GetHostByName, FindsAddressesOfVersion4Only) {
  s_asksSystem = true;
  ZGetHostByName lookup("127.0.0.1");
  ASSERT_NE(lookup.GetHostEnt(), nullptr);
  EXPECT_EQ(lookup.GetHostEnt()->h_addrtype, AF_INET);
  EXPECT_EQ(lookup.GetHostEnt()->h_length, 4);
  EXPECT_EQ(std::string(lookup.GetHostEnt()->h_addr_list[0], 4), std::string("\x7F\0\0\x01", 4));
  EXPECT_EQ(lookup.GetHostEnt()->h_addr_list[1], nullptr);
  lookup.Init("::1");
  EXPECT_EQ(lookup.GetHostEnt(), nullptr);
}

TEST_F(GetHostByName, NullIsNotFoundAndAsksNobody) {
  ZGetHostByName lookup("host.example");
  ASSERT_NE(lookup.GetHostEnt(), nullptr);
  s_calls.clear();
  lookup.Init(static_cast<const char*>(nullptr));
  EXPECT_EQ(lookup.GetHostEnt(), nullptr);
  EXPECT_EQ(ZGetHostByName(static_cast<const char*>(nullptr)).GetHostEnt(), nullptr);
  EXPECT_TRUE(s_calls.empty());
}

TEST_F(GetHostByName, SuccessIsNotAskedAgainWhateverTheHostErrorSays) {
  s_answer = [](const Call&) { return Answer{0, kTooSmall, true, false}; };
  const ZGetHostByName lookup("host.example");
  EXPECT_NE(lookup.GetHostEnt(), nullptr);
  EXPECT_EQ(s_calls.size(), 1u);
}

TEST_F(GetHostByName, HostErrorOfTheFormerCallStandsWhenTheNextLeavesItAlone) {
  s_answer = [](const Call& call) {
    if (call.bytes == kUnit) return kAskAgain;
    return Answer{call.bytes < 3 * kUnit ? ERANGE : 0, 0, false, true};
  };
  const ZGetHostByName lookup("host.example");
  EXPECT_EQ(Sizes(), (std::vector<std::size_t>{1024, 2048, 3072}));
  EXPECT_EQ(s_calls[1].hostErrorBefore, kTooSmall);
  EXPECT_EQ(lookup.GetHostEnt(), nullptr);
}

TEST_F(GetHostByName, LastAttemptUses102400Bytes) {
  s_answer = [](const Call&) { return kAskAgain; };
  const ZGetHostByName lookup("endless.example");
  EXPECT_EQ(lookup.GetHostEnt(), nullptr);
  ASSERT_EQ(s_calls.size(), 100u);
  for (std::size_t i = 0; i < 100; ++i) EXPECT_EQ(s_calls[i].bytes, (i + 1) * kUnit);
  EXPECT_EQ(s_calls.back().bytes, 102400u);
}

TEST_F(GetHostByName, GrownBufferIsReusedByInitAndNeverShrinks) {
  s_answer = [](const Call& call) { return call.bytes < 3 * kUnit ? kAskAgain : kFound; };
  ZGetHostByName lookup("aliases.example");
  ASSERT_EQ(s_calls.size(), 3u);
  char* const buffer = s_calls.back().buffer;
  lookup.Init("small.example");
  ASSERT_EQ(s_calls.size(), 4u);
  EXPECT_EQ(s_calls[3].bytes, 3 * kUnit);
  EXPECT_EQ(s_calls[3].buffer, buffer);
  EXPECT_EQ(s_buffers.size(), 3u);
}

TEST_F(GetHostByName, GrownBufferGrowsOnFromItsSize) {
  s_answer = [](const Call& call) { return call.bytes < 2 * kUnit ? kAskAgain : kFound; };
  ZGetHostByName lookup("first.example");
  s_calls.clear();
  s_answer = [](const Call& call) { return call.bytes < 4 * kUnit ? kAskAgain : kFound; };
  lookup.Init("second.example");
  EXPECT_EQ(Sizes(), (std::vector<std::size_t>{2048, 3072, 4096}));
}

TEST_F(GetHostByName, SecondInitReplacesTheResult) {
  ZGetHostByName lookup("first.example");
  lookup.Init("second.example");
  ASSERT_NE(lookup.GetHostEnt(), nullptr);
  EXPECT_STREQ(lookup.GetHostEnt()->h_name, "second.example");
}

TEST_F(GetHostByName, FailedLookupDropsTheOldResultEvenIfTheResolverLeavesItAlone) {
  ZGetHostByName lookup("first.example");
  ASSERT_NE(lookup.GetHostEnt(), nullptr);
  s_answer = [](const Call&) { return Answer{EAGAIN, 0, false, true}; };
  lookup.Init("second.example");
  EXPECT_EQ(lookup.GetHostEnt(), nullptr);
}

TEST_F(GetHostByName, ConstructorPassesAFailedAllocationOn) {
  s_buffersUntilFailure = 0;
  EXPECT_THROW(ZGetHostByName("host.example"), std::bad_alloc);
  EXPECT_TRUE(s_calls.empty());
}

TEST_F(GetHostByName, FailedGrowthPassesOnAndLeavesAnObjectThatStartsAfresh) {
  ZGetHostByName lookup("host.example");
  s_calls.clear();
  s_answer = [](const Call&) { return kAskAgain; };
  s_buffersUntilFailure = 2;
  EXPECT_THROW(lookup.Init("aliases.example"), std::bad_alloc);
  EXPECT_EQ(Sizes(), (std::vector<std::size_t>{1024, 2048, 3072}));
  EXPECT_EQ(lookup.GetHostEnt(), nullptr);

  s_buffersUntilFailure = -1;
  s_calls.clear();
  s_answer = [](const Call&) { return kFound; };
  lookup.Init("host.example");
  EXPECT_EQ(Sizes(), std::vector<std::size_t>{kUnit});
  EXPECT_NE(lookup.GetHostEnt(), nullptr);
}

}  // namespace
