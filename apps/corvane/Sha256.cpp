#include "apps/corvane/Sha256.h"

#include <fmt/core.h>
#include <openssl/evp.h>
#include <poll.h>
#include <strings.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <new>
#include <stdexcept>
#include <vector>

namespace CorvaneCli {
namespace {

constexpr std::size_t kDigits = 64;
constexpr std::size_t kReadBytes = std::size_t{1} << 20;

void Require(int result) {
  if (result != 1) throw std::runtime_error("OpenSSL cannot compute a SHA-256 checksum; check its configuration");
}

EVP_MD_CTX* NewContext() {
  EVP_MD_CTX* const context = EVP_MD_CTX_new();
  if (context == nullptr) throw std::bad_alloc();
  return context;
}

bool IsReadable(int descriptor) noexcept {
  pollfd source{descriptor, POLLIN, 0};
  return descriptor >= 0 && poll(&source, 1, 0) > 0;
}

}  // namespace

void Sha256::ContextDeleter::operator()(evp_md_ctx_st* context) const noexcept { EVP_MD_CTX_free(context); }

Sha256::Sha256() : m_context(NewContext()) { Require(EVP_DigestInit_ex(m_context.get(), EVP_sha256(), nullptr)); }

void Sha256::Add(const void* data, std::size_t bytes) { Require(EVP_DigestUpdate(m_context.get(), data, bytes)); }

std::string Sha256::Hex() const {
  const std::unique_ptr<evp_md_ctx_st, ContextDeleter> copy(NewContext());  // the final step spoils a context
  Require(EVP_MD_CTX_copy_ex(copy.get(), m_context.get()));
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
  unsigned int length = 0;
  Require(EVP_DigestFinal_ex(copy.get(), digest.data(), &length));
  std::string text;
  for (unsigned int i = 0; i < length; ++i) text += fmt::format("{:02x}", digest[i]);
  return text;
}

std::optional<std::string> ParseSha256(std::string_view text) {
  constexpr std::string_view kPrefix = "sha256:";
  if (text.size() == kPrefix.size() + kDigits && strncasecmp(text.data(), kPrefix.data(), kPrefix.size()) == 0) {
    text.remove_prefix(kPrefix.size());
  }
  if (text.size() != kDigits || text.find_first_not_of("0123456789abcdefABCDEF") != std::string_view::npos) {
    return std::nullopt;
  }
  std::string digits(text);
  std::transform(digits.begin(), digits.end(), digits.begin(), [](char digit) {
    return digit >= 'A' && digit <= 'F' ? static_cast<char>(digit - 'A' + 'a') : digit;  // whatever the locale
  });
  return digits;
}

std::variant<std::string, int> Sha256OfFile(int descriptor, int stop) {
  Sha256 sum;
  std::vector<char> piece(kReadBytes);
  for (off_t position = 0;;) {
    if (IsReadable(stop)) return ECANCELED;
    const ssize_t count = pread(descriptor, piece.data(), piece.size(), position);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return errno;
    if (count == 0) return sum.Hex();
    sum.Add(piece.data(), static_cast<std::size_t>(count));
    position += count;
  }
}

}  // namespace CorvaneCli
