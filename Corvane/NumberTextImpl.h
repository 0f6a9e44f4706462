#pragma once

#include <Corvane/Base/String.h>

namespace Corvane {

// Numbers in decimal, for messages.
inline ZString Number(long long number) { return ZString().SetNum(number, 'd'); }
inline ZString UnsignedNumber(unsigned long long number) { return ZString().SetNum(number, 'u'); }

}  // namespace Corvane
