#pragma once

#include <fmt/core.h>

#include <nlohmann/json.hpp>
#include <optional>
#include <string>

// How values look in every JSON report.
namespace CorvaneCli {

using Json = nlohmann::ordered_json;

[[nodiscard]] inline std::string FormatCode(unsigned int code) { return fmt::format("0x{:08x}", code); }

template <class Value>
[[nodiscard]] Json OrNull(const std::optional<Value>& value) {
  return value ? Json(*value) : Json(nullptr);
}

[[nodiscard]] inline Json OrNull(const std::string& text) { return text.empty() ? Json(nullptr) : Json(text); }

// indent: -1 puts all on one line. Texts come from servers and the file system; what is not UTF-8 must not cost the
// whole report. Characters that could rule a terminal are escaped.
[[nodiscard]] std::string Dump(const Json& value, int indent);

}  // namespace CorvaneCli
