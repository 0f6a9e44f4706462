// sync URL DIRECTORY [EXCLUDED...]: makes a directory hold what a remote one holds, with all below it but for what matches the
// patterns; shows the plan first, and how far it is while it runs.
//
// Shows a plan and a run by the same decisions, an observer that is told of each file, and a second thread that looks at the numbers.

#include <atomic>
#include <chrono>
#include <clocale>
#include <cstdio>
#include <thread>

#include <Corvane/TreeDownload.h>

#include "examples/host.h"

// Counts what a plan would fetch, and prints what a run could not.
class Follower : public Corvane::ZTreeDownload::Observer {
 public:
  void Update(const Corvane::ZTreeDownload::Item& item) override {
    using Action = Corvane::ZTreeDownload::Action;
    if (item.action == Action::Fetch || item.action == Action::Continue) ++m_fetches;
    if (Corvane::IsFailure(item.result)) TellFailure(item.result, item.text, item.path.c_str());
  }
  [[nodiscard]] int GetFetches() const { return m_fetches; }

 private:
  int m_fetches = 0;
};

int main(int argc, char** argv) {
  if (argc < 3) return 2;
  std::setlocale(LC_ALL, "");  // the encoding of the arguments
  Corvane::ZTreeOptions options;
  options.mostConnections = 4;
  for (int i = 3; i < argc; ++i) options.exclude.push_back(argv[i]);

  Follower follower;
  Corvane::ZTreeDownload tree;
  if (Corvane::IsFailure(tree.SetOptions(options))) return 2;
  tree.Attach(&follower);
  if (Corvane::IsFailure(tree.Plan(argv[1], argv[2]))) return 1;
  std::printf("%d files to fetch\n", follower.GetFetches());

  std::atomic<bool> isOver{false};
  std::thread watcher([&] {
    while (!isOver) {
      const Corvane::ZTreeDownload::Statistics now = tree.GetStatistics();
      std::fprintf(stderr, "\r%zu of %zu files, %zu under way ", now.filesFetched + now.filesResumed, now.filesToFetch,
                   now.inFlight);
      std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
  });
  const Corvane::ZResult result = tree.Download(argv[1], argv[2]);
  isOver = true;
  watcher.join();
  const Corvane::ZTreeDownload::Statistics files = tree.GetStatistics();
  std::printf("%zu fetched, %zu continued, %zu kept, %zu failed\n", files.filesFetched, files.filesResumed,
              files.filesKept, files.filesFailed);
  return Corvane::IsFailure(result) ? 1 : 0;
}
