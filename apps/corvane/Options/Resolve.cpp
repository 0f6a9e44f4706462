#include <fmt/core.h>

#include "apps/corvane/Options/Common.h"
#include "apps/corvane/Options/Definition.h"
#include "apps/corvane/Options/Values.h"

// The options of corvane resolve.

namespace CorvaneCli {
namespace {

class ResolveDefinition : public CommandDefinition {
 public:
  explicit ResolveDefinition(CommonDefinition& common) : m_common(common) {}

  [[nodiscard]] const char* Name() const override { return "resolve"; }

  CLI::App& AddTo(CLI::App& program) override {
    return AddCommand(program, Name(), "Look up the addresses of a host", kResolveHelp);
  }

  void AddOptions(const Scope& scope) override {
    scope.command.add_option("HOST", m_host)->required();
    m_common.AddMessageOptions(scope);
  }

  [[nodiscard]] AnyCommand Understand(const Given& /*given*/) const override {
    if (m_host.empty()) RefuseUsage("HOST is empty; give a name such as example.com");
    if (m_host.find_first_of("/@ ") != std::string::npos) {
      RefuseUsage(fmt::format("{} is no name of a host; leave out what is not, such as http:// and the path",
                              ShownValue(m_host)));
    }
    return ResolveCommand{DecodeValue("HOST", m_host)};
  }

 private:
  CommonDefinition& m_common;
  std::string m_host;
};

}  // namespace

std::unique_ptr<CommandDefinition> DefineResolve(CommonDefinition& common) {
  return std::make_unique<ResolveDefinition>(common);
}

}  // namespace CorvaneCli
