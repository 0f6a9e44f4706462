#pragma once

#include <CLI/CLI.hpp>
#include <optional>
#include <string>
#include <vector>

#include "apps/corvane/Options.h"
#include "apps/corvane/Options/Definition.h"
#include "apps/corvane/Options/Given.h"

namespace CorvaneCli {

// The options that commands share. One object serves all of them: only one command is ever parsed.
class CommonDefinition {
 public:
  // Those of a command that transfers: all of them.
  void AddTransferOptions(const Scope& scope);
  // Those of a command that does not.
  void AddMessageOptions(const Scope& scope);
  // Into a group of the command's own.
  void AddOutput(Group& group, const char* help);
  void AddAcceptHttpErrors(Group& group);
  void AddText(Group& group);
  // How requests are made.
  void AddRequestOptions(const Scope& scope);
  // For commands that may repeat them.
  void AddRetries(Group& group);

  // For commands that take fewer of them than others do. Throws Failure(kUsage).
  void RequireAtMost(const Given& given, unsigned int redirects, unsigned int retries) const;

  // What was read. Throws Failure(kUsage).
  [[nodiscard]] CommonOptions Understand(const Given& given) const;
  [[nodiscard]] std::optional<std::string> Output(const Given& given) const;
  [[nodiscard]] bool AcceptHttpErrors() const noexcept { return m_acceptHttpErrors; }
  [[nodiscard]] bool DecodesText() const noexcept { return m_decodesText; }

 private:
  void AddLoginOptions(const Scope& scope);
  void AddSpeedOptions(const Scope& scope);
  [[nodiscard]] std::optional<Corvane::ZString> User(const Given& given) const;
  [[nodiscard]] std::optional<Throttling> UnderstandThrottling(const Given& given) const;
  [[nodiscard]] RequestOptions UnderstandRequest(const Given& given) const;
  [[nodiscard]] std::vector<Corvane::ZString> UnderstandHeaders(const Given& given) const;

  std::string m_output;
  bool m_acceptHttpErrors = false;
  bool m_decodesText = false;
  std::string m_redirects;
  std::string m_retries;
  std::string m_retryWait;
  std::vector<std::string> m_headers;
  std::string m_headerFile;
  std::string m_userAgent;
  std::string m_timeout;
  std::string m_user;
  std::string m_passwordFile;
  std::string m_caFile;
  std::string m_caDirectory;
  bool m_insecure = false;
  std::string m_limit;
  std::string m_limitPercent;
  std::string m_lowWater;
  bool m_noThrottle = false;
  bool m_json = false;
  bool m_quiet = false;
  bool m_verbose = false;
  std::string m_logFile;
};

// --help, --help-all and --version, for the program and for each command; only where all options are defined, for either ends the parsing.
void AddInformationOptions(const Scope& scope);

}  // namespace CorvaneCli
