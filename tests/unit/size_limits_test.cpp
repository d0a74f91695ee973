// Sizes beyond the int range or beyond memory: the annealing step count and
// the traces it sizes, the room left in the vector pool, and tables that
// cannot fit, which end at once with the allocation message.
#include <gtest/gtest.h>

#include <climits>

#include "driver/init.h"
#include "em_fixture.h"

namespace {

// trunc(-ln Binit / ln Brate) + 1 steps: how often Binit can be multiplied by
// the rate and stay below 1 (counted here by multiplying), plus one; 13 for
// 0.1 and 1.2, as 1.2^12 < 10 < 1.2^13. (A count beyond the int range is
// refused: see the black-box reproducers.)
TEST(SizeLimits, AnnealingStepCount) {
  const long double cases[][2] = {{0.1L, 1.2L},     {1.0L, 1.2L},     {0.5L, 1.5L},
                                  {1e-300L, 1.001L}, {1e-4930L, 1.2L}, {0.5L, 1.0000001L}};
  for (const auto &c : cases) {
    setup_process_state();
    settings.tuple_size = 3;
    settings.num_class = 2;
    settings.mode_daem = 1;
    settings.itemp_init = c[0];
    settings.itemp_rate = c[1];
    postproc_args();
    int k = 1;
    for (long double b = c[0]; b * c[1] < 1.0L; b *= c[1]) k++;
    EXPECT_EQ(settings.num_itemp, k) << static_cast<double>(c[0]);
  }
}

// The reservation answers exactly what the pool can give: carving 16 MB
// vectors one by one, each reservation of one more that passes is followed by
// an allocation that succeeds, and the first that fails is the one the pool
// could not have served; a released block counts again.
bool in_reservation = false;

TEST(SizeLimits, VectorPoolRoomIsCountedExactly) {
  setup_process_state();
  const int n = 1000000;  // 16,000,016-byte blocks: at most four fit the 64 MiB arena
  EXPECT_EXIT(reserve_vectors(5, n), testing::ExitedWithCode(1),
              "^Ran out of memory for vectors \\(allocated size: 8388608 bytes\\)\n$");
  EXPECT_EXIT(
      {
        set_exit_handler([](int) { exit(in_reservation ? 0 : 2); });
        Vector made[8];
        int count = 0;
        for (;;) {
          in_reservation = true;
          reserve_vectors(1, n);
          in_reservation = false;
          made[count++] = alloc_vector(n);
          if (count == 2) {  // a released block is served again before fresh space
            release_vector0(made[1]);
            reserve_vectors(1, n);
            if (alloc_vector(n) != made[1]) exit(3);
          }
        }
      },
      testing::ExitedWithCode(0), "");
}

// A score table for a K range, or attribute roles, that could not fit in this
// machine's memory end with the allocation message before anything large is
// allocated (tables of K classes: see the black-box reproducers).
TEST(SizeLimits, TablesBeyondMemoryEndAtOnce) {
  if (physical_memory_bytes() >= 90e9L) GTEST_SKIP() << "memory enough for the tables";
  em_fixture::load(2, 1, nullptr, "a\nb\n");
  settings.mode_search_num_class = 1;
  settings.kmin = 2, settings.kmax = 999999999, settings.kstep = 1;
  EXPECT_EXIT(alloc_ic(), testing::ExitedWithCode(1), "^Couldn't allocate memory \\(allocate.cpp, line 16\\)\n$");
  settings.mode_search_num_class = 0;
  em_fixture::unload();
  setup_process_state();
  settings.tuple_size = INT_MAX;
  EXPECT_EXIT(build_attr_info(), testing::ExitedWithCode(1), "^Couldn't allocate memory \\(init.cpp, line 13\\)\n$");
}

}  // namespace
