#pragma once

#include <gmock/gmock.h>

#include <filesystem>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include <Corvane/TreeDownload.h>

#include "tests/loopback/TransferTesting.h"
#include "tests/support/ScriptedServer.h"
#include "tests/support/TempDir.h"
#include "tests/tree/TreeFiles.h"

// What the tests of ZTreeDownload share.
namespace CorvaneTest {

using Corvane::ZTreeDownload;
using Corvane::ZTreeOptions;
using Action = ZTreeDownload::Action;
using Reason = ZTreeDownload::Reason;

// Everything that is told of a run.
struct TreeResult {
  Corvane::ZResult code = 0;
  std::string error;
  ZTreeDownload::Statistics statistics;
  std::map<std::string, ZTreeDownload::Item> items;  // by path

  [[nodiscard]] Action ActionOf(const std::string& path) const { return items.at(path).action; }
  [[nodiscard]] Reason ReasonOf(const std::string& path) const { return items.at(path).reason; }
  [[nodiscard]] Corvane::ZResult ResultOf(const std::string& path) const { return items.at(path).result; }
  [[nodiscard]] std::string TextOf(const std::string& path) const;
  [[nodiscard]] std::set<std::string> PathsWith(Action action) const;
};
std::ostream& operator<<(std::ostream& stream, const TreeResult& result);

// Runs with settings that suit tests: repetitions without waits.
class TreeClient : private ZTreeDownload::Observer {
 public:
  TreeClient();
  ~TreeClient() override = default;

  TreeResult Download(const std::string& url, const std::filesystem::path& folder);
  TreeResult Plan(const std::string& url, const std::filesystem::path& folder);

  ZTreeOptions options;  // taken at the beginning of each run
  ZTreeDownload tree;
  std::function<void(const ZTreeDownload::Item&)> onItem;  // called on the run's thread

 private:
  void Update(const ZTreeDownload::Item& item) override;
  TreeResult Finish(Corvane::ZResult code);

  std::map<std::string, ZTreeDownload::Item> m_items;
};

// A site of an HTTP server: files and the pages of their folders, which show names alone; and whatever a test wants to be answered
// for a path in their place. Thread safety: every member from any thread.
class TreeSite {
 public:
  explicit TreeSite(TreeFiles files = {}) : m_files(std::move(files)) {}
  TreeSite(const TreeSite&) = delete;
  TreeSite& operator=(const TreeSite&) = delete;

  void SetFile(const std::string& path, std::string content);
  void Remove(const std::string& path);
  // `path` without the first slash; a folder's with a final one, "" for the top. Null: the usual answer again.
  void Answer(const std::string& path, Responder responder);

  // Files have a date and a strong tag made of their content, and ranges are served.
  [[nodiscard]] Responder Serve();

 private:
  void Respond(Connection& peer, const Request& request);
  [[nodiscard]] std::optional<std::string> PageOf(const std::string& folder) const;

  mutable std::mutex m_mutex;
  TreeFiles m_files;                           // guarded by m_mutex
  std::map<std::string, Responder> m_answers;  // guarded by m_mutex
};

// A page as servers write them, with a link for each of the names.
std::string IndexPage(const std::vector<std::string>& hrefs);

// The paths of the requests, without the first slash, and their methods: "GET a/b.txt".
std::vector<std::string> RequestLines(const ScriptedServer& server);

}  // namespace CorvaneTest
