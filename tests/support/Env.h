#pragma once

#include <optional>
#include <string>

namespace CorvaneTest {

// Makes the process independent of the user's settings: removes the proxy variables, which libcurl reads by itself, and
// switches the locale to C.UTF-8, so that file names and messages are UTF-8 on every machine. Nothing else is touched;
// SIGPIPE in particular keeps its default, since the library must be safe in a process that does not ignore it.
// Prints nothing. Throws std::runtime_error when the locale is missing. Call it before starting threads.
// Tests that link `test_support_main` need not: its main() does.
void PrepareTestProcess();

// Switches the locale (LC_ALL) and restores the former one on destruction.
// Throws std::runtime_error when the system does not have it: a test must not pass by having tested another locale.
// Thread safety: the locale belongs to the process; no other thread may use it meanwhile.
class ScopedLocale {
 public:
  explicit ScopedLocale(const std::string& name);
  ~ScopedLocale();
  ScopedLocale(const ScopedLocale&) = delete;
  ScopedLocale& operator=(const ScopedLocale&) = delete;

 private:
  std::string m_former;
};

// Sets an environment variable, or removes it (nullopt), and restores its former state on destruction.
// Thread safety: no other thread may read or change the environment meanwhile.
class ScopedVariable {
 public:
  ScopedVariable(std::string name, const std::optional<std::string>& value);
  ~ScopedVariable();
  ScopedVariable(const ScopedVariable&) = delete;
  ScopedVariable& operator=(const ScopedVariable&) = delete;

 private:
  std::string m_name;
  std::optional<std::string> m_former;
};

}  // namespace CorvaneTest
