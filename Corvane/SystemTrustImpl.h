#pragma once

#include <initializer_list>

#include <Corvane/SystemTrust.h>

namespace Corvane {

// ZFindSystemTrust over other places.
[[nodiscard]] ZSystemTrust FindTrust(std::initializer_list<const char*> directories,
                                     std::initializer_list<const char*> files);

}  // namespace Corvane
