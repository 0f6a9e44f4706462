#include "tests/support/Env.h"

#include <clocale>
#include <cstdlib>
#include <stdexcept>
#include <utility>

namespace CorvaneTest {

namespace {

void SetVariable(const std::string& name, const std::optional<std::string>& value) {
  if (value) {
    setenv(name.c_str(), value->c_str(), 1);
  } else {
    unsetenv(name.c_str());
  }
}

void SwitchLocale(const std::string& name) {
  if (std::setlocale(LC_ALL, name.c_str()) == nullptr) throw std::runtime_error("no locale \"" + name + "\" here");
}

}  // namespace

void PrepareTestProcess() {
  for (const char* name : {"http_proxy", "https_proxy", "ftp_proxy", "all_proxy", "no_proxy", "HTTP_PROXY",
                           "HTTPS_PROXY", "FTP_PROXY", "ALL_PROXY", "NO_PROXY"}) {
    unsetenv(name);
  }
  SwitchLocale("C.UTF-8");
}

ScopedLocale::ScopedLocale(const std::string& name) : m_former(std::setlocale(LC_ALL, nullptr)) { SwitchLocale(name); }

ScopedLocale::~ScopedLocale() { std::setlocale(LC_ALL, m_former.c_str()); }

ScopedVariable::ScopedVariable(std::string name, const std::optional<std::string>& value) : m_name(std::move(name)) {
  if (const char* former = std::getenv(m_name.c_str())) m_former = former;
  SetVariable(m_name, value);
}

ScopedVariable::~ScopedVariable() { SetVariable(m_name, m_former); }

}  // namespace CorvaneTest
