#include <Corvane/SystemTrust.h>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <memory>
#include <string_view>

#include <Corvane/Base/StringCoding.h>
#include <Corvane/SystemTrustImpl.h>

namespace Corvane {
namespace {

struct DirectoryCloser {
  void operator()(DIR* directory) const noexcept { closedir(directory); }
};

// "3513523f.0": eight hexadecimal digits, a dot and a number.
bool IsHashedName(std::string_view name) {
  constexpr std::size_t kDigits = 8;
  const auto isHex = [](char c) { return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f'); };
  const auto isDigit = [](char c) { return c >= '0' && c <= '9'; };
  return name.size() > kDigits + 1 && name[kDigits] == '.' &&
         std::all_of(name.begin(), name.begin() + kDigits, isHex) &&
         std::all_of(name.begin() + kDigits + 1, name.end(), isDigit);
}

// Whether a lookup by hash would find something in it.
bool HoldsCertificates(const char* path) {
  const std::unique_ptr<DIR, DirectoryCloser> directory(opendir(path));
  if (directory == nullptr) return false;
  while (const dirent* const entry = readdir(directory.get())) {
    if (!IsHashedName(entry->d_name)) continue;
    if (faccessat(dirfd(directory.get()), entry->d_name, R_OK, AT_EACCESS) == 0) return true;
  }
  return false;
}

bool IsReadableFile(const char* path) {
  struct stat status {};
  return stat(path, &status) == 0 && S_ISREG(status.st_mode) && status.st_size > 0 &&
         faccessat(AT_FDCWD, path, R_OK, AT_EACCESS) == 0;
}

}  // namespace

bool ZHoldsTrustedCertificates(const ZString& directory) {
  const ZStringEncoder path(directory, ZStringEncoder::Local);
  return path.CStr() != nullptr && HoldsCertificates(path.CStr());
}

// Directories come first: of a directory only the certificates that a server needs are read.
ZSystemTrust FindTrust(std::initializer_list<const char*> directories, std::initializer_list<const char*> files) {
  for (const char* const directory : directories) {
    if (HoldsCertificates(directory)) return {ZString(), ZString(directory)};
  }
  for (const char* const file : files) {
    if (IsReadableFile(file)) return {ZString(file), ZString()};
  }
  return {};
}

ZSystemTrust ZFindSystemTrust() {
  return FindTrust(
      {"/etc/ssl/certs", "/etc/pki/tls/certs", "/etc/openssl/certs", "/usr/local/share/certs"},
      {"/etc/ssl/certs/ca-certificates.crt", "/etc/pki/tls/certs/ca-bundle.crt",
       "/etc/pki/ca-trust/extracted/pem/tls-ca-bundle.pem", "/etc/ssl/ca-bundle.pem", "/etc/ssl/cert.pem"});
}

}  // namespace Corvane
