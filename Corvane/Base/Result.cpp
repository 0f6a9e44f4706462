#include <Corvane/Base/Result.h>

#include <cerrno>

#include <Corvane/Base/ResultTableImpl.h>

namespace Corvane {

ZResult ResultFromErrno(int error) noexcept {
  if (error == 0) return BASE_S_OK;
  if (error < 0 || error > kLargestErrno) error = EIO;
  return BASE_E_ERRNO + static_cast<ZResult>(error);
}

}  // namespace Corvane
