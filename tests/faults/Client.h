#pragma once

#include <functional>
#include <string>

#include "tests/faults/Operations.h"
#include "tests/faults/Outcome.h"
#include "tests/support/Gate.h"

namespace CorvaneTest {

// Where an operation finds things.
struct Targets {
  std::string page;      // of the directory that holds kFileName
  std::string file;      // its URL
  std::string goodPage;  // likewise of kGoodName, on which nothing is wrong
  std::string goodFile;
};

// What is set before the operation. A tree's pages may be no longer than kMostPageBytes, and nothing is tried again.
inline constexpr unsigned long long kMostPageBytes = 1000000;
struct Conditions {
  unsigned long timeoutSeconds = 300;
  bool hasLogin = false;          // "user" with "password"
  unsigned int redirects = 0;     // that a transfer follows; a tree follows its own
  bool verifies = false;          // servers, by the authority of ThePki() ...
  bool trustsOther = false;       // ... or by another one
  const Gate* abortAt = nullptr;  // the operation is aborted once this is open
};

struct Observation {
  Outcome outcome;
  std::string header;  // as the transfer or the mirror told it
  bool isIdle = false;
  std::string afterwards;  // what was wrong with a good download of the same object; empty when nothing was
};

// Runs the operation on an object of its own, then `recover`, then a good download on the same object.
Observation Run(Op op, const Targets& targets, const Conditions& conditions, const std::function<void()>& recover);

}  // namespace CorvaneTest
