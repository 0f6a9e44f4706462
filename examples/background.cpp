// background URL FILE KIB_PER_SECOND: downloads into a file, and leaves the rest of the link to others.
//
// Shows the throttle: it is one for the whole process, so that all transfers together keep to the limit, but for those
// that are told not to take part. Continues what is there, since a slow download is interrupted more often.

#include <clocale>
#include <cstdio>
#include <cstdlib>

#include <Corvane/Transfer.h>

#include "examples/host.h"

namespace {

// From this low-water mark on the throttle does not measure the link first, but limits from the first byte.
constexpr unsigned int kLimitAtOnce = 1'000'000'000;

}  // namespace

int main(int argc, char** argv) {
  const long limit = argc == 4 ? std::strtol(argv[3], nullptr, 10) : 0;  // in KiB/s
  if (limit < 1 || limit > 4'000'000) return 2;
  std::setlocale(LC_ALL, "");  // the encoding of the arguments and of file names
  if (Corvane::IsFailure(Corvane::ZTransfer::SetThrottling(kLimitAtOnce, static_cast<unsigned int>(limit),
                                                           /*percent=*/false))) {
    return 1;
  }

  Corvane::ZTransfer transfer;  // one for which UseThrottling(false) is called would not be slowed
  if (!VerifyServers(transfer)) return 1;
  const Corvane::ZResult result = transfer.DownloadFile(argv[1], argv[2], /*resume=*/true);
  if (Corvane::IsFailure(result)) return TellFailure(transfer, result);
  std::printf("%llu bytes in %lld ms\n", transfer.GetDownloadSize(), transfer.GetTransferTime());
}
