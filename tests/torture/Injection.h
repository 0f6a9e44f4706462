#pragma once

#include <array>
#include <cstddef>
#include <string>

// Failures on demand: of memory, and of what the library asks of the system.
namespace CorvaneTest {

// What can be made to fail. The calls of a family fail for the same reasons.
enum class Target {
  kLibraryMemory,  // what the library allocates
  kAllMemory,      // that, and what libcurl and OpenSSL allocate
  kOpen,           // open, openat
  kRead,           // read, pread, and the fread with which libcurl reads a file that is posted
  kWrite,          // write, fwrite
  kSeek,           // lseek, fseek
  kStatus,         // stat, lstat, fstat, fstatat
  kClose,          // close, fclose
  kRemove,         // unlink, unlinkat
  kRename,         // renameat
  kTimes,          // utimensat, futimens
  kMode,           // chmod
  kMakeFolder,     // mkdir, mkdirat
  kSpace,          // statvfs, fstatvfs
  kTruncate,       // ftruncate, fflush
  kLock,           // flock
  kControl,        // fcntl
  kStream,         // fdopen, setvbuf
  kReadFolder,     // fdopendir, readdir
  kSocket,         // socket
};
const char* NameOf(Target target);

// How a call fails.
struct Fault {
  int error = 0;           // with this errno
  bool isShort = false;    // not at all, but it moves half of the bytes only; with `error` it fails behind that half
  bool isLasting = false;  // and so do all further ones
};
std::string NameOf(const Fault& fault);

// Makes one call of its thread fail while it exists; other threads, such as those of servers, notice nothing. Calls of the system
// count only where the library makes them: those of libcurl and of the test itself do not, but for fread.
class Injection {
 public:
  // The call with this number fails, counted from 1. With 0 none does; they are counted all the same.
  Injection(Target target, std::size_t number, Fault fault = {});
  ~Injection();
  Injection(const Injection&) = delete;
  Injection& operator=(const Injection&) = delete;

  [[nodiscard]] std::size_t Calls() const { return m_calls; }
  [[nodiscard]] bool HasFailed() const { return m_number != 0 && m_calls >= m_number; }
  // Allocations that would have counted but for a LeavingOut.
  [[nodiscard]] std::size_t LeftOut() const { return m_leftOut; }
  // The call that failed and what called it, for messages.
  [[nodiscard]] std::string Place() const;

  // While it exists nothing of its thread counts: for the code of a test that the library calls back.
  class Pause {
   public:
    Pause() noexcept;
    ~Pause();
    Pause(const Pause&) = delete;
    Pause& operator=(const Pause&) = delete;

   private:
    Injection* m_paused;
  };

  // While it exists no allocation of libcurl or OpenSSL fails: for what they do not survive.
  class LeavingOut {
   public:
    LeavingOut() noexcept;
    ~LeavingOut();
    LeavingOut(const LeavingOut&) = delete;
    LeavingOut& operator=(const LeavingOut&) = delete;

   private:
    bool m_former;
  };

  // --- For what stands in for others. ---

  enum class Memory { kLibrary, kOther };
  // Whether this allocation is to fail. `place` says who asked for it, if anybody knows; it is kept.
  static bool FailsMemory(Memory whose, const char* place, int line = 0) noexcept;
  // How this call is to fail; null when it is not.
  static const Fault* FailureOf(Target target, const char* function) noexcept;

 private:
  bool CountAndJudge() noexcept;
  void Remember(const char* place, int line) noexcept;

  Target m_target;
  std::size_t m_number;
  Fault m_fault;
  std::size_t m_calls = 0;
  std::size_t m_leftOut = 0;
  const char* m_place = nullptr;
  int m_line = 0;
  std::array<void*, 14> m_frames{};
  int m_frameCount = 0;
};

// Lets libcurl and OpenSSL allocate through this program, and finds out where the libraries lie. Called once, before anything uses
// either of the two. Throws std::runtime_error when that is too late.
void PrepareInjection();

bool IsLibraryCode(const void* address) noexcept;  // of libzn and libzps
bool IsLibcurlCode(const void* address) noexcept;

}  // namespace CorvaneTest
