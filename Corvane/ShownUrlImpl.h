#pragma once

#include <Corvane/Base/String.h>

namespace Corvane {

// The URL as messages show it: what stands for a password between ":" and "@" is replaced by "***".
[[nodiscard]] ZString ShownUrl(const ZString& url);

}  // namespace Corvane
