#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <Corvane/Transfer/CurlImpl.h>

namespace Corvane {

// What is asked of a server in one request.
struct Order {
  std::string url;
  bool withoutContent = false;            // HEAD; over FTP the size and the time
  curl_off_t position = 0;                // where the content begins that is asked for
  std::string command;                    // FTP: in the place of LIST
  std::vector<std::string> headers = {};  // HTTP: "NAME: VALUE"
};

// What a server has answered so far.
struct Reply {
  bool isHttp = false;
  long status = 0;                                  // of HTTP; for FTP its last reply
  std::string_view header;                          // HTTP: the lines of the last answer
  std::optional<unsigned long long> contentLength;  // of what comes, not of the whole
  std::optional<long long> time;                    // of the last change, seconds since the epoch
  [[nodiscard]] bool IsAcceptable() const noexcept { return !isHttp || (status >= 200 && status <= 299); }
  // 200, and what a proxy has changed; of the other acceptable ones 201 and 202 are about something else, 206 is a part.
  [[nodiscard]] bool IsWhole() const noexcept { return !isHttp || status == 200 || status == 203; }
};

// How a request ended.
struct Ending {
  CURLcode code = CURLE_OK;
  std::string text;  // libcurl's own words, or those of what stopped it
  Reply reply;
  std::string url;         // that answered
  std::string refusedUrl;  // where a redirect leads that was not followed
  bool isPassing = false;  // the failure may pass
  bool mayRepeat = false;  // as often as is wanted it has not been repeated yet
  bool isCut = false;      // the page of a refusal was not read to its end
  [[nodiscard]] bool ShouldRepeat() const noexcept { return isPassing && mayRepeat; }
  [[nodiscard]] bool IsGood() const noexcept { return code == CURLE_OK && reply.IsAcceptable(); }
};

enum class Next {
  Done,   // there is nothing more to do
  Again,  // at once, with another order
  Later   // after a wait, with another order; only where the ending says that it may be repeated
};

// Something that is asked of the server, by one request or several in turn. Called on the run's thread only.
class Job {
 public:
  Job() = default;
  virtual ~Job() = default;
  Job(const Job&) = delete;
  Job& operator=(const Job&) = delete;

  // Called before each request.
  virtual Order Ask() = 0;
  // Whether a redirect is followed; what is never followed has been refused before.
  [[nodiscard]] virtual bool Follows(const std::string& /*url*/) { return true; }
  // Called by libcurl, with each block of acceptable content; not to throw anything but std::bad_alloc. False ends the request.
  virtual bool Take(const Reply& reply, const char* data, std::size_t bytes) = 0;
  virtual Next Finish(const Ending& ending) = 0;
};

// Where jobs come from.
class JobSource {
 public:
  JobSource() = default;
  virtual ~JobSource() = default;
  JobSource(const JobSource&) = delete;
  JobSource& operator=(const JobSource&) = delete;
  // Null when there is none now; a job that finishes may make more.
  virtual std::unique_ptr<Job> Next() = 0;
};

}  // namespace Corvane
