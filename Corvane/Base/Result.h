#pragma once

#include <Corvane/Base/Export.h>

namespace Corvane {

// Every operation reports an unsigned 32-bit result code:
//
//   bit 31        severity: 1 = failure, 0 = success
//   bits 16 - 26  facility: who defined the code (0 = this base library)
//   bits 0 - 15   code within the facility
//
// ZGetErrorMsg (ErrorDict.h) gives the message of a code.
using ZResult = unsigned int;

// True when the top two bits of `code` are 1 and 0, the mark of a failure in every facility.
constexpr bool IsFailure(ZResult code) noexcept { return (code >> 30) == 2; }

// The facility that defined `code`.
constexpr unsigned int FacilityOf(ZResult code) noexcept { return (code >> 16) & 0x7FFu; }

// Done as it was asked for.
constexpr ZResult BASE_S_OK = 0;
// An operation is already running on the object: wait for it or abort it.
constexpr ZResult BASE_E_IN_USE = 0x80000008;
// The setting cannot change while an operation runs: wait, then set again.
constexpr ZResult BASE_E_BUSY = 0x8000005E;
// The awaited event did not come in time: wait again or give up.
constexpr ZResult BASE_E_TIMEOUT = 0x80000100;
// Fewer bytes than asked for were left.
constexpr ZResult BASE_E_END_OF_STREAM = 0x80000101;
// The local encoding cannot express the name: rename, or call setlocale first.
constexpr ZResult BASE_E_INVALID_NAME = 0x80000102;
// Refused, because it is neither a regular file nor a symbolic link.
constexpr ZResult BASE_E_NOT_A_FILE = 0x80000103;
// BASE_E_ERRNO + n reports the system's errno n.
constexpr ZResult BASE_E_ERRNO = 0x80001000;

// The code for errno value `error`: BASE_E_ERRNO + error, or BASE_S_OK for 0. Its message is the system's text.
// Values outside 0 to 4095, which no Linux system defines, are reported as EIO.
CORVANE_ZPS_API ZResult ResultFromErrno(int error) noexcept;

}  // namespace Corvane
