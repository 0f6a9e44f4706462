#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <future>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include <Corvane/MultiDownload.h>

#include "tests/loopback/TransferTesting.h"
#include "tests/support/ScriptedServer.h"
#include "tests/support/TempDir.h"

// What the tests of ZMultiDownload share.
namespace CorvaneTest {

using Sizes = Corvane::Container::ZMap<Corvane::ZString, unsigned long long, std::less<Corvane::ZString>>;
using Times = Corvane::Container::ZMap<Corvane::ZString, long, std::less<Corvane::ZString>>;
using Texts = Corvane::Container::ZMap<Corvane::ZString, Corvane::ZString, Corvane::ZLtstr>;

std::string ErrorOf(const Corvane::ZMultiDownload& mirror);

// Asks for everything that a mirror tells, as a watcher on another thread would, and expects sense: one of these
// statuses, at most so many bytes and files.
void LookAtEverything(Corvane::ZMultiDownload& mirror, const std::vector<Corvane::ZResult>& statuses,
                      unsigned long long mostBytes, std::size_t mostFiles);

// One mirror and the folder that its runs fetch into.
class MirrorFixture : public testing::Test {
 protected:
  std::filesystem::path Local(const std::string& name) const { return m_folder / name; }
  Corvane::ZString Folder() const { return WidePath(m_folder.Path()); }
  std::vector<std::string> Names() const { return NamesIn(m_folder.Path()); }
  Corvane::ZResult Run(const std::string& url, bool resume = false) {
    return m_mirror.Download(Wide(url), Folder(), resume);
  }

  const TempDir m_folder;
  Corvane::ZMultiDownload m_mirror;
};

// A directory page that links these names, which must need no escaping.
std::string PageOf(const std::vector<std::string>& names);

// Answers every request: "/dir/" with a page that links all files of the table, "/dir/NAME" with the file, which may be
// asked for in part; 404 for anything else.
Responder Directory(const std::map<std::string, std::string>& files);

// The targets asked for so far, in order.
std::vector<std::string> TargetsOf(const ScriptedServer& server);

// A Download on a thread of its own. Is done with the object when it is destroyed: a test that fails in between aborts
// the run instead of hanging.
class RunningMirror {
 public:
  RunningMirror(Corvane::ZMultiDownload& mirror, Corvane::ZString url, Corvane::ZString folder, bool resume = false);
  ~RunningMirror();
  RunningMirror(const RunningMirror&) = delete;
  RunningMirror& operator=(const RunningMirror&) = delete;

  // The result; nullopt when the run has not ended at the deadline.
  std::optional<Corvane::ZResult> Result(Deadline deadline);
  std::optional<Corvane::ZResult> Result() { return Result(After(kPatience)); }

 private:
  Corvane::ZMultiDownload& m_mirror;
  std::future<Corvane::ZResult> m_future;
  std::optional<Corvane::ZResult> m_result;
};

}  // namespace CorvaneTest
