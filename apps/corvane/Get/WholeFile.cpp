#include "apps/corvane/Get/WholeFile.h"

#include <fcntl.h>
#include <fmt/core.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <variant>

#include <Corvane/TransferOptions.h>

#include "apps/corvane/Failure.h"
#include "apps/corvane/PartFile.h"
#include "apps/corvane/Sha256.h"
#include "apps/corvane/Text.h"

namespace CorvaneCli {
namespace {

using Corvane::ZTransfer;

// Compares what comes with the end of a file, and takes nothing else.
class TailCheck : public Corvane::ZTransferSink {
 public:
  TailCheck(const ZTransfer& transfer, const Descriptor& file, unsigned long long size)
      : m_transfer(transfer), m_size(size) {
    const auto offset = static_cast<off_t>(size - kResumeMargin);
    m_isReadable = pread(file.Get(), m_tail.data(), m_tail.size(), offset) == static_cast<ssize_t>(m_tail.size());
  }

  std::size_t Write(const void* data, std::size_t bytes) override {
    const bool isSame = m_isReadable && m_transfer.GetContentSize() == m_size && bytes <= m_tail.size() - m_compared &&
                        std::memcmp(m_tail.data() + m_compared, data, bytes) == 0;
    if (!isSame) return 0;
    m_compared += bytes;
    return bytes;
  }

  [[nodiscard]] bool IsSame() const { return m_compared == m_tail.size(); }

 private:
  const ZTransfer& m_transfer;
  const unsigned long long m_size;
  std::array<char, kResumeMargin> m_tail{};
  std::size_t m_compared = 0;
  bool m_isReadable = false;
};

}  // namespace

std::string ChecksumOf(int descriptor, const std::string& path, Environment& environment) {
  const auto result = Sha256OfFile(descriptor, environment.interrupt->PollDescriptor());
  if (const std::string* const checksum = std::get_if<std::string>(&result)) return *checksum;
  const int error = std::get<int>(result);
  if (error == ECANCELED) throw Failure(ExitCode::kInterrupted, "interrupted while the checksum was computed");
  throw Failure(ExitCode::kLocal,
                fmt::format("cannot read {}: {}; check the disk", DisplayName(path), SystemText(error)));
}

bool HasChecksum(const std::string& path, const std::string& checksum, Environment& environment) {
  const Descriptor file = Open(path, O_RDONLY);
  return file.IsOpen() && ChecksumOf(file.Get(), path, environment) == checksum;
}

bool IsWhole(const std::string& path, const Target& target, const std::string& label, Session& session,
             Report& report) {
  const Descriptor file = Open(path, O_RDONLY);
  struct stat status {};
  if (!file.IsOpen() || fstat(file.Get(), &status) != 0) return false;
  const auto size = static_cast<unsigned long long>(status.st_size);
  if (size <= kResumeMargin) return false;
  TailCheck check(session.Transfer(), file, size);
  Report answer = report;
  session.Run(
      label, true, [&](ZTransfer& transfer) { transfer.Download(target.url, check, size - kResumeMargin); }, answer);
  const long long changed = session.Transfer().GetModificationTime();
  const bool isWhole =
      !Corvane::IsFailure(answer.status) && check.IsSame() && changed >= 0 && changed <= status.st_mtime;
  if (isWhole) report = answer;
  return isWhole;
}

}  // namespace CorvaneCli
