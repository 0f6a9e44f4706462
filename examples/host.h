#pragma once

// What every host of the library does that verifies servers and tells its user of failures.

#include <cstdio>

#include <Corvane/Base/StringCoding.h>
#include <Corvane/MultiDownload.h>
#include <Corvane/SystemTrust.h>
#include <Corvane/Transfer.h>

// Has a ZTransfer or ZMultiDownload verify servers with the certificates that the system trusts; false when it has
// none.
template <class Transfer>
bool VerifyServers(Transfer& transfer) {
  const Corvane::ZSystemTrust trust = Corvane::ZFindSystemTrust();
  if (!trust.IsFound()) {
    std::fprintf(stderr, "no trusted certificates; install the package ca-certificates\n");
    return false;
  }
  return !Corvane::IsFailure(transfer.SetSSL(true, true, trust.caFile, trust.caDirectory));
}

// The library's text names the object, and libcurl's, GetCause, the reason: a certificate that was not accepted, say.
inline void TellFailure(Corvane::ZResult result, const Corvane::ZString& text, const Corvane::ZString& cause) {
  const Corvane::ZStringEncoder error(text, Corvane::ZStringEncoder::Utf8);
  const Corvane::ZStringEncoder reason(cause, Corvane::ZStringEncoder::Utf8);
  std::fprintf(stderr, "0x%08x: %s\n", result, error.CStr());
  if (!cause.IsEmpty() && cause != text) std::fprintf(stderr, "%s\n", reason.CStr());
}

// The same for a transfer whose operation has just failed; returns the exit status of a program that ends with it.
inline int TellFailure(const Corvane::ZTransfer& transfer, Corvane::ZResult result) {
  Corvane::ZString cause;
  transfer.GetCause(cause);
  TellFailure(result, transfer.GetError(), cause);
  return 1;
}

// And for a mirror.
inline int TellFailure(const Corvane::ZMultiDownload& mirror, Corvane::ZResult result) {
  Corvane::ZString cause, header;
  mirror.GetCause(cause, header);
  TellFailure(result, mirror.GetError(), cause);
  return 1;
}
