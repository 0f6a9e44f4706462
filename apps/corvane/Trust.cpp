#include "apps/corvane/Trust.h"

#include <fcntl.h>
#include <fmt/core.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <optional>
#include <string_view>

#include "apps/corvane/Failure.h"
#include "apps/corvane/Files.h"
#include "apps/corvane/Text.h"

namespace CorvaneCli {
namespace {

using Corvane::ZString;

// 0 when there is a certificate in it that a lookup by hash would find; the errno why it cannot be read; -1 when there
// is none.
int CheckDirectory(const std::string& path, const ZString& text) {
  if (!Open(path, O_RDONLY | O_DIRECTORY).IsOpen()) return errno;
  return Corvane::ZHoldsTrustedCertificates(text) ? 0 : -1;
}

bool HoldsCertificate(const std::string& pem) {
  const auto holds = [&](const char* label) { return pem.find(label) != std::string::npos; };
  return holds("-----BEGIN CERTIFICATE-----") || holds("-----BEGIN TRUSTED CERTIFICATE-----") ||
         holds("-----BEGIN X509 CERTIFICATE-----");
}

// 0 when a certificate seems to be in it; the errno why it cannot be read; -1 when there is none. Only a regular file
// is read here: what comes out of a pipe comes only once.
int CheckFile(const std::string& path) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0 || faccessat(AT_FDCWD, path.c_str(), R_OK, AT_EACCESS) != 0) return errno;
  if (S_ISDIR(status.st_mode)) return EISDIR;
  if (!S_ISREG(status.st_mode)) return 0;
  std::string pem;
  const Descriptor file = Open(path, O_RDONLY);
  const int error = file.IsOpen() ? ReadAll(file, -1, pem) : errno;
  if (error != 0) return error;
  return HoldsCertificate(pem) ? 0 : -1;
}

constexpr const wchar_t* kNobody = L"/dev/null";  // a file that is there and holds no certificate

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

TrustStore UseSystemTrust(const Corvane::ZSystemTrust& found) {
  if (found.IsFound()) return {found.caFile, found.caDirectory};
  throw Failure(
      ExitCode::kSecurity,
      "cannot verify the server: this system has no trusted certificates in the usual places; install the package "
      "ca-certificates, or name them with --cacert FILE or --capath DIR");
}

TrustStore UseSystemTrustForRedirects(const Corvane::ZSystemTrust& found) {
  if (found.IsFound()) return {found.caFile, found.caDirectory};
  return {ZString(kNobody), ZString()};
}

TrustStore UseTrustFile(const std::string& path) {
  ZString text = Decode(path);
  const int error = CheckFile(path);
  if (error == EISDIR) Refuse(path, "it is a directory", "use --capath DIR for a directory");
  if (error > 0) Refuse(path, SystemText(error), kFileRemedy);
  if (error < 0) Refuse(path, "no certificate is in it", kFileRemedy);
  return {text, ZString()};
}

TrustStore UseTrustDirectory(const std::string& path) {
  ZString text = Decode(path);
  const int error = CheckDirectory(path, text);
  if (error == ENOTDIR) Refuse(path, "it is not a directory", "use --cacert FILE for a file");
  if (error > 0) Refuse(path, SystemText(error), kDirectoryRemedy);
  if (error < 0) Refuse(path, "it holds no certificate under its hash", kDirectoryRemedy);
  return {ZString(), text};
}

}  // namespace CorvaneCli
