// secure URL [CA-FILE]: prints a page of a server whose certificate was verified, by the authorities that the system
// trusts or by those in CA-FILE (PEM).
//
// Shows that nothing is verified unless asked for, that a name which leads nowhere would leave the peer unverified, and
// so what a host looks at first.

#include <clocale>
#include <cstdio>

#include <Corvane/Base/File.h>
#include <Corvane/Base/StringCoding.h>
#include <Corvane/SystemTrust.h>
#include <Corvane/Transfer.h>

#include "examples/host.h"

int main(int argc, char** argv) {
  if (argc != 2 && argc != 3) return 2;
  std::setlocale(LC_ALL, "");  // the encoding of the arguments and of file names
  const Corvane::ZString url(argv[1]);
  if (!url.StartsWith(L"https://", /*ignoreCase=*/true)) {
    std::fprintf(stderr, "only https can be verified\n");
    return 2;
  }

  Corvane::ZSystemTrust trust;
  if (argc == 3) {
    trust.caFile = argv[2];
    if (!Corvane::ZFile::IsRegularFile(trust.caFile, 0, nullptr)) trust.caFile.Clear();
  } else {
    trust = Corvane::ZFindSystemTrust();
  }
  if (!trust.IsFound()) {
    std::fprintf(stderr, "no authorities to verify servers with\n");
    return 2;
  }

  Corvane::ZTransfer transfer;
  const Corvane::ZResult set =
      transfer.SetSSL(/*verifyHost=*/true, /*verifyPeer=*/true, trust.caFile, trust.caDirectory);
  if (Corvane::IsFailure(set)) return 1;  // a name that the locale cannot express, or no memory
  if (Corvane::IsFailure(transfer.DetectHttpError(true))) return 1;  // the page of a 404 is no page

  Corvane::ZString page;
  const Corvane::ZResult result = transfer.Download(url, page);
  if (Corvane::IsFailure(result)) return TellFailure(transfer, result);
  std::printf("%s", Corvane::ZStringEncoder(page, Corvane::ZStringEncoder::Utf8).CStr());
}
