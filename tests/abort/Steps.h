#pragma once

#include <functional>
#include <string>

namespace CorvaneTest {

// What the current thread does when the library, running on it, comes to a step of its own that this program stands in
// for: "setopt 13" (the number of libcurl's option), "perform", "reset" or "sleep" (of the throttle, which is over as
// soon as the hook has returned). Called before the step, and for "setopt" also after it, with isAfter.
using StepHook = std::function<void(const std::string& step, bool isAfter)>;

// Installs a hook for the current thread while it lives. Steps that other threads do, or that the hook itself does, are
// not told.
class ScopedStepHook {
 public:
  explicit ScopedStepHook(StepHook hook);
  ~ScopedStepHook();
  ScopedStepHook(const ScopedStepHook&) = delete;
  ScopedStepHook& operator=(const ScopedStepHook&) = delete;
};

}  // namespace CorvaneTest
