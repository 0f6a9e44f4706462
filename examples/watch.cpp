// watch URL FILE [SECONDS]: downloads into a file, tells on standard error how far it is, and gives up after SECONDS.
//
// Shows how to follow and abort an operation from another thread: the library starts none, so the host runs the download
// on one of its own and keeps the other for its user.

#include <chrono>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <future>
#include <string>

#include <Corvane/Transfer.h>

#include "examples/host.h"

namespace {

constexpr unsigned long long kUnknownSize = ~0ULL;

void ShowProgress(const Corvane::ZTransfer& transfer) {
  const unsigned long long total = transfer.GetContentSize();
  const std::string of = total == kUnknownSize ? "" : " of " + std::to_string(total);
  std::fprintf(stderr, "%llu%s bytes, %u KiB/s\n", transfer.GetDownloadSize(), of.c_str(), transfer.GetTransferRate());
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3 && argc != 4) return 2;
  std::setlocale(LC_ALL, "");  // the encoding of the arguments and of file names
  const Corvane::ZString url(argv[1]);
  const Corvane::ZString file(argv[2]);
  const auto limit = argc == 4 ? std::chrono::steady_clock::now() + std::chrono::seconds(std::atoi(argv[3]))
                               : std::chrono::steady_clock::time_point::max();

  Corvane::ZTransfer transfer;
  if (!VerifyServers(transfer)) return 1;
  std::future<Corvane::ZResult> download =
      std::async(std::launch::async, [&] { return transfer.DownloadFile(url, file, /*resume=*/true); });
  bool isGivenUp = false;
  while (download.wait_for(std::chrono::milliseconds(100)) != std::future_status::ready) {
    ShowProgress(transfer);
    isGivenUp = std::chrono::steady_clock::now() > limit;
    if (isGivenUp) transfer.Abort();  // harmless when repeated
  }

  const Corvane::ZResult result = download.get();
  // TRANSFER_E_ABORTED, or TRANSFER_E_CONNECT when there was no answer yet.
  if (isGivenUp && Corvane::IsFailure(result)) {
    std::printf("given up; the same command goes on where this one stopped\n");
    return 3;
  }
  if (Corvane::IsFailure(result)) return TellFailure(transfer, result);
  std::printf("%llu bytes\n", transfer.GetDownloadSize());
}
