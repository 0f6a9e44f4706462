#include "tests/torture/Injection.h"

#include <dlfcn.h>
#include <execinfo.h>
#include <link.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <sstream>
#include <stdexcept>
#include <utility>

#include "tests/torture/Memory.h"

namespace CorvaneTest {
namespace {

constinit thread_local Injection* t_current = nullptr;
constinit thread_local bool t_isLeftOut = false;

struct CodeRange {
  std::uintptr_t begin = 0;
  std::uintptr_t end = 0;
  [[nodiscard]] bool Holds(const void* address) const noexcept {
    const auto number = reinterpret_cast<std::uintptr_t>(address);
    return number >= begin && number < end;
  }
};

constinit CodeRange s_zn;
constinit CodeRange s_zps;
constinit CodeRange s_libcurl;

CodeRange* RangeOf(const char* library) {
  if (std::strstr(library, "/libzn.so") != nullptr) return &s_zn;
  if (std::strstr(library, "/libzps.so") != nullptr) return &s_zps;
  return std::strstr(library, "/libcurl") != nullptr ? &s_libcurl : nullptr;
}

int TakeRange(dl_phdr_info* info, std::size_t /*size*/, void* /*object*/) {
  CodeRange* const range = RangeOf(info->dlpi_name);
  for (int i = 0; range != nullptr && i < info->dlpi_phnum; ++i) {
    const ElfW(Phdr)& part = info->dlpi_phdr[i];
    if (part.p_type != PT_LOAD || (part.p_flags & PF_X) == 0) continue;
    range->begin = info->dlpi_addr + part.p_vaddr;
    range->end = range->begin + part.p_memsz;
  }
  return 0;
}

std::string Describe(void* address) {
  std::ostringstream text;
  Dl_info info{};
  if (dladdr(address, &info) == 0 || info.dli_fname == nullptr) {
    text << address;
    return text.str();
  }
  const char* const slash = std::strrchr(info.dli_fname, '/');
  text << (slash != nullptr ? slash + 1 : info.dli_fname) << "+0x" << std::hex
       << reinterpret_cast<std::uintptr_t>(address) - reinterpret_cast<std::uintptr_t>(info.dli_fbase);
  if (info.dli_sname != nullptr) text << " (" << info.dli_sname << ')';
  return text.str();
}

}  // namespace

const char* NameOf(Target target) {
  switch (target) {
    case Target::kLibraryMemory:
      return "library memory";
    case Target::kAllMemory:
      return "all memory";
    case Target::kOpen:
      return "open";
    case Target::kRead:
      return "read";
    case Target::kWrite:
      return "write";
    case Target::kSeek:
      return "seek";
    case Target::kStatus:
      return "stat";
    case Target::kClose:
      return "close";
    case Target::kRemove:
      return "unlink";
    case Target::kRename:
      return "rename";
    case Target::kTimes:
      return "utimens";
    case Target::kMode:
      return "chmod";
    case Target::kMakeFolder:
      return "mkdir";
    case Target::kSpace:
      return "statvfs";
    case Target::kTruncate:
      return "truncate";
    case Target::kLock:
      return "flock";
    case Target::kControl:
      return "fcntl";
    case Target::kStream:
      return "fdopen";
    case Target::kReadFolder:
      return "readdir";
    case Target::kSocket:
      return "socket";
  }
  return "?";
}

std::string NameOf(const Fault& fault) {
  if (fault.isLasting) return "and all after it";
  std::string half = fault.isShort ? "half of it" : "";
  if (fault.error == 0) return half;
  return half + (half.empty() ? "" : ", ") + std::strerror(fault.error);
}

Injection::Injection(Target target, std::size_t number, Fault fault)
    : m_target(target), m_number(number), m_fault(fault) {
  if (t_current != nullptr) throw std::logic_error("something of this thread fails already");
  t_current = this;
}

Injection::~Injection() { t_current = nullptr; }

Injection::Pause::Pause() noexcept : m_paused(std::exchange(t_current, nullptr)) {}

Injection::Pause::~Pause() { t_current = m_paused; }

Injection::LeavingOut::LeavingOut() noexcept : m_former(std::exchange(t_isLeftOut, true)) {}

Injection::LeavingOut::~LeavingOut() { t_isLeftOut = m_former; }

bool Injection::CountAndJudge() noexcept {
  ++m_calls;
  return m_calls == m_number || (m_fault.isLasting && HasFailed());
}

void Injection::Remember(const char* place, int line) noexcept {
  const Pause pause;
  const int error = errno;
  m_place = place;
  m_line = line;
  m_frameCount = backtrace(m_frames.data(), static_cast<int>(m_frames.size()));
  errno = error;
}

bool Injection::FailsMemory(Memory whose, const char* place, int line) noexcept {
  Injection* const injection = t_current;
  if (injection == nullptr) return false;
  const bool counts = injection->m_target == Target::kAllMemory ||
                      (injection->m_target == Target::kLibraryMemory && whose == Memory::kLibrary);
  if (counts && t_isLeftOut && whose == Memory::kOther) {
    ++injection->m_leftOut;
    return false;
  }
  if (!counts || !injection->CountAndJudge()) return false;
  if (injection->m_place == nullptr) injection->Remember(place, line);
  return true;
}

const Fault* Injection::FailureOf(Target target, const char* function) noexcept {
  Injection* const injection = t_current;
  if (injection == nullptr || injection->m_target != target || !injection->CountAndJudge()) return nullptr;
  if (injection->m_place == nullptr) injection->Remember(function, 0);
  return &injection->m_fault;
}

std::string Injection::Place() const {
  std::ostringstream text;
  text << (m_place != nullptr ? m_place : "memory");
  if (m_line != 0) text << ':' << m_line;
  // The first two frames are this file's and the stand-in's.
  for (int i = 2; i < m_frameCount; ++i) text << "\n    " << Describe(m_frames[static_cast<std::size_t>(i)]);
  return text.str();
}

void PrepareInjection() {
  std::array<void*, 2> frames{};
  backtrace(frames.data(), static_cast<int>(frames.size()));  // what it needs it loads at its first call
  PrepareMemory();
  dl_iterate_phdr(&TakeRange, nullptr);
  if (s_zn.end == 0 || s_zps.end == 0 || s_libcurl.end == 0) throw std::runtime_error("a library is not loaded");
}

bool IsLibraryCode(const void* address) noexcept { return s_zn.Holds(address) || s_zps.Holds(address); }

bool IsLibcurlCode(const void* address) noexcept { return s_libcurl.Holds(address); }

}  // namespace CorvaneTest
