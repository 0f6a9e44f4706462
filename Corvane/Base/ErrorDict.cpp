#include <Corvane/Base/ErrorDict.h>

#include <cstring>
#include <mutex>
#include <optional>
#include <shared_mutex>
#include <string>
#include <type_traits>

#include <Corvane/Base/ResultTableImpl.h>

namespace Corvane {

namespace {

constexpr unsigned int kFacilities = 0x800;  // the facility is an 11-bit field

// A slot for every facility, initialised by the compiler and never destroyed, so that libraries can register their
// codes in static initialisers and withdraw them in static destructors without regard to the order of ours.
constinit const ZErrorMap* facilityMaps[kFacilities] = {};  // guarded by facilityMutex
constinit std::shared_mutex facilityMutex;
// Everybody who wants facilityMutex comes in through this gate, and a writer keeps it shut behind itself until it is
// in. The shared_mutex alone lets readers in while a writer waits, and where threads read all the time it would wait
// for seconds.
constinit std::mutex facilityGate;
static_assert(std::is_trivially_destructible_v<std::shared_mutex> && std::is_trivially_destructible_v<std::mutex>);

[[nodiscard]] std::shared_lock<std::shared_mutex> LockToRead() {
  const std::lock_guard<std::mutex> gate(facilityGate);
  return std::shared_lock<std::shared_mutex>(facilityMutex);
}

[[nodiscard]] std::unique_lock<std::shared_mutex> LockToWrite() {
  const std::lock_guard<std::mutex> gate(facilityGate);
  return std::unique_lock<std::shared_mutex>(facilityMutex);
}

bool IsReplaceable(unsigned int facility) noexcept { return facility != 0 && facility < kFacilities; }

// strerror_r comes in two kinds, told apart by what they return: GNU's text, which need not be in the buffer, and the
// status of POSIX.
[[maybe_unused]] const char* ErrnoText(const char* text, const char* /*buffer*/) noexcept { return text; }
[[maybe_unused]] const char* ErrnoText(int status, const char* buffer) noexcept {
  return status == 0 ? buffer : nullptr;
}

std::optional<ZString> FindErrnoMessage(ZResult code) {
  if (code <= BASE_E_ERRNO || code > BASE_E_ERRNO + kLargestErrno) return std::nullopt;
  char buffer[256] = {};
  const char* text = ErrnoText(strerror_r(static_cast<int>(code - BASE_E_ERRNO), buffer, sizeof buffer), buffer);
  if (text == nullptr) return std::nullopt;
  return ZString(text);
}

std::optional<ZString> FindOwnMessage(ZResult code) {
  for (const ResultRow& row : kResultTable) {
    if (row.code == code) return ZString(row.text);
  }
  return FindErrnoMessage(code);
}

std::optional<ZString> FindRegisteredMessage(ZResult code) {
  const auto lock = LockToRead();
  const ZErrorMap* map = facilityMaps[FacilityOf(code)];
  if (map == nullptr) return std::nullopt;
  const auto entry = map->find(code);
  if (entry == map->end()) return std::nullopt;
  return entry->second;
}

ZString DescribeUnknown(ZResult code) {
  std::wstring text = L"Unknown error 0x";
  for (unsigned int shift = 32; shift > 0; shift -= 4) text += L"0123456789ABCDEF"[code >> (shift - 4) & 0xFu];
  return ZString(std::move(text));
}

}  // namespace

void ZErrorDict::Register(unsigned int facility, const ZErrorMap* map) {
  if (!IsReplaceable(facility)) return;
  const auto lock = LockToWrite();
  facilityMaps[facility] = map;
}

void ZErrorDict::Unregister(unsigned int facility) { Register(facility, nullptr); }

void ZErrorDict::Unregister(unsigned int facility, const ZErrorMap* map) {
  if (!IsReplaceable(facility)) return;
  const auto lock = LockToWrite();
  if (facilityMaps[facility] == map) facilityMaps[facility] = nullptr;
}

std::size_t ZErrorDict::CountMessages(unsigned int facility) {
  if (!IsReplaceable(facility)) return 0;
  const auto lock = LockToRead();
  const ZErrorMap* map = facilityMaps[facility];
  return map == nullptr ? 0 : map->size();
}

ZString ZGetErrorMsg(ZResult code) {
  std::optional<ZString> message = FacilityOf(code) == 0 ? FindOwnMessage(code) : FindRegisteredMessage(code);
  return message ? *std::move(message) : DescribeUnknown(code);
}

}  // namespace Corvane
