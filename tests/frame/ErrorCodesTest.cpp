#include <Corvane/TransferErrorCodes.h>

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include <Corvane/Base/ErrorDict.h>

namespace Corvane {
namespace {

struct Row {
  const char* name;
  ZResult code;
  unsigned int value;
  const wchar_t* message;
};

// In the order of the table.
constexpr Row kRows[] = {
    {"TRANSFER_S_FINISHED", TRANSFER_S_FINISHED, 0x00010000, L"Transfer has finished successfully"},
    {"TRANSFER_E_SYSTEM_INIT", TRANSFER_E_SYSTEM_INIT, 0x80011000, L"System library initialization failure"},
    {"TRANSFER_E_NOT_STARTED", TRANSFER_E_NOT_STARTED, 0x80011001, L"Download not started yet"},
    {"TRANSFER_E_IN_PROGRESS", TRANSFER_E_IN_PROGRESS, 0x80011002, L"Download is currently in progress"},
    {"TRANSFER_E_ABORTED", TRANSFER_E_ABORTED, 0x80011003, L"Download aborted by user"},
    {"TRANSFER_E_BLOCKED", TRANSFER_E_BLOCKED, 0x80011388, L"Download is blocked due to client policy settings"},
    {"TRANSFER_E_CONNECT", TRANSFER_E_CONNECT, 0x80011389, L"Failed to connect to the specified URL"},
    {"TRANSFER_E_DOWNLOAD", TRANSFER_E_DOWNLOAD, 0x8001138A, L"Download failed"},
    {"TRANSFER_E_POST", TRANSFER_E_POST, 0x8001138B, L"Post failed"},
    {"TRANSFER_E_DISK_SPACE", TRANSFER_E_DISK_SPACE, 0x8001138C, L"Insufficient disk space"},
    {"TRANSFER_E_INVALID_URL", TRANSFER_E_INVALID_URL, 0x8001138D, L"Invalid URL"},
    {"TRANSFER_E_SIZE_MISMATCH", TRANSFER_E_SIZE_MISMATCH, 0x8001138E, L"Download file size mismatch"},
};

bool HasMessage(ZResult code) { return !ZGetErrorMsg(code).StartsWith(L"Unknown error 0x"); }

TEST(TransferErrorCodes, HaveTheirFixedValues) {
  for (const Row& row : kRows) EXPECT_EQ(row.code, row.value) << row.name;
}

TEST(TransferErrorCodes, HaveTheirExactMessages) {
  for (const Row& row : kRows) EXPECT_EQ(ZGetErrorMsg(row.value).Str(), row.message) << row.name;
}

TEST(TransferErrorCodes, AreTwelveInTheDictionary) {
  EXPECT_EQ(std::size(kRows), 12u);
  EXPECT_EQ(ZErrorDict::CountMessages(1), 12u);
}

TEST(TransferErrorCodes, CarryFacilityOne) {
  EXPECT_EQ(TRANSFER_FACILITY, 1u);
  for (const Row& row : kRows) EXPECT_EQ(row.code >> 16 & 0x7FFu, 1u) << row.name;
}

TEST(TransferErrorCodes, AreFailuresAllButTheFirst) {
  for (const Row& row : kRows) {
    EXPECT_EQ(row.code >> 30, row.code == 0x00010000 ? 0u : 2u) << row.name;
    EXPECT_EQ(IsFailure(row.code), row.code != 0x00010000) << row.name;
  }
}

TEST(TransferErrorCodes, RiseInTheOrderOfTheTable) {
  for (std::size_t i = 1; i < std::size(kRows); ++i) EXPECT_LT(kRows[i - 1].code, kRows[i].code) << kRows[i].name;
}

// The gap between the states of a transfer and the reasons of a failure is deliberate, and libcurl's codes share the
// facility: every code but the twelve, both severities, has to be unknown.
TEST(TransferErrorCodes, LeaveEveryOtherCodeOfTheFacilityWithoutMessage) {
  std::vector<ZResult> known;
  for (const unsigned int base : {0x00010000u, 0x80010000u}) {
    for (unsigned int code = 0; code <= 0xFFFF; ++code) {
      if (HasMessage(base | code)) known.push_back(base | code);
    }
  }
  std::vector<ZResult> expected;
  for (const Row& row : kRows) expected.push_back(row.code);
  EXPECT_EQ(known, expected);
}

TEST(TransferErrorCodes, LibcurlFailureSevenIsReportedWithoutEntry) {
  EXPECT_EQ(TRANSFER_E_CURL_BASE, 0x80010000u);
  EXPECT_EQ(TRANSFER_E_CURL_BASE | 7u, 0x80010007u);
  EXPECT_EQ(ZGetErrorMsg(0x80010007u).Str(), L"Unknown error 0x80010007");
}

TEST(TransferErrorCodes, CanBeLoadedAnyNumberOfTimes) {
  for (int call = 0; call < 1000; ++call) LoadErrorCodes_TRANSFER();
  EXPECT_EQ(ZErrorDict::CountMessages(1), 12u);
  EXPECT_EQ(ZGetErrorMsg(TRANSFER_E_ABORTED).Str(), L"Download aborted by user");
}

TEST(TransferErrorCodes, CanBeLoadedAndReadByManyThreads) {
  std::vector<std::thread> threads;
  std::vector<int> wrong(16, 0);
  for (int& mine : wrong) {
    threads.emplace_back([&mine] {
      for (int call = 0; call < 200; ++call) {
        LoadErrorCodes_TRANSFER();
        for (const Row& row : kRows) mine += ZGetErrorMsg(row.value).Str() != row.message;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(wrong, std::vector<int>(16, 0));
  EXPECT_EQ(ZErrorDict::CountMessages(1), 12u);
}

}  // namespace
}  // namespace Corvane
