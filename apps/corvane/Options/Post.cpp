#include <fmt/core.h>

#include "apps/corvane/HeaderFile.h"
#include "apps/corvane/Options/Common.h"
#include "apps/corvane/Options/Definition.h"
#include "apps/corvane/Options/Values.h"
#include "apps/corvane/Text.h"

// The options of corvane post.

namespace CorvaneCli {
namespace {

using Corvane::ZString;

// The order and the repetitions of the fields stay as they were given.
ZString FormBody(const std::vector<std::string>& fields) {
  std::string body;
  for (const std::string& field : fields) {
    const std::string text = ToUtf8(DecodeValue("--field", field));
    const std::size_t equals = text.find('=');
    if (equals == std::string::npos) {
      RefuseUsage(fmt::format("--field {} has no \"=\"; give NAME=VALUE", ShownValue(field)));
    }
    if (!body.empty()) body += '&';
    body += PercentEncode(text.substr(0, equals)) + '=' + PercentEncode(text.substr(equals + 1));
  }
  return FromUtf8(body);
}

class PostDefinition : public CommandDefinition {
 public:
  explicit PostDefinition(CommonDefinition& common) : m_common(common) {}

  [[nodiscard]] const char* Name() const override { return "post"; }

  CLI::App& AddTo(CLI::App& program) override {
    return AddCommand(program, Name(), "Send form fields, a text or a file to a URL", kPostHelp);
  }

  void AddOptions(const Scope& scope) override {
    scope.command.add_option("URL", m_url)->required();
    Group content(scope, "Content");
    content.AddList("--field", m_fields, "NAME=VALUE", "A form field, percent-encoded on its way; may be repeated");
    content.Add("--data", m_data, "TEXT", "A text, sent as it is in UTF-8");
    content.Add("--file", m_file, "PATH", "The content of a file, sent as it is");
    content.Add("--type", m_type, "TYPE", "What the content is [application/x-www-form-urlencoded]");
    Group group(scope, "Output");
    m_common.AddOutput(group, "Write the answer into FILE instead of to the standard output");
    m_common.AddText(group);
    m_common.AddAcceptHttpErrors(group);
    m_common.AddRequestOptions(scope);
    m_common.AddTransferOptions(scope);
  }

  [[nodiscard]] AnyCommand Understand(const Given& given) const override {
    given.Exclude({"--field", "--data", "--file"}, "choose one of the two");
    PostCommand command{
        MakeTarget(m_url), m_common.Output(given), m_common.AcceptHttpErrors(), m_common.DecodesText(), Type(given),
        ZString()};
    if (command.output) given.Exclude({"--text", "--output"}, "leave one of the two out");
    if (command.target.scheme == "ftp") {
      RefuseUsage(fmt::format("cannot post to {}: FTP has no posts; use an http or https URL", command.target.display));
    }
    if (given.Has("--field")) {
      command.content = FormBody(m_fields);
    } else if (given.Has("--data")) {
      command.content = DecodeValue("--data", m_data);
    } else if (const std::optional<std::string> file = given.Path("--file", m_file)) {
      command.content = *file;
    } else {
      RefuseUsage("nothing to post; give --field NAME=VALUE, --data TEXT or --file PATH");
    }
    return command;
  }

 private:
  // The header that tells the type; unset for the usual one.
  [[nodiscard]] std::optional<ZString> Type(const Given& given) const {
    if (!given.Has("--type")) return std::nullopt;
    if (m_type.find('/') == std::string::npos) {
      RefuseUsage(fmt::format("--type {} is no media type; give one such as application/json", ShownValue(m_type)));
    }
    return CheckedHeader("--type", "Content-Type: " + m_type);
  }

  CommonDefinition& m_common;
  std::string m_url;
  std::vector<std::string> m_fields;
  std::string m_data;
  std::string m_file;
  std::string m_type;
};

}  // namespace

std::unique_ptr<CommandDefinition> DefinePost(CommonDefinition& common) {
  return std::make_unique<PostDefinition>(common);
}

}  // namespace CorvaneCli
