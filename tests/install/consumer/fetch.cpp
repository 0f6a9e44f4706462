#include <clocale>
#include <iostream>

#include <Corvane/SystemTrust.h>
#include <Corvane/Transfer.h>

int main(int argc, char** argv) {
  std::setlocale(LC_ALL, "");  // the encoding of arguments and file names
  const Corvane::ZSystemTrust trust = Corvane::ZFindSystemTrust();
  if (argc != 3 || !trust.IsFound()) return 2;
  Corvane::ZTransfer transfer;
  // Nothing is verified unless asked for.
  if (Corvane::IsFailure(transfer.SetSSL(true, true, trust.caFile, trust.caDirectory))) return 2;
  if (Corvane::IsFailure(transfer.DownloadFile(argv[1], argv[2], /*resume=*/true))) {
    Corvane::ZString cause;
    transfer.GetCause(cause);  // what libcurl said of it
    std::cerr << transfer.GetError() << '\n' << cause << '\n';
    return 1;
  }
  std::cout << transfer.GetDownloadSize() << " bytes\n";
}
