#pragma once

#include <cstddef>
#include <cstdio>

#include <Corvane/Base/Export.h>
#include <Corvane/Base/Result.h>

// The C library's file functions with result codes instead of errno: that of the errno unless another is named. Thread
// safety: as stdio's. Nothing throws. But for Fclose, streams must be open ones.
namespace Corvane::Wrappers::Sys {

// Opens `path`, in the local encoding, as fopen(3) does with `mode`: "r", "w" or "a", then any of "+", "b", "x" and
// "e", each once; any other mode gives the code of EINVAL. Stores the stream in `*file`, null on failure. The
// descriptor is closed on exec. A stream opened for writing has no buffer, so that a full disk shows at the block that
// did not fit and never only when the stream is closed.
// Nothing waits for the other side of a FIFO: for writing, one that nobody reads gives the code of ENXIO; for reading,
// one that nobody writes opens and is at its end at once. Later reads and writes wait as ever.
// A directory gives the code of EISDIR, also for reading; a null path (what an encoder gives for a name that the local
// encoding cannot express) BASE_E_INVALID_NAME.
[[nodiscard]] CORVANE_ZPS_API ZResult Fopen(std::FILE** file, const char* path, const char* mode) noexcept;

// Closes the stream; null gives the code of EBADF. It is gone also when a failure is returned (see close(2)), which
// means that written data may be lost.
CORVANE_ZPS_API ZResult Fclose(std::FILE* file) noexcept;

// fseek(3): `whence` is SEEK_SET, SEEK_CUR or SEEK_END.
[[nodiscard]] CORVANE_ZPS_API ZResult Fseek(std::FILE* file, long offset, int whence) noexcept;

// Writes `bytes` bytes. `written` receives how many were written, fewer than asked for only on a failure. A signal that
// interrupts the write is no failure.
CORVANE_ZPS_API ZResult Fwrite(const void* data, std::size_t bytes, std::FILE* file, std::size_t& written) noexcept;

// Cuts the file off at `length` bytes, or extends it with zeros.
[[nodiscard]] CORVANE_ZPS_API ZResult Ftruncate(std::FILE* file, unsigned long long length) noexcept;

}  // namespace Corvane::Wrappers::Sys
