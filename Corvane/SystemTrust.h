#pragma once

#include <Corvane/Base/String.h>
#include <Corvane/Export.h>

namespace Corvane {

// Where a system keeps the certificates of the authorities that it trusts, in the form of SetSSL's last two arguments.
// At most one of the two is set.
//
//   const Corvane::ZSystemTrust trust = Corvane::ZFindSystemTrust();
//   if (!trust.IsFound()) return Refuse("install the package ca-certificates");
//   transfer.SetSSL(true, true, trust.caFile, trust.caDirectory);
struct ZSystemTrust {
  ZString caFile;       // PEM
  ZString caDirectory;  // names as openssl-rehash(1) makes them

  // When this is false, refuse to go on: given two empty names, SetSSL would leave the peer unchecked.
  [[nodiscard]] bool IsFound() const { return !caFile.IsEmpty() || !caDirectory.IsEmpty(); }
};

// Finds this system's own: the first of the directories /etc/ssl/certs, /etc/pki/tls/certs, /etc/openssl/certs and
// /usr/local/share/certs that holds a certificate under its hash which this process may read; or else the first of the
// files /etc/ssl/certs/ca-certificates.crt, /etc/pki/tls/certs/ca-bundle.crt,
// /etc/pki/ca-trust/extracted/pem/tls-ca-bundle.pem, /etc/ssl/ca-bundle.pem and /etc/ssl/cert.pem that it may read and
// that is not empty. Certificates are not parsed.
//
// Nothing is remembered: each call looks anew, at some hundred names at most on a usual system. No environment variable
// is read; a host that honours SSL_CERT_FILE or SSL_CERT_DIR looks at them itself.
// Thread safety: any thread, any time. Errors: where there is nothing, neither name is set; throws only std::bad_alloc.
[[nodiscard]] CORVANE_ZN_API ZSystemTrust ZFindSystemTrust();

// Whether `directory` holds a certificate under its hash which this process may read: for hosts that let somebody name
// a directory. SetSSL takes any that exists; with one that does not hold any, libcurl knows none but those of its own default file, if
// it was built with one.
// Thread safety: any thread. Errors: false, also for a name that the locale cannot express; throws only std::bad_alloc.
[[nodiscard]] CORVANE_ZN_API bool ZHoldsTrustedCertificates(const ZString& directory);

}  // namespace Corvane
