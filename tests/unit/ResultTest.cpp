#include <Corvane/Base/Result.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <limits>

namespace Corvane {
namespace {

struct CodeCase {
  ZResult code;
  bool isFailure;
  unsigned int facility;
};
constexpr CodeCase kCodeCases[] = {
    {0x00000000, false, 0},     {0x00010000, false, 1},    {0x00000001, false, 0},    {0x40000000, false, 0},
    {0x7FFFFFFF, false, 0x7FF}, {0x80000000, true, 0},     {0x80010007, true, 1},     {0x8001138E, true, 1},
    {0x87FFFFFF, true, 0x7FF},  {0x88000000, true, 0},     {0xBFFFFFFF, true, 0x7FF}, {0xC0000000, false, 0},
    {0xFFFFFFFF, false, 0x7FF}, {0x8400FFFF, true, 0x400}, {0x8000FFFF, true, 0},
};

TEST(ZResult, IsAFailureWhenTheTopTwoBitsAreOneAndZero) {
  for (const CodeCase& c : kCodeCases) EXPECT_EQ(IsFailure(c.code), c.isFailure) << std::hex << c.code;
}

TEST(ZResult, HasItsFacilityInElevenBits) {
  for (const CodeCase& c : kCodeCases) EXPECT_EQ(FacilityOf(c.code), c.facility) << std::hex << c.code;
}

TEST(ZResult, CanBeExaminedAtCompileTime) {
  static_assert(IsFailure(BASE_E_BUSY) && !IsFailure(BASE_S_OK) && FacilityOf(BASE_E_BUSY) == 0);
}

// Programs and scripts know these numbers; they never change.
TEST(ZResult, HasFixedNumbers) {
  EXPECT_EQ(BASE_S_OK, 0u);
  EXPECT_EQ(BASE_E_IN_USE, 0x80000008);
  EXPECT_EQ(BASE_E_BUSY, 0x8000005E);
  EXPECT_EQ(BASE_E_TIMEOUT, 0x80000100);
  EXPECT_EQ(BASE_E_END_OF_STREAM, 0x80000101);
  EXPECT_EQ(BASE_E_INVALID_NAME, 0x80000102);
  EXPECT_EQ(BASE_E_NOT_A_FILE, 0x80000103);
  EXPECT_EQ(BASE_E_ERRNO, 0x80001000);
}

struct ErrnoCase {
  int error;
  ZResult code;
};
constexpr ErrnoCase kErrnoCases[] = {
    {0, BASE_S_OK},
    {ENOENT, BASE_E_ERRNO + ENOENT},
    {ENOSPC, BASE_E_ERRNO + ENOSPC},
    {4095, 0x80001FFF},
    {4096, BASE_E_ERRNO + EIO},
    {-1, BASE_E_ERRNO + EIO},
    {std::numeric_limits<int>::max(), BASE_E_ERRNO + EIO},
    {std::numeric_limits<int>::min(), BASE_E_ERRNO + EIO},
};

TEST(ZResult, ReportsErrnoValues) {
  for (const ErrnoCase& c : kErrnoCases) EXPECT_EQ(ResultFromErrno(c.error), c.code) << c.error;
}

TEST(ZResult, ReportsEveryErrnoButZeroAsAFailureOfFacilityZero) {
  for (int error = 1; error <= 4096; ++error) {
    EXPECT_TRUE(IsFailure(ResultFromErrno(error))) << error;
    EXPECT_EQ(FacilityOf(ResultFromErrno(error)), 0u) << error;
  }
}

}  // namespace
}  // namespace Corvane
