#include "apps/corvane/Options/Common.h"

#include <fmt/core.h>

#include <algorithm>
#include <limits>
#include <utility>

#include <Corvane/Base/Module.h>

#include "apps/corvane/HeaderFile.h"
#include "apps/corvane/Options/Values.h"
#include "apps/corvane/Text.h"

namespace CorvaneCli {
namespace {

using Corvane::ZString;

std::string VersionText() {
  std::string text = fmt::format("corvane {}", CORVANE_VERSION);
  for (const Corvane::ZModule& module : Corvane::ZModuleRegistry::GetModules()) {
    text += fmt::format("\nlibrary {} {}", ToUtf8(module.GetName()), ToUtf8(module.GetVersion().ToString()));
  }
  return text;
}

// From this mark on the library limits from the first byte, without measuring.
constexpr unsigned int kNoMeasuring = 1000000000;

constexpr const char* kRedirections = "number of redirections";
constexpr const char* kRetries = "number of retries";

}  // namespace

void CommonDefinition::AddTransferOptions(const Scope& scope) {
  AddLoginOptions(scope);
  AddSpeedOptions(scope);
  AddMessageOptions(scope);
}

void CommonDefinition::AddLoginOptions(const Scope& scope) {
  Group group(scope, "TLS and login");
  group.Add("--user", m_user, "NAME",
            "Log in as NAME, over plain http with NTLM only. The password comes from --password-file, else from the "
            "variable CORVANE_PASSWORD, else it is asked for");
  group.Add("--password-file", m_passwordFile, "FILE", "The first line of FILE is the password");
  group.Add("--cacert", m_caFile, "FILE", "Trust the certificates in FILE (PEM)");
  group.Add("--capath", m_caDirectory, "DIR", "Trust the certificates in DIR, which openssl rehash has prepared");
  group.AddFlag("--insecure", m_insecure, "Do not verify the server's certificate");
}

void CommonDefinition::AddSpeedOptions(const Scope& scope) {
  Group group(scope, "Time and speed");
  group.Add("--timeout", m_timeout, "S", "Give up after S seconds without a connection or data; 0: never [300]");
  group.Add("--limit", m_limit, "RATE", "Receive at most RATE bytes a second; k, M or G may follow the number");
  group.Add("--limit-percent", m_limitPercent, "N",
            "Receive at most N percent of the speed, which is measured for 10 seconds every 3 minutes");
  group.Add("--low-water", m_lowWater, "RATE", "Measure, and limit only when the speed is below RATE [limit always]");
  group.AddFlag("--no-throttle", m_noThrottle, "Take no part in the measuring and limiting");
}

void CommonDefinition::AddMessageOptions(const Scope& scope) {
  Group group(scope, "Messages");
  group.AddFlag("--json", m_json, "Print one JSON object about the transfer on standard output");
  group.AddFlag("-q,--quiet", m_quiet, "No progress line and no notes; failures are told all the same");
  group.AddFlag("-v,--verbose", m_verbose, "Tell on standard error what is going on");
  group.Add("--log-file", m_logFile, "FILE", "Append what is going on, with the time, to FILE");
  AddInformationOptions(scope);
}

void CommonDefinition::AddOutput(Group& group, const char* help) { group.Add("-o,--output", m_output, "FILE", help); }

void CommonDefinition::AddAcceptHttpErrors(Group& group) {
  group.AddFlag("--accept-http-errors", m_acceptHttpErrors,
                "Take the answer to a failed request (404 ...) for a success");
}

void CommonDefinition::AddText(Group& group) {
  group.AddFlag("--text", m_decodesText, "Print text: what is not UTF-8, or could harm the terminal, shows as U+FFFD");
}

void CommonDefinition::AddRequestOptions(const Scope& scope) {
  Group group(scope, "Requests");
  group.Add("--redirects", m_redirects, "N", "Follow at most N redirections, never from https to http [10]");
  group.AddList("--header", m_headers, "'NAME: VALUE'", "Send a header of your own to HTTP servers; may be repeated");
  group.Add("--header-file", m_headerFile, "FILE",
            "Send the headers in FILE, one on a line: for secrets, which others could read on the command line");
  group.Add("--user-agent", m_userAgent, "TEXT", "Call the program TEXT [corvane/" CORVANE_VERSION "]");
}

void CommonDefinition::AddRetries(Group& group) {
  group.Add("--retries", m_retries, "N", "Try again N times when a transfer fails for a reason that may pass [3]");
  group.Add("--retry-wait", m_retryWait, "S",
            "Wait S seconds before the first of them, and twice as long before each next one [1]");
}

void AddInformationOptions(const Scope& scope) {
  if (scope.words != nullptr) {
    scope.command.set_help_flag();  // the parser has one by itself
    return;
  }
  scope.command.set_help_flag("-h,--help", "Print the most used options")->group("Information");
  scope.command.set_help_all_flag("--help-all", "Print all options")->group("Information");
  scope.command.set_version_flag("--version", VersionText, "Print the versions of program and library")
      ->group("Information");
}

CommonOptions CommonDefinition::Understand(const Given& given) const {
  // More than this libcurl cannot count in milliseconds.
  constexpr unsigned long long kMostSeconds = std::numeric_limits<int>::max() / 1000;
  CommonOptions common;
  if (given.Has("--timeout")) {
    common.timeoutSeconds =
        static_cast<unsigned long>(UnderstandNumber("--timeout", m_timeout, 0, kMostSeconds, "number of seconds"));
  }
  common.user = User(given);
  common.passwordFile = given.Path("--password-file", m_passwordFile);
  given.Exclude({"--insecure", "--cacert", "--capath"}, "choose one of the two");
  common.caFile = given.Path("--cacert", m_caFile);
  common.caDirectory = given.Path("--capath", m_caDirectory);
  common.insecure = m_insecure;
  common.throttling = UnderstandThrottling(given);
  common.noThrottle = m_noThrottle;
  common.request = UnderstandRequest(given);
  common.json = m_json;
  common.quiet = m_quiet;
  common.verbose = m_verbose;
  common.logFile = given.Path("--log-file", m_logFile);
  return common;
}

std::optional<ZString> CommonDefinition::User(const Given& given) const {
  given.Require("--password-file", "--user");
  if (!given.Has("--user")) return std::nullopt;
  if (m_user.empty()) RefuseUsage("--user got an empty name; give the name to log in with");
  if (m_user.find(':') != std::string::npos) {
    // People who know other programs write NAME:PASSWORD; it must not be repeated here.
    RefuseUsage(
        "--user takes a name without a colon and never a password; the password comes from --password-file FILE, "
        "from the variable CORVANE_PASSWORD or from a question");
  }
  return DecodeValue("--user", m_user);
}

std::optional<Throttling> CommonDefinition::UnderstandThrottling(const Given& given) const {
  given.Exclude({"--limit", "--limit-percent"}, "choose one of the two");
  for (const char* const option : {"--limit", "--limit-percent", "--low-water"}) {
    given.Exclude({"--no-throttle", option}, "leave one of the two out");
  }
  const bool percent = given.Has("--limit-percent");
  if (given.Has("--low-water") && !percent) given.Require("--low-water", "--limit");
  if (!percent && !given.Has("--limit")) return std::nullopt;
  Throttling throttling;
  throttling.percent = percent;
  if (percent) {
    throttling.limit =
        static_cast<unsigned int>(UnderstandNumber("--limit-percent", m_limitPercent, 1, 100, "percentage"));
    // A percentage has to be measured anyway; with the highest mark every speed counts as low, so that it is always
    // limited.
    throttling.lowWaterMark = std::numeric_limits<unsigned int>::max();
  } else {
    throttling.limit = UnderstandRate("--limit", m_limit, 1024) / 1024;
    throttling.lowWaterMark = kNoMeasuring;
  }
  if (given.Has("--low-water")) throttling.lowWaterMark = UnderstandRate("--low-water", m_lowWater, 1);
  return throttling;
}

void CommonDefinition::RequireAtMost(const Given& given, unsigned int redirects, unsigned int retries) const {
  if (given.Has("--redirects"))
    static_cast<void>(UnderstandNumber("--redirects", m_redirects, 0, redirects, kRedirections));
  if (given.Has("--retries")) static_cast<void>(UnderstandNumber("--retries", m_retries, 0, retries, kRetries));
}

RequestOptions CommonDefinition::UnderstandRequest(const Given& given) const {
  constexpr unsigned long long kMostRedirects = 10000;  // of the library
  constexpr unsigned long long kMostRetries = 1000000;
  constexpr unsigned long long kMostSeconds = 86400;
  RequestOptions request;
  if (given.Has("--redirects")) {
    request.redirects =
        static_cast<unsigned int>(UnderstandNumber("--redirects", m_redirects, 0, kMostRedirects, kRedirections));
  }
  if (given.Has("--retries")) {
    request.retries = static_cast<unsigned int>(UnderstandNumber("--retries", m_retries, 0, kMostRetries, kRetries));
  }
  if (given.Has("--retry-wait")) {
    request.retryWait =
        std::chrono::seconds(UnderstandNumber("--retry-wait", m_retryWait, 0, kMostSeconds, "number of seconds"));
  }
  request.headers = UnderstandHeaders(given);
  request.userAgent = Corvane::ZString("corvane/" CORVANE_VERSION);
  if (given.Has("--user-agent")) request.userAgent = DecodeValue("--user-agent", m_userAgent);
  const auto isControl = [](wchar_t character) { return character < 0x20 || character == 0x7F; };
  const std::wstring& agent = request.userAgent.Str();
  if (std::any_of(agent.begin(), agent.end(), isControl)) {
    RefuseUsage("the value of --user-agent holds a control character, such as the end of a line; leave it out");
  }
  return request;
}

std::vector<ZString> CommonDefinition::UnderstandHeaders(const Given& given) const {
  std::vector<ZString> headers;
  for (const std::string& header : m_headers) headers.push_back(CheckedHeader("--header", header));
  if (const std::optional<std::string> file = given.Path("--header-file", m_headerFile)) {
    for (ZString& header : ReadHeaderFile(*file)) headers.push_back(std::move(header));
  }
  RefuseRepeatedHeaders(headers);
  return headers;
}

std::optional<std::string> CommonDefinition::Output(const Given& given) const {
  const std::optional<std::string> output = given.Path("-o", m_output);
  return output == "-" ? std::nullopt : output;  // the standard output, where everything goes without -o, too
}

}  // namespace CorvaneCli
