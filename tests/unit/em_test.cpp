// The EM driver: fits with known answers, the annealing schedule, restarts,
// and the AutoClass rules for the smoothing constants.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <set>
#include <vector>

#include "driver/vesk.h"
#include "input/read_freq.h"
#include "model/allocate.h"
#include "model/em.h"

// The in-memory data fixture defined in estep_test.cpp.
namespace em_fixture {
struct Row {
  std::vector<int> words;
  std::vector<std::vector<long double>> gauss;
  int count;
};
void load(int k, const std::vector<int> &num_word, const std::vector<int> &dims, const std::vector<Row> &rows);
void unload();
}  // namespace em_fixture

namespace {

using em_fixture::Row;

std::vector<Row> points_2d() {
  return {{{}, {{1.0L, 2.0L}}, 1}, {{}, {{2.5L, 1.0L}}, 2}, {{}, {{0.5L, -1.0L}}, 1},
          {{}, {{3.0L, 4.0L}}, 1}, {{}, {{-1.0L, 0.5L}}, 1}};
}

TEST(EmFit, OneClassGivesSampleMeanAndBiasedCovariance) {
  std::vector<Row> rows = points_2d();
  em_fixture::load(1, {}, {2}, rows);
  em_iterate(0);
  long double n = 0, m[2] = {0, 0}, s[2][2] = {{0, 0}, {0, 0}};
  for (const Row &r : rows) {
    n += r.count;
    for (int i = 0; i < 2; i++) m[i] += r.count * r.gauss[0][i];
  }
  for (int i = 0; i < 2; i++) m[i] /= n;
  for (const Row &r : rows)
    for (int i = 0; i < 2; i++)
      for (int j = 0; j < 2; j++) s[i][j] += r.count * (r.gauss[0][i] - m[i]) * (r.gauss[0][j] - m[j]) / n;
  EXPECT_NEAR(model.param_c[0], 1.0L, 1e-18L);
  for (int i = 0; i < 2; i++) {
    EXPECT_NEAR(model.param_u[0][0][i], m[i], 1e-17L);
    for (int j = 0; j < 2; j++) EXPECT_NEAR(model.param_s[0][0][i][j], s[i][j], 1e-16L);
  }
  em_fixture::unload();
}

TEST(EmFit, TwoSeparatedGroupsAreRecovered) {
  std::vector<Row> rows;
  const long double offsets[] = {-0.3L, -0.1L, 0.0L, 0.2L, 0.4L};
  for (long double o : offsets) {
    rows.push_back({{0}, {{o}}, 1});
    rows.push_back({{1}, {{10 + o}}, 1});
  }
  em_fixture::load(2, {2}, {1}, rows);
  settings.num_init = 3;
  release_seed();
  alloc_seed();
  em_iterate(0);
  // Every case belongs to one class with certainty, the two groups to different ones.
  compute_complete_prob();
  compute_incomplete_prob();
  compute_conditional_prob();
  int low = model.param_u[0][0][0] < 5 ? 0 : 1;
  for (int e = 0; e < cases.num_entry; e++) {
    bool is_low = cases.freq_list[e].gauss[0][0] < 5;
    EXPECT_GT(model.prob_cond[is_low ? low : 1 - low][e], 0.999999L) << e;
  }
  EXPECT_NEAR(model.param_c[0], 0.5L, 1e-9L);
  EXPECT_NEAR(model.param_u[low][0][0], 0.04L, 1e-9L);
  EXPECT_NEAR(model.param_w[low][0][0], 1.0L, 1e-9L);
  em_fixture::unload();
}

TEST(EmDriver, AnnealingScheduleIsCappedAtOne) {
  std::vector<Row> rows = points_2d();
  em_fixture::load(2, {}, {2}, rows);
  settings.mode_daem = 1;
  release_loglike();
  alloc_loglike();
  initialize_param();
  int last = em_iterate_body(0, 0, 3000, 0.1L);
  std::vector<long double> seen;
  for (int i = 0; i <= last; i++)
    if (seen.empty() || seen.back() != model.log_itemp[i]) seen.push_back(model.log_itemp[i]);
  // 0.1 * 1.2^n while below 1, then exactly 1.
  long double b = 0.1L;
  std::vector<long double> expect;
  while (b < 1.0L) {
    expect.push_back(b);
    b *= 1.2L;
  }
  expect.push_back(1.0L);
  ASSERT_EQ(seen.size(), expect.size());
  for (size_t i = 0; i < expect.size(); i++) EXPECT_NEAR(seen[i], expect[i], 1e-15L) << i;
  EXPECT_EQ(seen.back(), 1.0L);
  EXPECT_NEAR(expect[1], 0.12L, 1e-18L);
  EXPECT_NEAR(expect[2], 0.144L, 1e-18L);
  settings.mode_daem = 0;
  em_fixture::unload();
}

TEST(EmDriver, StopsAtIterationLimit) {
  std::vector<Row> rows = points_2d();
  em_fixture::load(2, {}, {2}, rows);
  settings.epsilon = -1;  // never converges
  initialize_param();
  EXPECT_EQ(em_iterate_body(0, 0, 5, 1.0L), 5);
  em_fixture::unload();
}

TEST(EmDriver, EqualRestartsKeepTheFirst) {
  std::vector<Row> rows = points_2d();
  em_fixture::load(2, {}, {2}, rows);
  // Without noise every restart starts from the same parameters.
  settings.noise_ratio = settings.noise_ratio_gauss = 0;
  settings.num_init = 3;
  release_seed();
  alloc_seed();
  em_iterate(0);
  EXPECT_EQ(model.log_r_best[0], 0);
  EXPECT_EQ(model.log_final_lambda[0][0], model.log_final_lambda[0][2]);
  EXPECT_EQ(model.log_seed[0][1], 0u);  // a fixed seed is logged as 0
  em_fixture::unload();
}

TEST(AutoClassRules, ConstantsFromClassAndValueCounts) {
  em_fixture::load(5, {4, 2}, {1}, {{{0, 1}, {{1.0L}}, 1}, {{3, 0}, {{2.0L}}, 1}});
  settings.mode_smooth_auto = 1;
  settings.mode_smooth_auto_c = 2;
  settings.mode_smooth_auto_tau = 2;
  settings.mode_smooth_gauss = 1;
  settings.mode_smooth_auto_w[0] = 2;
  settings.smooth_w[1] = 0.7L;  // given, not auto
  set_smooth_auto();
  EXPECT_NEAR(settings.smooth_c, 0.2L, 1e-18L);
  EXPECT_NEAR(settings.tau, 0.2L, 1e-18L);
  EXPECT_NEAR(settings.smooth_w[0], 0.25L, 1e-18L);
  EXPECT_EQ(settings.smooth_w[1], 0.7L);
  EXPECT_EQ(settings.mode_smooth, 1);
  EXPECT_EQ(settings.mode_smooth_strict, 1);
  // With a class constant of 0 the fit is MAP but not strict.
  settings.mode_smooth_auto_c = 1;
  settings.smooth_c = 0;
  set_smooth_auto();
  EXPECT_EQ(settings.mode_smooth, 1);
  EXPECT_EQ(settings.mode_smooth_strict, 0);
  // Default degrees of freedom: dimension + 1e-6.
  EXPECT_NEAR(get_alpha_w(0, 0, 3), 3.000001L, 1e-15L);
  settings.mode_smooth_gauss = 0;
  settings.mode_smooth_auto = 0;
  settings.mode_smooth_auto_tau = 1;
  em_fixture::unload();
}

}  // namespace
