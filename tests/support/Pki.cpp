#include "tests/support/Pki.h"

#include <openssl/bio.h>
#include <openssl/ec.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <atomic>
#include <cstdio>
#include <memory>
#include <stdexcept>
#include <string>

#include "tests/support/OpenSsl.h"
#include "tests/support/TempDir.h"

namespace CorvaneTest {

namespace fs = std::filesystem;

namespace {

template <auto Free>
struct Deleter {
  template <class Object>
  void operator()(Object* object) const noexcept {
    Free(object);
  }
};
using Key = std::unique_ptr<EVP_PKEY, Deleter<EVP_PKEY_free>>;
using KeyContext = std::unique_ptr<EVP_PKEY_CTX, Deleter<EVP_PKEY_CTX_free>>;
using Certificate = std::unique_ptr<X509, Deleter<X509_free>>;
using Extension = std::unique_ptr<X509_EXTENSION, Deleter<X509_EXTENSION_free>>;
using File = std::unique_ptr<BIO, Deleter<BIO_free_all>>;

constexpr long kDay = 24L * 60 * 60;
constexpr const char* kLocalNames = "DNS:localhost,IP:127.0.0.1";

struct Issued {
  Certificate certificate;
  Key key;
};

// What goes into a certificate.
struct Profile {
  const char* commonName;
  const char* subjectNames;  // of subjectAltName; null for an authority
  long validFrom = -kDay;    // in seconds from now
  long validUntil = 365 * kDay;
};

void Check(bool isDone, const char* operation) {
  if (!isDone)
    throw std::runtime_error(std::string("cannot make certificates: ") + operation + ": " + TakeOpenSslError());
}

Key MakeKey() {
  const KeyContext context(EVP_PKEY_CTX_new_id(EVP_PKEY_EC, nullptr));
  EVP_PKEY* key = nullptr;
  Check(context && EVP_PKEY_keygen_init(context.get()) == 1 &&
            EVP_PKEY_CTX_set_ec_paramgen_curve_nid(context.get(), NID_X9_62_prime256v1) == 1 &&
            EVP_PKEY_keygen(context.get(), &key) == 1,
        "key");
  return Key(key);
}

void AddExtension(X509* certificate, int kind, const char* value) {
  X509V3_CTX context;
  X509V3_set_ctx_nodb(&context);
  X509V3_set_ctx(&context, certificate, certificate, nullptr, nullptr, 0);
  const Extension extension(X509V3_EXT_conf_nid(nullptr, &context, kind, value));
  Check(extension && X509_add_ext(certificate, extension.get(), -1) == 1, value);
}

void AddExtensions(X509* certificate, const Profile& profile) {
  if (profile.subjectNames == nullptr) {
    AddExtension(certificate, NID_basic_constraints, "critical,CA:TRUE");
    AddExtension(certificate, NID_key_usage, "critical,keyCertSign,cRLSign");
    return;
  }
  AddExtension(certificate, NID_basic_constraints, "critical,CA:FALSE");
  AddExtension(certificate, NID_key_usage, "critical,digitalSignature");
  AddExtension(certificate, NID_ext_key_usage, "serverAuth");
  AddExtension(certificate, NID_subject_alt_name, profile.subjectNames);
}

void SetSubject(X509* certificate, const char* commonName) {
  X509_NAME* name = X509_get_subject_name(certificate);
  const auto* text = reinterpret_cast<const unsigned char*>(commonName);
  Check(X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_UTF8, text, -1, -1, 0) == 1, "subject");
}

// issuer: null makes a certificate that is its own issuer.
Issued Issue(const Profile& profile, const Issued* issuer) {
  static std::atomic<long> serial = 0;  // the certificates of one authority must differ in it
  Issued issued{Certificate(X509_new()), MakeKey()};
  X509* certificate = issued.certificate.get();
  Check(certificate != nullptr && X509_set_version(certificate, 2) == 1, "certificate");  // 2 stands for version 3
  ASN1_INTEGER_set(X509_get_serialNumber(certificate), ++serial);
  X509_gmtime_adj(X509_getm_notBefore(certificate), profile.validFrom);
  X509_gmtime_adj(X509_getm_notAfter(certificate), profile.validUntil);
  SetSubject(certificate, profile.commonName);
  const Issued& signer = issuer != nullptr ? *issuer : issued;
  Check(X509_set_issuer_name(certificate, X509_get_subject_name(signer.certificate.get())) == 1 &&
            X509_set_pubkey(certificate, issued.key.get()) == 1,
        "certificate");
  AddExtensions(certificate, profile);
  Check(X509_sign(certificate, signer.key.get(), EVP_sha256()) > 0, "signature");
  return issued;
}

void WriteCertificate(const fs::path& path, X509* certificate) {
  const File file(BIO_new_file(path.c_str(), "w"));
  Check(file && PEM_write_bio_X509(file.get(), certificate) == 1, path.c_str());
}

TlsIdentity WriteIdentity(const fs::path& folder, const std::string& name, const Issued& issued) {
  TlsIdentity identity{folder / (name + ".pem"), folder / (name + ".key")};
  WriteCertificate(identity.certificate, issued.certificate.get());
  const File file(BIO_new_file(identity.key.c_str(), "w"));
  Check(file && PEM_write_bio_PrivateKey(file.get(), issued.key.get(), nullptr, nullptr, 0, nullptr, nullptr) == 1,
        identity.key.c_str());
  return identity;
}

// OpenSSL looks an authority up by the hash of its subject, under "HASH.0".
void WriteHashedDirectory(const fs::path& directory, X509* certificate) {
  fs::create_directory(directory);
  WriteCertificate(directory / "authority.pem", certificate);
  char link[16];
  std::snprintf(link, sizeof link, "%08lx.0", X509_subject_name_hash(certificate));
  fs::create_symlink("authority.pem", directory / link);
}

}  // namespace

Pki MakePki(const fs::path& folder) {
  const Issued authority = Issue({"Corvane test authority", nullptr}, nullptr);
  const Issued otherAuthority = Issue({"Corvane other test authority", nullptr}, nullptr);
  const auto issue = [&](const std::string& name, const Profile& profile) {
    return WriteIdentity(folder, name, Issue(profile, &authority));
  };

  Pki pki{folder / "ca.pem", folder / "ca", folder / "other-ca.pem", folder / "other-ca", {}, {}, {}, {}, {}};
  WriteCertificate(pki.caFile, authority.certificate.get());
  WriteHashedDirectory(pki.caDirectory, authority.certificate.get());
  WriteCertificate(pki.otherCaFile, otherAuthority.certificate.get());
  WriteHashedDirectory(pki.otherCaDirectory, otherAuthority.certificate.get());
  pki.server = issue("server", {"localhost", kLocalNames});
  pki.wrongHost = issue("wrong-host", {"wrong.example", "DNS:wrong.example"});
  pki.expired = issue("expired", {"localhost", kLocalNames, -2 * kDay, -kDay});
  pki.notYetValid = issue("not-yet-valid", {"localhost", kLocalNames, kDay, 2 * kDay});
  pki.selfSigned = WriteIdentity(folder, "self-signed", Issue({"localhost", kLocalNames}, nullptr));
  return pki;
}

const Pki& ThePki() {
  static const TempDir folder(TempDir::Access::kPublic);
  static const Pki pki = MakePki(folder.Path());
  return pki;
}

}  // namespace CorvaneTest
