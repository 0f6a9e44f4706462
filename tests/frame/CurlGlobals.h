#pragma once

#include <string>
#include <vector>

// The program's own definitions of libcurl's process-wide functions and of the making of handles, linked with
// CurlGlobals.cpp.
namespace CorvaneTest {

class CurlGlobals {
 public:
  // Forgets the calls and lets every function succeed again.
  static void Reset();

  // In order: "init(FLAGS)", "cleanup", "easy_init", "easy_cleanup"; other notes stand between them where they were
  // made. The last two are recorded only while asked for.
  static std::vector<std::string> Calls();
  static void RecordHandles(bool record);
  static void Note(const std::string& what);

  // The next curl_global_init, and all until Reset, return `result` and do nothing.
  static void FailInit(int result);
  // The next curl_easy_init, and all until Reset, return null.
  static void RefuseHandles();

  // The largest number of calls of curl_global_init and curl_global_cleanup that ever ran at the same time.
  static int MostAtOnce();
};

}  // namespace CorvaneTest
