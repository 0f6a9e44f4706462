#include "apps/corvane/Session.h"

#include <fmt/core.h>
#include <unistd.h>

#include <algorithm>
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
  if (common.insecure || target.scheme == "ftp") return TrustStore();
  return target.IsHttps() ? UseSystemTrust() : UseSystemTrustForRedirects();
}

// More than libcurl's own 16 KiB: fewer and larger blocks cost less.
constexpr unsigned long kReceiveBuffer = 256UL * 1024;

Corvane::ZTransferOptions OptionsOf(const RequestOptions& request) {
  Corvane::ZTransferOptions options;
  options.mostRedirects = request.redirects;
  options.headers = Corvane::ZStringList(request.headers.begin(), request.headers.end());
  options.userAgent = request.userAgent;
  options.askModificationTime = true;
  options.receiveBufferBytes = kReceiveBuffer;
  return options;
}

// What such an answer was about is not known; a success without a byte would be none.
void RefuseCutHeader(Report& report) {
  if (Corvane::IsFailure(report.cause) || report.httpStatus == 0 || HasWholeHeader(report.header)) return;
  constexpr unsigned int kPartialFile = 18;
  report.cause = Corvane::TRANSFER_E_CURL_BASE | kPartialFile;
  report.causeText = "the answer ends within its header lines";
  if (Corvane::IsFailure(report.status)) return;
  report.status = report.cause;
  report.libraryText = report.causeText;
}

void FillReport(const ZTransfer& transfer, const EventRecorder& recorder, Report& report) {
  ZString text;
  report.status = transfer.GetStatus();
  report.libraryText = HideProxySecrets(ToUtf8(transfer.GetError()));
  report.cause = transfer.GetCause(text);
  report.causeText = HideProxySecrets(ToUtf8(text));
  report.contentSize = KnownSize(transfer.GetContentSize());
  report.downloadSize = transfer.GetDownloadSize();
  report.transferSize = transfer.GetTransferSize();
  report.transferRate = transfer.GetTransferRate();
  report.transferTimeMs = transfer.GetTransferTime();
  transfer.GetHeader(text);
  report.header = ToUtf8(text);
  report.events = recorder.Events();
  report.httpStatus = transfer.GetHttpStatus();
  transfer.GetEffectiveUrl(text);
  report.effectiveUrl = ToUtf8(text);
  RefuseCutHeader(report);
}

std::string Attempts(const std::string& explanation, const Report& report) {
  if (report.attempts < 2) return explanation;
  return fmt::format("{} (after {} tries)", explanation, report.attempts);
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
  settings.request = common.request;
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
  circumstances.redirects = settings.request.redirects;
  circumstances.trust = ToUtf8(settings.trust.file.IsEmpty() ? settings.trust.directory : settings.trust.file);
  circumstances.proxy = settings.proxy;
  return circumstances;
}

bool WasInterrupted(const Environment& environment) { return environment.interrupt->HasHappened(); }

std::optional<unsigned long long> KnownSize(unsigned long long size) {
  if (size == std::numeric_limits<unsigned long long>::max()) return std::nullopt;
  return size;
}

Session::Session(const Target& target, const TransferSettings& settings, Environment& environment)
    : m_target(&target),
      m_settings(settings),
      m_circumstances(CircumstancesOf(target, settings, environment)),
      m_environment(environment),
      m_trace(environment.logging),
      m_options(OptionsOf(settings.request)) {
  if (environment.logging.IsOn()) m_options.trace = &m_trace;
  m_transfer.Attach(&m_recorder);
  Configure(m_transfer, m_settings);
}

void Session::TurnTo(const Target& target) {
  m_target = &target;
  m_settings.trust = ChooseTrust(m_environment.line.common, target);
  m_settings.proxy = FindProxy(target);
  m_circumstances = CircumstancesOf(target, m_settings, m_environment);
  Configure(m_transfer, m_settings);
}

// While something is posted and no answer has come, what moves is what is sent.
ProgressSample Session::Sample() const {
  const unsigned long long received = m_transfer.GetDownloadSize();
  if (m_uploadBytes && received == 0) {
    return {std::min(m_transfer.GetTransferSize(), *m_uploadBytes), *m_uploadBytes, std::nullopt, m_files};
  }
  return {received, KnownSize(m_transfer.GetContentSize()), std::nullopt, m_files};
}

void Session::Run(const std::string& label, bool writesToFile, const std::function<void(ZTransfer&)>& operation,
                  Report& report) {
  RequireSet(m_transfer.SetOptions(m_options));
  m_recorder.Forget();
  RunWatched(
      m_environment, label, writesToFile, [&] { operation(m_transfer); }, [this] { m_transfer.Abort(); },
      [this] { return Sample(); });
  FillReport(m_transfer, m_recorder, report);
  m_environment.logging.Tell(
      fmt::format("ended with 0x{:08x}, {} bytes, {} ms", report.status, report.downloadSize, report.transferTimeMs));
}

std::string Session::Reason(const Report& report) const {
  const std::string text = Explain(report, m_circumstances).text;
  return text.substr(0, text.rfind("; "));
}

void Session::AcceptHttpError(Report& report) {
  const long status = report.httpStatus;
  const bool isRefusal = report.status == Corvane::TRANSFER_E_CONNECT || report.status == Corvane::TRANSFER_E_POST;
  // Only a whole answer is accepted.
  if (!isRefusal || status == 0 || Corvane::IsFailure(report.cause)) return;
  report.status = Corvane::TRANSFER_S_FINISHED;
  report.libraryText = ToUtf8(Corvane::ZGetErrorMsg(report.status));
}

void Session::Fail(const char* doing, OutputFile* file, bool canBeResumed, Report& report) {
  Circumstances circumstances = m_circumstances;
  if (file != nullptr) circumstances.outputPath = file->Part().Path();
  const Explanation explanation = Explain(report, circumstances);
  const bool interrupted = WasInterrupted(m_environment);
  if (file != nullptr) {
    SettleFailedFile(*file, canBeResumed && (interrupted || explanation.canResume), report, m_environment);
  }
  if (interrupted) {
    const bool keptNothing = file != nullptr && !report.partial;
    throw Failure(ExitCode::kInterrupted, keptNothing ? "interrupted; nothing was kept" : "interrupted");
  }
  // What is wrong on this side has nothing to do with the URL.
  if (explanation.code == ExitCode::kLocal) throw Failure(explanation.code, explanation.text);
  throw Failure(explanation.code,
                fmt::format("{} {}: {}", doing, m_target->display, Attempts(explanation.text, report)));
}

}  // namespace CorvaneCli
