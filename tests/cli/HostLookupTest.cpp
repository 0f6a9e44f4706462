// What becomes of a resolver's answers, over a resolver of the test's own.

#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <net/if.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <deque>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "apps/corvane/Resolve/HostLookup.h"
#include "tests/support/Env.h"
#include "tests/support/NextFunction.h"

namespace {

// What the two functions of the resolver find.
struct Zone {
  std::vector<std::string> version4;  // by gethostbyname_r; nothing: not found
  std::vector<std::string> aliases;
  std::string canonicalName;
  std::vector<std::string>
      all;  // by getaddrinfo, in its order, "%N" behind one of IPv6 is its scope; nothing: not found
};

Zone s_zone;
std::vector<std::string> s_asked;

// One list of getaddrinfo, with all that it points to.
struct List {
  std::deque<sockaddr_storage> addresses;
  std::deque<addrinfo> entries;
  std::string name;
};
std::map<const addrinfo*, std::unique_ptr<List>> s_lists;  // those that nobody has freed yet, by their first entries

sockaddr_storage AddressOf(const std::string& text, addrinfo& entry) {
  sockaddr_storage storage{};
  const bool isVersion6 = text.find(':') != std::string::npos;
  entry.ai_family = isVersion6 ? AF_INET6 : AF_INET;
  entry.ai_addrlen = isVersion6 ? sizeof(sockaddr_in6) : sizeof(sockaddr_in);
  storage.ss_family = static_cast<sa_family_t>(entry.ai_family);
  const std::size_t scope = text.find('%');
  const std::string address = text.substr(0, scope);
  if (isVersion6) {
    auto* const in6 = reinterpret_cast<sockaddr_in6*>(&storage);
    if (scope != std::string::npos) in6->sin6_scope_id = static_cast<unsigned int>(std::stoul(text.substr(scope + 1)));
    EXPECT_EQ(inet_pton(AF_INET6, address.c_str(), &in6->sin6_addr), 1) << text;
  } else {
    EXPECT_EQ(inet_pton(AF_INET, address.c_str(), &reinterpret_cast<sockaddr_in*>(&storage)->sin_addr), 1) << text;
  }
  return storage;
}

}  // namespace

// The program's definitions take the place of the system's, for the library too.

CORVANE_TEST_STANDS_IN int gethostbyname_r(const char* name, hostent* entry, char* /*buffer*/, std::size_t /*bytes*/,
                                           hostent** result, int* hostError) {
  static std::deque<in_addr> addresses;
  static std::vector<char*> addressList, aliasList;
  s_asked.push_back(std::string("4 ") + name);
  *result = nullptr;
  *hostError = HOST_NOT_FOUND;
  if (s_zone.version4.empty()) return 0;
  addresses.clear();
  addressList.clear();
  aliasList.clear();
  for (const std::string& text : s_zone.version4) {
    EXPECT_EQ(inet_pton(AF_INET, text.c_str(), &addresses.emplace_back()), 1) << text;
    addressList.push_back(reinterpret_cast<char*>(&addresses.back()));
  }
  for (std::string& alias : s_zone.aliases) aliasList.push_back(alias.data());
  addressList.push_back(nullptr);
  aliasList.push_back(nullptr);
  *entry = hostent{s_zone.canonicalName.data(), aliasList.data(), AF_INET, sizeof(in_addr), addressList.data()};
  *result = entry;
  return 0;
}

CORVANE_TEST_STANDS_IN int getaddrinfo(const char* name, const char* /*service*/, const addrinfo* hints,
                                       addrinfo** result) {
  s_asked.push_back(std::string("all ") + name);
  EXPECT_EQ(hints->ai_family, AF_UNSPEC);
  if (s_zone.all.empty()) return EAI_NONAME;
  auto list = std::make_unique<List>();
  list->name = s_zone.canonicalName;
  for (const std::string& text : s_zone.all) {
    addrinfo& entry = list->entries.emplace_back();
    entry.ai_addr = reinterpret_cast<sockaddr*>(&list->addresses.emplace_back(AddressOf(text, entry)));
    if (list->entries.size() > 1) list->entries[list->entries.size() - 2].ai_next = &entry;
  }
  *result = &list->entries.front();
  (*result)->ai_canonname = list->name.data();
  s_lists.emplace(*result, std::move(list));
  return 0;
}

CORVANE_TEST_STANDS_IN void freeaddrinfo(addrinfo* addresses) { s_lists.erase(addresses); }

namespace CorvaneCli {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class HostLookup : public testing::Test {
 protected:
  void SetUp() override { s_asked.clear(); }
  void TearDown() override { EXPECT_TRUE(s_lists.empty()); }

  void LookUp(const wchar_t* host, Zone zone) {
    s_zone = std::move(zone);
    m_isFound = LookUpHost(host, m_report);
  }

  bool m_isFound = false;
  HostReport m_report;
};

TEST_F(HostLookup, ListsTheAddressesOfVersion4FirstAndNoneTwice) {
  LookUp(L"www.example", {{"192.0.2.1", "192.0.2.2"},
                          {"www.example", "web.example"},
                          "host.example",
                          {"2001:db8::2", "192.0.2.2", "192.0.2.3", "2001:db8::1", "2001:db8::2"}});
  EXPECT_TRUE(m_isFound);
  EXPECT_EQ(m_report.name, "host.example");
  EXPECT_THAT(m_report.aliases, ElementsAre("www.example", "web.example"));
  EXPECT_THAT(m_report.addresses, ElementsAre("192.0.2.1", "192.0.2.2", "2001:db8::2", "192.0.2.3", "2001:db8::1"));
  EXPECT_THAT(s_asked, ElementsAre("4 www.example", "all www.example"));
}

TEST_F(HostLookup, FindsAHostThatHasVersion6Only) {
  LookUp(L"six.example", {{}, {}, "real.example", {"2001:db8::1"}});
  EXPECT_TRUE(m_isFound);
  EXPECT_EQ(m_report.name, "real.example");
  EXPECT_THAT(m_report.aliases, IsEmpty());
  EXPECT_THAT(m_report.addresses, ElementsAre("2001:db8::1"));
}

TEST_F(HostLookup, FindsAHostThatOnlyTheOlderFunctionKnows) {
  LookUp(L"old.example", {{"192.0.2.1", "192.0.2.1"}, {}, "old.example", {}});
  EXPECT_TRUE(m_isFound);
  EXPECT_THAT(m_report.addresses, ElementsAre("192.0.2.1"));
}

TEST_F(HostLookup, NamesTheHostThatIsNotFound) {
  LookUp(L"no.example", {});
  EXPECT_FALSE(m_isFound);
  EXPECT_EQ(m_report.name, "no.example");
  EXPECT_THAT(m_report.addresses, IsEmpty());
}

TEST_F(HostLookup, TakesTheBracketsFromAnAddressOnly) {
  LookUp(L"[2001:db8::1]", {{}, {}, "2001:db8::1", {"2001:db8::1"}});
  EXPECT_EQ(m_report.name, "2001:db8::1");
  LookUp(L"[name]", {});
  LookUp(L"[]", {});
  LookUp(L"[::1", {});
  EXPECT_THAT(s_asked, ElementsAre("4 2001:db8::1", "all 2001:db8::1", "4 [name]", "all [name]", "4 []", "all []",
                                   "4 [::1", "all [::1"));
}

TEST_F(HostLookup, ShowsTheScopeOfAnAddress) {
  const unsigned int loopback = if_nametoindex("lo");
  ASSERT_NE(loopback, 0U);
  LookUp(L"near.example", {{}, {}, "near.example", {"fe80::1%" + std::to_string(loopback)}});
  EXPECT_THAT(m_report.addresses, ElementsAre("fe80::1%lo"));
}

TEST_F(HostLookup, AsksNobodyForANameThatTheLocaleCannotExpress) {
  const CorvaneTest::ScopedLocale locale("C");
  LookUp(L"b\u00fccher.example", {{"192.0.2.1"}, {}, "x", {"192.0.2.1"}});
  EXPECT_FALSE(m_isFound);
  EXPECT_THAT(s_asked, IsEmpty());
}

}  // namespace
}  // namespace CorvaneCli
