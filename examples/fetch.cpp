// fetch URL FILE: what lies under FILE is whole and of one version, however often the fetch was interrupted.
//
// Shows a checked resume. FILE.part holds what is under way, and FILE.validator what the server said of its version, noted before the
// first byte is written. The next run asks for the rest of that very version; when the file has changed since, it begins anew.

#include <clocale>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>

#include <Corvane/Base/Path.h>
#include <Corvane/Transfer.h>
#include <Corvane/TransferOptions.h>

#include "examples/host.h"

namespace fs = std::filesystem;

// Notes the version of a part that is just beginning; that of one which is there stays noted.
struct VersionNote : Corvane::ZTransfer::Observer {
  void Update(int /*event*/, long /*value*/) override {
    Corvane::ZString validator;
    if (fs::exists(file) || Corvane::IsFailure(transfer.GetValidator(validator))) return;
    std::ofstream(file, std::ios::binary) << validator;
  }
  Corvane::ZTransfer& transfer;
  fs::path file;
  VersionNote(Corvane::ZTransfer& noted, const fs::path& name) : transfer(noted), file(name) {}
};

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  std::setlocale(LC_ALL, "");  // the encoding of the arguments
  const fs::path file(argv[2]), part = file.string() + ".part", note = file.string() + ".validator";
  Corvane::ZTransfer transfer;
  VersionNote observer(transfer, note);
  if (!VerifyServers(transfer) || Corvane::IsFailure(transfer.Attach(&observer))) return 1;
  Corvane::ZTransferOptions options;
  options.mostRedirects = 10;
  options.askModificationTime = true;  // over FTP a file's version is told by its size and its time
  options.checkResume = true;

  Corvane::ZResult result;
  for (bool isAgain = false;; isAgain = true) {
    std::ifstream noted(note, std::ios::binary);
    options.validator = Corvane::ZString::FromUtf8(std::string(std::istreambuf_iterator<char>(noted), {}));
    if (Corvane::IsFailure(transfer.SetOptions(options))) return 1;
    if (options.validator.IsEmpty()) fs::remove(part);  // nobody can tell of which version it is
    result = transfer.DownloadFile(argv[1], Corvane::ZPath::From(part).ToString(), /*resume=*/true);
    // The code 33: it is another version now. The status 416: it is shorter than the part.
    const bool isOther = result == (Corvane::TRANSFER_E_CURL_BASE | 33) || transfer.GetHttpStatus() == 416;
    if (isAgain || !isOther) break;
    std::printf("cannot go on, beginning anew\n");
    fs::remove(part), fs::remove(note);
  }
  if (Corvane::IsFailure(result)) return TellFailure(transfer, result);
  fs::rename(part, file), fs::remove(note);
  std::printf("%llu bytes\n", transfer.GetDownloadSize());
}
