#pragma once

#include <filesystem>

namespace CorvaneTest {

// A certificate and its private key, both files in PEM.
struct TlsIdentity {
  std::filesystem::path certificate;
  std::filesystem::path key;
};

// Everything a test of TLS verification needs, made afresh with EC keys in a few milliseconds.
struct Pki {
  std::filesystem::path caFile;       // the authority that signed all identities below but the self-signed one
  std::filesystem::path caDirectory;  // holds only that authority, by hash, as `openssl rehash` lays it out
  std::filesystem::path otherCaFile;  // an authority that signed none of them
  std::filesystem::path otherCaDirectory;

  TlsIdentity server;       // valid, for localhost and 127.0.0.1
  TlsIdentity wrongHost;    // valid, for wrong.example only
  TlsIdentity expired;      // for localhost and 127.0.0.1, until yesterday
  TlsIdentity notYetValid;  // for localhost and 127.0.0.1, from tomorrow on
  TlsIdentity selfSigned;   // valid, for localhost and 127.0.0.1, its own issuer
};

// Makes the files in `folder`, which must exist. Throws std::runtime_error with OpenSSL's reason when that fails.
Pki MakePki(const std::filesystem::path& folder);

// One that all tests of the process share, made at the first call, in a folder that every account may read.
const Pki& ThePki();

}  // namespace CorvaneTest
