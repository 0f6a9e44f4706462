// Mirrors one directory of a server, file after file, and prints how many files it fetched and what that cost, as a
// line of JSON. bench/run starts it again and again, the library and a bare libcurl loop by turns, and compares.
//
//   MirrorCost library|bare URL DIR
//
// The bare loop does the same file operations as the library with files of unknown size, call by call: it looks at each
// file and removes what may be there before it asks for the free space, looks whether the directory and the file exist,
// writes the file, compares the size on the disk with the length that the server told, and makes the file executable.
// All of that in narrow strings, with the constant options set once.

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include <curl/curl.h>

#include <Corvane/MultiDownload.h>

#include "bench/CpuTime.h"

namespace {

[[noreturn]] void Die(const std::string& message) {
  std::fprintf(stderr, "MirrorCost: %s\n", message.c_str());
  std::exit(1);
}

struct EasyDeleter {
  void operator()(CURL* handle) const noexcept { curl_easy_cleanup(handle); }
};

std::size_t AppendToString(char* data, std::size_t size, std::size_t count, void* target) {
  static_cast<std::string*>(target)->append(data, size * count);
  return size * count;
}

std::size_t WriteToDescriptor(char* data, std::size_t size, std::size_t count, void* target) {
  const ssize_t written = write(*static_cast<const int*>(target), data, size * count);
  return written < 0 ? 0 : static_cast<std::size_t>(written);
}

// One easy handle for everything, so that the connection is kept.
class BareMirror {
 public:
  BareMirror(std::string url, std::string dir)
      : m_url(std::move(url)), m_dir(std::move(dir)), m_easy(curl_easy_init()) {
    curl_easy_setopt(m_easy.get(), CURLOPT_NOPROGRESS, 1L);
    curl_easy_setopt(m_easy.get(), CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(m_easy.get(), CURLOPT_SSL_VERIFYPEER, 0L);
    curl_easy_setopt(m_easy.get(), CURLOPT_SSL_VERIFYHOST, 0L);
    curl_easy_setopt(m_easy.get(), CURLOPT_TIMEOUT, 300L);
  }

  std::size_t Run() {
    struct stat status {};
    struct statvfs space {};
    if (stat(m_dir.c_str(), &status) != 0 && mkdir(m_dir.c_str(), 0777) != 0) Die("cannot create " + m_dir);
    const std::vector<std::string> names = FetchNames();
    for (const std::string& name : names) {
      const std::string path = m_dir + "/" + name;
      stat(path.c_str(), &status);
      unlink(path.c_str());  // whether it exists or not, as the removal of anything that cannot be kept
    }
    if (statvfs(m_dir.c_str(), &space) != 0) Die("no free space known");
    for (const std::string& name : names) FetchFile(name);
    return names.size();
  }

 private:
  void Perform(const std::string& url, curl_write_callback write, void* target) {
    curl_easy_setopt(m_easy.get(), CURLOPT_URL, url.c_str());
    curl_easy_setopt(m_easy.get(), CURLOPT_WRITEFUNCTION, write);
    curl_easy_setopt(m_easy.get(), CURLOPT_WRITEDATA, target);
    const CURLcode result = curl_easy_perform(m_easy.get());
    if (result != CURLE_OK) Die(url + ": " + curl_easy_strerror(result));
    long response = 0;
    curl_easy_getinfo(m_easy.get(), CURLINFO_RESPONSE_CODE, &response);
    const bool http = url.compare(0, 4, "http") == 0;
    if (http && (response < 200 || response > 299)) Die(url + ": response " + std::to_string(response));
  }

  // Of an HTTP page the targets of the links, of an FTP listing the last word of each regular file's line.
  std::vector<std::string> FetchNames() {
    std::string page;
    Perform(m_url, AppendToString, &page);
    std::vector<std::string> names;
    const bool http = m_url.compare(0, 4, "http") == 0;
    const std::string begin = http ? "<a href=\"" : "\n-";
    if (!http) page.insert(0, 1, '\n');
    for (std::size_t at = page.find(begin); at != std::string::npos; at = page.find(begin, at + 1)) {
      const std::size_t end = page.find_first_of(http ? "\"" : "\r\n", at + begin.size());
      if (end == std::string::npos) break;
      const std::size_t from = http ? at + begin.size() : page.rfind(' ', end) + 1;
      if (page[end - 1] != '/') names.push_back(page.substr(from, end - from));
    }
    std::sort(names.begin(), names.end());
    return names;
  }

  void FetchFile(const std::string& name) {
    const std::string path = m_dir + "/" + name;
    struct stat status {};
    stat(path.c_str(), &status);   // what is there, to be resumed or not
    stat(m_dir.c_str(), &status);  // the directory may have gone
    stat(path.c_str(), &status);   // how much of the file is there
    int file = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    if (file < 0) Die("cannot create " + path);
    Perform(m_url + name, WriteToDescriptor, &file);
    if (close(file) != 0) Die("cannot close " + path);
    curl_off_t length = -1;
    curl_easy_getinfo(m_easy.get(), CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, &length);
    if (stat(path.c_str(), &status) != 0 || (length >= 0 && status.st_size != length)) Die("wrong size of " + path);
    chmod(path.c_str(), 0755);
  }

  std::string m_url;  // ends with "/"
  std::string m_dir;
  std::unique_ptr<CURL, EasyDeleter> m_easy;
};

std::size_t Bare(const char* url, const char* dir) { return BareMirror(url, dir).Run(); }

// Counts the files that are fetched, each of which announces its first data.
class FileCounter : public Corvane::ZTransfer::Observer {
 public:
  void Update(int /*event*/, long /*value*/) override { ++m_count; }
  [[nodiscard]] std::size_t Count() const noexcept { return m_count; }

 private:
  std::size_t m_count = 0;
};

std::size_t Library(const char* url, const char* dir) {
  Corvane::ZMultiDownload mirror;
  FileCounter counter;
  mirror.Attach(&counter);
  const Corvane::ZResult result = mirror.Download(url, dir, false);
  if (Corvane::IsFailure(result)) Die("failed with code " + std::to_string(result));
  return counter.Count() - 1;  // the listing is announced, too
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) Die("usage: MirrorCost library|bare URL DIR");
  // Set-up that a program does once is no cost of a mirror.
  curl_global_init(CURL_GLOBAL_ALL);
  const std::string side = argv[1];
  if (side != "library" && side != "bare") Die("unknown side " + side);
  const auto begin = std::chrono::steady_clock::now();
  const double before = CpuSeconds();
  const std::size_t files = side == "library" ? Library(argv[2], argv[3]) : Bare(argv[2], argv[3]);
  const double cpu = CpuSeconds() - before;
  const std::chrono::duration<double> wall = std::chrono::steady_clock::now() - begin;
  std::printf("{\"files\": %zu, \"wall\": %.6f, \"cpu\": %.6f}\n", files, wall.count(), cpu);
  return 0;
}
