#include <gmock/gmock.h>

#include "tests/support/Env.h"

int main(int argc, char** argv) {
  CorvaneTest::PrepareTestProcess();
  testing::InitGoogleMock(&argc, argv);
  return RUN_ALL_TESTS();
}
