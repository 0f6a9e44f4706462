#include "tests/faults/Client.h"

#include <filesystem>
#include <memory>
#include <thread>

#include <Corvane/MultiDownload.h>
#include <Corvane/TransferOptions.h>
#include <Corvane/TreeDownload.h>

#include "tests/mirror/MirrorTesting.h"
#include "tests/support/Pki.h"
#include "tests/support/TempDir.h"
#include "tests/tree/TreeTesting.h"

namespace CorvaneTest {

using namespace Corvane;

namespace {

namespace fs = std::filesystem;

constexpr unsigned long kPatientSeconds = 300;

// Aborts what runs once the gate is open, and again until it has ended: an abort that meets the very beginning is lost.
class Aborter {
 public:
  Aborter(const Gate* gate, std::function<void()> abort) {
    if (gate == nullptr) return;
    m_thread = std::thread([this, gate, abort = std::move(abort)] {
      if (!gate->Wait()) return;
      do abort();
      while (!m_ended.Wait(After(std::chrono::milliseconds(200))));
    });
  }
  ~Aborter() {
    m_ended.Open();
    if (m_thread.joinable()) m_thread.join();
  }
  Aborter(const Aborter&) = delete;
  Aborter& operator=(const Aborter&) = delete;

 private:
  Gate m_ended;
  std::thread m_thread;
};

std::optional<std::string> BytesOf(const fs::path& file) {
  return fs::exists(file) ? std::optional(ReadFile(file)) : std::nullopt;
}

template <class Object>
void Apply(const Conditions& conditions, Object& object) {
  object.SetTimeout(conditions.timeoutSeconds);
  if (conditions.hasLogin) RequireSet(object.SetCredentials(L"user", L"password"));
  const fs::path& authority = conditions.trustsOther ? ThePki().otherCaFile : ThePki().caFile;
  if (conditions.verifies) RequireSet(object.SetSSL(true, true, WidePath(authority), L""));
}

std::string Complain(const char* what, ZResult code, const ZString& text) {
  return std::string(what) + ": " + Hex(code) + ", text \"" + Narrow(text) + '"';
}

// What is wrong with a good file; empty when nothing is.
std::string Complain(const char* what, ZResult code, const ZString& text, const fs::path& file) {
  if (IsFailure(code)) return Complain(what, code, text);
  const std::optional<std::string> bytes = BytesOf(file);
  return bytes == GoodContent() ? "" : std::string(what) + ": " + (bytes ? "other bytes" : "no file");
}

// --- transfers

class TransferClient {
 public:
  TransferClient(Op op, const Targets& targets, const Conditions& conditions) : m_op(op), m_targets(targets) {
    Apply(conditions, m_transfer);
    ZTransferOptions options;
    options.mostRedirects = conditions.redirects;
    RequireSet(m_transfer.SetOptions(options));
    m_transfer.DetectHttpError(op == Op::kGetChecked);
    m_transfer.Attach(&m_observer);
    if (IsResumed(op)) WriteFile(File(), HeldContent());
    WriteFile(m_folder / "posted", "posted");
  }

  ZTransfer& Object() { return m_transfer; }

  void Operate(Observation& seen) {
    const ZResult code = Start();
    seen.isIdle = m_transfer.Wait(0) && m_transfer.GetStatus() == code;
    seen.header = HeaderOf(m_transfer);
    Outcome& outcome = seen.outcome;
    outcome.ends = {{code, ErrorOf(m_transfer)}};
    outcome.cause = CauseOf(m_transfer);
    outcome.received = Narrow(m_result);
    outcome.file = BytesOf(File());
    outcome.contentSize = m_transfer.GetContentSize();
    outcome.downloadSize = m_transfer.GetDownloadSize();
    outcome.events = m_observer.Events();
  }

  std::string GoodDownload() {
    m_transfer.SetTimeout(kPatientSeconds);
    const fs::path file = m_folder / "good";
    const bool intoFile = m_op == Op::kFile || IsResumed(m_op);
    if (!intoFile) WriteFile(file, "");
    const ZResult code = intoFile ? m_transfer.DownloadFile(Wide(m_targets.goodFile), WidePath(file), false)
                                  : m_transfer.Download(Wide(m_targets.goodFile), m_result);
    if (!intoFile) WriteFile(file, Narrow(m_result));
    return Complain("the transfer afterwards", code, m_transfer.GetError(), file);
  }

 private:
  [[nodiscard]] fs::path File() const { return m_folder / std::string(kFileName); }

  ZResult Start() {
    const ZString url = Wide(m_targets.file);
    switch (m_op) {
      case Op::kFile:
      case Op::kFileResumed:
        return m_transfer.DownloadFile(url, WidePath(File()), IsResumed(m_op));
      case Op::kPostFields:
        return m_transfer.Post(url, L"name", L"value", m_result);
      case Op::kPostData:
        return m_transfer.PostData(url, L"posted", m_result);
      case Op::kPostFile:
        return m_transfer.PostFile(url, WidePath(m_folder / "posted"), WidePath(File()));
      default:
        return m_transfer.Download(url, m_result);
    }
  }

  const Op m_op;
  const Targets& m_targets;
  const TempDir m_folder;
  RecordingObserver m_observer;
  ZTransfer m_transfer;
  ZString m_result;
};

// --- mirrors

class MirrorClient {
 public:
  MirrorClient(Op op, const Targets& targets, const Conditions& conditions) : m_op(op), m_targets(targets) {
    Apply(conditions, m_mirror);
    m_mirror.Attach(&m_observer);
    if (IsResumed(op)) WriteFile(File(), HeldContent());
    // Without a page the file is the first thing that is asked for.
    if (!IsOnPage(op)) SetFiles({{Wide(kFileName), IsResumed(op) ? kContentSize : 0}});
  }

  ZMultiDownload& Object() { return m_mirror; }

  void Operate(Observation& seen) {
    const ZResult code = m_mirror.Download(Wide(m_targets.page), WidePath(m_folder / "dir"), IsResumed(m_op));
    seen.isIdle = m_mirror.Wait(0) && m_mirror.GetStatus() == code;
    Outcome& outcome = seen.outcome;
    outcome.ends = {{code, ErrorOf(m_mirror)}};
    ZString text;
    ZString header;
    outcome.cause = m_mirror.GetCause(text, header);
    seen.header = Narrow(header);
    outcome.file = BytesOf(File());
    outcome.downloadSize = m_mirror.GetDownloadSize();
    outcome.events = m_observer.Events();
    outcome.counts = Counts(m_mirror.GetStatistics());
  }

  std::string GoodDownload() {
    m_mirror.SetTimeout(kPatientSeconds);
    SetFiles({});
    const ZResult code = m_mirror.Download(Wide(m_targets.goodPage), WidePath(m_folder / "good"), false);
    return Complain("the mirror afterwards", code, m_mirror.GetError(), m_folder / "good" / std::string(kGoodName));
  }

 private:
  [[nodiscard]] fs::path File() const { return m_folder / "dir" / std::string(kFileName); }
  void SetFiles(const Sizes& sizes) { m_mirror.SetFileSizeList(sizes); }

  static std::string Counts(const ZMultiDownload::Statistics& of) {
    const char* const listing = !of.isListing ? "unknown" : *of.isListing ? "yes" : "no";
    return "known " + std::to_string(of.filesKnown) + ", fetched " + std::to_string(of.filesFetched) + ", resumed " +
           std::to_string(of.filesResumed) + ", mismatched " + std::to_string(of.filesMismatched) + ", listing " +
           listing + ", received " + std::to_string(of.receivedBytes);
  }

  const Op m_op;
  const Targets& m_targets;
  const TempDir m_folder;
  RecordingObserver m_observer;
  ZMultiDownload m_mirror;
};

// --- trees

class TreeRunClient {
 public:
  TreeRunClient(Op /*op*/, const Targets& targets, const Conditions& conditions) : m_targets(targets) {
    Apply(conditions, m_client.tree);
    m_client.options.mostConnections = 1;
    m_client.options.mostRetries = 0;
    m_client.options.mostRedirects = 5;
    m_client.options.mostPageBytes = kMostPageBytes;
  }

  ZTreeDownload& Object() { return m_client.tree; }

  void Operate(Observation& seen) {
    const fs::path folder = m_folder / "dir";
    const TreeResult result = m_client.Download(m_targets.page, folder);
    seen.isIdle = m_client.tree.Wait(0) && m_client.tree.GetStatus() == result.code;
    seen.outcome.ends = {{result.code, result.error}};
    seen.outcome.file = BytesOf(folder / std::string(kFileName));
    const ZTreeDownload::Statistics& of = result.statistics;
    seen.outcome.counts = "known " + std::to_string(of.filesKnown) + ", fetched " + std::to_string(of.filesFetched) +
                          ", failed " + std::to_string(of.filesFailed) + ", folders failed " +
                          std::to_string(of.foldersFailed) + ", listed " + std::to_string(of.listingBytes) +
                          ", received " + std::to_string(of.receivedBytes);
    // Nothing of these small files may be left under way.
    for (const auto& [path, content] : ReadTree(folder)) {
      if (path != kFileName) seen.outcome.counts += ", left behind: " + path;
    }
  }

  std::string GoodDownload() {
    m_client.tree.SetTimeout(kPatientSeconds);
    const TreeResult result = m_client.Download(m_targets.goodPage, m_folder / "good");
    return Complain("the tree afterwards", result.code, m_client.tree.GetError(),
                    m_folder / "good" / std::string(kGoodName));
  }

 private:
  const Targets& m_targets;
  const TempDir m_folder;
  TreeClient m_client;
};

template <class Client>
Observation RunWith(Op op, const Targets& targets, const Conditions& conditions, const std::function<void()>& recover) {
  Client client(op, targets, conditions);
  Observation seen;
  {
    const Aborter aborter(conditions.abortAt, [&] { client.Object().Abort(); });
    client.Operate(seen);
  }
  recover();
  seen.afterwards = client.GoodDownload();
  return seen;
}

}  // namespace

Observation Run(Op op, const Targets& targets, const Conditions& conditions, const std::function<void()>& recover) {
  if (IsIn(op, kMirrors)) return RunWith<MirrorClient>(op, targets, conditions, recover);
  if (IsIn(op, kTrees)) return RunWith<TreeRunClient>(op, targets, conditions, recover);
  return RunWith<TransferClient>(op, targets, conditions, recover);
}

}  // namespace CorvaneTest
