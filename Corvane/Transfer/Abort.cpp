#include <Corvane/Transfer/TransferImpl.h>

namespace Corvane {

// Never waits for the transfer, which does not hold the lock. The flag goes up before the limits are written, see RepeatAbort.
ZResult ZTransfer::ZTransferImpl::Abort() {
  const ObjectGuard guard(*this);
  RaiseAbort();
  for (const CURLoption limit : {CURLOPT_TIMEOUT, CURLOPT_CONNECTTIMEOUT}) {
    const CURLcode result = SetEasyOption(limit, 1L);
    if (result != CURLE_OK) return FailOption("Abort", result, limit);
  }
  return BASE_S_OK;
}

}  // namespace Corvane
