#pragma once

#include <Corvane/Base/String.h>

namespace Corvane {

// What the file system says of one file, as far as ZFileInfo does not tell it.

// What the file system of `path` makes of `time`: the latest time that it can keep when `time` is later than that. Asks
// by setting the file's time of last access alone, so that its modification time stays what it was; of a link, the
// link's own.
[[nodiscard]] long TimeKeptFor(const ZString& path, long time);

}  // namespace Corvane
