#include "tests/abort/AbortTesting.h"

#include <cctype>
#include <chrono>
#include <cstdio>
#include <fstream>

namespace CorvaneTest {

using Corvane::ZTransfer;

AbortedOutcome AbortedWithoutAnswer(const std::string& url) {
  return {Corvane::TRANSFER_E_CONNECT, MessageOf(Corvane::TRANSFER_E_CONNECT) + ", " + url + "\n"};
}

namespace {

// Property names become attributes of the XML report, where only letters, digits and the underscore are safe.
std::string PropertyName(const std::string& phase) {
  std::string name = "ms_";
  for (const char c : phase) name += std::isalnum(static_cast<unsigned char>(c)) != 0 ? c : '_';
  return name;
}

}  // namespace

void ExpectAbortEnds(const std::string& phase, ZTransfer& transfer, RunningOperation& operation,
                     const AbortedOutcome& outcome) {
  const auto begin = Clock::now();
  EXPECT_THAT(transfer.Abort(), IsCode(Corvane::BASE_S_OK)) << phase;
  const auto result = operation.Result(begin + kAbortLimit);
  const auto milliseconds = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - begin).count();
  std::printf("[ ABORTED  ] %-48s %6lld ms\n", phase.c_str(), static_cast<long long>(milliseconds));
  testing::Test::RecordProperty(PropertyName(phase), std::to_string(milliseconds));
  ASSERT_TRUE(result) << phase << ": the operation runs on";
  EXPECT_THAT(*result, IsCode(outcome.code)) << phase;
  EXPECT_THAT(transfer.GetStatus(), IsCode(outcome.code)) << phase;
  EXPECT_THAT(ErrorOf(transfer), testing::StartsWith(outcome.text)) << phase;
  EXPECT_TRUE(transfer.Wait(0)) << phase;
}

int PendingConnections(unsigned int port) {
  constexpr unsigned int kSynSent = 2;
  std::ifstream table("/proc/net/tcp");
  std::string line;
  int count = 0;
  while (std::getline(table, line)) {
    unsigned int address = 0;
    unsigned int remotePort = 0;
    unsigned int state = 0;
    const int fields = std::sscanf(line.c_str(), " %*d: %*x:%*x %x:%x %x", &address, &remotePort, &state);
    if (fields == 3 && remotePort == port && state == kSynSent) ++count;
  }
  return count;
}

}  // namespace CorvaneTest
