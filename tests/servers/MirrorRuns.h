#pragma once

#include <string>

#include "tests/mirror/MirrorTesting.h"
#include "tests/servers/MirrorTree.h"

// What the tests of ZMultiDownload share beyond the servers.
namespace CorvaneTest {

Sizes SizeListOf(const Files& files);

struct Outcome {
  Corvane::ZResult code = 0;
  std::string error;
  unsigned long long downloadSize = 0;
};

// As another start of a host would: with an object of its own.
Outcome MirrorAfresh(const std::string& url, const std::filesystem::path& folder, bool resume, const Sizes& sizes = {},
                     const Times& times = {});

// Runs an action at the first data of the transfer with this number; the listing is the first.
class AtTransfer : public Corvane::ZTransfer::Observer {
 public:
  AtTransfer(int number, std::function<void()> action) : m_left(number), m_action(std::move(action)) {}
  void Update(int /*event*/, long /*value*/) override {
    if (--m_left == 0) m_action();
  }

 private:
  int m_left;
  std::function<void()> m_action;
};

}  // namespace CorvaneTest
