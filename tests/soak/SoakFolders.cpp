#include <algorithm>

#include <Corvane/MultiDownload.h>
#include <Corvane/TreeDownload.h>

#include "tests/loopback/TransferTesting.h"
#include "tests/soak/SoakObject.h"
#include "tests/support/TempDir.h"

// ZMultiDownload and ZTreeDownload in a soak.
namespace CorvaneTest {
namespace {

namespace fs = std::filesystem;
using namespace Corvane;

constexpr const char* kMirrored = "a/";
constexpr const char* kIgnored = "33 bytes.bin";

bool IsMirrored(const std::string& path) {
  const std::string folder = kMirrored;
  return path.starts_with(folder) && path.find('/', folder.size()) == path.npos;
}

class SoakMirror : public SoakObject {
 public:
  SoakResult Operate(const SoakTargets& targets, const fs::path& folder, Random& random) override;
  void Abort() override { m_mirror.Abort(); }
  bool Wait(unsigned long milliseconds) override { return m_mirror.Wait(milliseconds); }
  void Watch(Random& random) override {
    ZString text, header;
    m_mirror.GetCause(text, header);
    static_cast<void>(m_mirror.GetStatistics());
    static_cast<void>(m_mirror.GetLeftOut());
    static_cast<void>(m_mirror.GetError());
    static_cast<void>(m_mirror.GetDownloadSize());
    static_cast<void>(m_mirror.GetTransferSize());
    if (random.OneIn(20)) m_mirror.SetTimeout(2);
  }

 private:
  ZMultiDownload m_mirror;
};

SoakResult SoakMirror::Operate(const SoakTargets& targets, const fs::path& folder, Random& random) {
  const fs::path target = folder / "mirror";
  if (random.OneIn(3)) fs::remove_all(target);
  const bool isIgnoring = random.OneIn(3);
  Container::ZStringList ignored;
  if (isIgnoring) ignored.push_back(Wide(kIgnored));
  m_mirror.SetIgnoreList(ignored);
  Container::ZMap<ZString, unsigned long long, std::less<ZString>> sizes;
  for (const auto& [path, content] : SoakFiles()) {
    if (IsMirrored(path)) sizes[Wide(path.substr(2))] = content.size();
  }
  if (!random.OneIn(4)) sizes.clear();
  m_mirror.SetFileSizeList(sizes);
  m_mirror.SetTimeout(2 + random.Below(3));
  RequireSet(m_mirror.SetSSL(true, true, WidePath(targets.caFile), ZString()));
  m_mirror.UseThrottling(random.OneIn(2));
  SoakResult result;
  result.operation = "ZMultiDownload";
  result.code = m_mirror.Download(Wide(targets.Any(random) + kMirrored), WidePath(target), random.OneIn(2));
  if (IsFailure(result.code)) return result;
  for (const auto& [path, content] : SoakFiles()) {
    if (!IsMirrored(path) || (isIgnoring && path == std::string(kMirrored) + kIgnored)) continue;
    if (result.problem.empty()) result.problem = ProblemOf(target / path.substr(2), content);
    result.bytes += content.size();
  }
  return result;
}

class SoakTree : public SoakObject, private ZTreeDownload::Observer {
 public:
  SoakTree() { m_tree.Attach(this); }
  SoakResult Operate(const SoakTargets& targets, const fs::path& folder, Random& random) override;
  void Abort() override { m_tree.Abort(); }
  bool Wait(unsigned long milliseconds) override { return m_tree.Wait(milliseconds); }
  void Watch(Random& /*random*/) override {
    static_cast<void>(m_tree.GetStatus());
    static_cast<void>(m_tree.GetError());
    static_cast<void>(m_tree.GetStatistics());
  }

 private:
  void Update(const ZTreeDownload::Item& item) override { static_cast<void>(item.path.size()); }
  void ChangeSettings(const SoakTargets& targets, Random& random, bool isDeleting);

  ZTreeDownload m_tree;
};

void SoakTree::ChangeSettings(const SoakTargets& targets, Random& random, bool isDeleting) {
  ZTreeOptions options;
  options.mostConnections = 1 + random.Below(8);
  options.mostRetries = random.Below(4);
  options.retryWaitMs = random.Below(20);
  options.verify = random.OneIn(4);
  options.stopAtFirstFailure = random.OneIn(4);
  options.deleteOthers = isDeleting;
  options.userAgent = L"soak";
  RequireSet(m_tree.SetOptions(options));
  m_tree.SetTimeout(2 + random.Below(3));
  RequireSet(m_tree.SetSSL(true, true, WidePath(targets.caFile), ZString()));
  m_tree.UseThrottling(random.OneIn(2));
}

// Whatever is there under its final name is whole, also after a failure. Counts the bytes of what is there.
std::string CheckTree(const fs::path& target, bool mayLack, unsigned long long& bytes) {
  for (const auto& [path, content] : SoakFiles()) {
    if (mayLack && !fs::exists(target / path)) continue;
    const std::string problem = ProblemOf(target / path, content);
    if (!problem.empty()) return std::string("in ").append(path).append(": ").append(problem);
    bytes += content.size();
  }
  return "";
}

SoakResult SoakTree::Operate(const SoakTargets& targets, const fs::path& folder, Random& random) {
  const fs::path target = folder / "tree";
  if (random.OneIn(3)) fs::remove_all(target);
  const bool isDeleting = random.OneIn(4);
  if (isDeleting) WriteFile(target / "other", "not on the server");
  const bool isPlan = random.OneIn(6);
  ChangeSettings(targets, random, isDeleting);
  const ZString url = Wide(targets.Any(random));
  SoakResult result;
  result.operation = isPlan ? "ZTreeDownload, plan" : "ZTreeDownload";
  result.code = isPlan ? m_tree.Plan(url, WidePath(target)) : m_tree.Download(url, WidePath(target));
  const bool isDone = !IsFailure(result.code) && !isPlan;
  unsigned long long bytes = 0;
  result.problem = CheckTree(target, !isDone, bytes);
  if (isDone) result.bytes = bytes;
  if (isDone && isDeleting && fs::exists(target / "other")) result.problem = "what had to go is still there";
  if (!isDone && isPlan && isDeleting && !fs::exists(target / "other")) result.problem = "a plan deleted a file";
  return result;
}

}  // namespace

std::unique_ptr<SoakObject> MakeSoakMirror() { return std::make_unique<SoakMirror>(); }
std::unique_ptr<SoakObject> MakeSoakTree() { return std::make_unique<SoakTree>(); }

}  // namespace CorvaneTest
