#pragma once

#include <string_view>

// The other side of every connection that libcurl opens in this process: it has sent these bytes and nothing more before it is asked, and
// takes whatever is sent to it. No network, no thread and no time is part of it.
namespace CorvaneFuzz {

// For the connections that are opened from now on; at most 64 KiB. Must stay valid meanwhile.
void SetAnswer(std::string_view bytes);

}  // namespace CorvaneFuzz
