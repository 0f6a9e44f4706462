#pragma once

#include <Corvane/Base/String.h>

namespace Corvane {

// The URL as messages show it: what stands for a password between ":" and "@" is replaced by "***".
[[nodiscard]] ZString ShownUrl(const ZString& url);

// The text with all URLs in it as messages show them, also those without a scheme that begin with "//". A URL ends at a blank,
// unless the text is known to hold only one: `withBlanks`.
[[nodiscard]] ZString ShownUrls(const ZString& text, bool withBlanks = false);

}  // namespace Corvane
