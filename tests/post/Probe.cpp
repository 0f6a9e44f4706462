
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

#include "tests/loopback/TransferTesting.h"
#include "tests/support/Env.h"
#include "tests/support/Privileges.h"

// Posts a file in a process of its own:
//
//   post_probe --plain|--without-privileges URL INPUT OUTPUT
//
// Prints the code in hexadecimal, by how many kilobytes the post has raised the process's largest memory, and the error text,
// one per line.

namespace {

// The largest resident size that the process has had so far.
unsigned long LargestMemory() {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.compare(0, 6, "VmHWM:") == 0) return std::strtoul(line.c_str() + 6, nullptr, 10);
  }
  CorvaneTest::Die("VmHWM");
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 5) return 2;
  CorvaneTest::PrepareTestProcess();
  if (std::string(argv[1]) == "--without-privileges") CorvaneTest::DropPrivileges();
  Corvane::ZTransfer transfer;
  const unsigned long before = LargestMemory();
  const Corvane::ZResult code =
      transfer.PostFile(CorvaneTest::Wide(argv[2]), CorvaneTest::Wide(argv[3]), CorvaneTest::Wide(argv[4]));
  std::printf("%08X\n%lu\n%s\n", code, LargestMemory() - before, CorvaneTest::ErrorOf(transfer).c_str());
  return 0;
}
