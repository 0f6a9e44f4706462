#include <utility>

#include "apps/corvane/Get/Destination.h"

// corvane get --json without a file: the content is a part of the JSON object.

namespace CorvaneCli {
namespace {

using Corvane::ZString;
using Corvane::ZTransfer;

class ReportDestination : public Destination {
 public:
  ReportDestination(const GetCommand& command, const Target& target, Environment& environment)
      : m_command(command), m_target(target), m_environment(environment) {}

  [[nodiscard]] std::string Label() const override { return m_target.Label(); }

  void Try(Session& session, Report& report) override {
    session.Transfer().DetectHttpError(!m_command.acceptHttpErrors);
    session.Run(
        Label(), false, [&](ZTransfer& transfer) { transfer.Download(m_target.url, m_text); }, report);
  }

  [[nodiscard]] bool Finish(Session& /*session*/, Report& report) override {
    TakeBody(m_text, report, m_environment);
    return true;
  }

  [[noreturn]] void Fail(Session& session, Report& report) override {
    TakeBody(m_text, report, m_environment);  // the page of a refusal may tell more
    session.Fail(kCannotGet, nullptr, false, report);
  }

 private:
  const GetCommand& m_command;
  const Target& m_target;
  Environment& m_environment;
  ZString m_text;
};

}  // namespace

std::unique_ptr<Destination> MakeReportDestination(const GetCommand& command, const Target& target,
                                                   Environment& environment) {
  return std::make_unique<ReportDestination>(command, target, environment);
}

}  // namespace CorvaneCli
