#include <Corvane/TreeDownload/ChecksumsImpl.h>

#include <sys/types.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <memory>
#include <new>
#include <optional>
#include <vector>

#include <openssl/evp.h>

#include <Corvane/TreeDownload/DescriptorImpl.h>

namespace Corvane {
namespace {

struct DigestDeleter {
  void operator()(EVP_MD_CTX* context) const noexcept { EVP_MD_CTX_free(context); }
};

class Digest {
 public:
  explicit Digest(Checksum::Kind kind) : m_context(EVP_MD_CTX_new()) {
    const EVP_MD* const method = kind == Checksum::Kind::Sha256 ? EVP_sha256() : EVP_sha512();
    if (m_context == nullptr || EVP_DigestInit_ex(m_context.get(), method, nullptr) != 1) throw std::bad_alloc();
  }
  void Add(const char* data, std::size_t bytes) {
    if (EVP_DigestUpdate(m_context.get(), data, bytes) != 1) throw std::bad_alloc();
  }
  std::string Digits() {
    std::array<unsigned char, EVP_MAX_MD_SIZE> bytes{};
    unsigned int count = 0;
    if (EVP_DigestFinal_ex(m_context.get(), bytes.data(), &count) != 1) throw std::bad_alloc();
    constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    for (unsigned int i = 0; i < count; ++i) {
      text += kDigits[bytes[i] >> 4U];
      text += kDigits[bytes[i] & 0xFU];
    }
    return text;
  }

 private:
  std::unique_ptr<EVP_MD_CTX, DigestDeleter> m_context;
};

std::size_t LengthOf(Checksum::Kind kind) { return kind == Checksum::Kind::Sha256 ? 64 : 128; }

// The digits in lower case; none for what is no checksum of the kind.
std::optional<std::string> DigitsIn(std::string_view text, Checksum::Kind kind) {
  if (text.size() != LengthOf(kind)) return std::nullopt;
  std::string digits(text);
  for (char& digit : digits) {
    if (digit >= 'A' && digit <= 'F') digit = static_cast<char>(digit - 'A' + 'a');
    if (!((digit >= '0' && digit <= '9') || (digit >= 'a' && digit <= 'f'))) return std::nullopt;
  }
  return digits;
}

// A line that begins with a backslash has a name with "\\", "\n" and "\r" for what would not fit on a line.
std::string Unescaped(std::string_view name) {
  std::string text;
  for (std::size_t i = 0; i < name.size(); ++i) {
    const char next = name[i] == '\\' && i + 1 < name.size() ? name[i + 1] : '\0';
    if (next != 'n' && next != 'r' && next != '\\') {
      text += name[i];
      continue;
    }
    text += next == 'n' ? '\n' : next == 'r' ? '\r' : '\\';
    ++i;
  }
  return text;
}

struct Entry {
  std::string name;
  std::string digits;
};

std::optional<Entry> ReadTagged(std::string_view line, Checksum::Kind kind) {
  const std::string_view tag = kind == Checksum::Kind::Sha256 ? "SHA256 (" : "SHA512 (";
  constexpr std::string_view kEquals = ") = ";
  const std::size_t end = line.rfind(kEquals);
  if (!line.starts_with(tag) || end == line.npos || end < tag.size()) return std::nullopt;
  const std::optional<std::string> digits = DigitsIn(line.substr(end + kEquals.size()), kind);
  return digits ? std::optional(Entry{std::string(line.substr(tag.size(), end - tag.size())), *digits}) : std::nullopt;
}

std::optional<Entry> ReadLine(std::string_view line, Checksum::Kind kind) {
  const bool isEscaped = line.starts_with('\\');
  if (isEscaped) line.remove_prefix(1);
  std::optional<Entry> entry = ReadTagged(line, kind);
  if (!entry) {
    const std::size_t blank = line.find(' ');
    const std::optional<std::string> digits = DigitsIn(line.substr(0, blank), kind);
    // Behind the blank stands another one, or the asterisk of a binary file.
    if (!digits || blank + 2 >= line.size() || (line[blank + 1] != ' ' && line[blank + 1] != '*')) return std::nullopt;
    entry = Entry{std::string(line.substr(blank + 2)), *digits};
  }
  if (isEscaped) entry->name = Unescaped(entry->name);
  while (entry->name.starts_with("./")) entry->name.erase(0, 2);
  return entry;
}

}  // namespace

std::string Checksum::OfText(Kind kind, std::string_view text) {
  Digest digest(kind);
  digest.Add(text.data(), text.size());
  return digest.Digits();
}

std::string Checksum::OfFile(Kind kind, const Descriptor& file) {
  Digest digest(kind);
  std::vector<char> block(std::size_t{256} << 10);
  off_t position = 0;
  while (true) {
    const ssize_t got = pread(file.Get(), block.data(), block.size(), position);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return {};
    if (got == 0) return digest.Digits();
    digest.Add(block.data(), static_cast<std::size_t>(got));
    position += got;
  }
}

ChecksumList ParseChecksums(std::string_view text, Checksum::Kind kind) {
  ChecksumList list;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    std::string_view line = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    if (line.ends_with('\r')) line.remove_suffix(1);
    std::optional<Entry> entry = ReadLine(line, kind);
    if (!entry) continue;
    const auto [place, isNew] = list.try_emplace(entry->name, entry->digits);
    if (!isNew && place->second != entry->digits) place->second.clear();
  }
  return list;
}

}  // namespace Corvane
