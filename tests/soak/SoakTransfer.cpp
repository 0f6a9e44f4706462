#include <netinet/in.h>

#include <algorithm>
#include <cstring>
#include <iterator>

#include <Corvane/GetHostByName.h>
#include <Corvane/Transfer.h>
#include <Corvane/TransferOptions.h>

#include "tests/loopback/TransferTesting.h"
#include "tests/soak/SoakObject.h"
#include "tests/support/TempDir.h"

// ZTransfer in a soak: downloads into texts, sinks and files, resumed ones, and posts.
namespace CorvaneTest {
namespace {

namespace fs = std::filesystem;
using namespace Corvane;

constexpr std::size_t kResumeMargin = 64;  // a file that is no longer is fetched from its beginning

// Compares what comes with what has to come.
class ComparingSink : public ZTransferSink {
 public:
  ComparingSink(const std::string& expected, std::size_t offset) : m_expected(expected), m_at(offset) {}

  std::size_t Write(const void* data, std::size_t bytes) override {
    isRight = isRight && m_expected.size() - m_at >= bytes && std::memcmp(m_expected.data() + m_at, data, bytes) == 0;
    m_at = std::min(m_at + bytes, m_expected.size());
    return bytes;
  }
  bool IsWhole() const { return isRight && m_at == m_expected.size(); }

  bool isRight = true;

 private:
  const std::string& m_expected;
  std::size_t m_at;
};

// A name and its content.
const std::pair<const std::string, std::string>& AnyFile(Random& random) {
  return *std::next(SoakFiles().begin(), random.Below(static_cast<unsigned int>(SoakFiles().size())));
}

ZString UrlOf(const std::string& base, const std::string& path) {
  std::string url = base + path;
  for (std::size_t blank = url.find(' '); blank != url.npos; blank = url.find(' ', blank)) url.replace(blank, 1, "%20");
  return Wide(url);
}

class SoakTransfer : public SoakObject {
 public:
  SoakResult Operate(const SoakTargets& targets, const fs::path& folder, Random& random) override {
    ChangeSettings(targets, random);
    switch (random.Below(10)) {
      case 0:
      case 1:
        return DownloadText(targets, random);
      case 2:
        return DownloadToSink(targets, random, false);
      case 3:
        return DownloadToSink(targets, random, true);
      case 4:
      case 5:
        return DownloadToFile(targets, folder, random, false);
      case 6:
        return DownloadToFile(targets, folder, random, true);
      case 7:
        return PostFields(targets, random);
      case 8:
        return PostText(targets, random);
      default:
        return PostFile(targets, folder, random);
    }
  }
  void Abort() override { m_transfer.Abort(); }
  bool Wait(unsigned long milliseconds) override { return m_transfer.Wait(milliseconds); }
  void Watch(Random& random) override;

 private:
  void ChangeSettings(const SoakTargets& targets, Random& random);
  SoakResult DownloadText(const SoakTargets& targets, Random& random);
  SoakResult DownloadToSink(const SoakTargets& targets, Random& random, bool isPart);
  SoakResult DownloadToFile(const SoakTargets& targets, const fs::path& folder, Random& random, bool isResumed);
  SoakResult PostFields(const SoakTargets& targets, Random& random);
  SoakResult PostText(const SoakTargets& targets, Random& random);
  SoakResult PostFile(const SoakTargets& targets, const fs::path& folder, Random& random);

  ZTransfer m_transfer;
};

void SoakTransfer::ChangeSettings(const SoakTargets& targets, Random& random) {
  m_transfer.SetTimeout(2 + random.Below(3));
  RequireSet(m_transfer.SetSSL(true, true, WidePath(targets.caFile), ZString()));
  m_transfer.UseThrottling(random.OneIn(2));
  ZTransferOptions options;
  if (random.OneIn(2)) {
    options.mostRedirects = random.Below(3);
    options.checkResume = random.OneIn(2);
    options.askModificationTime = random.OneIn(2);
    options.limitFollowsUpload = random.OneIn(2);
    options.receiveBufferBytes = random.OneIn(2) ? 1024 + random.Below(200000) : 0;
    options.headers = {L"X-Soak: 1"};
    options.userAgent = L"soak";
  }
  RequireSet(m_transfer.SetOptions(options));
  m_transfer.DetectHttpError(true);
}

void SoakTransfer::Watch(Random& random) {
  ZString text;
  m_transfer.GetHeader(text);
  m_transfer.GetCause(text);
  m_transfer.GetEffectiveUrl(text);
  static_cast<void>(m_transfer.GetError());
  static_cast<void>(m_transfer.GetStatus());
  static_cast<void>(m_transfer.GetContentSize());
  static_cast<void>(m_transfer.GetDownloadSize());
  static_cast<void>(m_transfer.GetTransferSize());
  static_cast<void>(m_transfer.GetTransferRate());
  if (random.OneIn(20)) m_transfer.SetTimeout(2 + random.Below(3));
  if (random.OneIn(50)) m_transfer.Reset();
}

SoakResult SoakTransfer::DownloadText(const SoakTargets& targets, Random& random) {
  const auto& [path, content] = AnyFile(random);
  ZString text;
  SoakResult result{"Download, text", m_transfer.Download(UrlOf(targets.Any(random), path), text), 0, ""};
  if (IsFailure(result.code)) return result;
  result.bytes = content.size();
  if (text != Wide(content)) result.problem = "another text than that of " + path;
  return result;
}

SoakResult SoakTransfer::DownloadToSink(const SoakTargets& targets, Random& random, bool isPart) {
  const auto& [path, content] = AnyFile(random);
  const std::size_t offset = isPart ? random.Below(static_cast<unsigned int>(content.size()) + 1) : 0;
  ComparingSink sink(content, offset);
  const ZString url = UrlOf(targets.Any(random), path);
  SoakResult result{isPart ? "Download, part" : "Download, sink", m_transfer.Download(url, sink, offset), 0, ""};
  if (!sink.isRight) result.problem = "wrong bytes of " + path + " came into a sink";
  if (IsFailure(result.code)) return result;
  result.bytes = content.size() - offset;
  if (!sink.IsWhole()) result.problem = "not all of " + path + " came into a sink";
  return result;
}

SoakResult SoakTransfer::DownloadToFile(const SoakTargets& targets, const fs::path& folder, Random& random,
                                        bool isResumed) {
  const auto& [path, content] = AnyFile(random);
  const fs::path file = folder / "file";
  fs::remove(file);
  const std::size_t here = isResumed ? random.Below(static_cast<unsigned int>(content.size()) + 1) : 0;
  if (isResumed) WriteFile(file, content.substr(0, here));
  const ZString url = UrlOf(targets.Any(random), path);
  SoakResult result{isResumed ? "DownloadFile, resumed" : "DownloadFile",
                    m_transfer.DownloadFile(url, WidePath(file), isResumed), 0, ""};
  const bool isThere = fs::exists(file);
  const std::string got = isThere ? ReadFile(file) : "";
  if (content.compare(0, got.size(), got) != 0) result.problem = "a file has other bytes than " + path;
  if (isThere && isResumed && here > kResumeMargin && got.size() + 32 < here)
    result.problem = "a resume lost bytes of " + path;
  if (IsFailure(result.code)) return result;
  result.bytes = content.size();
  if (!isThere || got != content) result.problem = "a file of " + std::to_string(got.size()) + " bytes for " + path;
  return result;
}

SoakResult SoakTransfer::PostFields(const SoakTargets& targets, Random& random) {
  ZMap<ZString, ZString, ZLtstr> fields;
  fields[L"a"] = L"1";
  fields[L"b"] = ZString().SetNum(random.Below(1000));
  const ZString expected = L"a=1&b=" + fields[L"b"];
  ZString answer;
  SoakResult result{"Post", m_transfer.Post(Wide(targets.AnyHttp(random)), fields, answer), 0, ""};
  if (IsFailure(result.code)) return result;
  result.bytes = expected.Length();
  if (answer != expected) result.problem = "another answer to fields: " + Narrow(answer);
  return result;
}

SoakResult SoakTransfer::PostText(const SoakTargets& targets, Random& random) {
  const ZString data = Wide(std::string(random.Below(50000), 'd') + "\xE2\x82\xAC");
  ZString answer;
  SoakResult result{"PostData", m_transfer.PostData(Wide(targets.AnyHttp(random)), data, answer), 0, ""};
  if (IsFailure(result.code)) return result;
  result.bytes = data.Length();
  if (answer != data) result.problem = "another answer to data";
  return result;
}

SoakResult SoakTransfer::PostFile(const SoakTargets& targets, const fs::path& folder, Random& random) {
  const std::string& content = AnyFile(random).second;
  WriteFile(folder / "input", content);
  SoakResult result{
      "PostFile",
      m_transfer.PostFile(Wide(targets.AnyHttp(random)), WidePath(folder / "input"), WidePath(folder / "output")), 0,
      ""};
  if (IsFailure(result.code)) return result;
  result.bytes = content.size();
  result.problem = ProblemOf(folder / "output", content);
  return result;
}

}  // namespace

const std::string& SoakTargets::Any(Random& random) const { return random.OneIn(4) ? ftp : AnyHttp(random); }
const std::string& SoakTargets::AnyHttp(Random& random) const { return random.OneIn(3) ? tls : http; }

std::unique_ptr<SoakObject> MakeSoakTransfer() { return std::make_unique<SoakTransfer>(); }

SoakResult LookUpHost(Random& random) {
  SoakResult result{"ZGetHostByName", TRANSFER_S_FINISHED, 0, ""};
  const ZGetHostByName lookup(random.OneIn(2) ? "localhost" : "127.0.0.1");
  const hostent* const host = lookup.GetHostEnt();
  const in_addr_t loopback = htonl(INADDR_LOOPBACK);
  const bool isRight = host != nullptr && host->h_addrtype == AF_INET && host->h_addr_list[0] != nullptr &&
                       std::memcmp(host->h_addr_list[0], &loopback, sizeof loopback) == 0;
  if (!isRight) result.problem = "the loopback has another address";
  return result;
}

std::string ProblemOf(const fs::path& file, const std::string& expected) {
  if (!fs::exists(file)) return file.filename().native() + " is not there";
  const std::string got = ReadFile(file);
  return got == expected ? "" : file.filename().native() + " has " + std::to_string(got.size()) + " wrong bytes";
}

}  // namespace CorvaneTest
