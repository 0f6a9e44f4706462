#include "tests/support/OpenSsl.h"

#include <openssl/err.h>

namespace CorvaneTest {

std::string TakeOpenSslError() {
  const unsigned long code = ERR_peek_last_error();
  ERR_clear_error();
  const char* reason = ERR_reason_error_string(code);
  return reason != nullptr ? reason : "unknown reason";
}

}  // namespace CorvaneTest
