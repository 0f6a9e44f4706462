#pragma once

#include <string>

#include <Corvane/Transfer.h>

#include "tests/loopback/TransferTesting.h"

namespace CorvaneTest {

// What an aborted operation tells.
struct AbortedOutcome {
  Corvane::ZResult code = Corvane::TRANSFER_E_ABORTED;
  std::string text = "Download aborted by user";  // the beginning of the text
};

// What a download into a file tells that was aborted before a good answer came.
AbortedOutcome AbortedWithoutAnswer(const std::string& url);

// Aborts `operation`, which is in the phase of this name, on the calling thread, and expects it to end in time with the
// outcome. The milliseconds it took are recorded as a property of the test and printed in a line of their own.
void ExpectAbortEnds(const std::string& phase, Corvane::ZTransfer& transfer, RunningOperation& operation,
                     const AbortedOutcome& outcome = {});

// The number of connection attempts to this port of 127.0.0.1 that the other side has not answered.
int PendingConnections(unsigned int port);

}  // namespace CorvaneTest
