#pragma once

#include <string>
#include <vector>

#define CORVANE_LEGACY_CRYPTO_API __attribute__((visibility("default")))

// What the library under test told the recording stand-in for an OpenSSL of the 1.0 era.
namespace CorvaneTest {

class CORVANE_LEGACY_CRYPTO_API LegacyCrypto {
 public:
  using LockingCallback = void(int mode, int number, const char* file, int line);
  using IdCallback = unsigned long();

  // Forgets the calls; the callbacks stay.
  static void Forget();
  // In order: "num_locks", "set_id", "clear_id", "set_locking", "clear_locking".
  static std::vector<std::string> Calls();

  // What CRYPTO_num_locks answers from now on.
  static void SetLockCount(int count);

  // The callbacks in force, null when there is none.
  static LockingCallback* Locking();
  static IdCallback* Id();
};

}  // namespace CorvaneTest
