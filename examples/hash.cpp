// hash URL: prints the SHA-256 of what a URL holds, in the form of sha256sum(1). Nothing is stored.
//
// Shows a sink of the host's own: it takes the bytes as they come, and a transfer whose sink cannot take them ends.

#include <openssl/evp.h>

#include <clocale>
#include <cstdio>
#include <memory>
#include <string>

#include <Corvane/Transfer.h>
#include <Corvane/TransferOptions.h>

#include "examples/host.h"

namespace {

class HashSink : public Corvane::ZTransferSink {
 public:
  HashSink() { m_good = m_context && EVP_DigestInit_ex(m_context.get(), EVP_sha256(), nullptr) == 1; }

  std::size_t Write(const void* data, std::size_t bytes) override {
    m_good = m_good && EVP_DigestUpdate(m_context.get(), data, bytes) == 1;
    return m_good ? bytes : 0;  // fewer than came end the transfer
  }

  // Once, at the end; empty when it could not be computed.
  std::string Finish() {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    if (!m_good || EVP_DigestFinal_ex(m_context.get(), digest, &length) != 1) return {};
    std::string hexadecimal;
    for (unsigned int i = 0; i < length; ++i) {
      char two[3];
      std::snprintf(two, sizeof two, "%02x", digest[i]);
      hexadecimal += two;
    }
    return hexadecimal;
  }

 private:
  std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> m_context{EVP_MD_CTX_new(), EVP_MD_CTX_free};
  bool m_good = false;
};

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  std::setlocale(LC_ALL, "");  // the encoding of the argument
  Corvane::ZTransfer transfer;
  if (!VerifyServers(transfer)) return 1;
  HashSink sink;
  const Corvane::ZResult result = transfer.Download(argv[1], sink);
  if (Corvane::IsFailure(result)) return TellFailure(transfer, result);
  const std::string digest = sink.Finish();
  if (digest.empty()) return 1;
  std::printf("%s  %s\n", digest.c_str(), argv[1]);
}
