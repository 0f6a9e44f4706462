#include "apps/corvane/Proxy.h"

#include <arpa/inet.h>
#include <strings.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <string_view>
#include <vector>

#include "apps/corvane/Text.h"

namespace CorvaneCli {
namespace {

std::string Variable(const std::string& name) {
  const char* const value = std::getenv(name.c_str());  // NOLINT(concurrency-mt-unsafe): never set here
  return value == nullptr ? std::string() : value;
}

std::string Upper(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
  return text;
}

// Where libcurl looks, in its order. HTTP_PROXY is not among them: a web server's CGI sets it from a request's header.
std::vector<std::string> VariablesFor(const std::string& scheme) {
  std::vector<std::string> names = {scheme + "_proxy"};
  if (scheme != "http") names.push_back(Upper(names.front()));
  names.insert(names.end(), {"all_proxy", "ALL_PROXY"});
  return names;
}

// Where a proxy's user and password begin and end; the same when it has none.
struct Range {
  std::size_t begin;
  std::size_t end;
};
Range SecretIn(std::string_view proxy) {
  const std::size_t scheme = proxy.find("://");
  const std::size_t begin = scheme == std::string_view::npos ? 0 : scheme + 3;
  const std::size_t at = proxy.rfind('@');
  return at == std::string_view::npos || at < begin ? Range{begin, begin} : Range{begin, at};
}

std::string NameOf(const std::string& proxy) {
  const Range secret = SecretIn(proxy);
  std::string name = proxy.substr(secret.end);
  if (!name.empty() && name.front() == '@') name.erase(0, 1);
  while (!name.empty() && name.back() == '/') name.pop_back();
  return DisplayName(name);
}

// "127.0.0.0/8". Only IPv4: an IPv6 network may be missed, and then a message names a proxy that was not asked.
bool IsInNetwork(const std::string& host, std::string_view network) {
  const std::size_t slash = network.find('/');
  if (slash == std::string_view::npos) return false;
  in_addr address{};
  in_addr base{};
  const std::optional<unsigned long long> bits = ParseNumber(network.substr(slash + 1));
  if (!bits || *bits > 32 || inet_pton(AF_INET, host.c_str(), &address) != 1 ||
      inet_pton(AF_INET, std::string(network.substr(0, slash)).c_str(), &base) != 1) {
    return false;
  }
  return *bits == 0 || ((ntohl(address.s_addr) ^ ntohl(base.s_addr)) >> (32 - *bits)) == 0;
}

// Whether the host is `name` or below it.
bool IsWithin(const std::string& host, std::string_view name) {
  if (!name.empty() && name.front() == '.') name.remove_prefix(1);
  if (name.empty() || host.size() < name.size()) return false;
  const std::size_t begin = host.size() - name.size();
  return strncasecmp(host.c_str() + begin, name.data(), name.size()) == 0 && (begin == 0 || host[begin - 1] == '.');
}

bool IsExempt(const std::string& host) {
  std::string list = Variable("no_proxy");
  if (list.empty()) list = Variable("NO_PROXY");
  if (list == "*") return true;
  constexpr const char* kSeparators = ", ";
  for (std::size_t begin = list.find_first_not_of(kSeparators); begin != std::string::npos;) {
    const std::size_t end = std::min(list.find_first_of(kSeparators, begin), list.size());
    const std::string_view entry = std::string_view(list).substr(begin, end - begin);
    if (IsWithin(host, entry) || IsInNetwork(host, entry)) return true;
    begin = list.find_first_not_of(kSeparators, end);
  }
  return false;
}

}  // namespace

std::optional<Proxy> FindProxy(const Target& target) {
  if (IsExempt(target.Host())) return std::nullopt;
  for (const std::string& variable : VariablesFor(target.scheme)) {
    const std::string value = Variable(variable);
    if (!value.empty()) return Proxy{variable, NameOf(value)};
  }
  return std::nullopt;
}

std::string HideProxySecrets(std::string text) {
  for (const char* const scheme : {"http", "https", "ftp"}) {
    for (const std::string& variable : VariablesFor(scheme)) {
      const std::string proxy = Variable(variable);
      const Range range = SecretIn(proxy);
      if (range.begin == range.end) continue;
      const std::string secret = proxy.substr(range.begin, range.end - range.begin) + '@';
      for (std::size_t at = text.find(secret); at != std::string::npos; at = text.find(secret, at + 4)) {
        text.replace(at, secret.size(), "***@");
      }
    }
  }
  return text;
}

}  // namespace CorvaneCli
