// The EM driver: fits with known answers, the stopping and annealing rules,
// restarts, the numerical stop of the initialisation, and the AutoClass rules.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

#include "base/random.h"
#include "em_fixture.h"

namespace {

const long double kPi = 3.14159265358979323846264338327950288L;

// Six 2-d cases: (1, 2), (2.5, 1) twice, (0.5, -1), (3, 4), (-1, 0.5).
void load_points(int k) { em_fixture::load(k, 2, "-", "1,2\n2.5,1,2\n0.5,-1\n3,4\n-1,0.5\n"); }

// One class: the first update reaches the weighted sample mean and biased
// covariance, the second gains nothing, and L = -N/2 (d log 2 pi + log det S + d).
TEST(EmFit, OneClassIsTheSampleGaussian) {
  load_points(1);
  settings.epsilon = 1e-12L;
  em_iterate(0);
  // By hand: mean (17/12, 5/4), covariance [[281/144, 59/48], [59/48, 37/16]].
  const long double n = 6, m[2] = {17 / 12.0L, 1.25L};
  const long double s[2][2] = {{281 / 144.0L, 59 / 48.0L}, {59 / 48.0L, 37 / 16.0L}};
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

// Two well separated groups of four: the fit finds them, with each class at
// its group's mean and biased variance (by hand) and every case assigned.
TEST(EmFit, TwoSeparatedGroupsAreRecovered) {
  em_fixture::load(2, 1, "0", "-0.2\n0\n0.1\n0.3\n9.8\n10\n10.1\n10.4\n");
  settings.epsilon = 1e-12L;
  settings.noise_ratio_gauss = 2;  // start means a few standard deviations apart
  const long double mean[2] = {0.05L, 10.075L}, var[2] = {0.0325L, 0.046875L};
  for (uint32_t seed : {1u, 2u, 3u}) {
    init_genrand(seed);
    em_iterate(0);
    EXPECT_LT(model.log_num_iterate[0][0], 200) << seed;
    int low = model.param_u[0][0][0] < model.param_u[1][0][0] ? 0 : 1;
    int cls[2] = {low, 1 - low};
    for (int i = 0; i < 2; i++) {
      EXPECT_NEAR(model.param_c[cls[i]], 0.5L, 1e-12L) << seed;
      EXPECT_NEAR(model.param_u[cls[i]][0][0], mean[i], 1e-12L) << seed;
      EXPECT_NEAR(model.param_s[cls[i]][0][0][0], var[i], 1e-12L) << seed;
    }
    compute_complete_prob();
    compute_incomplete_prob();
    compute_conditional_prob();
    for (int e = 0; e < 8; e++) EXPECT_GT(model.prob_cond[cls[e < 4 ? 0 : 1]][e], 0.999L) << e;
  }
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
    load_points(2);
    settings.epsilon = c.epsilon;
    initialize_param();
    EXPECT_EQ(em_iterate_body(0, 0, c.max, 1.0L), c.last) << c.epsilon;
    em_fixture::unload();
  }
}

TEST(EmDriver, AnnealingScheduleIsCappedAtOne) {
  load_points(2);
  settings.mode_daem = 1;
  release_loglike();
  alloc_loglike();
  initialize_param();
  int last = em_iterate_body(0, 0, 3000, 0.1L);
  std::vector<long double> seen;
  for (int i = 0; i <= last; i++)
    if (seen.empty() || seen.back() != model.log_itemp[i]) seen.push_back(model.log_itemp[i]);
  // 0.1 1.2^j for j = 0..12 (1.2^12 = 8.916100448256), then exactly 1.
  ASSERT_EQ(seen.size(), 14u);
  EXPECT_NEAR(seen[1], 0.12L, 1e-18L);
  EXPECT_NEAR(seen[2], 0.144L, 1e-18L);
  EXPECT_NEAR(seen[12], 0.8916100448256L, 1e-15L);
  EXPECT_EQ(seen.back(), 1.0L);
  settings.mode_daem = 0;
  em_fixture::unload();
}

TEST(EmDriver, EqualRestartsKeepTheFirst) {
  load_points(2);
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
  em_fixture::load(2, 4, "-", "1,2,3,4\n2,1,0,3\n");
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
  em_fixture::load(5, 3, "2", "a,x,1\nb,y,2\nc,x,3\nd,y,4\n");
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
  // The Cheeseman-Stutz score needs every constant positive.
  settings.ic_type = 2;
  EXPECT_EXIT(set_smooth_auto(), ::testing::ExitedWithCode(1),
              "^Couldn't use the AUTOCLASS mode unless all smoothing constant > 0\n$");
  settings.ic_type = 1;
  settings.mode_smooth_gauss = settings.mode_smooth_auto = 0;
  settings.mode_smooth_auto_tau = 1;
  em_fixture::unload();
}

}  // namespace
