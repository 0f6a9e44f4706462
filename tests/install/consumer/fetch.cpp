#include <clocale>
#include <cstdio>

#include <Corvane/Base/StringCoding.h>
#include <Corvane/SystemTrust.h>
#include <Corvane/Transfer.h>

int main(int argc, char** argv) {
  std::setlocale(LC_ALL, "");  // the encoding of arguments and file names
  const Corvane::ZSystemTrust trust = Corvane::ZFindSystemTrust();
  if (argc != 3 || !trust.IsFound()) return 2;
  Corvane::ZTransfer transfer;
  transfer.SetSSL(true, true, trust.caFile, trust.caDirectory);  // nothing is verified unless asked for
  const Corvane::ZResult result = transfer.DownloadFile(argv[1], argv[2], /*resume=*/true);
  if (Corvane::IsFailure(result)) {
    Corvane::ZString cause;
    transfer.GetCause(cause);  // what libcurl said of it
    const Corvane::ZStringEncoder error(transfer.GetError() + L"\n" + cause, Corvane::ZStringEncoder::Utf8);
    std::fprintf(stderr, "0x%08x: %s\n", result, error.CStr());
    return 1;
  }
  std::printf("%llu bytes\n", transfer.GetDownloadSize());
}
