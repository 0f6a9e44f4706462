// Fetches a list of files with libcurl alone, several at a time, and prints what that cost as a line of JSON. It is
// what "corvane sync" is compared with, and does what the program promises for each file: the body goes into a file
// of its own below DIR/.corvane, which gets the server's modification time and is then renamed to its final name. The
// folders are made as they are needed. What it is spared is finding out what there is.
//
//   SyncCost h1|h2 IN_FLIGHT LIST DIR [CAFILE]
//
// LIST has a line for each file: its URL, a tab, and its path below DIR. With h1 there are as many connections as
// files in flight, with h2 all of them share one.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <string>
#include <unordered_set>
#include <vector>

#include <curl/curl.h>

#include "bench/CpuTime.h"

namespace {

[[noreturn]] void Die(const std::string& message) {
  std::fprintf(stderr, "SyncCost: %s\n", message.c_str());
  std::exit(1);
}

struct Job {
  std::string url, path;
};

std::vector<Job> ReadJobs(const char* list) {
  std::ifstream lines(list);
  std::vector<Job> jobs;
  for (std::string line; std::getline(lines, line);) {
    const std::size_t tab = line.find('\t');
    if (tab == std::string::npos) Die("no tab in: " + line);
    jobs.push_back({line.substr(0, tab), line.substr(tab + 1)});
  }
  if (jobs.empty()) Die(std::string("nothing in ") + list);
  return jobs;
}

struct EasyDeleter {
  void operator()(CURL* handle) const noexcept { curl_easy_cleanup(handle); }
};
struct MultiDeleter {
  void operator()(CURLM* handle) const noexcept { curl_multi_cleanup(handle); }
};

std::size_t WriteToDescriptor(char* data, std::size_t size, std::size_t count, void* target) {
  const ssize_t written = write(*static_cast<const int*>(target), data, size * count);
  return written < 0 ? 0 : static_cast<std::size_t>(written);
}

// One of the handles that are in flight: it fetches one file after another.
class Lane {
 public:
  Lane(bool http2, const char* authority, std::string temporary)
      : m_easy(curl_easy_init()), m_temporary(std::move(temporary)) {
    CURL* const easy = m_easy.get();
    curl_easy_setopt(easy, CURLOPT_PRIVATE, this);
    curl_easy_setopt(easy, CURLOPT_NOPROGRESS, 1L);
    curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(easy, CURLOPT_FILETIME, 1L);
    curl_easy_setopt(easy, CURLOPT_HTTP_VERSION, long{http2 ? CURL_HTTP_VERSION_2TLS : CURL_HTTP_VERSION_1_1});
    curl_easy_setopt(easy, CURLOPT_PIPEWAIT, http2 ? 1L : 0L);
    curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, WriteToDescriptor);
    curl_easy_setopt(easy, CURLOPT_WRITEDATA, &m_file);
    if (authority != nullptr) curl_easy_setopt(easy, CURLOPT_CAINFO, authority);
  }
  Lane(const Lane&) = delete;  // the handle holds its address
  Lane& operator=(const Lane&) = delete;
  ~Lane() = default;

  CURL* Begin(const Job& job) {
    m_job = &job;
    m_file = open(m_temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    if (m_file < 0) Die("cannot create " + m_temporary);
    curl_easy_setopt(m_easy.get(), CURLOPT_URL, job.url.c_str());
    return m_easy.get();
  }

  // Gives the file its time and its name. Returns the bytes that came.
  curl_off_t End(const std::string& dir) {
    long response = 0;
    curl_off_t bytes = 0;
    curl_off_t changed = -1;
    curl_easy_getinfo(m_easy.get(), CURLINFO_RESPONSE_CODE, &response);
    curl_easy_getinfo(m_easy.get(), CURLINFO_SIZE_DOWNLOAD_T, &bytes);
    curl_easy_getinfo(m_easy.get(), CURLINFO_FILETIME_T, &changed);
    if (response != 200) Die(m_job->url + ": response " + std::to_string(response));
    const timespec times[] = {{0, UTIME_OMIT}, {static_cast<time_t>(changed), 0}};
    if (changed >= 0 && futimens(m_file, times) != 0) Die("cannot set the time of " + m_temporary);
    if (close(m_file) != 0) Die("cannot close " + m_temporary);
    const std::string path = dir + "/" + m_job->path;
    if (rename(m_temporary.c_str(), path.c_str()) != 0) Die("cannot rename to " + path);
    return bytes;
  }

 private:
  std::unique_ptr<CURL, EasyDeleter> m_easy;
  std::string m_temporary;
  const Job* m_job = nullptr;
  int m_file = -1;
};

class BareSync {
 public:
  BareSync(bool http2, std::size_t inFlight, const char* authority, std::string dir)
      : m_multi(curl_multi_init()), m_dir(std::move(dir)) {
    MakeFolders(m_dir + "/.corvane/");
    if (!http2) curl_multi_setopt(m_multi.get(), CURLMOPT_MAX_HOST_CONNECTIONS, static_cast<long>(inFlight));
    for (std::size_t number = 0; number < inFlight; ++number) {
      m_lanes.push_back(std::make_unique<Lane>(http2, authority, m_dir + "/.corvane/" + std::to_string(number)));
    }
  }
  BareSync(const BareSync&) = delete;
  BareSync& operator=(const BareSync&) = delete;

  void Run(const std::vector<Job>& jobs) {
    m_next = jobs.data();
    m_end = m_next + jobs.size();
    for (const auto& lane : m_lanes) BeginNext(*lane);
    for (int running = 1; running > 0;) {
      Check(curl_multi_perform(m_multi.get(), &running));
      if (EndFinished() > 0) {
        running = 1;  // what has just been begun is not counted yet
        continue;
      }
      if (running > 0) Check(curl_multi_poll(m_multi.get(), nullptr, 0, 1000, nullptr));
    }
  }

  [[nodiscard]] std::size_t Files() const noexcept { return m_files; }
  [[nodiscard]] curl_off_t Bytes() const noexcept { return m_bytes; }
  [[nodiscard]] long Connections() const noexcept { return m_connections; }

 private:
  static void Check(CURLMcode code) {
    if (code != CURLM_OK) Die(curl_multi_strerror(code));
  }

  void BeginNext(Lane& lane) {
    if (m_next == m_end) return;
    MakeFolders(m_dir + "/" + m_next->path);
    Check(curl_multi_add_handle(m_multi.get(), lane.Begin(*m_next++)));
  }

  int EndFinished() {
    int finished = 0;
    for (int left = 0; const CURLMsg* message = curl_multi_info_read(m_multi.get(), &left);) {
      CURL* const easy = message->easy_handle;
      if (message->data.result != CURLE_OK) Die(curl_easy_strerror(message->data.result));
      Lane* lane = nullptr;
      long opened = 0;
      curl_easy_getinfo(easy, CURLINFO_PRIVATE, &lane);
      curl_easy_getinfo(easy, CURLINFO_NUM_CONNECTS, &opened);
      Check(curl_multi_remove_handle(m_multi.get(), easy));
      m_connections += opened;
      m_bytes += lane->End(m_dir);
      ++m_files;
      ++finished;
      BeginNext(*lane);
    }
    return finished;
  }

  // Makes the folders on the way to `path` that this run has not yet seen.
  void MakeFolders(const std::string& path) {
    const std::size_t end = path.rfind('/');
    if (end == 0 || end == std::string::npos) return;
    const std::string folder = path.substr(0, end);
    if (!m_folders.insert(folder).second) return;
    MakeFolders(folder);
    if (mkdir(folder.c_str(), 0777) != 0 && errno != EEXIST) Die("cannot create " + folder);
  }

  std::vector<std::unique_ptr<Lane>> m_lanes;
  std::unique_ptr<CURLM, MultiDeleter> m_multi;
  std::string m_dir;
  std::unordered_set<std::string> m_folders;
  const Job* m_next = nullptr;
  const Job* m_end = nullptr;
  std::size_t m_files = 0;
  curl_off_t m_bytes = 0;
  long m_connections = 0;
};

}  // namespace

int main(int argc, char** argv) {
  if (argc < 5 || argc > 6) Die("usage: SyncCost h1|h2 IN_FLIGHT LIST DIR [CAFILE]");
  const std::string mode = argv[1];
  const unsigned long inFlight = std::strtoul(argv[2], nullptr, 10);
  if ((mode != "h1" && mode != "h2") || inFlight == 0) Die("unknown mode " + mode + " or nothing in flight");
  curl_global_init(CURL_GLOBAL_ALL);
  const std::vector<Job> jobs = ReadJobs(argv[3]);
  const auto begin = std::chrono::steady_clock::now();
  const double before = CpuSeconds();
  BareSync sync(mode == "h2", inFlight, argc > 5 ? argv[5] : nullptr, argv[4]);
  sync.Run(jobs);
  const double cpu = CpuSeconds() - before;
  const std::chrono::duration<double> wall = std::chrono::steady_clock::now() - begin;
  std::printf("{\"files\": %zu, \"bytes\": %lld, \"connections\": %ld, \"wall\": %.6f, \"cpu\": %.6f}\n", sync.Files(),
              static_cast<long long>(sync.Bytes()), sync.Connections(), wall.count(), cpu);
  return 0;
}
