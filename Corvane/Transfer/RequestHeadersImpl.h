#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <Corvane/Base/Container.h>
#include <Corvane/Transfer/CurlImpl.h>

// What hosts may ask to be sent in the header of a request, for whatever makes requests.

namespace Corvane {

// The headers, each "NAME: VALUE", in the form in which libcurl takes them. None when one is refused; see ZTransferOptions::headers.
[[nodiscard]] std::optional<std::vector<std::string>> RequestHeadersOf(const ZStringList& headers);

// Whether the text holds nothing that would end a header's line or hide in it.
[[nodiscard]] bool IsFieldValue(std::string_view value);

// Throws std::bad_alloc.
void Append(OwnedList& list, const std::string& text);

[[nodiscard]] std::string Utf8Of(const ZString& text);

}  // namespace Corvane
