#include <Corvane/Base/Module.h>

namespace Corvane {
namespace {

// Announces the library to the module registry while it is loaded.
class ModuleLifetime {
 public:
  ModuleLifetime() {
    ZModule module(L"com.corvane.network");
    module.SetVersion(ZVersion("6.2.1591"));
    m_name = module.GetName();
    ZModuleRegistry::Register(module);
  }
  ~ModuleLifetime() { ZModuleRegistry::Unregister(m_name); }
  ModuleLifetime(const ModuleLifetime&) = delete;
  ModuleLifetime& operator=(const ModuleLifetime&) = delete;

 private:
  ZString m_name;  // kept for the unload: the registry knows modules by name
};
const ModuleLifetime sm_ModuleLifetime;

}  // namespace
}  // namespace Corvane
