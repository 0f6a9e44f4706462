#pragma once

#include <Corvane/Base/String.h>

namespace Corvane {

// What the file system says of one file, as far as ZFileInfo does not tell it.

// Whether the path is a regular file's, or a link's to one. A folder or a device has a size, too, and opening a FIFO
// waits for whoever reads from it.
[[nodiscard]] bool IsRegularFile(const ZString& path);

// What the file system of `path` makes of `time`: the latest time that it can keep when `time` is later than that. Asks
// by setting the file's time of last access alone, so that its modification time stays what it was; of a link, the
// link's own.
[[nodiscard]] long TimeKeptFor(const ZString& path, long time);

}  // namespace Corvane
