#include <fmt/core.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>

#include <Corvane/TransferOptions.h>

#include "apps/corvane/Failure.h"
#include "apps/corvane/Get/Destination.h"
#include "apps/corvane/OutputStream.h"
#include "apps/corvane/PartFile.h"
#include "apps/corvane/Sha256.h"
#include "apps/corvane/Text.h"

// corvane get to the standard output, into a pipe or into a device: bytes go out as they come, and what is out cannot be
// taken back. A try that failed is continued only when the server proves that what it sends is the rest of the same.

namespace CorvaneCli {
namespace {

using Corvane::ZString;
using Corvane::ZTransfer;

class StreamDestination : public Destination, private Corvane::ZTransferSink {
 public:
  StreamDestination(const GetCommand& command, const Target& target, Environment& environment)
      : m_command(command),
        m_target(target),
        m_environment(environment),
        m_output(command.placement.output, environment, command.decodesText) {
    if (command.sha256) m_checksum.emplace();
  }

  [[nodiscard]] std::string Label() const override { return m_target.Label(); }
  void Try(Session& session, Report& report) override;
  [[nodiscard]] bool CanGoOn() const override;
  [[nodiscard]] unsigned long long Position() const override { return m_taken; }
  [[nodiscard]] bool Finish(Session& session, Report& report) override;
  [[noreturn]] void Fail(Session& session, Report& report) override;

 private:
  [[nodiscard]] bool CanContinue() const { return m_taken > kResumeMargin && !m_validator.empty(); }
  std::size_t Write(const void* data, std::size_t bytes) override;
  bool Compare(std::string_view& block);
  void Remember(std::string_view block);

  const GetCommand& m_command;
  const Target& m_target;
  Environment& m_environment;
  OutputStream m_output;
  std::optional<Sha256> m_checksum;
  unsigned long long m_taken = 0;            // bytes of the content that are out
  std::string m_validator;                   // of the version that they are of
  std::array<char, kResumeMargin> m_tail{};  // the last of them
  std::size_t m_toCompare = 0;               // bytes at the beginning of what comes that are out already
  bool m_isDifferent = false;                // they were not the same
};

void StreamDestination::Try(Session& session, Report& report) {
  const bool continues = CanContinue();
  m_toCompare = continues ? kResumeMargin : 0;
  session.Options().checkResume = continues;
  session.Options().validator = continues ? FromUtf8(m_validator) : ZString();
  session.Options().handOnErrorPages = m_command.acceptHttpErrors;
  const unsigned long long offset = continues ? m_taken - kResumeMargin : 0;
  session.Run(
      Label(), m_output.IsElsewhere(), [&](ZTransfer& transfer) { transfer.Download(m_target.url, *this, offset); },
      report);
  if (continues) return;
  ZString validator;
  session.Transfer().GetValidator(validator);
  m_validator = ToUtf8(validator);
}

// The rest has to be the rest of the same.
bool StreamDestination::CanGoOn() const {
  return !m_output.IsBroken() && !m_isDifferent && (m_taken == 0 || CanContinue());
}

std::size_t StreamDestination::Write(const void* data, std::size_t bytes) {
  std::string_view block(static_cast<const char*>(data), bytes);
  if (!Compare(block)) return 0;
  if (block.empty()) return bytes;
  if (m_checksum) m_checksum->Add(block.data(), block.size());
  if (!m_output.Write(block)) return 0;
  m_taken += block.size();
  Remember(block);
  return bytes;
}

bool StreamDestination::Compare(std::string_view& block) {
  const std::size_t count = std::min(m_toCompare, block.size());
  const char* const known = m_tail.data() + (m_tail.size() - m_toCompare);
  m_isDifferent = std::memcmp(known, block.data(), count) != 0;
  m_toCompare -= count;
  block.remove_prefix(count);
  return !m_isDifferent;
}

void StreamDestination::Remember(std::string_view block) {
  const std::size_t count = std::min(block.size(), m_tail.size());
  std::memmove(m_tail.data(), m_tail.data() + count, m_tail.size() - count);
  std::memcpy(m_tail.data() + m_tail.size() - count, block.data() + block.size() - count, count);
}

bool StreamDestination::Finish(Session& /*session*/, Report& /*report*/) {
  if (!m_output.Finish()) m_output.Fail(m_target.display);
  if (!m_checksum) return true;
  const std::string found = m_checksum->Hex();
  if (found == *m_command.sha256) return true;
  throw Failure(ExitCode::kTransfer,
                fmt::format("{} {}: its SHA-256 is {}, not {}; do not trust what was written to {}", kCannotGet,
                            m_target.display, found, *m_command.sha256, m_output.Name()));
}

void StreamDestination::Fail(Session& session, Report& report) {
  if (m_output.IsBroken() && !WasInterrupted(m_environment)) m_output.Fail(m_target.display);
  if (m_taken != 0) {
    report.notes.push_back(
        fmt::format("{} went to {} before; that is not the whole", FormatBytes(m_taken), m_output.Name()));
  }
  const bool isRefused = CanContinue() && IsRefusedResume(report) && !WasInterrupted(m_environment);
  if (m_isDifferent || isRefused) {
    const bool isRangeless = isRefused && report.libraryText.find("changed") == std::string::npos;
    throw Failure(ExitCode::kTransfer,
                  fmt::format("{} {}: the connection broke, and {}; begin anew", kCannotGet, m_target.display,
                              isRangeless ? "the server does not send the rest alone"
                                          : "the file on the server has changed meanwhile"));
  }
  session.Fail(kCannotGet, nullptr, false, report);
}

}  // namespace

std::unique_ptr<Destination> MakeStreamDestination(const GetCommand& command, const Target& target,
                                                   Environment& environment) {
  return std::make_unique<StreamDestination>(command, target, environment);
}

}  // namespace CorvaneCli
