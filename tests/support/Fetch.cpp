#include "tests/support/Fetch.h"

#include <memory>

#include "tests/support/Deadline.h"

namespace CorvaneTest {

namespace {

struct EasyDeleter {
  void operator()(CURL* handle) const noexcept { curl_easy_cleanup(handle); }
};

std::size_t Append(char* bytes, std::size_t size, std::size_t count, void* text) {
  static_cast<std::string*>(text)->append(bytes, size * count);
  return size * count;
}

}  // namespace

Fetched Fetch(const std::string& url, const std::function<void(CURL*)>& setUp) {
  const std::unique_ptr<CURL, EasyDeleter> handle(curl_easy_init());
  Fetched fetched;
  curl_easy_setopt(handle.get(), CURLOPT_URL, url.c_str());
  curl_easy_setopt(handle.get(), CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(handle.get(), CURLOPT_TIMEOUT_MS, static_cast<long>(std::chrono::milliseconds(kPatience).count()));
  curl_easy_setopt(handle.get(), CURLOPT_WRITEFUNCTION, &Append);
  curl_easy_setopt(handle.get(), CURLOPT_WRITEDATA, &fetched.body);
  curl_easy_setopt(handle.get(), CURLOPT_HEADERFUNCTION, &Append);
  curl_easy_setopt(handle.get(), CURLOPT_HEADERDATA, &fetched.head);
  if (setUp) setUp(handle.get());
  fetched.code = curl_easy_perform(handle.get());
  curl_easy_getinfo(handle.get(), CURLINFO_RESPONSE_CODE, &fetched.status);
  return fetched;
}

}  // namespace CorvaneTest
