#pragma once

#include <Corvane/Base/String.h>

#include "apps/corvane/JsonReport.h"

namespace CorvaneCli {

// Asks the system's resolver for `host`, a name or an address, that of IPv6 also in brackets. Fills the report's name, aliases and
// addresses: those of IPv4 first, then the others in the resolver's order, none twice; and returns whether there are any. Takes as
// long as the resolver does.
[[nodiscard]] bool LookUpHost(const Corvane::ZString& host, HostReport& report);

}  // namespace CorvaneCli
