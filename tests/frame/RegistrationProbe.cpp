// A shared object that looks into the base library's registries, for a program that links neither library.

#include <cstddef>
#include <cstring>
#include <string>
#include <vector>

#include <Corvane/Base/ErrorDict.h>
#include <Corvane/Base/Module.h>

#define CORVANE_TEST_PLUGIN extern "C" __attribute__((visibility("default")))

CORVANE_TEST_PLUGIN std::size_t ProbeMessages(unsigned int facility) {
  return Corvane::ZErrorDict::CountMessages(facility);
}

// The number of registered modules whose name ends in ".network" and whose version is 6.2.1591.
CORVANE_TEST_PLUGIN std::size_t ProbeModules() {
  constexpr wchar_t kEnding[] = L".network";
  const std::size_t length = std::size(kEnding) - 1;
  std::size_t count = 0;
  for (const Corvane::ZModule& module : Corvane::ZModuleRegistry::GetModules()) {
    const std::wstring& name = module.GetName().Str();
    const bool ends = name.size() > length && name.compare(name.size() - length, length, kEnding) == 0;
    count += ends && module.GetVersion().ToString() == Corvane::ZString(L"6.2.1591");
  }
  return count;
}
