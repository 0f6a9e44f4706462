#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tests/loopback/TransferTesting.h"

// What becomes of an operation on a server that misbehaves.
namespace CorvaneTest {

// A code with its text. In an expected text "*" stands for any characters.
struct Ending {
  Corvane::ZResult code = Corvane::TRANSFER_S_FINISHED;
  std::string text;
};

// Everything that is looked at. An expectation has one or more ends, what was observed has one.
struct Outcome {
  std::vector<Ending> ends;
  std::optional<Corvane::ZResult>
      cause;             // of libcurl; told by transfers and mirrors; expected: none where chance decides
  std::string received;  // handed back as text
  std::optional<std::string> file;
  unsigned long long contentSize = 0;   // transfers
  unsigned long long downloadSize = 0;  // transfers and mirrors
  std::vector<RecordingObserver::Event> events;
  std::string counts;      // of files and bytes: mirrors and trees
  bool isEndless = false;  // expected: any number of bytes 'x' in place of the content
};

// What differs, a line each; empty when nothing does.
std::string Difference(const Outcome& expected, const Outcome& observed);

}  // namespace CorvaneTest
