#include "tests/mirror/MirrorTesting.h"

#include <gmock/gmock.h>

#include <utility>

namespace CorvaneTest {

using Corvane::ZMultiDownload;
using Corvane::ZResult;
using Corvane::ZString;

std::string ErrorOf(const ZMultiDownload& mirror) { return Narrow(mirror.GetError()); }

void LookAtEverything(ZMultiDownload& mirror, const std::vector<ZResult>& statuses, unsigned long long mostBytes,
                      std::size_t mostFiles) {
  const ZResult status = mirror.GetStatus();
  EXPECT_THAT(statuses, testing::Contains(status)) << Hex(status);
  EXPECT_FALSE(ErrorOf(mirror).empty());
  EXPECT_GE(mirror.GetDownloadTime(), 0);
  EXPECT_LE(mirror.GetDownloadSize(), mostBytes);
  EXPECT_LE(mirror.GetTransferSize(), mostBytes);
  static_cast<void>(mirror.GetTransferRate());
  const ZMultiDownload::Statistics files = mirror.GetStatistics();
  EXPECT_LE(files.filesFetched + files.filesResumed + files.filesSkipped, files.filesKnown);
  EXPECT_LE(files.filesKnown, mostFiles);
  EXPECT_LE(files.presentBytes, mostBytes);
  EXPECT_LE(mirror.GetLeftOut().size(), 100u);
  ZString text;
  ZString header;
  static_cast<void>(mirror.GetCause(text, header));
  static_cast<void>(mirror.Wait(0));
}

std::string PageOf(const std::vector<std::string>& names) {
  std::string page = "<html><pre>";
  for (const std::string& name : names)
    page.append("<a href=\"").append(name).append("\">").append(name).append("</a>\r\n");
  return page + "</pre></html>";
}

Responder Directory(const std::map<std::string, std::string>& files) {
  std::map<std::string, Responder> routes;
  std::vector<std::string> names;
  for (const auto& [name, content] : files) {
    names.push_back(name);
    routes["/dir/" + name] = Content(content);
  }
  routes["/dir/"] = Status(200, PageOf(names));
  return Routes(std::move(routes));
}

std::vector<std::string> TargetsOf(const ScriptedServer& server) {
  std::vector<std::string> targets;
  for (const Request& request : server.Requests()) targets.push_back(request.target);
  return targets;
}

RunningMirror::RunningMirror(ZMultiDownload& mirror, ZString url, ZString folder, bool resume)
    : m_mirror(mirror),
      m_future(std::async(std::launch::async, [&mirror, url = std::move(url), folder = std::move(folder), resume] {
        return mirror.Download(url, folder, resume);
      })) {}

RunningMirror::~RunningMirror() {
  // An abort that meets the very beginning of a run is lost, so one is not enough.
  while (!Result(After(std::chrono::milliseconds(500)))) m_mirror.Abort();
}

std::optional<ZResult> RunningMirror::Result(Deadline deadline) {
  if (!m_result && m_future.wait_until(deadline) == std::future_status::ready) m_result = m_future.get();
  return m_result;
}

}  // namespace CorvaneTest
