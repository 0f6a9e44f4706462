#include <Corvane/SystemTrust.h>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <string_view>

#include <Corvane/Base/StringCoding.h>
#include <Corvane/SystemTrustImpl.h>

namespace Corvane {
namespace {

// "3513523f.0": eight hexadecimal digits, a dot and a number.
bool IsHashedName(std::string_view name) {
  constexpr std::size_t kDigits = 8;
  const auto isHex = [](char c) { return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f'); };
  const auto isDigit = [](char c) { return c >= '0' && c <= '9'; };
  return name.size() > kDigits + 1 && name[kDigits] == '.' &&
         std::all_of(name.begin(), name.begin() + kDigits, isHex) &&
         std::all_of(name.begin() + kDigits + 1, name.end(), isDigit);
}

// The names in a directory, a few at a time. Of a directory that holds certificates the first few names tell; readdir asks for
// 32 KiB of them, and a file system sorts what it is asked for: that took five times as long for the 290 names of Debian's.
class NamesInDirectory {
 public:
  explicit NamesInDirectory(const char* path) : m_directory(open(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {}
  ~NamesInDirectory() {
    if (m_directory >= 0) close(m_directory);
  }
  NamesInDirectory(const NamesInDirectory&) = delete;
  NamesInDirectory& operator=(const NamesInDirectory&) = delete;

  // Null at the end, or when the directory cannot be read. Valid until the next call.
  [[nodiscard]] const char* Next() {
    if (m_next >= m_length && !Read()) return nullptr;
    const auto* const entry = reinterpret_cast<const dirent64*>(m_entries.data() + m_next);
    m_next += entry->d_reclen;
    return entry->d_name;
  }
  [[nodiscard]] bool IsReadable(const char* name) const { return faccessat(m_directory, name, R_OK, AT_EACCESS) == 0; }

 private:
  bool Read() {
    const ssize_t length = m_directory < 0 ? -1 : getdents64(m_directory, m_entries.data(), m_entries.size());
    m_next = 0;
    m_length = length > 0 ? static_cast<std::size_t>(length) : 0;
    return m_length > 0;
  }

  int m_directory;
  alignas(dirent64) std::array<char, 1024> m_entries;  // room for at least three of the longest
  std::size_t m_next = 0;
  std::size_t m_length = 0;
};

// Whether a lookup by hash would find something in it.
bool HoldsCertificates(const char* path) {
  NamesInDirectory names(path);
  while (const char* const name = names.Next()) {
    if (IsHashedName(name) && names.IsReadable(name)) return true;
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
