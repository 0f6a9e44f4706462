#include "apps/corvane/Session.h"

#include <fmt/core.h>
#include <unistd.h>

#include <limits>
#include <optional>

#include <Corvane/Base/ErrorDict.h>

#include "apps/corvane/Explain/HttpAnswer.h"
#include "apps/corvane/Failure.h"
#include "apps/corvane/Password.h"
#include "apps/corvane/Proxy.h"
#include "apps/corvane/Text.h"

namespace CorvaneCli {
namespace {

using Corvane::ZString;
using Corvane::ZTransfer;

// What --cacert and --capath name is checked for any URL, so that a mistake shows at once.
TrustStore ChooseTrust(const CommonOptions& common, const Target& target) {
  if (common.caFile) return UseTrustFile(*common.caFile);
  if (common.caDirectory) return UseTrustDirectory(*common.caDirectory);
  return common.insecure || !target.IsHttps() ? TrustStore() : UseSystemTrust();
}

std::optional<unsigned long long> Known(unsigned long long size) {
  if (size == std::numeric_limits<unsigned long long>::max()) return std::nullopt;
  return size;
}

void FillReport(const ZTransfer& transfer, const EventRecorder& recorder, Report& report) {
  ZString text;
  report.status = transfer.GetStatus();
  report.libraryText = HideProxySecrets(ToUtf8(transfer.GetError()));
  report.cause = transfer.GetCause(text);
  report.causeText = HideProxySecrets(ToUtf8(text));
  report.contentSize = Known(transfer.GetContentSize());
  report.downloadSize = transfer.GetDownloadSize();
  report.transferSize = transfer.GetTransferSize();
  report.transferRate = transfer.GetTransferRate();
  report.transferTimeMs = transfer.GetTransferTime();
  transfer.GetHeader(text);
  report.header = ToUtf8(text);
  report.events = recorder.Events();
}

}  // namespace

TransferSettings PrepareTransfers(const Target& target, Environment& environment) {
  const CommonOptions& common = environment.line.common;
  TransferSettings settings;
  settings.timeoutSeconds = common.timeoutSeconds;
  settings.verify = !common.insecure;
  settings.useThrottling = !common.noThrottle;
  settings.trust = ChooseTrust(common, target);
  settings.proxy = FindProxy(target);
  if (common.insecure) environment.logging.Tell("the server's certificate is not verified (--insecure)");
  if (common.user) {
    const auto password = ObtainPassword(ToUtf8(*common.user), common.passwordFile, *environment.interrupt);
    if (!password) throw Failure(ExitCode::kInterrupted, "interrupted; nothing was begun");
    settings.user = *common.user;
    settings.password = *password;
    if (target.scheme == "http") environment.logging.Tell("over plain http only NTLM is used to log in");
  }
  if (common.throttling) {
    ZTransfer::SetThrottling(common.throttling->lowWaterMark, common.throttling->limit, common.throttling->percent);
  }
  return settings;
}

void RequireSet(Corvane::ZResult result) {
  if (!Corvane::IsFailure(result)) return;
  throw Failure(ExitCode::kLocal, fmt::format("cannot set up the transfer: {}; free some memory, then try again",
                                              ToUtf8(Corvane::ZGetErrorMsg(result))));
}

void RunWatched(Environment& environment, const std::string& label, bool writesToFile,
                const std::function<void()>& operation, const std::function<void()>& abort,
                const std::function<ProgressSample()>& sample) {
  const CommonOptions& common = environment.line.common;
  const bool showsProgress = !common.quiet && !common.json && (writesToFile || isatty(STDOUT_FILENO) != 1);
  std::optional<Progress> progress;
  if (showsProgress) progress.emplace(environment.console, label, sample);
  environment.interrupt->Arm([&, isFirst = true]() mutable {
    if (isFirst && environment.console.IsTerminal()) environment.console.Note("stopping; once more ends at once");
    isFirst = false;
    abort();
  });
  // Also when an exception passes: what `abort` reaches is about to go.
  struct Disarming {
    Interrupt& interrupt;
    ~Disarming() { interrupt.Disarm(); }
  } const disarming{*environment.interrupt};
  operation();
}

Circumstances CircumstancesOf(const Target& target, const TransferSettings& settings, const Environment& environment) {
  const CommonOptions& common = environment.line.common;
  Circumstances circumstances;
  circumstances.isHttps = target.IsHttps();
  circumstances.hasLogin = common.user.has_value();
  circumstances.timeoutSeconds = common.timeoutSeconds;
  circumstances.trust = ToUtf8(settings.trust.file.IsEmpty() ? settings.trust.directory : settings.trust.file);
  circumstances.proxy = settings.proxy;
  return circumstances;
}

bool WasInterrupted(const Environment& environment) { return environment.interrupt->HasHappened(); }

Session::Session(const Target& target, const TransferSettings& settings, Environment& environment)
    : m_target(target), m_circumstances(CircumstancesOf(target, settings, environment)), m_environment(environment) {
  Configure(m_transfer, settings);
  m_transfer.Attach(&m_recorder);
}

void Session::Run(const std::string& label, bool writesToFile, const std::function<void(ZTransfer&)>& operation,
                  Report& report) {
  const auto sample = [this] {
    return ProgressSample{m_transfer.GetDownloadSize(), Known(m_transfer.GetContentSize()), std::nullopt, std::nullopt};
  };
  RunWatched(
      m_environment, label, writesToFile, [&] { operation(m_transfer); }, [this] { m_transfer.Abort(); }, sample);
  FillReport(m_transfer, m_recorder, report);
  m_environment.logging.Tell(
      fmt::format("ended with 0x{:08x}, {} bytes, {} ms", report.status, report.downloadSize, report.transferTimeMs));
}

void Session::AcceptHttpError(Report& report) {
  int status = 0;
  static_cast<void>(LastHttpStatus(report.header, status));
  const bool isRefusal = report.status == Corvane::TRANSFER_E_CONNECT || report.status == Corvane::TRANSFER_E_POST;
  // Only a whole answer is accepted.
  if (!isRefusal || status == 0 || Corvane::IsFailure(report.cause)) return;
  report.status = Corvane::TRANSFER_S_FINISHED;
  report.libraryText = ToUtf8(Corvane::ZGetErrorMsg(report.status));
}

void Session::Fail(const char* doing, OutputFile* file, bool canBeResumed, Report& report) {
  Circumstances circumstances = m_circumstances;
  if (file != nullptr) circumstances.outputPath = file->WorkPath();
  const Explanation explanation = Explain(report, circumstances);
  const bool interrupted = WasInterrupted(m_environment);
  if (file != nullptr) {
    SettleFailedFile(*file, canBeResumed && (interrupted || explanation.canResume), report, m_environment);
  }
  if (interrupted) {
    throw Failure(ExitCode::kInterrupted, report.partial ? "interrupted" : "interrupted; nothing was kept");
  }
  // What is wrong on this side has nothing to do with the URL.
  if (explanation.code == ExitCode::kLocal) throw Failure(explanation.code, explanation.text);
  throw Failure(explanation.code, fmt::format("{} {}: {}", doing, m_target.display, explanation.text));
}

}  // namespace CorvaneCli
