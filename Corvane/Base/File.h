#pragma once

#include <Corvane/Base/Result.h>
#include <Corvane/Base/String.h>

namespace Corvane {

// Operations on files by path. Paths are converted to the local multibyte encoding; one that it cannot express gives
// BASE_E_INVALID_NAME. Other failures are reported as ResultFromErrno. Symbolic links are followed unless stated.
// `flags` is reserved and must be 0. Thread safety: as the file system's. Throws only std::bad_alloc.
class CORVANE_ZPS_API ZFile {
 public:
  // Whether something of that name exists. `*result`, when given, receives 0 or the reason why it is not known to
  // exist.
  [[nodiscard]] static bool Exists(const ZString& path, int flags, ZResult* result);
  // Whether the name is a directory's; `result` as in Exists.
  [[nodiscard]] static bool IsDirectory(const ZString& path, int flags, ZResult* result);
  // Whether the name is a regular file's: not a directory's, device's, FIFO's or socket's. `result` as in Exists.
  [[nodiscard]] static bool IsRegularFile(const ZString& path, int flags, ZResult* result);
  // The size in bytes; the system defines that of anything but a regular file. On a failure `size` is left as it was.
  static ZResult GetSize(const ZString& path, unsigned long long& size);
  // Removes a regular file or a symbolic link (the link itself). Anything else is refused with BASE_E_NOT_A_FILE: a
  // failed download into /dev/null must not delete the device.
  static ZResult Remove(const ZString& path, int flags);
  // Sets the times of last access and modification, in seconds since the epoch.
  [[nodiscard]] static ZResult SetTime(const ZString& path, long access, long modification);
  // Sets the permission bits (07777), such as 0755; the umask does not matter. Other bits are ignored.
  static ZResult Chmod(const ZString& path, unsigned int mode, int flags);
};

// What is known of one file, read at construction and by Update. A missing file is no error but an invalid object.
// Thread safety: one thread at a time.
class CORVANE_ZPS_API ZFileInfo {
 public:
  // Reads what is known of `path`. `flags` is reserved and must be 0.
  ZFileInfo(ZString path, int flags);

  // Reads the information again. Returns 0, or why the file cannot be read (IsValid is then false).
  ZResult Update();

  [[nodiscard]] const ZString& Name() const noexcept { return m_path; }  // the path as given
  [[nodiscard]] bool IsValid() const noexcept { return m_valid; }        // whether the last reading found something
  // As ZFile::IsRegularFile; false when not valid.
  [[nodiscard]] bool IsRegularFile() const noexcept { return m_regular; }
  [[nodiscard]] unsigned long long Size() const noexcept { return m_size; }  // bytes; 0 when not valid
  [[nodiscard]] long ModTime() const noexcept { return m_modTime; }  // seconds since the epoch; 0 when not valid

 private:
  ZString m_path;
  bool m_valid = false;
  bool m_regular = false;
  unsigned long long m_size = 0;
  long m_modTime = 0;
};

}  // namespace Corvane
