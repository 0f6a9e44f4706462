#include <fmt/core.h>

#include <algorithm>
#include <string_view>

#include "apps/corvane/Options/Common.h"
#include "apps/corvane/Options/Definition.h"
#include "apps/corvane/Options/Values.h"
#include "apps/corvane/Sha256.h"

// The options of corvane get.

namespace CorvaneCli {
namespace {

class GetDefinition : public CommandDefinition {
 public:
  explicit GetDefinition(CommonDefinition& common) : m_common(common) {}

  [[nodiscard]] const char* Name() const override { return "get"; }

  CLI::App& AddTo(CLI::App& program) override {
    return AddCommand(program, Name(), "Download URLs to standard output or into files", kGetHelp);
  }

  void AddOptions(const Scope& scope) override {
    if (scope.words != nullptr) m_behindRemoteName = scope.words->Behind('O');
    scope.command.add_option("URL", m_urls)->required();
    Group group(scope, "Output");
    m_common.AddOutput(group, "Write into FILE instead of to the standard output");
    group.AddFlag("-O,--remote-name", m_usesRemoteName,
                  "Write into a file with the name that the URL or the server gives it; an existing file stays");
    group.Add("--into", m_directory, "DIR", "The same, in the directory DIR");
    group.AddFlag("--resume", m_resume, "Continue where an earlier download of the same URL into the file ended");
    group.Add("--sha256", m_sha256, "HEX", "The file gets its name only when this is its SHA-256 checksum");
    group.AddFlag("--remote-time", m_keepsRemoteTime, "Give the file the time that the server tells");
    m_common.AddText(group);
    m_common.AddAcceptHttpErrors(group);
    m_common.AddRequestOptions(scope);
    Group retries(scope, "Time and speed");
    m_common.AddRetries(retries);
    m_common.AddTransferOptions(scope);
  }

  [[nodiscard]] AnyCommand Understand(const Given& given) const override {
    Check(given);
    GetCommand command;
    for (const std::string& url : m_urls) command.targets.push_back(MakeTarget(url));
    command.placement = {m_common.Output(given), m_usesRemoteName || given.Has("--into"), Directory(given)};
    command.resume = m_resume;
    command.acceptHttpErrors = m_common.AcceptHttpErrors();
    command.decodesText = m_common.DecodesText();
    command.keepsRemoteTime = m_keepsRemoteTime;
    if (given.Has("--sha256")) command.sha256 = Checksum();
    const bool isFile = command.placement.output || command.placement.usesRemoteName;
    for (const char* const option : {"--resume", "--remote-time"}) {
      if (given.Has(option) && !isFile) RefuseWithoutFile(option);
    }
    if (command.decodesText && isFile)
      RefuseUsage("--text is for the standard output; leave it out, or -o, -O and --into");
    return command;
  }

 private:
  void Check(const Given& given) const {
    given.Exclude({"--output", "--remote-name"}, "choose one of the two");
    given.Exclude({"--output", "--into"}, "choose one of the two");
    // What a resumption was refused with is no part of the file.
    given.Exclude({"--resume", "--accept-http-errors"}, "leave one of the two out");
    if (m_usesRemoteName) RefuseNameBehindIt();
    if (m_urls.size() < 2) return;
    if (given.Has("--output") && m_common.Output(given)) {
      RefuseUsage(fmt::format("-o names one file, but there are {} URLs; use -O or --into DIR, or leave out -o",
                              m_urls.size()));
    }
    if (given.Has("--sha256")) {
      RefuseUsage(fmt::format("--sha256 is about one file, but there are {} URLs; get them one by one", m_urls.size()));
    }
  }

  // Elsewhere -O has a value, the name of the file. Here that would be taken for a URL, and "-" for the end of the options.
  void RefuseNameBehindIt() const {
    if (m_behindRemoteName == "-") {
      RefuseUsage("-O takes no name; leave out -O and \"-\": then the bytes go to the standard output");
    }
    const auto isWhole = [](const std::string& url) { return url.find("://") != std::string::npos; };
    const bool isName = m_behindRemoteName.find_first_of("/:") == std::string::npos;
    const bool isTarget = std::find(m_urls.begin(), m_urls.end(), m_behindRemoteName) != m_urls.end();
    if (!isName || !isTarget || std::none_of(m_urls.begin(), m_urls.end(), isWhole)) return;
    RefuseUsage(fmt::format("-O takes no name, and {0} behind it would be a URL; give -o {0}, or http:// before a host",
                            ShownValue(std::string(m_behindRemoteName))));
  }

  [[noreturn]] static void RefuseWithoutFile(const char* option) {
    RefuseUsage(fmt::format("{0} needs a file; give -o FILE, -O or --into DIR, too, or leave {0} out", option));
  }

  [[nodiscard]] std::optional<std::string> Directory(const Given& given) const {
    if (!given.Has("--into")) return std::nullopt;
    if (m_directory.empty())
      RefuseUsage("--into got an empty name; give the name of a directory, . for the current one");
    return m_directory;
  }

  [[nodiscard]] std::string Checksum() const {
    if (const std::optional<std::string> checksum = ParseSha256(m_sha256)) return *checksum;
    RefuseUsage(
        fmt::format("--sha256 {} is no SHA-256 checksum; give its 64 hexadecimal digits", ShownValue(m_sha256)));
  }

  CommonDefinition& m_common;
  std::vector<std::string> m_urls;
  bool m_resume = false;
  bool m_usesRemoteName = false;
  bool m_keepsRemoteTime = false;
  std::string m_directory;
  std::string m_sha256;
  std::string_view m_behindRemoteName;
};

}  // namespace

std::unique_ptr<CommandDefinition> DefineGet(CommonDefinition& common) {
  return std::make_unique<GetDefinition>(common);
}

}  // namespace CorvaneCli
