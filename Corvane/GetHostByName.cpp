#include <Corvane/GetHostByName.h>

#include <cstddef>

#include <Corvane/Base/StringCoding.h>

namespace Corvane {
namespace {

constexpr int kUnitBytes = 1024;
constexpr int kMostUnits = 100;
// What the resolver stores in its host-error output when the buffer is too small: the value of ERANGE. The return value is
// not looked at, on purpose: only a resolver that says so in its host-error output is asked again.
constexpr int kBufferTooSmall = 34;

}  // namespace

struct ZGetHostByName::Block {
  hostent* result = nullptr;
  std::unique_ptr<char[]> buffer;
  int units = 0;  // size of the buffer in kUnitBytes
  hostent entry{};

  void Allocate(int newUnits);
  void Lookup(const char* name);
};

// Leaves an empty buffer, not a lost one, when memory runs out. The old buffer goes first: both are never needed.
void ZGetHostByName::Block::Allocate(int newUnits) {
  buffer.reset();
  units = 0;
  buffer.reset(new char[static_cast<std::size_t>(newUnits) * kUnitBytes]);
  units = newUnits;
}

void ZGetHostByName::Block::Lookup(const char* name) {
  result = nullptr;
  if (units == 0) Allocate(1);
  if (name == nullptr) return;
  int hostError = 0;
  for (;;) {
    const int failed =
        gethostbyname_r(name, &entry, buffer.get(), static_cast<std::size_t>(units) * kUnitBytes, &result, &hostError);
    if (failed == 0 || hostError != kBufferTooSmall || units >= kMostUnits) return;
    result = nullptr;  // what the last call left may point into the buffer that goes now
    Allocate(units + 1);
  }
}

ZGetHostByName::ZGetHostByName() : m_block(std::make_unique<Block>()) {}
ZGetHostByName::ZGetHostByName(char const* name) : ZGetHostByName() { m_block->Lookup(name); }
ZGetHostByName::ZGetHostByName(ZString const& name)
    : ZGetHostByName(ZStringEncoder(name, ZStringEncoder::Local).CStr()) {}
ZGetHostByName::~ZGetHostByName() = default;

void ZGetHostByName::Init(char const* name) { m_block->Lookup(name); }
void ZGetHostByName::Init(ZString const& name) { Init(ZStringEncoder(name, ZStringEncoder::Local).CStr()); }
hostent* ZGetHostByName::GetHostEnt() const noexcept { return m_block->result; }

}  // namespace Corvane
