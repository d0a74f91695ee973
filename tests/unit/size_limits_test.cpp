// Sizes beyond the int range or beyond memory: parameter counts, the
// annealing step count and the traces it sizes, and tables that cannot fit,
// which end at once with the allocation message.
#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <string>

#include "driver/init.h"
#include "em_fixture.h"
#include "model/ic.h"
#include "output/print.h"

namespace {

bool memory_below(long double bytes) { return physical_memory_bytes() < bytes; }

// One discrete attribute with 3 values and a 2-dimensional group: per class
// 2 value parameters and 3 covariance entries.
TEST(SizeLimits, ParameterCountsAreWide) {
  em_fixture::load(2, 3, "1-2", "a,0,1\nb,1,0\nc,2,2\n");
  EXPECT_EQ(count_class_params(INT_MAX), 2147483646LL);
  EXPECT_EQ(count_discrete_params(INT_MAX), 4294967294LL);
  EXPECT_EQ(count_gauss_params(INT_MAX), 6442450941LL);
  settings.num_class = INT_MAX;
  EXPECT_EQ(count_free_params(), 12884901881LL);
  FILE *fp = tmpfile();
  model.num_kvalue = 1;
  print_size(fp);
  EXPECT_NE(stream_text(fp).find("\n2147483647\t2147483646\t4294967294\t6442450941\t12884901881\n"),
            std::string::npos);
  fclose(fp);
  settings.num_class = 2;
  em_fixture::unload();
}

// -ln(Binit) / ln(Brate) + 1 steps, each step multiplying by the rate until
// 1 is reached (counted here by multiplying); a count that does not fit the
// traces' int index is refused with the rate message.
TEST(SizeLimits, AnnealingStepCount) {
  const struct {
    long double init, rate;
  } cases[] = {{1e-300L, 1.001L}, {1e-4930L, 1.2L}, {0.5L, 1.0000001L}};
  auto run = [](long double init, long double rate) {
    setup_process_state();
    settings.tuple_size = 3;
    settings.num_class = 2;
    settings.mode_daem = 1;
    settings.itemp_init = init;
    settings.itemp_rate = rate;
    postproc_args();
  };
  for (const auto &c : cases) {
    run(c.init, c.rate);
    long long k = 0;
    for (long double b = c.init; b * c.rate < 1.0L; b *= c.rate) k++;
    EXPECT_NEAR(settings.num_itemp, k + 1, 1) << static_cast<double>(c.init);
  }
  EXPECT_EXIT(run(0.1L, 1.000000001L), testing::ExitedWithCode(1),  // 2.3e9 steps
              "^Illegal value for the increasing rate of inverse temperature -- 1.000000\n$");
}

// The traces start with room for at most 65536 annealing steps and double
// on demand, keeping what they hold.
TEST(SizeLimits, TracesOfALongScheduleGrow) {
  em_fixture::load(2, 1, nullptr, "a\nb\n");
  release_loglike();
  settings.mode_daem = 1;
  settings.num_itemp = 1000000;
  settings.max_iterate = 3000;
  alloc_loglike();
  EXPECT_EQ(model.ll_size, 3000 + 2 + 65536 + 1);
  model.loglike[model.ll_size - 1] = 7;
  model.log_itemp[5] = 0.25L;
  int old = model.ll_size;
  expand_loglike_all();
  EXPECT_EQ(model.ll_size, 2 * old);
  EXPECT_EQ(model.loglike[old - 1], 7.0L);
  EXPECT_EQ(model.log_itemp[5], 0.25L);
  EXPECT_EQ(model.lambda_[2 * old - 1], 0.0L);
  settings.mode_daem = 0;
  em_fixture::unload();
}

// Restart tables for a K range: one block per table, every cell usable.
TEST(SizeLimits, SeedTablesForARange) {
  em_fixture::load(2, 1, nullptr, "a\nb\n");
  release_seed();
  release_ic();
  settings.mode_search_num_class = 1;
  settings.kmin = 2, settings.kmax = 10, settings.kstep = 4;
  settings.num_init = 3;
  alloc_ic();
  alloc_seed();
  ASSERT_EQ(model.num_kvalue, 3);
  for (int i = 0; i < 3; i++)
    for (int r = 0; r < 3; r++) {
      EXPECT_EQ(model.log_seed[i][r], 0u);
      model.log_seed[i][r] = 10 * i + r;
      model.log_num_iterate[i][r] = 10 * i + r;
      model.log_final_lambda[i][r] = 10 * i + r;
    }
  EXPECT_EQ(model.log_seed[2][1], 21u);
  EXPECT_EQ(model.log_num_iterate[1][2], 12);
  EXPECT_EQ(model.log_final_lambda[2][2], 22.0L);
  settings.mode_search_num_class = 0;
  em_fixture::unload();
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

// Tables that cannot fit end with the allocation message before anything
// large is allocated (a K whose Gaussians cannot fit the vector pool ends
// with the pool's message).
TEST(SizeLimits, TablesBeyondMemoryEndAtOnce) {
  em_fixture::load(2, 2, nullptr, "a,x\nb,y\n");
  release_param();
  settings.num_class = INT_MAX;
  EXPECT_EXIT(alloc_param(), testing::ExitedWithCode(1), "^Couldn't allocate memory \\(allocate.cpp, line 15\\)\n$");
  settings.num_class = 2;
  alloc_param();
  em_fixture::unload();

  em_fixture::load(2, 2, "1", "a,1\nb,2\n");
  release_param();
  settings.num_class = 10000000;  // more vectors than the pool holds
  EXPECT_EXIT(alloc_param(), testing::ExitedWithCode(1),
              "^Ran out of memory for vectors \\(allocated size: 8388608 bytes\\)\n$");
  settings.num_class = 2;
  alloc_param();
  em_fixture::unload();

  if (memory_below(90e9L)) {
    em_fixture::load(2, 1, nullptr, "a\nb\n");
    settings.mode_search_num_class = 1;
    settings.kmin = 2, settings.kmax = 999999999, settings.kstep = 1;
    EXPECT_EXIT(alloc_ic(), testing::ExitedWithCode(1), "^Couldn't allocate memory \\(allocate.cpp, line 16\\)\n$");
    settings.mode_search_num_class = 0;
    em_fixture::unload();
  }
  if (memory_below(90e9L)) {
    setup_process_state();
    settings.tuple_size = INT_MAX;
    EXPECT_EXIT(build_attr_info(), testing::ExitedWithCode(1), "^Couldn't allocate memory \\(init.cpp, line 13\\)\n$");
  }
}

}  // namespace
