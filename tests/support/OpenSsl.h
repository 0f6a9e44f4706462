#pragma once

#include <string>

namespace CorvaneTest {

// The reason of this thread's latest OpenSSL failure, after which OpenSSL's error queue is empty; "unknown reason" when
// it left none.
std::string TakeOpenSslError();

}  // namespace CorvaneTest
