#pragma once

#include <Corvane/Base/Result.h>
#include <Corvane/Base/String.h>

namespace Corvane {

// Operations on directories by path; an empty path is the working directory. Conversion, failures and thread safety as
// in ZFile.
class CORVANE_ZPS_API ZDir {
 public:
  // Creates the directory and all missing parents with mode 0777 less the umask. Returns 0 when it is there in the end,
  // also when it was before or when another process made it meanwhile. A part of the path that exists and is no
  // directory gives the code of ENOTDIR. On a failure the parents created so far stay.
  static ZResult CreateR(const ZString& path);
  // The space that an ordinary user can still fill on the file system of `path`, in kilobytes of 1024 bytes, rounded
  // down. On a failure `kilobytes` is left as it was.
  [[nodiscard]] static ZResult GetFreeSpace(const ZString& path, unsigned long long& kilobytes);
};

}  // namespace Corvane
