#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

struct evp_md_ctx_st;

namespace CorvaneCli {

// The SHA-256 checksum of bytes that come piece by piece. One object, one thread at a time. An object that was moved from can only
// be assigned to or destroyed. Throws std::bad_alloc, and std::runtime_error when OpenSSL refuses (its configuration may).
class Sha256 {
 public:
  Sha256();

  void Add(const void* data, std::size_t bytes);
  // Of what has been added so far: 64 digits in lower case. More may follow.
  [[nodiscard]] std::string Hex() const;

 private:
  struct ContextDeleter {
    void operator()(evp_md_ctx_st* context) const noexcept;
  };

  std::unique_ptr<evp_md_ctx_st, ContextDeleter> m_context;
};

// A checksum as people write it: 64 hexadecimal digits in any case, also behind "sha256:", with nothing around it. In lower case and
// without the prefix; nullopt for anything else.
[[nodiscard]] std::optional<std::string> ParseSha256(std::string_view text);

// The checksum of the file behind `descriptor`, from its beginning to its end, as Sha256::Hex gives it; or the errno that stopped
// it: ECANCELED when `stop`, a descriptor, became readable (-1: nothing stops it). The descriptor's position does not matter, and
// stays; it must be seekable and open for reading.
[[nodiscard]] std::variant<std::string, int> Sha256OfFile(int descriptor, int stop);

}  // namespace CorvaneCli
