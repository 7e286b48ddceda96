// Main of the library tests: sets up the device root (before any thread
// exists), loads the library of the chosen gate and runs the tests.
//   cnv_test [--gate=shut|open] [gtest options]
#include <gtest/gtest.h>

#include <cstring>

#include "cnv_env.h"

int main(int argc, char **argv) {
  bool gate_open = false;
  for (int i = 1; i < argc; i++)
    if (std::strcmp(argv[i], "--gate=open") == 0) gate_open = true;
  ::testing::InitGoogleTest(&argc, argv);
  cnv::setup(gate_open);
  int rc = RUN_ALL_TESTS();
  cnv::teardown();
  return rc;
}
