#pragma once

#include <functional>
#include <string>
#include <vector>

#include <Corvane/Transfer.h>

#include "tests/recorder/CurlRecorder.h"
#include "tests/support/TempDir.h"

namespace CorvaneTest {

// An option that libcurl must get, as OptionCall::Describe puts it, and the function that answers for it in the log.
struct ExpectedOption {
  std::string text;
  std::string who;
};

// One operation, and every option that it hands to libcurl, in order.
struct Scenario {
  std::string name{};
  std::function<void(Corvane::ZTransfer&)> configure{};  // settings before the operation; may be empty
  std::function<void()> prepare{};                       // files before the operation; may be empty
  std::function<Corvane::ZResult(Corvane::ZTransfer&, Corvane::ZString& result)> run{};
  std::vector<ExpectedOption> options{};
  Answer answer{};              // a good one
  bool isFileOverHttp = false;  // a download into a file reports any end without a good answer in its own way
};

// Files of the scenarios lie in `folder`, which must outlive them: "out" is what a file download writes, "in" what a
// post reads, "ca.pem" and "certs" exist.
std::vector<Scenario> AllScenarios(const TempDir& folder);

std::vector<std::string> Texts(const std::vector<ExpectedOption>& options);

// The options that begin every request: the URL, its flags, the write function, the resume position, the error buffer.
std::vector<ExpectedOption> Basics(const std::string& url, const std::string& position = "0");
// Those that follow for a URL that begins with "http".
std::vector<ExpectedOption> HeaderCollection();
std::vector<ExpectedOption> Limits(const std::string& seconds);
std::vector<ExpectedOption> From(const std::string& who, const std::vector<std::string>& texts);
std::vector<ExpectedOption> operator+(std::vector<ExpectedOption> first, const std::vector<ExpectedOption>& second);

}  // namespace CorvaneTest
