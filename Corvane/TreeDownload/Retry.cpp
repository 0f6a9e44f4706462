#include <Corvane/TreeDownload/RetryImpl.h>

#include <algorithm>

namespace Corvane {

using std::chrono::milliseconds;

bool IsPassingHttpStatus(long status) noexcept {
  switch (status) {
    case 408:
    case 425:
    case 429:
    case 500:
    case 502:
    case 503:
    case 504:
      return true;
    default:
      return false;
  }
}

bool IsPassingFailure(CURLcode failure, bool isFtp, long response) noexcept {
  switch (failure) {
    case CURLE_COULDNT_CONNECT:
    case CURLE_OPERATION_TIMEDOUT:
    case CURLE_GOT_NOTHING:
    case CURLE_SEND_ERROR:
    case CURLE_RECV_ERROR:
    case CURLE_PARTIAL_FILE:
    case CURLE_HTTP2:
    case CURLE_HTTP2_STREAM:
    case CURLE_FTP_ACCEPT_TIMEOUT:
    case CURLE_AGAIN:
      return true;
    default:
      // A reply of 4yz is a transient negative one (RFC 959, section 4.2.1).
      return isFtp && response >= 400 && response <= 499;
  }
}

milliseconds WaitBeforeRepetition(unsigned int repetition, milliseconds first, std::chrono::seconds askedFor) noexcept {
  constexpr std::chrono::seconds kLongestAskedFor = std::chrono::hours(1);
  const milliseconds longest = std::max<milliseconds>(std::chrono::minutes(1), first);
  milliseconds wait = first;
  for (unsigned int number = 1; number < repetition && wait < longest && wait > milliseconds(0); ++number) {
    wait = std::min(wait * 2, longest);
  }
  return std::max<milliseconds>(wait, std::min(askedFor, kLongestAskedFor));
}

}  // namespace Corvane
