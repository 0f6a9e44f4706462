#pragma once

#include <functional>

#include <Corvane/Base/ErrorDict.h>
#include <Corvane/Base/Module.h>

// The program's own definitions of the base library's registrations, linked with Registrations.cpp.
namespace CorvaneTest {

enum class Registration { RegisterModule, UnregisterModule, RegisterCodes, UnregisterCodes };

struct RegistrationCall {
  Registration what;
  Corvane::ZString module;                  // for modules: the name
  unsigned int facility = 0;                // for codes
  const Corvane::ZErrorMap* map = nullptr;  // for codes: the one to register, or the only one to withdraw
};

// Called before each call is passed on to the base library, also for calls of the library under test while it is being
// loaded and unloaded. A call that the base library makes of itself inside another is not reported.
void WatchRegistrations(std::function<void(const RegistrationCall&)> watch);

}  // namespace CorvaneTest
