#include "apps/corvane/Options/Common.h"
#include "apps/corvane/Options/Definition.h"
#include "apps/corvane/Options/Values.h"

// The options of corvane mirror.

namespace CorvaneCli {
namespace {

class MirrorDefinition : public CommandDefinition {
 public:
  explicit MirrorDefinition(CommonDefinition& common) : m_common(common) {}

  [[nodiscard]] const char* Name() const override { return "mirror"; }

  CLI::App& AddTo(CLI::App& program) override {
    return AddCommand(program, Name(), "Fetch the files of a directory into a directory", kMirrorHelp);
  }

  void AddOptions(const Scope& scope) override {
    scope.command.add_option("URL", m_url)->required();
    scope.command.add_option("DIR", m_directory)->required();
    Group group(scope, "Files");
    group.AddFlag("--resume", m_resume, "Keep files that are complete, and continue partial ones");
    group.AddList("--ignore", m_ignored, "NAME", "Never fetch the file NAME; may be repeated");
    group.Add("--sizes", m_sizes, "FILE",
              "Fetch the files that the list FILE names, with the sizes in it; no listing is asked for");
    group.Add("--times", m_times, "FILE",
              "Give files the times in the list FILE, and fetch those again that are older");
    m_common.AddTransferOptions(scope);
  }

  [[nodiscard]] AnyCommand Understand(const Given& given) const override {
    MirrorCommand command;
    command.target = UnderstandDirectoryUrl(Name(), m_url, command.fragment);
    command.directory = m_directory;
    command.resume = m_resume;
    if (m_directory.empty()) RefuseUsage("DIR is empty; give the directory to mirror into, . for the current one");
    for (const std::string& name : m_ignored) command.ignored.push_back(DecodeValue("--ignore", name));
    command.sizes = given.Path("--sizes", m_sizes);
    command.times = given.Path("--times", m_times);
    return command;
  }

 private:
  CommonDefinition& m_common;
  std::string m_url;
  std::string m_directory;
  bool m_resume = false;
  std::vector<std::string> m_ignored;
  std::string m_sizes;
  std::string m_times;
};

}  // namespace

std::unique_ptr<CommandDefinition> DefineMirror(CommonDefinition& common) {
  return std::make_unique<MirrorDefinition>(common);
}

}  // namespace CorvaneCli
