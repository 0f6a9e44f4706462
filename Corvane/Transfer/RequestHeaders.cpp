#include <Corvane/Transfer/RequestHeadersImpl.h>

#include <algorithm>
#include <array>
#include <new>
#include <utility>

#include <Corvane/Transfer/AnswerHeaderImpl.h>

namespace Corvane {
namespace {

// Fields that the library or libcurl sends by itself, and that would contradict what it knows of the request.
constexpr std::array kReserved = {"Range",          "If-Range",          "User-Agent",
                                  "Content-Length", "Transfer-Encoding", "Connection"};

bool IsTokenCharacter(char c) {
  constexpr std::string_view kMarks = "!#$%&'*+-.^_`|~";
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
         kMarks.find(c) != std::string_view::npos;
}

// The header as libcurl takes it, which has a form of its own for an empty value. None when it is refused.
std::optional<std::string> HeaderOf(const ZString& given) {
  const std::string text = Utf8Of(given);
  const std::size_t colon = text.find(':');
  if (colon == std::string::npos || colon == 0) return std::nullopt;
  const std::string name = text.substr(0, colon);
  const std::string_view value = std::string_view(text).substr(colon + 1);
  if (!std::all_of(name.begin(), name.end(), IsTokenCharacter) || !IsFieldValue(value)) return std::nullopt;
  const bool isReserved =
      std::any_of(kReserved.begin(), kReserved.end(), [&](const char* reserved) { return IsSameName(name, reserved); });
  if (isReserved) return std::nullopt;
  return value.find_first_not_of(" \t") == std::string_view::npos ? name + ";" : text;
}

bool AddHeader(std::vector<std::string>& headers, const ZString& given) {
  std::optional<std::string> header = HeaderOf(given);
  if (!header) return false;
  const bool isTwice = std::any_of(headers.begin(), headers.end(), [&](const std::string& other) {
    return IsSameName(NameOf(other), NameOf(*header));
  });
  if (!isTwice) headers.push_back(*std::move(header));
  return !isTwice;
}

}  // namespace

std::optional<std::vector<std::string>> RequestHeadersOf(const ZStringList& headers) {
  std::vector<std::string> list;
  for (const ZString& header : headers) {
    if (!AddHeader(list, header)) return std::nullopt;
  }
  return list;
}

bool IsFieldValue(std::string_view value) {
  return std::none_of(value.begin(), value.end(), [](char c) {
    const auto byte = static_cast<unsigned char>(c);
    return (byte < 0x20 && c != '\t') || byte == 0x7F;
  });
}

void Append(OwnedList& list, const std::string& text) {
  curl_slist* const longer = curl_slist_append(list.get(), text.c_str());
  if (longer == nullptr) throw std::bad_alloc();
  static_cast<void>(list.release());  // it is the beginning of the longer one
  list.reset(longer);
}

std::string Utf8Of(const ZString& text) {
  const ZStringEncoder encoder(text, ZStringEncoder::Utf8);
  return {encoder.CStr(), encoder.Length()};
}

}  // namespace Corvane
