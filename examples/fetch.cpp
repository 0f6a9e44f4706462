// fetch URL FILE: what lies under FILE is whole and of one version, however often the fetch was interrupted.
//
// Shows ZTransferOptions and a sink. What is under way lies in FILE.part, and in FILE.validator what the server said of its version:
// the sink notes it before it takes the first byte. The next run asks for the rest of that very version. When the file on the server
// has changed since, nothing of the new one is mixed with the old part, and the program begins anew.

#include <clocale>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include <Corvane/Base/StringCoding.h>
#include <Corvane/Transfer.h>
#include <Corvane/TransferOptions.h>

#include "examples/host.h"

namespace {

namespace fs = std::filesystem;

constexpr Corvane::ZResult kRangeError = Corvane::TRANSFER_E_CURL_BASE | 33;

std::string ReadText(const fs::path& file) {
  std::ifstream in(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// Appends what comes to a file, and notes beforehand of which version it is.
class PartSink : public Corvane::ZTransferSink {
 public:
  PartSink(const Corvane::ZTransfer& transfer, const fs::path& part, const fs::path& validator)
      : m_transfer(transfer), m_part(part), m_validator(validator) {}

  std::size_t Write(const void* data, std::size_t bytes) override {
    if (!m_out.is_open()) {
      Corvane::ZString validator;
      m_transfer.GetValidator(validator);  // of the answer that is coming in
      std::ofstream(m_validator) << Corvane::ZStringEncoder(validator, Corvane::ZStringEncoder::Utf8).CStr();
      m_out.open(m_part, std::ios::binary | std::ios::app);
    }
    m_out.write(static_cast<const char*>(data), static_cast<std::streamsize>(bytes));
    return m_out.flush() ? bytes : 0;  // fewer than came end the transfer
  }

 private:
  const Corvane::ZTransfer& m_transfer;
  fs::path m_part, m_validator;
  std::ofstream m_out;
};

// Fetches what is missing of `part`; all of it when nobody can tell of which version that is.
Corvane::ZResult FetchRest(Corvane::ZTransfer& transfer, const Corvane::ZString& url, const fs::path& part,
                           const fs::path& validator) {
  Corvane::ZTransferOptions options;
  options.mostRedirects = 10;
  options.userAgent = L"fetch-example/1";
  options.askModificationTime = true;  // over FTP a file's version is told by its size and its time
  options.checkResume = true;
  options.validator = Corvane::ZStringDecoder::FromUtf8(ReadText(validator).c_str());
  if (options.validator.IsEmpty()) fs::remove(part);
  const Corvane::ZResult set = transfer.SetOptions(options);
  if (Corvane::IsFailure(set)) return set;
  const unsigned long long offset = fs::exists(part) ? fs::file_size(part) : 0;
  if (offset != 0) std::printf("going on at byte %llu\n", offset);
  PartSink sink(transfer, part, validator);
  return transfer.Download(url, sink, offset);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  std::setlocale(LC_ALL, "");  // the encoding of the arguments
  const Corvane::ZString url(argv[1]);
  const fs::path file(argv[2]);
  const fs::path part = file.string() + ".part", validator = file.string() + ".validator";

  Corvane::ZTransfer transfer;
  if (!VerifyServers(transfer)) return 1;
  Corvane::ZResult result = FetchRest(transfer, url, part, validator);
  // Another version, or no part at all: 416 says that the server's file ends before the part does, or with it.
  if (result == kRangeError || transfer.GetHttpStatus() == 416) {
    std::printf("cannot go on, beginning anew\n");
    fs::remove(part);
    fs::remove(validator);
    result = FetchRest(transfer, url, part, validator);
  }
  if (Corvane::IsFailure(result)) return TellFailure(transfer, result);
  if (!fs::exists(part)) std::ofstream{part};  // an empty file, of which no byte came
  fs::rename(part, file);
  fs::remove(validator);
  std::printf("%llu bytes\n", static_cast<unsigned long long>(fs::file_size(file)));
}
