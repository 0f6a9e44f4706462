#pragma once

#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <Corvane/Transfer.h>
#include <Corvane/TransferOptions.h>

#include "apps/corvane/Command.h"
#include "apps/corvane/Explain.h"
#include "apps/corvane/Options.h"
#include "apps/corvane/Progress.h"
#include "apps/corvane/Report.h"
#include "apps/corvane/Trace.h"
#include "apps/corvane/Trust.h"

namespace CorvaneCli {

// What the options say about the transfers of a command, found out and checked.
struct TransferSettings {
  unsigned long timeoutSeconds = 0;
  bool verify = true;
  TrustStore trust;
  std::optional<Proxy> proxy;
  Corvane::ZString user;
  Corvane::ZString password;
  bool useThrottling = true;
  RequestOptions request;
};

// Finds the certificates, asks for the password, and sets the process-wide throttle.
// Throws Failure: what the options name cannot be used, or the user interrupted the question.
[[nodiscard]] TransferSettings PrepareTransfers(const Target& target, Environment& environment);

// Throws Failure(kLocal) when a setter has refused: going on would leave the server unverified, or without its login.
void RequireSet(Corvane::ZResult result);

// Sets up anything with the setters of ZTransfer.
template <class Transfer>
void Configure(Transfer& transfer, const TransferSettings& settings) {
  transfer.SetTimeout(settings.timeoutSeconds);
  RequireSet(transfer.SetSSL(settings.verify, settings.verify, settings.trust.file, settings.trust.directory));
  RequireSet(transfer.SetCredentials(settings.user, settings.password));
  transfer.UseThrottling(settings.useThrottling);
}

// Keeps the events that a transfer sends, for the report.
// Thread safety: Events when no transfer runs.
class EventRecorder : public Corvane::ZTransfer::Observer {
 public:
  void Update(int event, long value) override { m_events.emplace_back(event, static_cast<unsigned int>(value)); }
  [[nodiscard]] const std::vector<std::pair<int, unsigned int>>& Events() const noexcept { return m_events; }
  void Forget() noexcept { m_events.clear(); }

 private:
  std::vector<std::pair<int, unsigned int>> m_events;
};

// Runs `operation` while the progress line shows, when it may, and a signal calls `abort`.
void RunWatched(Environment& environment, const std::string& label, bool writesToFile,
                const std::function<void()>& operation, const std::function<void()>& abort,
                const std::function<ProgressSample()>& sample);

// What is known beforehand about all transfers of a command.
[[nodiscard]] Circumstances CircumstancesOf(const Target& target, const TransferSettings& settings,
                                            const Environment& environment);

// Whether the user has interrupted the command.
[[nodiscard]] bool WasInterrupted(const Environment& environment);

// A size as the library tells it; nullopt while it is not known.
[[nodiscard]] std::optional<unsigned long long> KnownSize(unsigned long long size);

// One ZTransfer with everything around it, which keeps its connections from one operation to the next. `environment` and
// the target must outlive it.
class Session {
 public:
  // settings: those of PrepareTransfers for `target`.
  Session(const Target& target, const TransferSettings& settings, Environment& environment);

  // From now on everything is about `target`.
  void TurnTo(const Target& target);

  [[nodiscard]] Corvane::ZTransfer& Transfer() noexcept { return m_transfer; }
  // What the next operations do beyond a plain request; begins as the command's options say.
  [[nodiscard]] Corvane::ZTransferOptions& Options() noexcept { return m_options; }
  // The progress line counts the bytes sent until the answer comes. total: how many there are.
  void ShowUpload(unsigned long long total) { m_uploadBytes = total; }
  // The progress line counts the files, too.
  void ShowFiles(const FileProgress& files) { m_files = files; }

  // Runs one operation of Transfer() and records its outcome.
  void Run(const std::string& label, bool writesToFile, const std::function<void(Corvane::ZTransfer&)>& operation,
           Report& report);

  // Why the last operation failed, in words, without a remedy.
  [[nodiscard]] std::string Reason(const Report& report) const;

  // Takes an answer outside 200 to 299 for a success.
  static void AcceptHttpError(Report& report);

  // Ends the command after a failed operation: settles the file, when there is one, and throws Failure. `doing` is the
  // beginning of the message, "cannot get".
  [[noreturn]] void Fail(const char* doing, OutputFile* file, bool canBeResumed, Report& report);

 private:
  [[nodiscard]] ProgressSample Sample() const;

  const Target* m_target;
  TransferSettings m_settings;
  Circumstances m_circumstances;
  Environment& m_environment;
  Trace m_trace;
  Corvane::ZTransferOptions m_options;
  std::optional<unsigned long long> m_uploadBytes;
  std::optional<FileProgress> m_files;
  EventRecorder m_recorder;
  Corvane::ZTransfer m_transfer;
};

}  // namespace CorvaneCli
