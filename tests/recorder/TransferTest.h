#pragma once

#include <string>

#include <gmock/gmock.h>

#include "tests/recorder/CurlRecorder.h"
#include "tests/recorder/HostDoubles.h"
#include "tests/recorder/ScriptedTime.h"
#include "tests/support/TempDir.h"

namespace CorvaneTest {

using Corvane::IsFailure;
using Corvane::ZLogLevel;
using Corvane::ZResult;
using Corvane::ZString;
using Corvane::ZTransfer;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;
using Fields = Corvane::ZMap<ZString, ZString, Corvane::ZLtstr>;

inline constexpr ZResult kCurl = Corvane::TRANSFER_E_CURL_BASE;
inline constexpr unsigned long long kUnknown = ~0ULL;  // a size that nobody has told
inline constexpr ZResult kFinished = Corvane::TRANSFER_S_FINISHED;

// A recorder whose requests succeed with an empty answer, and a logger.
class TransferTest : public testing::Test {
 protected:
  TransferTest() { curl.Respond(200, {}); }

  // The scripts of a test refer to what it has on its stack, and an object of the fixture still sets options at its end.
  void TearDown() override {
    curl.onOption = nullptr;
    curl.afterOption = nullptr;
    logger.onWrite = nullptr;
  }

  // The path of a file in the test's own folder, as the library takes it.
  [[nodiscard]] ZString Path(const std::string& name) const { return ZString((folder / name).c_str()); }

  TempDir folder;
  CurlRecorder curl;
  RecordingLogger logger;
};

// Whether the process has the file open.
bool IsOpen(const std::filesystem::path& path);

// Code and text of an object's last operation, as "0x80011003 Download aborted by user".
std::string Outcome(const ZTransfer& transfer);

}  // namespace CorvaneTest
