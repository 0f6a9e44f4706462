#include <gmock/gmock.h>

#include "tests/support/Env.h"
#include "tests/torture/Injection.h"

int main(int argc, char** argv) {
  CorvaneTest::PrepareTestProcess();
  CorvaneTest::PrepareInjection();
  testing::InitGoogleMock(&argc, argv);
  return RUN_ALL_TESTS();
}
