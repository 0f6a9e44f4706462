#pragma once

#include <string>

namespace CorvaneTest {

// Ends the process when a test hangs, with a line that says where; and says where when it crashes. One at a time.
class Watch {
 public:
  explicit Watch(const std::string& what);
  ~Watch();
  Watch(const Watch&) = delete;
  Watch& operator=(const Watch&) = delete;
};

}  // namespace CorvaneTest
