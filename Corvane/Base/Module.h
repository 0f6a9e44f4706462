#pragma once

#include <vector>

#include <Corvane/Base/Export.h>
#include <Corvane/Base/String.h>

namespace Corvane {

// A dotted version number such as "6.2.1591". Thread safety and errors: as ZString.
class CORVANE_ZPS_API ZVersion {
 public:
  ZVersion() = default;  // of no components
  // Parses numbers separated by dots; a component without digits counts as 0, and what follows the digits is ignored.
  explicit ZVersion(const ZString& text);

  // Negative, 0 or positive; components that one of the two lacks count as 0.
  [[nodiscard]] int Compare(const ZVersion& other) const noexcept;
  // The components as numbers, separated by dots; empty for an empty text and a default version.
  [[nodiscard]] ZString ToString() const;

 private:
  std::vector<unsigned long> m_components;
};

// A loaded module: a name in reverse-domain form and a version. Thread safety and errors: as ZString.
class CORVANE_ZPS_API ZModule {
 public:
  ZModule() = default;             // of no name and no version
  explicit ZModule(ZString name);  // of no version

  // Replaces the version, and returns this module.
  ZModule& SetVersion(const ZVersion& version);
  // Valid as long as the object.
  [[nodiscard]] const ZString& GetName() const noexcept { return m_name; }
  // Valid as long as the object, in which SetVersion replaces it.
  [[nodiscard]] const ZVersion& GetVersion() const noexcept { return m_version; }

 private:
  ZString m_name;
  ZVersion m_version;
};

// The modules that are loaded into the process, by name.
// Thread safety: all operations from any thread at any time, static initialisers and destructors included. Errors: only
// std::bad_alloc.
class CORVANE_ZPS_API ZModuleRegistry {
 public:
  // Adds `module`, or replaces the one of the same name.
  static void Register(const ZModule& module);
  // Removes the module of that name; nothing happens when there is none.
  static void Unregister(const ZString& name);
  // The registered modules in the order of their names.
  [[nodiscard]] static std::vector<ZModule> GetModules();
};

}  // namespace Corvane
