#include <signal.h>
#include <sys/resource.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "tests/loopback/TransferTesting.h"
#include "tests/support/Env.h"
#include "tests/support/Privileges.h"

// Downloads a file in a process that is restricted in a way which the test's own process must not be:
//
//   loopback_probe [--without-privileges] [--file-size-limit BYTES] URL FILE fresh|resume
//
// Prints the code and libcurl's code in hexadecimal, then the error text, one per line.

namespace {

void LimitFileSize(rlim_t bytes) {
  // By default the signal ends the process; a host that lives with limits ignores it and sees EFBIG.
  if (signal(SIGXFSZ, SIG_IGN) == SIG_ERR) CorvaneTest::Die("signal");
  const rlimit limit{bytes, bytes};
  if (setrlimit(RLIMIT_FSIZE, &limit) != 0) CorvaneTest::Die("setrlimit");
}

}  // namespace

int main(int argc, char** argv) {
  CorvaneTest::PrepareTestProcess();
  int at = 1;
  for (; at < argc && std::strncmp(argv[at], "--", 2) == 0; ++at) {
    if (std::string(argv[at]) == "--without-privileges") {
      CorvaneTest::DropPrivileges();
    } else {
      LimitFileSize(std::strtoull(argv[++at], nullptr, 10));
    }
  }
  if (argc - at != 3) return 2;
  Corvane::ZTransfer transfer;
  const bool resume = std::string(argv[at + 2]) == "resume";
  const Corvane::ZResult code =
      transfer.DownloadFile(CorvaneTest::Wide(argv[at]), CorvaneTest::Wide(argv[at + 1]), resume);
  std::printf("%08X\n%08X\n%s\n", code, CorvaneTest::CauseOf(transfer), CorvaneTest::ErrorOf(transfer).c_str());
  return 0;
}
