#include "tests/frame/Registrations.h"

#include <utility>

#include "tests/support/NextFunction.h"

namespace CorvaneTest {
namespace {

std::function<void(const RegistrationCall&)> watcher;
thread_local int depth = 0;

// The base library may implement one of the operations by another.
class Nesting {
 public:
  Nesting() { ++depth; }
  ~Nesting() { --depth; }
  Nesting(const Nesting&) = delete;
  Nesting& operator=(const Nesting&) = delete;
};

void Report(const RegistrationCall& call) {
  if (depth == 1 && watcher) watcher(call);
}

}  // namespace

void WatchRegistrations(std::function<void(const RegistrationCall&)> watch) { watcher = std::move(watch); }

}  // namespace CorvaneTest

namespace Corvane {

using CorvaneTest::Nesting;
using CorvaneTest::NextFunction;
using CorvaneTest::Registration;

CORVANE_TEST_REPLACES void ZModuleRegistry::Register(const ZModule& module) {
  const Nesting nesting;
  CorvaneTest::Report({Registration::RegisterModule, module.GetName()});
  NextFunction<void(const ZModule&)>("_ZN7Corvane15ZModuleRegistry8RegisterERKNS_7ZModuleE")(module);
}

CORVANE_TEST_REPLACES void ZModuleRegistry::Unregister(const ZString& name) {
  const Nesting nesting;
  CorvaneTest::Report({Registration::UnregisterModule, name});
  NextFunction<void(const ZString&)>("_ZN7Corvane15ZModuleRegistry10UnregisterERKNS_7ZStringE")(name);
}

CORVANE_TEST_REPLACES void ZErrorDict::Register(unsigned int facility, const ZErrorMap* map) {
  const Nesting nesting;
  CorvaneTest::Report({Registration::RegisterCodes, ZString(), facility, map});
  NextFunction<void(unsigned int, const ZErrorMap*)>(
      "_ZN7Corvane10ZErrorDict8RegisterEjPKSt3mapIjNS_7ZStringESt4lessIjESaISt4pairIKjS2_EEE")(facility, map);
}

CORVANE_TEST_REPLACES void ZErrorDict::Unregister(unsigned int facility) {
  const Nesting nesting;
  CorvaneTest::Report({Registration::UnregisterCodes, ZString(), facility});
  NextFunction<void(unsigned int)>("_ZN7Corvane10ZErrorDict10UnregisterEj")(facility);
}

CORVANE_TEST_REPLACES void ZErrorDict::Unregister(unsigned int facility, const ZErrorMap* map) {
  const Nesting nesting;
  CorvaneTest::Report({Registration::UnregisterCodes, ZString(), facility, map});
  NextFunction<void(unsigned int, const ZErrorMap*)>(
      "_ZN7Corvane10ZErrorDict10UnregisterEjPKSt3mapIjNS_7ZStringESt4lessIjESaISt4pairIKjS2_EEE")(facility, map);
}

}  // namespace Corvane
