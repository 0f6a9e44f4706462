#include "apps/corvane/PartRecord.h"

#include <algorithm>
#include <cstddef>
#include <nlohmann/json.hpp>

namespace CorvaneCli {
namespace {

using Json = nlohmann::ordered_json;

constexpr int kMostDepth = 8;
constexpr const char* kVersionKey = "corvane";
constexpr unsigned int kVersion = 1;

bool IsUsableText(const Json& value) {
  if (!value.is_string()) return false;
  const auto& text = value.get_ref<const std::string&>();
  return std::none_of(text.begin(), text.end(), [](char character) {
    const auto byte = static_cast<unsigned char>(character);
    return byte < 0x20 || byte == 0x7F;
  });
}

// The member, or null when there is none.
const Json& Member(const Json& object, const char* key) {
  static const Json none;
  const auto found = object.find(key);
  return found == object.end() ? none : *found;
}

bool IsThisVersion(const Json& object) {
  const Json& version = Member(object, kVersionKey);
  return version.is_number_unsigned() && version.get<unsigned long long>() == kVersion;
}

// A discarded value when the text is no JSON or is nested deeply.
Json Parse(std::string_view text) {
  bool isTooDeep = false;
  const auto watchDepth = [&isTooDeep](int depth, Json::parse_event_t /*event*/, Json& /*parsed*/) {
    isTooDeep = isTooDeep || depth > kMostDepth;
    return !isTooDeep;
  };
  Json value = Json::parse(text, watchDepth, /*allow_exceptions=*/false);
  return isTooDeep ? Json(Json::value_t::discarded) : value;
}

}  // namespace

std::string Format(const PartRecord& record) {
  const Json object = {{kVersionKey, kVersion},
                       {"url", record.url},
                       {"validator", record.validator},
                       {"size", record.size ? Json(*record.size) : Json(nullptr)}};
  return object.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
}

std::optional<PartRecord> ParsePartRecord(std::string_view text) {
  if (text.size() > kMostRecordBytes) return std::nullopt;
  const Json object = Parse(text);
  if (!object.is_object() || !IsThisVersion(object)) return std::nullopt;
  const Json& url = Member(object, "url");
  const Json& validator = Member(object, "validator");
  const Json& size = Member(object, "size");
  if (!IsUsableText(url) || !IsUsableText(validator)) return std::nullopt;
  if (!size.is_null() && !size.is_number_unsigned()) return std::nullopt;
  PartRecord record{url.get<std::string>(), validator.get<std::string>(), std::nullopt};
  if (!size.is_null()) record.size = size.get<unsigned long long>();
  return record;
}

}  // namespace CorvaneCli
