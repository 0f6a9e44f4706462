#pragma once

#include <filesystem>
#include <memory>
#include <string>

#include <Corvane/Base/Result.h>

#include "tests/soak/SoakSite.h"

namespace CorvaneTest {

// Where the servers are, and who vouches for them.
struct SoakTargets {
  std::string http, tls, ftp;  // end with a slash
  std::filesystem::path caFile;

  const std::string& Any(Random& random) const;
  const std::string& AnyHttp(Random& random) const;
};

// What became of one operation.
struct SoakResult {
  std::string operation;
  Corvane::ZResult code = 0;
  unsigned long long bytes = 0;  // of files and texts that are proven to be right
  std::string problem;           // what must not be; empty when all is well
};

// An object of the library and the operations that it can do. An operation may be ended by the destruction of the object: it touches
// nothing of it once the library's call has returned.
class SoakObject {
 public:
  virtual ~SoakObject() = default;

  // folder: for the files of the thread that calls.
  virtual SoakResult Operate(const SoakTargets& targets, const std::filesystem::path& folder, Random& random) = 0;

  // From other threads, while an operation may run.
  virtual void Abort() = 0;
  virtual bool Wait(unsigned long milliseconds) = 0;
  virtual void Watch(Random& random) = 0;
};

std::unique_ptr<SoakObject> MakeSoakTransfer();
std::unique_ptr<SoakObject> MakeSoakMirror();
std::unique_ptr<SoakObject> MakeSoakTree();

// A look-up, which needs no object that lasts.
SoakResult LookUpHost(Random& random);

// What is wrong with a file that is there under the name of a whole one; empty when nothing is.
std::string ProblemOf(const std::filesystem::path& file, const std::string& expected);

}  // namespace CorvaneTest
