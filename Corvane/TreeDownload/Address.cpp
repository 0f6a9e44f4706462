#include <Corvane/TreeDownload/AddressImpl.h>

#include <algorithm>
#include <cctype>
#include <memory>
#include <new>

#include <curl/curl.h>

#include <Corvane/TreeDownload/EscapingImpl.h>

namespace Corvane {
namespace {

struct UrlDeleter {
  void operator()(CURLU* url) const noexcept { curl_url_cleanup(url); }
};
using OwnedUrl = std::unique_ptr<CURLU, UrlDeleter>;

// Null for what is no address.
OwnedUrl Parsed(const std::string& text) {
  OwnedUrl url(curl_url());
  if (url == nullptr) throw std::bad_alloc();
  const CURLUcode code = curl_url_set(url.get(), CURLUPART_URL, text.c_str(), CURLU_NON_SUPPORT_SCHEME);
  if (code == CURLUE_OUT_OF_MEMORY) throw std::bad_alloc();
  return code == CURLUE_OK ? std::move(url) : nullptr;
}

std::string Component(const OwnedUrl& url, CURLUPart part, unsigned int flags = 0) {
  char* text = nullptr;
  const CURLUcode code = curl_url_get(url.get(), part, &text, flags);
  if (code == CURLUE_OUT_OF_MEMORY) throw std::bad_alloc();
  const std::unique_ptr<char, decltype(&curl_free)> owned(text, curl_free);
  return code == CURLUE_OK ? std::string(text) : std::string();
}

std::string Lower(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
  return text;
}

Origin OriginOfParsed(const OwnedUrl& url) {
  return {Lower(Component(url, CURLUPART_SCHEME)), Lower(Component(url, CURLUPART_HOST)),
          Component(url, CURLUPART_PORT, CURLU_DEFAULT_PORT)};
}

// Whether a server that decodes first and resolves then would leave the directory.
bool HasDotSegments(const std::string& path) {
  const std::string padded = path + '/';
  return padded.find("/../") != padded.npos || padded.find("/./") != padded.npos;
}

}  // namespace

std::optional<Origin> OriginOf(const std::string& url) {
  const OwnedUrl parsed = Parsed(url);
  return parsed != nullptr ? std::optional(OriginOfParsed(parsed)) : std::nullopt;
}

bool MayRedirect(const std::string& from, const std::string& to) {
  const std::optional<Origin> source = OriginOf(from);
  const std::optional<Origin> target = OriginOf(to);
  if (!source || !target) return false;
  return target->scheme == "https" || (target->scheme == "http" && source->scheme == "http");
}

bool IsBelow(const std::string& top, const std::string& url) {
  const OwnedUrl directory = Parsed(top);
  const OwnedUrl place = Parsed(url);
  if (directory == nullptr || place == nullptr) return false;
  if (!(OriginOfParsed(directory) == OriginOfParsed(place))) return false;
  const std::string path = Unescaped(Component(place, CURLUPART_PATH));
  return path.starts_with(Unescaped(Component(directory, CURLUPART_PATH))) && !HasDotSegments(path);
}

std::string WithoutLogin(const std::string& url) {
  const OwnedUrl parsed = Parsed(url);
  if (parsed == nullptr) return {};
  curl_url_set(parsed.get(), CURLUPART_USER, nullptr, 0);
  curl_url_set(parsed.get(), CURLUPART_PASSWORD, nullptr, 0);
  return Component(parsed, CURLUPART_URL);
}

std::string QueryOf(const std::string& url) {
  const std::string sent = url.substr(0, url.find('#'));
  const std::size_t query = sent.find('?');
  return query == sent.npos ? std::string() : sent.substr(query);
}

std::string DirectoryOf(const std::string& url) {
  std::string directory = url.substr(0, url.find_first_of("?#"));
  while (directory.ends_with("//")) directory.pop_back();
  if (!directory.ends_with('/')) directory += '/';
  return directory;
}

}  // namespace Corvane
