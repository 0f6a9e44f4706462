#include "fuzz/Downloads.h"

#include <unistd.h>

#include <cstddef>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include <Corvane/TransferOptions.h>

namespace CorvaneFuzz {
namespace {

namespace fs = std::filesystem;
using Corvane::ZString;
using Corvane::ZTransfer;

constexpr std::size_t kOldBytes = 100;
constexpr std::size_t kMargin = 32;  // is fetched again

// A folder of its own for the process.
class Folder {
 public:
  Folder() {
    std::string name = fs::temp_directory_path() / "corvane-fuzz-XXXXXX";
    Require(mkdtemp(name.data()) != nullptr, "there is a folder for files");
    m_path = name;
  }
  ~Folder() {
    std::error_code ignored;
    fs::remove_all(m_path, ignored);
  }
  Folder(const Folder&) = delete;
  Folder& operator=(const Folder&) = delete;
  fs::path File() const { return m_path / "file"; }

 private:
  fs::path m_path;
};

class CountingSink : public Corvane::ZTransferSink {
 public:
  std::size_t Write(const void* /*data*/, std::size_t bytes) override {
    Require(bytes > 0, "no block is empty");
    received += bytes;
    return bytes;
  }
  unsigned long long received = 0;
};

Outcome DownloadText(ZTransfer& transfer, const ZString& url) {
  ZString text(L"old");
  Outcome outcome;
  outcome.code = transfer.Download(url, text);
  outcome.isText = true;
  outcome.received = transfer.GetDownloadSize();
  Require(text.Length() <= outcome.received, "a text has at most a character for each byte");
  Require(text.IsEmpty() == (outcome.received == 0), "what came is in the text");
  return outcome;
}

Outcome DownloadToSink(ZTransfer& transfer, const ZString& url, unsigned long long offset) {
  CountingSink sink;
  Outcome outcome;
  outcome.code = offset == 0 ? transfer.Download(url, sink) : transfer.Download(url, sink, offset);
  outcome.offset = offset;
  outcome.received = sink.received;
  ZString header;
  transfer.GetHeader(header);
  // With the status of a whole it takes a length, too.
  const ZString fields = header.Lower();
  const bool hasRange = fields.Find(L"content-range:") != ZString::npos;
  const bool isPart = hasRange && (transfer.GetHttpStatus() != 200 || fields.Find(L"content-length:") != ZString::npos);
  Require(sink.received == 0 || offset == 0 || isPart, "only a part is handed on");
  return outcome;
}

Outcome DownloadToFile(ZTransfer& transfer, const ZString& url, bool resume) {
  static const Folder folder;
  const std::string old(kOldBytes, 'o');
  if (resume) std::ofstream(folder.File(), std::ios::binary) << old;
  Outcome outcome;
  outcome.code = transfer.DownloadFile(url, ZString(folder.File().c_str()), resume);
  std::ifstream file(folder.File(), std::ios::binary);
  const std::string content{std::istreambuf_iterator<char>(file), {}};
  if (resume) {
    outcome.offset = kOldBytes - kMargin;
    Require(content.compare(0, outcome.offset, old, 0, outcome.offset) == 0, "the beginning stays");
  }
  if (!Corvane::IsFailure(outcome.code)) outcome.received = content.size() - outcome.offset;
  fs::remove(folder.File());
  return outcome;
}

}  // namespace

Outcome Download(ZTransfer& transfer, char way, const ZString& url) {
  switch (way) {
    case 's':
      return DownloadToSink(transfer, url, 0);
    case 'p':
      return DownloadToSink(transfer, url, 4);
    case 'f':
    case 'r':
      return DownloadToFile(transfer, url, way == 'r');
    default:
      return DownloadText(transfer, url);
  }
}

}  // namespace CorvaneFuzz
