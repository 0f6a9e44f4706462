#include <fmt/core.h>

#include <limits>

#include "apps/corvane/Options/Common.h"
#include "apps/corvane/Options/Definition.h"
#include "apps/corvane/Options/Values.h"

// The options of corvane sync.

namespace CorvaneCli {
namespace {

// Bounds of the library.
constexpr unsigned int kMostDepth = 64;
constexpr unsigned int kMostConnections = 64;
constexpr unsigned int kMostRedirects = 50;
constexpr unsigned int kMostRetries = 100;

std::vector<Corvane::ZString> DecodePatterns(const char* option, const std::vector<std::string>& values) {
  std::vector<Corvane::ZString> patterns;
  for (const std::string& value : values) {
    if (value.find_first_not_of('/') == std::string::npos) {
      RefuseUsage(fmt::format("{} got an empty pattern; give one such as '*.iso', or /name for one place", option));
    }
    patterns.push_back(DecodeValue(option, value));
  }
  return patterns;
}

class SyncDefinition : public CommandDefinition {
 public:
  explicit SyncDefinition(CommonDefinition& common) : m_common(common) {}

  [[nodiscard]] const char* Name() const override { return "sync"; }

  CLI::App& AddTo(CLI::App& program) override {
    return AddCommand(program, Name(), "Make a directory and all below it like a remote one", kSyncHelp);
  }

  void AddOptions(const Scope& scope) override {
    scope.command.add_option("URL", m_url)->required();
    scope.command.add_option("DIR", m_directory)->required();
    Group files(scope, "Files");
    files.AddList("--include", m_include, "GLOB",
                  "Fetch only files that match, and all in folders that do; repeatable");
    files.AddList("--exclude", m_exclude, "GLOB",
                  "Leave files and folders that match alone, here and there; repeatable");
    files.Add("--depth", m_depth, "N", "Look at most N folders deep; 0: the files of the directory itself [64]");
    files.AddFlag("--delete", m_delete, "Delete files here that the server does not list");
    files.Add("--max-delete", m_mostDeletes, "N", "Delete at most N files, else none [half of those that are here]");
    files.AddFlag("--verify", m_verify, "Check what comes against the server's SHA512SUMS and SHA256SUMS");
    Group run(scope, "Run");
    run.AddFlag("--plan", m_plan, "Tell what would be done with each file, and change nothing");
    run.AddFlag("--fail-fast", m_failFast, "End at the first file or folder that fails");
    Group speed(scope, "Time and speed");
    speed.Add("--connections", m_connections, "N", "Open at most N connections at once [8]");
    m_common.AddRetries(speed);
    m_common.AddRequestOptions(scope);
    m_common.AddTransferOptions(scope);
  }

  [[nodiscard]] AnyCommand Understand(const Given& given) const override {
    SyncCommand command;
    command.target = UnderstandDirectoryUrl(Name(), m_url, command.fragment);
    if (m_directory.empty()) RefuseUsage("DIR is empty; give the directory to sync into, . for the current one");
    command.directory = m_directory;
    command.include = DecodePatterns("--include", m_include);
    command.exclude = DecodePatterns("--exclude", m_exclude);
    if (given.Has("--depth")) command.depth = Number("--depth", m_depth, 0, kMostDepth, "number of folders");
    if (given.Has("--connections")) {
      command.connections = Number("--connections", m_connections, 1, kMostConnections, "number of connections");
    }
    given.Require("--max-delete", "--delete");
    command.deletes = m_delete;
    if (given.Has("--max-delete")) {
      command.mostDeletes = UnderstandNumber("--max-delete", m_mostDeletes, 0,
                                             std::numeric_limits<unsigned long long>::max(), "number of files");
    }
    command.verifies = m_verify;
    command.isPlan = m_plan;
    command.failsFast = m_failFast;
    m_common.RequireAtMost(given, kMostRedirects, kMostRetries);
    return command;
  }

 private:
  static unsigned int Number(const char* option, const std::string& value, unsigned int least, unsigned int most,
                             const char* what) {
    return static_cast<unsigned int>(UnderstandNumber(option, value, least, most, what));
  }

  CommonDefinition& m_common;
  std::string m_url;
  std::string m_directory;
  std::vector<std::string> m_include;
  std::vector<std::string> m_exclude;
  std::string m_depth;
  std::string m_connections;
  bool m_delete = false;
  std::string m_mostDeletes;
  bool m_verify = false;
  bool m_plan = false;
  bool m_failFast = false;
};

}  // namespace

std::unique_ptr<CommandDefinition> DefineSync(CommonDefinition& common) {
  return std::make_unique<SyncDefinition>(common);
}

}  // namespace CorvaneCli
