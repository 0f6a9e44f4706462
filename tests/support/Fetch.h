#pragma once

#include <curl/curl.h>

#include <chrono>
#include <functional>
#include <string>

namespace CorvaneTest {

struct Fetched {
  CURLcode code = CURLE_OK;
  long status = 0;  // the last response or reply code
  std::string head;
  std::string body;
};

// Fetches a URL with bare libcurl, independently of the library under test: the client with which the servers of this
// folder test themselves. `setUp` may set further options. Gives up after kPatience.
Fetched Fetch(const std::string& url, const std::function<void(CURL*)>& setUp = nullptr);

}  // namespace CorvaneTest
