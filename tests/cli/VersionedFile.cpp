#include "tests/cli/VersionedFile.h"

#include <algorithm>
#include <optional>

namespace CorvaneTest {
namespace {

// The offset of "bytes=N-"; none for a request without a range.
std::optional<std::uint64_t> OffsetOf(const Request& request) {
  const std::string range = request.Header("Range").value_or("");
  if (range.rfind("bytes=", 0) != 0) return std::nullopt;
  return std::stoull(range.substr(6));
}

bool IsOfThisVersion(const std::string& ifRange, const std::vector<HeaderField>& headers) {
  return ifRange.empty() || std::any_of(headers.begin(), headers.end(), [&](const HeaderField& field) {
           return (field.name == "ETag" || field.name == "Last-Modified") && field.value == ifRange;
         });
}

}  // namespace

void VersionedFile::Change(Version version) {
  const std::lock_guard guard(m_mutex);
  m_version = std::move(version);
}

void VersionedFile::BreakAfter(std::deque<std::uint64_t> bytes) {
  const std::lock_guard guard(m_mutex);
  m_breaks = std::move(bytes);
}

Responder VersionedFile::Serve() {
  return [this](Connection& peer, const Request& request) { Answer(peer, request); };
}

void VersionedFile::Answer(Connection& peer, const Request& request) {
  Version version;
  std::optional<std::uint64_t> stop;
  const bool hasContent = request.method != "HEAD";
  {
    const std::lock_guard guard(m_mutex);
    version = m_version;
    if (hasContent && !m_breaks.empty()) {
      stop = m_breaks.front();
      m_breaks.pop_front();
    }
  }
  const std::uint64_t size = version.content.size();
  const std::uint64_t offset = OffsetOf(request).value_or(0);
  const bool isPart =
      OffsetOf(request) && version.servesRanges &&
      (!version.obeysIfRange || IsOfThisVersion(request.Header("If-Range").value_or(""), version.headers));
  std::vector<HeaderField> headers = version.headers;
  if (isPart && offset >= size) {
    headers.push_back({"Content-Length", "0"});
    peer.Send(FormatHead(416, headers));
    return;
  }
  const std::string body = isPart ? version.content.substr(offset) : version.content;
  headers.push_back({"Content-Length", std::to_string(body.size())});
  if (isPart) {
    headers.push_back({"Content-Range", "bytes " + std::to_string(offset) + "-" + std::to_string(size - 1) + "/" +
                                            std::to_string(size)});
  }
  peer.Send(FormatHead(isPart && version.tellsParts ? 206 : 200, headers));
  if (!hasContent) return;
  peer.Send(body.substr(0, stop.value_or(body.size())));
  if (stop && *stop < body.size()) peer.Close();
}

}  // namespace CorvaneTest
