#include "apps/corvane/Trust.h"

#include <dirent.h>
#include <fcntl.h>
#include <fmt/core.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <optional>
#include <string_view>

#include "apps/corvane/Failure.h"
#include "apps/corvane/Files.h"
#include "apps/corvane/Text.h"

namespace CorvaneCli {
namespace {

using Corvane::ZString;

struct DirectoryCloser {
  void operator()(DIR* directory) const noexcept { closedir(directory); }
};
using Directory = std::unique_ptr<DIR, DirectoryCloser>;

// "3513523f.0": eight hexadecimal digits, a dot and a number.
bool IsHashedName(std::string_view name) {
  const auto isHex = [](char c) { return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f'); };
  return name.size() > 9 && name[8] == '.' && std::all_of(name.begin(), name.begin() + 8, isHex) &&
         ParseNumber(name.substr(9)).has_value();
}

// 0 when there is a certificate in it that a lookup by hash would find; the errno why it cannot be read; -1 when there is none.
int CheckDirectory(const char* path) {
  const Directory directory(opendir(path));
  if (directory == nullptr) return errno;
  while (const dirent* const entry = readdir(directory.get())) {
    if (!IsHashedName(entry->d_name)) continue;
    if (faccessat(dirfd(directory.get()), entry->d_name, R_OK, AT_EACCESS) == 0) return 0;
  }
  return -1;
}

// 0 when it can be read and is not empty; the errno why it cannot be read; -1 when it is empty. Nothing is read here: it may
// be a pipe.
int CheckFile(const char* path) {
  struct stat status {};
  if (stat(path, &status) != 0 || faccessat(AT_FDCWD, path, R_OK, AT_EACCESS) != 0) return errno;
  if (S_ISDIR(status.st_mode)) return EISDIR;
  return S_ISREG(status.st_mode) && status.st_size == 0 ? -1 : 0;
}

constexpr std::string_view kFileRemedy = "give a file of certificates in PEM";
constexpr std::string_view kDirectoryRemedy = "give a directory that openssl rehash has prepared";

[[noreturn]] void Refuse(const std::string& path, std::string_view reason, std::string_view remedy) {
  throw Failure(ExitCode::kSecurity,
                fmt::format("cannot use the certificates in {}: {}; {}", DisplayName(path), reason, remedy));
}

ZString Decode(const std::string& path) {
  const std::optional<ZString> text = DecodeLocal(path);
  if (!text) Refuse(path, "the locale cannot express the name", "set LC_ALL=C.UTF-8, or use another name");
  return *text;
}

}  // namespace

TrustStore FindTrust(std::initializer_list<const char*> directories, std::initializer_list<const char*> files) {
  for (const char* const directory : directories) {
    if (CheckDirectory(directory) == 0) return {ZString(), ZString(directory)};
  }
  for (const char* const file : files) {
    if (CheckFile(file) == 0) return {ZString(file), ZString()};
  }
  throw Failure(
      ExitCode::kSecurity,
      "cannot verify the server: this system has no trusted certificates in the usual places; install the package "
      "ca-certificates, or name them with --cacert FILE or --capath DIR");
}

TrustStore FindSystemTrust() {
  return FindTrust(
      {"/etc/ssl/certs", "/etc/pki/tls/certs", "/etc/openssl/certs", "/usr/local/share/certs"},
      {"/etc/ssl/certs/ca-certificates.crt", "/etc/pki/tls/certs/ca-bundle.crt",
       "/etc/pki/ca-trust/extracted/pem/tls-ca-bundle.pem", "/etc/ssl/ca-bundle.pem", "/etc/ssl/cert.pem"});
}

TrustStore UseTrustFile(const std::string& path) {
  ZString text = Decode(path);
  const int error = CheckFile(path.c_str());
  if (error == EISDIR) Refuse(path, "it is a directory", "use --capath DIR for a directory");
  if (error > 0) Refuse(path, SystemText(error), kFileRemedy);
  if (error < 0) Refuse(path, "it is empty", kFileRemedy);
  return {text, ZString()};
}

TrustStore UseTrustDirectory(const std::string& path) {
  ZString text = Decode(path);
  const int error = CheckDirectory(path.c_str());
  if (error == ENOTDIR) Refuse(path, "it is not a directory", "use --cacert FILE for a file");
  if (error > 0) Refuse(path, SystemText(error), kDirectoryRemedy);
  if (error < 0) Refuse(path, "it holds no certificate under its hash", kDirectoryRemedy);
  return {ZString(), text};
}

}  // namespace CorvaneCli
