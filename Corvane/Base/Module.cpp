#include <Corvane/Base/Module.h>

#include <algorithm>
#include <mutex>
#include <utility>

namespace Corvane {

namespace {

// In the order of the names. Both are initialised by the compiler, so they are there before any library that depends on
// this one is loaded, and they outlive it: the loader runs a library's static destructors after its dependents'.
constinit std::vector<ZModule> registeredModules;  // guarded by registryMutex
constinit std::mutex registryMutex;

std::vector<ZModule>::iterator FindPlace(const ZString& name) {
  return std::lower_bound(registeredModules.begin(), registeredModules.end(), name,
                          [](const ZModule& module, const ZString& sought) { return module.GetName() < sought; });
}

bool IsAt(std::vector<ZModule>::iterator place, const ZString& name) {
  return place != registeredModules.end() && place->GetName() == name;
}

}  // namespace

ZVersion::ZVersion(const ZString& text) {
  if (text.IsEmpty()) return;
  ZString::size_type begin = 0;
  for (;;) {
    const ZString::size_type end = text.Find(L'.', begin);
    const ZString::size_type length = end == ZString::npos ? ZString::npos : end - begin;
    m_components.push_back(text.Substr(begin, length).ToULong());
    if (end == ZString::npos) return;
    begin = end + 1;
  }
}

int ZVersion::Compare(const ZVersion& other) const noexcept {
  const std::size_t count = std::max(m_components.size(), other.m_components.size());
  for (std::size_t i = 0; i < count; ++i) {
    const unsigned long mine = i < m_components.size() ? m_components[i] : 0;
    const unsigned long theirs = i < other.m_components.size() ? other.m_components[i] : 0;
    if (mine != theirs) return mine < theirs ? -1 : 1;
  }
  return 0;
}

ZString ZVersion::ToString() const {
  ZString text;
  for (std::size_t i = 0; i < m_components.size(); ++i) {
    if (i > 0) text.Append(L'.');
    text.Append(ZString().SetNum(m_components[i]));
  }
  return text;
}

ZModule::ZModule(ZString name) : m_name(std::move(name)) {}

ZModule& ZModule::SetVersion(const ZVersion& version) {
  m_version = version;
  return *this;
}

void ZModuleRegistry::Register(const ZModule& module) {
  const std::lock_guard<std::mutex> lock(registryMutex);
  const auto place = FindPlace(module.GetName());
  if (IsAt(place, module.GetName())) {
    *place = module;
  } else {
    registeredModules.insert(place, module);
  }
}

void ZModuleRegistry::Unregister(const ZString& name) {
  const std::lock_guard<std::mutex> lock(registryMutex);
  const auto place = FindPlace(name);
  if (IsAt(place, name)) registeredModules.erase(place);
}

std::vector<ZModule> ZModuleRegistry::GetModules() {
  const std::lock_guard<std::mutex> lock(registryMutex);
  return registeredModules;
}

}  // namespace Corvane
