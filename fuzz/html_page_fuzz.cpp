// The reader of directory pages. The input is a page. Whatever it is:
//   - every name is a plain file name, is there once, and what is left out is bounded (see NamesOf);
//   - as many entries as there are may be allowed, and not one less;
//   - a comment before the page, and another writing of the same address, change nothing;
//   - a link to something else on the server changes no entry, but is left out;
//   - as a link, the input is the same read at once as it is read by the parser of requests.

#include <Corvane/TreeDownload/PageLinkImpl.h>

#include "fuzz/Pages.h"

namespace {

using namespace CorvaneFuzz;
using Corvane::PageAddress;
using Corvane::PageLink;

constexpr std::string_view kUrl = "http://files.example/pub/my%20dir/";

Page Read(std::string_view page, std::size_t mostEntries = kAnyNumber, std::string_view url = kUrl) {
  return Corvane::ReadHtmlPage(page, url, "", mostEntries);
}

void RequireSameLink(std::string_view href) {
  const PageAddress address(kUrl);
  PageLink quick;
  PageLink byParser;
  if (!address.ResolveQuickly(href, quick)) return;
  address.ResolveByParser(href, byParser);
  Require(quick.kind == byParser.kind && quick.isFolder == byParser.isFolder && quick.text == byParser.text,
          "both ways of reading a link agree");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  const Page page = Read(text);
  NamesOf(page);
  RequireLimit(page, [&](std::size_t mostEntries) { return Read(text, mostEntries); });
  Require(AreSame(Read("<!-- > -->" + std::string(text)), page), "a comment changes nothing");
  Require(AreSame(Read(text, kAnyNumber, "HTTP://Files.Example:80/pub/my%20dir/"), page),
          "another writing of the address changes nothing");
  const Page more = Read("<a href='/elsewhere/x'></a>" + std::string(text));
  Require(NamesOf(more) == NamesOf(page) && more.leftOut > 0, "a link to elsewhere is left out");
  RequireSameLink(text.substr(0, 4096));
  return 0;
}
