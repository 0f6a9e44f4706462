#include "apps/corvane/Options/Common.h"
#include "apps/corvane/Options/Definition.h"

// The options of corvane get.

namespace CorvaneCli {
namespace {

class GetDefinition : public CommandDefinition {
 public:
  explicit GetDefinition(CommonDefinition& common) : m_common(common) {}

  [[nodiscard]] const char* Name() const override { return "get"; }

  void AddTo(CLI::App& program) override {
    CLI::App& command = AddCommand(program, Name(), "Download a URL to standard output or into a file", kGetHelp);
    command.add_option("URL", m_url)->required();
    Group group(command, "Output");
    m_common.AddOutput(group, "Write into FILE instead of to the standard output");
    group.AddFlag("--resume", m_resume, "Continue FILE where an earlier download stopped");
    m_common.AddAcceptHttpErrors(group);
    m_common.AddTransferOptions(command);
  }

  [[nodiscard]] AnyCommand Understand(const Given& given) const override {
    given.Require("--resume", "--output");
    // The library throws away the answer to a refused resumption: it is no part of the file.
    given.Exclude({"--resume", "--accept-http-errors"}, "leave one of the two out");
    return GetCommand{MakeTarget(m_url), m_common.Output(given), m_resume, m_common.AcceptHttpErrors()};
  }

 private:
  CommonDefinition& m_common;
  std::string m_url;
  bool m_resume = false;
};

}  // namespace

std::unique_ptr<CommandDefinition> DefineGet(CommonDefinition& common) {
  return std::make_unique<GetDefinition>(common);
}

}  // namespace CorvaneCli
