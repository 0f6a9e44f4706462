#pragma once

#include <optional>

#include <Corvane/TreeDownload.h>

// Whether a file is fetched, decided from values alone. A file that differs in any way from what the server tells is fetched, an
// older one on the server, too: the server's is the one that counts.

namespace Corvane {

// What stands under a file's name here.
struct FileHere {
  enum class Kind { None, File, Other };  // Other: a folder, a link, a device
  Kind kind = Kind::None;
  unsigned long long size = 0;  // bytes
  long long time = 0;           // seconds since the epoch
  int error = 0;                // errno when it cannot be looked at, and is Other then
};

// What the server tells of a file, in a listing or in an answer.
struct FileThere {
  std::optional<unsigned long long> size;  // bytes
  std::optional<long long> time;  // seconds since the epoch: the beginning of an interval of the length `exactness`
  unsigned int exactness = 1;     // seconds
};

enum class Verdict {
  Keep,
  Fetch,
  Ask,                 // the listing shows too little: the server is asked for the file without its content
  AskWhetherModified,  // neither does that answer: the content is asked for, unless it is unmodified since the time of the file here
  Refuse
};

struct Decision {
  Verdict verdict = Verdict::Fetch;
  ZTreeDownload::Reason reason = ZTreeDownload::Reason::Missing;
};

// By what the listing shows.
[[nodiscard]] Decision DecideByListing(const FileHere& here, const FileThere& there) noexcept;

// By what the server answered for the file; to the second.
[[nodiscard]] Decision DecideByAnswer(const FileHere& here, const FileThere& there) noexcept;

}  // namespace Corvane
