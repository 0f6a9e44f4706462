// several URL FILE [URL FILE]...: downloads several files at once, on a few threads.
//
// Shows that objects on different threads are independent: each thread has a ZTransfer of its own, and makes all its
// downloads with it, so that it keeps its connection.

#include <algorithm>
#include <atomic>
#include <clocale>
#include <cstdio>
#include <thread>
#include <vector>

#include <Corvane/Transfer.h>

#include "examples/host.h"

namespace {

struct Job {
  Corvane::ZString url, file;
};

// Takes one job after the other until none is left.
void Work(const std::vector<Job>& jobs, std::atomic<std::size_t>& next, std::atomic<int>& failures) {
  Corvane::ZTransfer transfer;
  if (!VerifyServers(transfer)) {
    ++failures;
    return;
  }
  for (std::size_t i = next++; i < jobs.size(); i = next++) {
    const Corvane::ZResult result = transfer.DownloadFile(jobs[i].url, jobs[i].file, /*resume=*/true);
    if (!Corvane::IsFailure(result)) continue;
    TellFailure(transfer, result);
    ++failures;
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3 || argc % 2 == 0) return 2;
  std::setlocale(LC_ALL, "");  // the encoding of the arguments and of file names; before there are threads
  std::vector<Job> jobs;
  for (int i = 1; i < argc; i += 2) jobs.push_back({argv[i], argv[i + 1]});

  std::atomic<std::size_t> next{0};
  std::atomic<int> failures{0};
  std::vector<std::thread> threads;
  for (std::size_t i = 0; i < std::min<std::size_t>(4, jobs.size()); ++i) {
    threads.emplace_back([&] { Work(jobs, next, failures); });
  }
  for (std::thread& thread : threads) thread.join();
  std::printf("%zu files, %d failures\n", jobs.size(), failures.load());
  return failures == 0 ? 0 : 1;
}
