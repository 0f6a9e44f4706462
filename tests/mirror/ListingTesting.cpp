#include "tests/mirror/ListingTesting.h"

#include <gmock/gmock.h>

#include <Corvane/MultiDownloadImpl.h>

#include "tests/loopback/TransferTesting.h"
#include "tests/support/TempDir.h"

namespace CorvaneTest {
namespace {

using Impl = Corvane::ZMultiDownload::ZMultiDownloadImpl;
using Parser = void (Impl::*)(const Corvane::ZString&);
using testing::AllOf;
using testing::HasSubstr;
using testing::Ne;
using testing::Not;

Entries Parse(Parser parser, std::string_view text) {
  Impl run;
  (run.*parser)(Wide(text));
  EXPECT_THAT(run.m_status.load(), IsCode(Corvane::TRANSFER_E_NOT_STARTED));
  Entries entries;
  for (const auto& [name, size] : run.m_fileSizes) entries.emplace(Narrow(name), size);
  for (const auto& [name, size] : entries) {
    EXPECT_THAT(name, AllOf(Ne(""), Ne("."), Ne(".."), Not(HasSubstr("/")), Not(HasSubstr(std::string(1, '\0')))));
  }
  return entries;
}

std::size_t Count(Parser parser, const std::string& text) {
  Impl run;
  (run.*parser)(Wide(text));
  return run.m_fileSizes.size();
}

}  // namespace

Entries ParseHttp(std::string_view text) { return Parse(&Impl::ParseHttpListing, text); }
Entries ParseFtp(std::string_view text) { return Parse(&Impl::ParseFtpListing, text); }
std::size_t CountHttp(const std::string& text) { return Count(&Impl::ParseHttpListing, text); }
std::size_t CountFtp(const std::string& text) { return Count(&Impl::ParseFtpListing, text); }

std::string Fixture(const std::string& name) { return ReadFile(std::string(CORVANE_MIRROR_FIXTURES "/") + name); }

}  // namespace CorvaneTest
