// The EM driver: fits with known answers, the stopping and annealing rules,
// restarts, the numerical stop of the initialisation, and the AutoClass rules.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

#include "analysis/stat.h"
#include "driver/vesk.h"
#include "input/read_freq.h"
#include "model/allocate.h"
#include "model/em.h"
#include "test_util.h"

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

const long double kPi = 3.14159265358979323846264338327950288L;

std::vector<Row> points_2d() {
  return {{{}, {{1.0L, 2.0L}}, 1}, {{}, {{2.5L, 1.0L}}, 2}, {{}, {{0.5L, -1.0L}}, 1},
          {{}, {{3.0L, 4.0L}}, 1}, {{}, {{-1.0L, 0.5L}}, 1}};
}

// One class: the first update reaches the weighted sample mean and biased
// covariance, the second gains nothing, and L = -N/2 (d log 2 pi + log det S + d).
TEST(EmFit, OneClassIsTheSampleGaussian) {
  std::vector<Row> rows = points_2d();
  em_fixture::load(1, {}, {2}, rows);
  settings.epsilon = 1e-12L;
  em_iterate(0);
  long double n = 0, m[2] = {0, 0}, s[2][2] = {};
  for (const Row &r : rows) n += r.count;
  for (const Row &r : rows)
    for (int i = 0; i < 2; i++) m[i] += r.count * r.gauss[0][i] / n;
  for (const Row &r : rows)
    for (int i = 0; i < 2; i++)
      for (int j = 0; j < 2; j++) s[i][j] += r.count * (r.gauss[0][i] - m[i]) * (r.gauss[0][j] - m[j]) / n;
  EXPECT_NEAR(model.param_c[0], 1.0L, 1e-18L);
  for (int i = 0; i < 2; i++) {
    EXPECT_NEAR(model.param_u[0][0][i], m[i], 1e-17L);
    for (int j = 0; j < 2; j++) EXPECT_NEAR(model.param_s[0][0][i][j], s[i][j], 1e-16L);
  }
  long double det = s[0][0] * s[1][1] - s[0][1] * s[1][0];
  EXPECT_NEAR(model.final_loglike, -n / 2 * (2 * logl(2 * kPi) + logl(det) + 2), 1e-14L);
  EXPECT_EQ(model.log_num_iterate[0][0], 2);
  em_fixture::unload();
}

TEST(EmFit, TwoSeparatedGroupsAreRecovered) {
  std::vector<Row> rows;
  for (long double o : {-0.3L, -0.1L, 0.0L, 0.2L, 0.4L}) {
    rows.push_back({{0}, {{o}}, 1});
    rows.push_back({{1}, {{10 + o}}, 1});
  }
  em_fixture::load(2, {2}, {1}, rows);
  settings.num_init = 3;
  release_seed();
  alloc_seed();
  em_iterate(0);
  int low = model.param_u[0][0][0] < 5 ? 0 : 1;
  EXPECT_NEAR(model.param_c[0], 0.5L, 1e-9L);
  EXPECT_NEAR(model.param_u[low][0][0], 0.04L, 1e-9L);
  EXPECT_NEAR(model.param_u[1 - low][0][0], 10.04L, 1e-9L);
  EXPECT_NEAR(model.param_w[low][0][0], 1.0L, 1e-9L);
  em_fixture::unload();
}

// The run ends at the iteration limit when it never converges, and after a
// single update when that update gains less than epsilon.
TEST(EmDriver, StopsAtLimitOrAfterASmallGain) {
  struct Case {
    long double epsilon;
    int max, last;
  } cases_[] = {{-1, 5, 5}, {1e9L, 3000, 1}};
  for (const Case &c : cases_) {
    em_fixture::load(2, {}, {2}, points_2d());
    settings.epsilon = c.epsilon;
    initialize_param();
    EXPECT_EQ(em_iterate_body(0, 0, c.max, 1.0L), c.last) << c.epsilon;
    em_fixture::unload();
  }
}

TEST(EmDriver, AnnealingScheduleIsCappedAtOne) {
  em_fixture::load(2, {}, {2}, points_2d());
  settings.mode_daem = 1;
  release_loglike();
  alloc_loglike();
  initialize_param();
  int last = em_iterate_body(0, 0, 3000, 0.1L);
  std::vector<long double> seen;
  for (int i = 0; i <= last; i++)
    if (seen.empty() || seen.back() != model.log_itemp[i]) seen.push_back(model.log_itemp[i]);
  // 0.1, 0.12, 0.144, ... while below 1, then exactly 1.
  std::vector<long double> expect;
  for (long double b = 0.1L; b < 1.0L; b *= 1.2L) expect.push_back(b);
  expect.push_back(1.0L);
  ASSERT_EQ(seen.size(), expect.size());
  for (size_t i = 0; i < expect.size(); i++) EXPECT_NEAR(seen[i], expect[i], 1e-15L) << i;
  EXPECT_NEAR(seen[2], 0.144L, 1e-18L);
  EXPECT_EQ(seen.back(), 1.0L);
  settings.mode_daem = 0;
  em_fixture::unload();
}

TEST(EmDriver, EqualRestartsKeepTheFirst) {
  em_fixture::load(2, {}, {2}, points_2d());
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

// A start covariance that is not positive definite stops the run, with the
// parameters written to the log first.
TEST(EmDriverDeathTest, UninvertibleStartCovarianceIsLoggedAndFatal) {
  em_fixture::load(2, {}, {4}, {{{}, {{1, 2, 3, 4}}, 1}, {{}, {{2, 1, 0, 3}}, 1}});
  for (int i = 0; i < 4; i++) stats.sample_s[0][i][i] = i == 1 ? -1.0L : 1.0L;
  std::string log = "/tmp/vesk_em_test_" + std::to_string(getpid()) + ".log";
  FILE *saved = settings.fp_log;
  settings.fp_log = fopen(log.c_str(), "wb");
  EXPECT_EXIT(initialize_param(), ::testing::ExitedWithCode(1),
              "^Numerical error \\(initialize_param\\): Failed to invert covariances\n$");
  fclose(settings.fp_log);
  settings.fp_log = saved;
  std::string text = read_text(log.c_str());
  EXPECT_LT(text.find("#### ID:PARAM-GAUSS-COVAR0"), text.find("Numerical error (initialize_param)"));
  remove(log.c_str());
  em_fixture::unload();
}

TEST(AutoClassRules, ConstantsFromClassAndValueCounts) {
  em_fixture::load(5, {4, 2}, {1}, {{{0, 1}, {{1.0L}}, 1}, {{3, 0}, {{2.0L}}, 1}});
  settings.mode_smooth_auto = 1;
  settings.mode_smooth_auto_c = settings.mode_smooth_auto_tau = 2;
  settings.mode_smooth_gauss = 1;
  settings.mode_smooth_auto_w[0] = 2;
  settings.smooth_w[1] = 0.7L;  // given, not auto
  set_smooth_auto();
  EXPECT_NEAR(settings.smooth_c, 0.2L, 1e-18L);
  EXPECT_NEAR(settings.tau, 0.2L, 1e-18L);
  EXPECT_NEAR(settings.smooth_w[0], 0.25L, 1e-18L);
  EXPECT_EQ(settings.smooth_w[1], 0.7L);
  EXPECT_EQ(settings.mode_smooth + settings.mode_smooth_strict, 2);
  // With a class constant of 0 the fit is MAP but not strict.
  settings.mode_smooth_auto_c = 1;
  settings.smooth_c = 0;
  set_smooth_auto();
  EXPECT_EQ(settings.mode_smooth, 1);
  EXPECT_EQ(settings.mode_smooth_strict, 0);
  EXPECT_NEAR(get_alpha_w(0, 0, 3), 3.000001L, 1e-15L);  // dimension + 1e-6
  settings.mode_smooth_gauss = settings.mode_smooth_auto = 0;
  settings.mode_smooth_auto_tau = 1;
  em_fixture::unload();
}

}  // namespace
