#pragma once

#include <memory>
#include <string>

#include "apps/corvane/Command.h"
#include "apps/corvane/Options.h"
#include "apps/corvane/Report.h"
#include "apps/corvane/Session.h"

namespace CorvaneCli {

inline constexpr const char* kCannotGet = "cannot get";

// Where the content of one URL goes, and what that means for a try that failed: what came may be kept and continued, or
// have been handed on and be out of reach.
// Thread safety: one thread. Errors: Failure.
class Destination {
 public:
  virtual ~Destination() = default;

  // The short name of what is fetched, for the progress line.
  [[nodiscard]] virtual std::string Label() const = 0;
  // Whether what is asked for is here already. Fills the report when it is.
  virtual bool IsHereAlready(Session& /*session*/, Report& /*report*/) { return false; }
  // Makes one try, and continues what the one before has left. Fills the report.
  virtual void Try(Session& session, Report& report) = 0;
  // Whether another try can make good what the last one has left.
  [[nodiscard]] virtual bool CanGoOn() const { return true; }
  // Where another try will begin, in bytes.
  [[nodiscard]] virtual unsigned long long Position() const { return 0; }
  // After a success. False when what came proves wrong and is given up: it has to be fetched anew.
  [[nodiscard]] virtual bool Finish(Session& session, Report& report) = 0;
  // After a failure that no other try can mend: throws Failure.
  [[noreturn]] virtual void Fail(Session& session, Report& report) = 0;
};

// Whether the server has refused to send the rest, because it cannot or because it has something else now.
[[nodiscard]] bool IsRefusedResume(const Report& report);

// Into a file, by way of its part.
[[nodiscard]] std::unique_ptr<Destination> MakeFileDestination(const GetCommand& command, const Target& target,
                                                               Environment& environment);
// To a descriptor that is open, byte by byte as it comes.
[[nodiscard]] std::unique_ptr<Destination> MakeStreamDestination(const GetCommand& command, const Target& target,
                                                                 Environment& environment);
// Into the report, as text.
[[nodiscard]] std::unique_ptr<Destination> MakeReportDestination(const GetCommand& command, const Target& target,
                                                                 Environment& environment);

}  // namespace CorvaneCli
