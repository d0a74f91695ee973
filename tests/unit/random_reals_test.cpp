// The closed-interval and open-interval reals of the generator, from the
// first outputs of the reference sequence (3499211612, 581869302 after the
// seed 5489), divided as each interval needs (values by decimal arithmetic).
#include <gtest/gtest.h>

#include "base/random.h"

namespace {

TEST(RandomReals, ClosedAndOpenIntervals) {
  init_genrand(5489U);
  EXPECT_NEAR(genrand_real1(), 0.814723692092747355832892320080, 1e-16);  // x / (2^32 - 1)
  EXPECT_NEAR(genrand_real1(), 0.135477004138631048644574137555, 1e-16);
  init_genrand(5489U);
  EXPECT_NEAR(genrand_real3(), 0.814723692019470036029815673828, 1e-16);  // (x + 0.5) / 2^32
  EXPECT_NEAR(genrand_real3(), 0.135477004223503172397613525391, 1e-16);
}

}  // namespace
