#pragma once

#include <initializer_list>
#include <string>

#include <Corvane/Base/String.h>

namespace CorvaneCli {

// Where trusted certificates are; exactly one of the two is set.
struct TrustStore {
  Corvane::ZString file;       // PEM
  Corvane::ZString directory;  // names as openssl-rehash(1) makes them
};

// The system's own, from the usual places. Throws Failure(kSecurity), naming the remedy, when there is none.
[[nodiscard]] TrustStore FindSystemTrust();
// The same over other places: the first directory with a certificate in it, or else the first file that can be read.
[[nodiscard]] TrustStore FindTrust(std::initializer_list<const char*> directories,
                                   std::initializer_list<const char*> files);

// What --cacert and --capath name. Throw Failure(kSecurity) when it cannot be used: the library would go on unverified.
[[nodiscard]] TrustStore UseTrustFile(const std::string& path);
[[nodiscard]] TrustStore UseTrustDirectory(const std::string& path);

}  // namespace CorvaneCli
