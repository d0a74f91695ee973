// The Mersenne Twister against its published reference outputs, and the
// 53-bit reals against a second implementation (Python's random.random()).
#include "base/random.h"

#include <gtest/gtest.h>

namespace {

TEST(RandomTest, PublishedSequences) {
  init_genrand(5489U);
  const uint32_t expected[5] = {3499211612U, 581869302U, 3890346734U, 3586334585U, 545404204U};
  for (uint32_t want : expected) EXPECT_EQ(genrand_int32(), want);
  init_genrand(5489U);
  EXPECT_EQ(genrand_int31(), static_cast<int32_t>(3499211612U >> 1));
  init_genrand(5489U);
  uint32_t x = 0;
  for (int i = 0; i < 10000; i++) x = genrand_int32();
  EXPECT_EQ(x, 4123659995U);  // the 10000th output
  const uint32_t keys[4] = {0x123, 0x234, 0x345, 0x456};
  init_by_array(keys, 4);
  const uint32_t ints[5] = {1067595299U, 955945823U, 477289528U, 4107218783U, 4228976476U};
  for (uint32_t want : ints) EXPECT_EQ(genrand_int32(), want);
  init_by_array(keys, 4);
  EXPECT_EQ(genrand_res53(), 0x1.fd11b138fa934p-3);
  EXPECT_EQ(genrand_res53(), 0x1.c72dc3e99e5e8p-4);
  EXPECT_EQ(genrand_res53(), 0x1.f8221eb1d59dep-1);
}

}  // namespace
