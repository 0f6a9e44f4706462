#include <cstdio>

#include <Corvane/Base/StringCoding.h>
#include <Corvane/Transfer.h>

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  Corvane::ZTransfer transfer;
  transfer.SetSSL(true, true, L"", L"/etc/ssl/certs");  // nothing is verified unless asked for
  const Corvane::ZResult result = transfer.DownloadFile(argv[1], argv[2], /*resume=*/true);
  if (Corvane::IsFailure(result)) {
    const Corvane::ZStringEncoder error(transfer.GetError(), Corvane::ZStringEncoder::Utf8);
    std::fprintf(stderr, "0x%08x: %s\n", result, error.CStr());
    return 1;
  }
  std::printf("%llu bytes\n", transfer.GetDownloadSize());
}
