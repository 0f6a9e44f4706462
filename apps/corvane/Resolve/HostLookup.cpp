#include "apps/corvane/Resolve/HostLookup.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <memory>
#include <string>

#include <Corvane/Base/StringCoding.h>
#include <Corvane/GetHostByName.h>

#include "apps/corvane/Text.h"

namespace CorvaneCli {
namespace {

using Corvane::ZString;
using Corvane::ZStringEncoder;

struct AddressesDeleter {
  void operator()(addrinfo* addresses) const noexcept { freeaddrinfo(addresses); }
};
using Addresses = std::unique_ptr<addrinfo, AddressesDeleter>;

// Names come from whoever answers for the host; they are ASCII or, at worst, not.
std::string HostText(const char* name) { return name == nullptr ? std::string() : ToUtf8(FromUtf8(name)); }

// An address of IPv6 as it stands in URLs is one without its brackets to the resolver.
ZString WithoutBrackets(const ZString& host) {
  const std::wstring& text = host.Str();
  const bool isAddress = text.size() > 2 && text.front() == L'[' && text.back() == L']' && text.find(L':') != text.npos;
  return isAddress ? ZString(text.substr(1, text.size() - 2)) : host;
}

void AddAddress(const char* address, HostReport& report) {
  std::vector<std::string>& known = report.addresses;
  if (std::find(known.begin(), known.end(), address) == known.end()) known.emplace_back(address);
}

bool FillFromVersion4(const ZString& host, HostReport& report) {
  const Corvane::ZGetHostByName lookup(host);
  const hostent* const found = lookup.GetHostEnt();
  if (found == nullptr) return false;
  report.name = HostText(found->h_name);
  for (char** alias = found->h_aliases; alias != nullptr && *alias != nullptr; ++alias) {
    report.aliases.push_back(HostText(*alias));
  }
  for (char** address = found->h_addr_list; address != nullptr && *address != nullptr; ++address) {
    std::array<char, INET6_ADDRSTRLEN> text{};
    if (inet_ntop(found->h_addrtype, *address, text.data(), text.size()) != nullptr) AddAddress(text.data(), report);
  }
  return true;
}

Addresses AskForAll(const ZString& host) {
  const ZStringEncoder name(host, ZStringEncoder::Local);
  if (name.CStr() == nullptr) return nullptr;
  addrinfo hints{};
  hints.ai_family = AF_UNSPEC;
  hints.ai_socktype = SOCK_STREAM;  // each address once, not once for each kind of socket
  hints.ai_flags = AI_CANONNAME;
  addrinfo* found = nullptr;
  if (getaddrinfo(name.CStr(), nullptr, &hints, &found) != 0) return nullptr;
  return Addresses(found);
}

void AddAll(const Addresses& addresses, HostReport& report) {
  for (const addrinfo* entry = addresses.get(); entry != nullptr; entry = entry->ai_next) {
    std::array<char, NI_MAXHOST> text{};  // with a scope, such as "%eth0", which inet_ntop does not know
    const int failed =
        getnameinfo(entry->ai_addr, entry->ai_addrlen, text.data(), text.size(), nullptr, 0, NI_NUMERICHOST);
    if (failed == 0) AddAddress(text.data(), report);
  }
}

}  // namespace

bool LookUpHost(const ZString& host, HostReport& report) {
  const ZString name = WithoutBrackets(host);
  report.name = ToUtf8(name);
  const bool hasVersion4 = FillFromVersion4(name, report);
  const Addresses all = AskForAll(name);
  if (!hasVersion4 && all != nullptr && all->ai_canonname != nullptr) report.name = HostText(all->ai_canonname);
  AddAll(all, report);
  return !report.addresses.empty();
}

}  // namespace CorvaneCli
