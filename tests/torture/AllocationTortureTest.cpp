#include <gmock/gmock.h>

#include <iostream>

#include "tests/torture/Torture.h"

// Memory that runs out, at every allocation of every run.
namespace CorvaneTest {
namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kIsSlow = true;
#else
constexpr bool kIsSlow = false;
#endif

class AllocationTorture : public testing::TestWithParam<RunKind> {
 protected:
  void FailEach(Target target, std::size_t stride, Fault fault = {}) {
    Torture torture(GetParam());
    ASSERT_FALSE(HasFailure()) << "it fails without any failure";
    const std::size_t calls = torture.Count(target);
    const Tally tally = torture.FailEach(target, fault, stride);
    std::cout << "[ torture  ] " << GetParam().name << ", " << NameOf(target) << ": " << tally;
    if (stride != 1) std::cout << " (every " << stride << "th)";
    std::cout << std::endl;
    // The number of allocations varies with how the data comes in, but not by much.
    EXPECT_GT(calls, 5U);
    EXPECT_GT(tally.injected * stride, calls / 2);
    EXPECT_GT(tally.reported + tally.thrown, 0U);
  }
};

TEST_P(AllocationTorture, OfTheLibrary) { FailEach(Target::kLibraryMemory, 1); }

TEST_P(AllocationTorture, OfTheLibraryAndNoneAfterIt) {
  FailEach(Target::kLibraryMemory, 1, {.error = 0, .isShort = false, .isLasting = true});
}

// A handshake asks for memory thousands of times, and where OpenSSL loses what it was about to send both sides wait for the limit.
TEST_P(AllocationTorture, OfLibcurlAndOpenSslToo) {
  const bool isTls = std::string_view(GetParam().name) == "DownloadOverTls";
  FailEach(Target::kAllMemory, kIsSlow || isTls ? 7 : 1);
}

INSTANTIATE_TEST_SUITE_P(Runs, AllocationTorture, testing::ValuesIn(AllRuns()),
                         [](const auto& run) { return std::string(run.param.name); });

}  // namespace
}  // namespace CorvaneTest
