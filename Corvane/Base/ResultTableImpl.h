#pragma once

#include <Corvane/Base/Result.h>

namespace Corvane {

// One code of this library's own facility.
struct ResultRow {
  ZResult code;
  const char* name;
  const wchar_t* text;
};

// Every code of facility 0 but those of the system's errno values. Numbers are never used again for something else.
inline constexpr ResultRow kResultTable[] = {
    {BASE_S_OK, "BASE_S_OK", L"Success"},
    {BASE_E_IN_USE, "BASE_E_IN_USE", L"Object is in use"},
    {BASE_E_BUSY, "BASE_E_BUSY", L"Object is busy"},
    {BASE_E_TIMEOUT, "BASE_E_TIMEOUT", L"Timed out"},
    {BASE_E_END_OF_STREAM, "BASE_E_END_OF_STREAM", L"Unexpected end of stream"},
    {BASE_E_INVALID_NAME, "BASE_E_INVALID_NAME", L"Name cannot be expressed in the local encoding"},
    {BASE_E_NOT_A_FILE, "BASE_E_NOT_A_FILE", L"Not a regular file or symbolic link"},
};

// The largest errno value that has a code.
inline constexpr int kLargestErrno = 4095;

}  // namespace Corvane
