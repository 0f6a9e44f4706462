#pragma once

#include <Corvane/Base/String.h>

namespace Corvane {

// A URL (RFC 3986), parsed by libcurl's own parser (curl_url_set(3)), so that what is found valid here is what libcurl
// will fetch. The text is kept as given apart from what the operations say.
// Thread safety and errors: as ZString.
class CORVANE_ZPS_API ZUrl {
 public:
  ZUrl() = default;  // empty, and not valid
  // Parses `text`. A doubled slash at the end of the path becomes one, so that "/" can be appended to a directory's URL
  // whether or not it ends with one already. The slashes in front of the host are no part of the path, and a text with
  // a query or a fragment is kept as it is.
  ZUrl(ZString text);  // NOLINT(google-explicit-constructor): assigned from strings everywhere

  // The scheme in lower case, such as "https"; empty when the text has none. As for libcurl, a scheme is what stands
  // before ":/", so that "localhost:8080/a" has none.
  [[nodiscard]] ZString GetProtocol() const;
  // Replaces the scheme, or puts one in front of a text without: SetProtocol("http") makes "example.com/a"
  // "http://example.com/a".
  void SetProtocol(const ZString& protocol);
  // True when the text is a URL with a scheme and a host that libcurl can parse. Whether libcurl speaks the scheme and
  // knows the host shows in the request. Blanks and control characters make a URL invalid; they have to be
  // percent-encoded.
  [[nodiscard]] bool IsValid() const;
  // The text. Valid until this URL is changed or destroyed.
  [[nodiscard]] const ZString& ToString() const noexcept { return m_text; }

  // This URL and `name` with one "/" between them, as ZPath joins. Each segment of the name ("/" separates segments) is
  // percent-encoded from its UTF-8 form, all but the unreserved characters of RFC 3986 section 2.3 (letters, digits,
  // "-", ".", "_", "~"): so that blanks, "#", "?", "%", "+" and ";" reach the server as part of the name. The name is
  // put at the end of the text, behind a query too: "http://host/get?path=a/" and "b" give "http://host/get?path=a/b".
  [[nodiscard]] ZUrl operator/(const ZString& name) const;

  // The inverse: replaces every "%" with two hexadecimal digits by the byte they name, and decodes each run of such
  // bytes as UTF-8. A run that is not UTF-8 decodes byte by byte, each to the character of the same number; a "%"
  // without two digits stays as it is, and "+" is no blank.
  // Always returns true; `decoded` may be the same object as `text`.
  static bool Decode(const ZString& text, ZString& decoded);

 private:
  ZString m_text;
};

}  // namespace Corvane
