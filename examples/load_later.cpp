// load_later PLUGIN URL FILE: loads the library when it is needed, downloads a file, and unloads it again.
//
// Shows a host that is not linked to the library: it loads a plugin of its own (load_later_plugin.cpp), which is, and so
// libcurl and its kin are in the process only meanwhile. The host is linked to the small base library here, for one
// reason: to show that the module and its messages come and go.

#include <dlfcn.h>

#include <cstdio>

#include <Corvane/Base/Module.h>
#include <Corvane/Base/StringCoding.h>

namespace {

void ShowModules(const char* when) {
  std::printf("%s:", when);
  for (const Corvane::ZModule& module : Corvane::ZModuleRegistry::GetModules()) {
    std::printf(" %s", Corvane::ZStringEncoder(module.GetName(), Corvane::ZStringEncoder::Utf8).CStr());
  }
  std::printf("\n");
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) return 2;
  ShowModules("before");
  void* const plugin = dlopen(argv[1], RTLD_NOW | RTLD_LOCAL);
  if (plugin == nullptr) {
    std::fprintf(stderr, "%s\n", dlerror());
    return 2;
  }
  ShowModules("loaded");
  auto* const fetch = reinterpret_cast<unsigned int (*)(const char*, const char*)>(dlsym(plugin, "Fetch"));
  if (fetch == nullptr) {
    std::fprintf(stderr, "%s\n", dlerror());
    dlclose(plugin);
    return 2;
  }
  const unsigned int result = fetch(argv[2], argv[3]);
  std::printf("result 0x%08x\n", result);
  // No object of the library may exist any more, and no operation run.
  if (dlclose(plugin) != 0) return 1;
  ShowModules("after");
  return result >> 30 == 2 ? 1 : 0;
}
