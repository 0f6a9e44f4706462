#include "tests/mirror/ListingTesting.h"

#include <gmock/gmock.h>

#include <Corvane/MultiDownload/ListingImpl.h>

#include "tests/loopback/TransferTesting.h"
#include "tests/support/TempDir.h"

namespace CorvaneTest {
namespace {

using Corvane::Listing;
using Corvane::ListingKind;
using Parser = Listing (*)(const Corvane::ZString&);
using testing::AllOf;
using testing::HasSubstr;
using testing::Ne;
using testing::Not;

// The files alone; of those with the same name the last, as a mirror takes them.
Entries FilesOf(const Listing& listing) {
  Entries entries;
  for (const auto& [name, size, kind] : listing.entries) {
    EXPECT_THAT(Narrow(name),
                AllOf(Ne(""), Ne("."), Ne(".."), Not(HasSubstr("/")), Not(HasSubstr(std::string(1, '\0')))));
    if (kind == ListingKind::File) entries.insert_or_assign(Narrow(name), size);
  }
  return entries;
}

Entries Parse(Parser parser, std::string_view text) { return FilesOf(parser(Wide(text))); }

std::size_t Count(Parser parser, const std::string& text) { return parser(Wide(text)).entries.size(); }

Listing ParsePage(const Corvane::ZString& text) { return Corvane::ParseHttpListing(text); }

}  // namespace

Entries ParseHttp(std::string_view text) { return Parse(&ParsePage, text); }

Entries ParseHttp(std::string_view header, std::string_view page) {
  return FilesOf(Corvane::ParseHttpListing(Wide(header), Wide(page)));
}

Entries ParseFtp(std::string_view text) { return Parse(&Corvane::ParseFtpListing, text); }
std::size_t CountHttp(const std::string& text) { return Count(&ParsePage, text); }
std::size_t CountFtp(const std::string& text) { return Count(&Corvane::ParseFtpListing, text); }

std::string Fixture(const std::string& name) { return ReadFile(std::string(CORVANE_MIRROR_FIXTURES "/") + name); }

}  // namespace CorvaneTest
