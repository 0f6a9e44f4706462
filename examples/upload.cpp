// upload URL FILE: posts a file, tells on standard error how much of it has gone, and prints what the server answered.
//
// Shows an upload that may take as long as it moves, followed from a second thread; the answer goes into a file.

#include <chrono>
#include <clocale>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <future>
#include <iostream>

#include <Corvane/Transfer.h>
#include <Corvane/TransferOptions.h>

#include "examples/host.h"

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  std::setlocale(LC_ALL, "");  // the encoding of the arguments and of file names
  const Corvane::ZString url(argv[1]);
  const Corvane::ZString file(argv[2]);
  const Corvane::ZString answer = file + L".answer";

  Corvane::ZTransfer transfer;
  if (!VerifyServers(transfer)) return 1;
  Corvane::ZTransferOptions options;
  options.limitFollowsUpload = true;  // otherwise all must have gone within the time limit, and counts at the end
  options.headers = {L"Content-Type: application/octet-stream"};
  if (Corvane::IsFailure(transfer.SetOptions(options))) return 1;
  if (Corvane::IsFailure(transfer.SetTimeout(30))) return 1;  // seconds without a byte

  std::error_code error;
  const auto total = std::filesystem::file_size(argv[2], error);
  if (error) return 2;
  std::future<Corvane::ZResult> upload =
      std::async(std::launch::async, [&] { return transfer.PostFile(url, file, answer); });
  while (upload.wait_for(std::chrono::milliseconds(100)) != std::future_status::ready) {
    std::fprintf(stderr, "%llu of %llu bytes, %u KiB/s\n", transfer.GetTransferSize(),
                 static_cast<unsigned long long>(total), transfer.GetTransferRate());
  }

  const Corvane::ZResult result = upload.get();
  if (result == Corvane::TRANSFER_E_POST) std::fprintf(stderr, "refused with status %ld\n", transfer.GetHttpStatus());
  if (Corvane::IsFailure(result)) return TellFailure(transfer, result);
  const std::filesystem::path answered = std::filesystem::path(argv[2]).concat(".answer");
  if (std::filesystem::file_size(answered, error) > 0 && !error) std::cout << std::ifstream(answered).rdbuf();
  std::filesystem::remove(answered, error);
  return error || !std::cout.flush() ? 1 : 0;
}
