// Performs one download and prints what it cost, as a line of JSON. bench/run starts it again and again, the library and a bare
// libcurl loop by turns, and compares.
//
//   TransferCost library-file|bare-file|library-text|bare-text URL [FILE]
//
// "file" downloads into FILE, "text" into a wide string in memory.

#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <memory>
#include <string>

#include <curl/curl.h>

#include <Corvane/Transfer.h>

#include "bench/CpuTime.h"

namespace {

[[noreturn]] void Die(const std::string& message) {
  std::fprintf(stderr, "TransferCost: %s\n", message.c_str());
  std::exit(1);
}

// The process's peak resident set, in KiB.
long PeakKib() {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.rfind("VmHWM:", 0) == 0) return std::strtol(line.c_str() + 6, nullptr, 10);
  }
  Die("no VmHWM in /proc/self/status");
}

// What a careful engineer writes with libcurl alone, with the options that the library sets.
struct EasyDeleter {
  void operator()(CURL* handle) const noexcept { curl_easy_cleanup(handle); }
};

void PerformBare(const char* url, curl_write_callback write, void* target) {
  const std::unique_ptr<CURL, EasyDeleter> easy(curl_easy_init());
  curl_easy_setopt(easy.get(), CURLOPT_URL, url);
  curl_easy_setopt(easy.get(), CURLOPT_NOPROGRESS, 1L);
  curl_easy_setopt(easy.get(), CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(easy.get(), CURLOPT_SSL_VERIFYPEER, 0L);
  curl_easy_setopt(easy.get(), CURLOPT_SSL_VERIFYHOST, 0L);
  curl_easy_setopt(easy.get(), CURLOPT_WRITEFUNCTION, write);
  curl_easy_setopt(easy.get(), CURLOPT_WRITEDATA, target);
  const CURLcode result = curl_easy_perform(easy.get());
  if (result != CURLE_OK) Die(curl_easy_strerror(result));
}

std::uint64_t BareFile(const char* url, const char* path) {
  std::FILE* const file = std::fopen(path, "w");
  if (file == nullptr) Die("cannot open the file");
  PerformBare(
      url,
      [](char* data, std::size_t size, std::size_t count, void* target) {
        return std::fwrite(data, size, count, static_cast<std::FILE*>(target)) * size;
      },
      file);
  const long bytes = std::ftell(file);
  if (std::fclose(file) != 0) Die("cannot close the file");
  return static_cast<std::uint64_t>(bytes);
}

// Decodes well-formed UTF-8, trusting it: the least that a pass over the text can cost.
std::wstring DecodeTrusted(const std::string& body) {
  std::wstring text;
  text.resize(body.size());
  std::size_t length = 0;
  for (std::size_t at = 0; at < body.size();) {
    const auto lead = static_cast<unsigned char>(body[at++]);
    if (lead < 0x80) {
      text[length++] = lead;
      continue;
    }
    const int more = lead >= 0xF0 ? 3 : lead >= 0xE0 ? 2 : 1;
    auto character = static_cast<unsigned int>(lead & (0x3F >> more));
    for (int i = 0; i < more && at < body.size(); ++i) {
      character = character << 6 | (static_cast<unsigned char>(body[at++]) & 0x3Fu);
    }
    text[length++] = static_cast<wchar_t>(character);
  }
  text.resize(length);
  return text;
}

std::uint64_t BareText(const char* url, const char* /*path*/) {
  std::string body;
  PerformBare(
      url,
      [](char* data, std::size_t size, std::size_t count, void* target) {
        static_cast<std::string*>(target)->append(data, size * count);
        return size * count;
      },
      &body);
  return DecodeTrusted(body).empty() ? 0 : body.size();
}

void Check(Corvane::ZResult result, const Corvane::ZTransfer& transfer) {
  if (Corvane::IsFailure(result)) Die("failed with code " + std::to_string(transfer.GetStatus()));
}

std::uint64_t LibraryFile(const char* url, const char* path) {
  Corvane::ZTransfer transfer;
  Check(transfer.DownloadFile(url, path, false), transfer);
  return transfer.GetDownloadSize();
}

std::uint64_t LibraryText(const char* url, const char* /*path*/) {
  Corvane::ZTransfer transfer;
  Corvane::ZString text;
  Check(transfer.Download(url, text), transfer);
  return text.IsEmpty() ? 0 : transfer.GetDownloadSize();
}

struct Mode {
  const char* name;
  std::uint64_t (*run)(const char* url, const char* path);
};
constexpr Mode kModes[] = {
    {"library-file", LibraryFile}, {"bare-file", BareFile}, {"library-text", LibraryText}, {"bare-text", BareText}};

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) Die("usage: TransferCost MODE URL [FILE]");
  // Set-up that a program does once is no cost of a transfer.
  curl_global_init(CURL_GLOBAL_ALL);
  for (const Mode& mode : kModes) {
    if (std::strcmp(mode.name, argv[1]) != 0) continue;
    const double before = CpuSeconds();
    const std::uint64_t bytes = mode.run(argv[2], argc > 3 ? argv[3] : "");
    const double cpu = CpuSeconds() - before;
    std::printf("{\"cpu\": %.6f, \"bytes\": %" PRIu64 ", \"peakKib\": %ld}\n", cpu, bytes, PeakKib());
    return 0;
  }
  Die("unknown mode");
}
