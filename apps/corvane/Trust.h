#pragma once

#include <string>

#include <Corvane/Base/String.h>
#include <Corvane/SystemTrust.h>

namespace CorvaneCli {

// Where trusted certificates are; exactly one of the two is set.
struct TrustStore {
  Corvane::ZString file;       // PEM
  Corvane::ZString directory;  // names as openssl-rehash(1) makes them
};

// The system's own. Throws Failure(kSecurity), naming the remedy, when there is none.
[[nodiscard]] TrustStore UseSystemTrust(const Corvane::ZSystemTrust& found = Corvane::ZFindSystemTrust());

// The same for a URL of http, which may lead to https. On a system without any, everything there is refused: the library takes
// an empty store for none, and would go on unverified.
[[nodiscard]] TrustStore UseSystemTrustForRedirects(const Corvane::ZSystemTrust& found = Corvane::ZFindSystemTrust());

// What --cacert and --capath name. Throw Failure(kSecurity) when it cannot be used: the library would go on unverified.
[[nodiscard]] TrustStore UseTrustFile(const std::string& path);
[[nodiscard]] TrustStore UseTrustDirectory(const std::string& path);

}  // namespace CorvaneCli
