#include <atomic>
#include <optional>
#include <utility>

#include <Corvane/Transfer.h>
#include <Corvane/TransferOptions.h>

#include "tests/loopback/TransferTesting.h"
#include "tests/support/Pki.h"
#include "tests/support/ScriptedFtpServer.h"
#include "tests/support/ScriptedServer.h"
#include "tests/torture/Memory.h"
#include "tests/torture/TransferRun.h"

// Downloads of one resource.
namespace CorvaneTest {
namespace {

using namespace Corvane;

namespace fs = std::filesystem;

constexpr std::size_t kBytes = 40000;  // libcurl hands on at most 16 KiB at once
constexpr const char* kTag = "\"one\"";

std::string Bytes() { return MakePattern(kBytes, 5); }

Responder Tagged(const std::string& content) {
  ContentOptions options;
  options.headers = {{"ETag", kTag}};
  return Content(content, options);
}

class TextRun : public TransferRun {
 public:
  TextRun() : TransferRun(Content(MakeText(kBytes))) {}
  explicit TextRun(const TlsIdentity& identity) : TransferRun(Content(MakeText(kBytes)), identity) {}

  ZResult Execute() override { return transfer->Download(url, m_result); }
  void Check(const RunOutcome& outcome) override {
    CheckObject(outcome);
    if (outcome.code == Expected()) {
      EXPECT_TRUE(Narrow(m_result) == m_text) << "the text is another";
    }
  }

 private:
  const std::string m_text = MakeText(kBytes);
  ZString m_result;
};

class TlsRun final : public TextRun {
 public:
  TlsRun() : TextRun(ThePki().server) {}
  void Prepare() override {
    TextRun::Prepare();
    EXPECT_THAT(transfer->SetSSL(true, true, WidePath(ThePki().caFile), ZString()), IsCode(BASE_S_OK));
    // OpenSSL 3.0 does not tell libcurl when there is no memory for what comes in during a handshake: both sides wait until the limit.
    EXPECT_THAT(transfer->SetTimeout(10), IsCode(BASE_S_OK));
  }
};

class SinkRun : public TransferRun, private ZTransferSink {
 public:
  explicit SinkRun(std::size_t offset = 0) : TransferRun(Tagged(Bytes())), m_offset(offset) {}

  ZResult Execute() override {
    m_taken.clear();
    return transfer->Download(url, *this, m_offset);
  }
  void Check(const RunOutcome& outcome) override {
    CheckObject(outcome);
    const std::string_view wanted = std::string_view(m_content).substr(m_offset);
    EXPECT_TRUE(m_taken == wanted.substr(0, m_taken.size())) << "what was handed on is something else";
    if (outcome.code == Expected()) {
      EXPECT_EQ(m_taken.size(), wanted.size());
    }
  }

 private:
  std::size_t Write(const void* data, std::size_t bytes) override {
    const Injection::Pause pause;
    m_taken.append(static_cast<const char*>(data), bytes);
    return bytes;
  }

  const std::string m_content = Bytes();
  std::size_t m_offset;
  std::string m_taken;
};

class ResumedSinkRun final : public SinkRun {
 public:
  ResumedSinkRun() : SinkRun(kBytes / 3) {}
  void Prepare() override {
    SinkRun::Prepare();
    ZTransferOptions options;
    options.checkResume = true;
    options.validator = Wide(kTag);
    EXPECT_THAT(transfer->SetOptions(options), IsCode(BASE_S_OK));
  }
};

class FileRun : public TransferRun {
 public:
  explicit FileRun(const Responder& responder)
      : TransferRun([this, responder](Connection& peer, const Request& request) {
          ++m_answers;
          responder(peer, request);
        }) {}
  FileRun() : FileRun(Tagged(Bytes())) {}

  void Prepare() override {
    TransferRun::Prepare();
    m_answers = 0;
  }
  ZResult Execute() override { return transfer->DownloadFile(url, path, false); }
  void Check(const RunOutcome& outcome) override {
    CheckObject(outcome);
    if (outcome.code == Expected()) return ExpectWhole();
    if (!fs::exists(File())) return;
    EXPECT_TRUE(HoldsBeginning(File(), m_content));
    // One that is made and then cannot be used is as empty as it was opened.
    if (IsOpening(outcome.target)) return;
    EXPECT_NE(m_answers, 0U) << "a file stays that nobody has answered for";
  }

 protected:
  [[nodiscard]] static bool IsOpening(Target target) {
    return target == Target::kStatus || target == Target::kControl || target == Target::kStream;
  }
  fs::path File() const { return room / "new/file"; }
  void ExpectWhole() const { EXPECT_TRUE(IsWhole(File(), m_content)); }
  const std::string m_content = Bytes();
  const ZString path = WidePath(File());

 private:
  std::atomic<std::size_t> m_answers{0};
};

// An answer outside 200 to 299, whose page must not be taken for the file.
class RefusedFileRun final : public FileRun {
 public:
  RefusedFileRun() : FileRun(Status(404, "no such file")) {}
  [[nodiscard]] ZResult Expected() const override { return TRANSFER_E_CONNECT; }
  void Check(const RunOutcome& outcome) override {
    CheckObject(outcome);
    if (outcome.code) {
      EXPECT_TRUE(IsFailure(*outcome.code));
    }
    // A file that the system does not remove stays, as is said of it.
    const bool mayStay = outcome.target == Target::kRemove || IsOpening(outcome.target);
    EXPECT_TRUE(mayStay || !fs::exists(File()));
  }
};

class ResumeRun : public FileRun {
 public:
  // The file holds so many bytes, and something else behind them.
  explicit ResumeRun(std::size_t held, std::string tail = "") : m_held(held), m_tail(std::move(tail)) {}
  ResumeRun() : ResumeRun(kBytes / 2) {}

  void Prepare() override {
    FileRun::Prepare();
    WriteFile(File(), m_content.substr(0, m_held) + m_tail);
  }
  ZResult Execute() override { return transfer->DownloadFile(url, path, true); }
  void Check(const RunOutcome& outcome) override {
    CheckObject(outcome);
    if (outcome.code == Expected()) return ExpectWhole();
    // A file that cannot be looked at or opened for a resume is begun anew.
    const bool mayBeginAnew = outcome.target == Target::kOpen || IsOpening(outcome.target);
    EXPECT_TRUE(HoldsBeginning(File(), m_content + m_tail, mayBeginAnew ? 0 : m_held));
  }

 private:
  std::size_t m_held;
  std::string m_tail;
};

class StaleTailRun final : public ResumeRun {
 public:
  StaleTailRun() : ResumeRun(kBytes, "a tail") {}
};

class CheckedResumeRun final : public ResumeRun {
 public:
  void Prepare() override {
    ResumeRun::Prepare();
    ZTransferOptions options;
    options.checkResume = true;
    options.validator = Wide(kTag);
    EXPECT_THAT(transfer->SetOptions(options), IsCode(BASE_S_OK));
  }
};

class FtpResumeRun final : public ResumeRun {
 public:
  ZResult Execute() override { return transfer->DownloadFile(m_url, path, true); }

 private:
  const std::string m_there = std::string("/file") + kFtpSuffix;
  ScriptedFtpServer m_ftp{{m_there, Bytes()}};
  const ZString m_url = Wide(m_ftp.Url(m_there));
};

}  // namespace

std::vector<RunKind> DownloadRuns() {
  const std::set<Target> fresh = {Target::kOpen,       Target::kWrite,   Target::kStatus, Target::kClose,
                                  Target::kMakeFolder, Target::kControl, Target::kStream};
  std::set<Target> refused = fresh;
  refused.insert(Target::kRemove);
  const std::set<Target> resumed = {Target::kOpen,  Target::kWrite,   Target::kSeek,  Target::kStatus,
                                    Target::kClose, Target::kControl, Target::kStream};
  std::set<Target> cut = resumed;
  cut.insert(Target::kTruncate);
  std::set<Target> checked = resumed;
  checked.insert(Target::kRead);
  return {{"Download", &MakeRun<TextRun>, {}},
          {"DownloadOverTls", &MakeRun<TlsRun>, {Target::kStatus}},
          {"Sink", &MakeRun<SinkRun>, {}},
          {"ResumedSink", &MakeRun<ResumedSinkRun>, {}},
          {"File", &MakeRun<FileRun>, fresh},
          {"RefusedFile", &MakeRun<RefusedFileRun>, refused},
          {"ResumedFile", &MakeRun<ResumeRun>, resumed},
          {"FileWithAStaleTail", &MakeRun<StaleTailRun>, cut},
          {"CheckedResume", &MakeRun<CheckedResumeRun>, checked},
          {"ResumedFtpFile", &MakeRun<FtpResumeRun>, resumed}};
}

}  // namespace CorvaneTest
