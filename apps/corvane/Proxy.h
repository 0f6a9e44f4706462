#pragma once

#include <optional>
#include <string>

#include "apps/corvane/Target.h"

// The proxies that the environment names: libcurl obeys them by itself, and its messages do not always say so.
// Thread safety: any thread; the environment is never changed.
namespace CorvaneCli {

struct Proxy {
  std::string variable;  // "https_proxy"
  std::string name;      // its value without user and password, "proxy.example:3128"
};

// The proxy that libcurl takes for `target`; nullopt for none.
[[nodiscard]] std::optional<Proxy> FindProxy(const Target& target);

// `text` with the users and passwords of all proxies in the environment replaced by "***". libcurl repeats a proxy's
// URL as a whole when it cannot use it.
[[nodiscard]] std::string HideProxySecrets(std::string text);

}  // namespace CorvaneCli
