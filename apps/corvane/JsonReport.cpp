#include "apps/corvane/JsonReport.h"

#include <fmt/core.h>

#include <nlohmann/json.hpp>

namespace CorvaneCli {
namespace {

using Json = nlohmann::ordered_json;

std::string FormatCode(unsigned int code) { return fmt::format("0x{:08x}", code); }

template <class Value>
Json OrNull(const std::optional<Value>& value) {
  return value ? Json(*value) : Json(nullptr);
}

Json FormatEvents(const Report& report) {
  Json events = Json::array();
  for (const auto& [event, value] : report.events) events.push_back(Json::array({event, FormatCode(value)}));
  return events;
}

}  // namespace

std::string FormatJson(const Report& report) {
  Json object = {
      {"operation", report.operation},
      {"url", report.url},
      {"file", OrNull(report.file)},
      {"status", FormatCode(report.status)},
      {"error", report.error.empty() ? Json(nullptr) : Json(report.error)},
      {"contentSize", OrNull(report.contentSize)},
      {"downloadSize", report.downloadSize},
      {"transferSize", report.transferSize},
      {"transferRate", report.transferRate},
      {"transferTimeMs", report.transferTimeMs},
      {"header", report.header},
      {"events", FormatEvents(report)},
      {"partial", OrNull(report.partial)},
  };
  if (report.body) object["body"] = *report.body;
  // Texts come from servers and the file system; what is not UTF-8 must not cost the whole report.
  return object.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

}  // namespace CorvaneCli
