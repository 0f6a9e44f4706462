#pragma once

#include <memory>
#include <string>
#include <string_view>

#include <curl/curl.h>

#include <Corvane/TreeDownload/PageImpl.h>

namespace Corvane {

// Where a link of a page leads to.
struct PageLink {
  enum class Kind {
    Entry,   // one segment below the page's directory; `text` is its name, which may be none that is accepted
    Itself,  // the page; `text` is the query
    Above,   // a folder above the page
    Away,    // another server, or what is not http
    Other    // elsewhere on the server, or nowhere; `text` is where
  };
  Kind kind = Kind::Other;
  bool isFolder = false;  // of an entry
  std::string text;
};

// The address of a page, and what the links on it lead to. libcurl's parser resolves them, so that what is read here is
// what a request would ask for; but it takes microseconds, and pages may have a million links. So the plain ones are
// read at once where there is no doubt; a test compares both ways.
class PageAddress {
 public:
  // `url`: absolute, http or https, at most kMostPageUrlLength bytes.
  explicit PageAddress(std::string_view url);
  [[nodiscard]] bool IsRight() const noexcept { return !m_directory.empty(); }

  // What relative links begin at from now on, unless it is on another server or too long.
  void SetBase(std::string_view href);

  // `href`: the link as a browser has it, character references decoded, blanks around it removed.
  void Resolve(std::string_view href, PageLink& link) const;
  // The two ways; the quick one is false where it has doubts.
  bool ResolveQuickly(std::string_view href, PageLink& link) const;
  void ResolveByParser(std::string_view href, PageLink& link) const;

  // Of the page's address, as it has it.
  [[nodiscard]] const std::string& Host() const noexcept { return m_host; }

 private:
  struct UrlDeleter {
    void operator()(CURLU* url) const noexcept { curl_url_cleanup(url); }
  };
  using Url = std::unique_ptr<CURLU, UrlDeleter>;

  // Sets `url` to where the link leads; false when that is nowhere.
  static bool Follow(CURLU* url, std::string_view href);
  void Classify(CURLU* url, bool hasQuery, PageLink& link) const;

  Url m_base;
  std::string m_host;
  std::string m_origin;            // scheme, host in lower case, port
  std::string m_path;              // of the page itself, comparable
  std::string m_directory;         // of the page, as its address has it
  std::string m_directoryUrl;      // the same with scheme and host before it
  std::string m_comparable;        // m_directory, see Comparable
  std::string m_fileName;          // what follows the directory in the page's address, escapes decoded
  bool m_beginsElsewhere = false;  // relative links, at another directory than the page's
};

// Appends the text with its percent-escapes decoded; an escape that is not complete stays.
void AppendUnescaped(std::string_view text, std::string& decoded);

}  // namespace Corvane
