// ZUrl. The first line of the input is a URL, the rest a name. Whatever it is:
//   - a URL that is printed and parsed again is equal, but for one slash of two at the end;
//   - what is valid libcurl's parser takes, with the same scheme and a host, without any guessing;
//   - a name that is joined is the last segment, in unreserved characters, and decodes to the name again;
//   - a URL without query and fragment that is valid stays so with a name and with another scheme.

#include <curl/curl.h>

#include <memory>

#include <Corvane/Base/Url.h>

#include "fuzz/Input.h"
#include "fuzz/Require.h"

namespace {

using namespace CorvaneFuzz;
using Corvane::ZString, Corvane::ZUrl;

std::string PartOf(CURLU* url, CURLUPart part) {
  char* text = nullptr;
  Require(curl_url_get(url, part, &text, 0) == CURLUE_OK, "libcurl knows the part");
  return std::unique_ptr<char, void (*)(void*)>(text, curl_free).get();
}

void CheckValid(const ZUrl& url, const ZString& name) {
  const std::unique_ptr<CURLU, void (*)(CURLU*)> parsed(curl_url(), curl_url_cleanup);
  const std::string text = Narrow(url.ToString());
  Require(!curl_url_set(parsed.get(), CURLUPART_URL, text.c_str(), CURLU_NON_SUPPORT_SCHEME), "libcurl takes it");
  Require(PartOf(parsed.get(), CURLUPART_SCHEME) == Narrow(url.GetProtocol()), "the scheme is libcurl's");
  Require(!PartOf(parsed.get(), CURLUPART_HOST).empty(), "there is a host");
  if (text.find_first_of("?#") != text.npos) return;
  Require((url / name).IsValid(), "a name makes nothing invalid");
  ZUrl other = url;
  other.SetProtocol(L"ftp");
  Require(other.IsValid() && other.GetProtocol() == L"ftp", "another scheme makes nothing invalid");
}

void CheckName(const ZUrl& url, const ZString& name) {
  const ZString joined = (url / name).ToString();
  const std::wstring last = joined.Str().substr(joined.FindR(L'/') + 1);
  ZString decoded;
  Require(ZUrl::Decode(ZString(last), decoded) && decoded == name, "the last segment is the name");
  constexpr wchar_t kUnreserved[] = L"%-._~0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
  Require(last.find_first_not_of(kUnreserved) == last.npos, "only unreserved characters");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string_view rest = BytesOf(data, size);
  const ZUrl url(Wide(TakeLine(rest)));
  const ZString& text = url.ToString();
  const ZString again = ZUrl(text).ToString();
  Require(again == text || (again + L"/" == text && again[again.Length() - 1] == L'/'), "parsed again it is equal");
  const ZString name = Wide(rest.substr(0, rest.find('/')));
  if (url.IsValid()) CheckValid(url, name);
  CheckName(url, name);
  return 0;
}
