// A failure inside a death test ends the child process with its status, as
// the program would end; anywhere else it throws RunExit, so that a test can
// check it in its own process (EXPECT_THROW) and an unexpected failure fails
// only its own test, never the whole binary.
#include <gtest/gtest.h>

#include <cstdlib>

#include "base/stop.h"

namespace {

void exit_in_death_test(int status) {
  if (testing::internal::InDeathTestChild()) exit(status);
}

const bool installed = (set_exit_handler(exit_in_death_test), true);

}  // namespace
