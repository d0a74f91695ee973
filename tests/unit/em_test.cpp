// The EM driver, the M-step and log prior, and the model scores.

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <string>
#include <unistd.h>
#include <vector>

#include "driver/run.h"
#include "base/random.h"
#include "em_fixture.h"
#include "model/ic.h"

namespace {

// The EM driver: fits with known answers, the stopping and annealing rules,
// restarts, the numerical stop of the initialisation, and the AutoClass rules.
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
  // One name for this process and the death check's child, which writes it.
  std::string log = "/tmp/vesk_em_test_uninvertible_start.log";
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
  EXPECT_NEAR(model.smooth.c, 0.2L, 1e-18L);
  EXPECT_NEAR(model.smooth.tau, 0.2L, 1e-18L);
  EXPECT_NEAR(model.smooth.w[0], 0.25L, 1e-18L);
  EXPECT_EQ(model.smooth.w[1], 0.7L);
  EXPECT_EQ(model.smooth.any + model.smooth.strict, 2);
  // With a class constant of 0 the fit is MAP but not strict.
  settings.mode_smooth_auto_c = 1;
  settings.smooth_c = 0;
  set_smooth_auto();
  EXPECT_EQ(model.smooth.any, 1);
  EXPECT_EQ(model.smooth.strict, 0);
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

// M-step edge cases and the log prior, against values worked out by hand.
TEST(MStep, CovarianceClampKeepsSignOffDiagonal) {
  // Group 0 (3-d) gets tiny off-diagonal entries, group 1 (1-d) a tiny
  // negative variance; with U = 0 and N_k = 1, S = Q.
  em_fixture::load(1, 4, "0-2#3", "0,0,0,0\n");
  model.expect_c[0] = 1;
  Matrix q = model.expect_s[0][0];
  q[0][0] = q[1][1] = q[2][2] = 1;
  q[0][1] = 5e-13L;
  q[0][2] = -5e-13L;
  q[1][2] = 2e-12L;
  model.expect_s[0][1][0][0] = -5e-13L;
  update_param();
  Matrix s = model.param_s[0][0];
  EXPECT_EQ(s[0][1], 1e-12L);
  EXPECT_EQ(s[0][2], -1e-12L);
  EXPECT_EQ(s[1][2], 2e-12L);  // above the floor: unchanged
  EXPECT_EQ(s[2][0], -1e-12L); // mirrored into the lower triangle
  EXPECT_EQ(model.param_s[0][1][0][0], 1e-12L);
  em_fixture::unload();
}

// K = 2, N = 10, N_1 = 7: c_1 = (7 + 1) / (2 + 10) with s_c = 1 (or a file
// pseudo count of 2), 7 / 10 without smoothing. An attribute missing in 3
// cases with w_old = (0.5, 0.5) adds 1.5 to each value's count.
TEST(MStep, ClassAndValueProbabilitiesInEveryMode) {
  em_fixture::load(2, 1, nullptr, "a,6\nb,1\n?,3\n");
  alloc_hparam_read();
  struct Case {
    int file;
    long double smooth;  // s_c = s_a, or the file pseudo counts minus one
    long double c0, w0;
  };
  const Case table[] = {{0, 0, 0.7L, (2 + 1.5L) / 6},
                        {0, 1, 8.0L / 12, (1 + 2 + 1.5L) / 8},
                        {1, 1, 8.0L / 12, (1 + 2 + 1.5L) / 8}};
  for (const Case &tc : table) {
    settings.mode_read_hparam = tc.file;
    model.smooth.c = model.smooth.w[0] = tc.file ? 0 : tc.smooth;
    for (int k = 0; k < 2; k++) {
      model.hparam_c[k] = model.hparam_w[k][0][0] = model.hparam_w[k][0][1] = tc.smooth + 1;
      model.param_w[k][0][0] = model.param_w[k][0][1] = 0.5L;
    }
    model.expect_c[0] = 7;
    model.expect_c[1] = 3;
    model.expect_w[0][0][0] = 2;
    model.expect_w[0][0][1] = 1;
    update_param();
    EXPECT_NEAR(model.param_c[0], tc.c0, 1e-18L) << tc.file << tc.smooth;
    EXPECT_NEAR(model.param_w[0][0][0], tc.w0, 1e-18L) << tc.file << tc.smooth;
    EXPECT_NEAR(model.param_w[0][0][0] + model.param_w[0][0][1], 1.0L, 1e-18L);
  }
  settings.mode_read_hparam = 0;
  release_hparam_read();
  em_fixture::unload();
}

TEST(MStep, MapMeanOfEmptyClassIsPriorMean) {
  em_fixture::load(2, 2, "-", "1,2\n3,1\n");
  model.smooth.gauss = 1;
  model.smooth.tau = 0.5L;
  for (int k = 0; k < 2; k++) {
    model.hparam_u[k][0][0] = -1;
    model.hparam_u[k][0][1] = 4;
    model.hparam_s[k][0][0][0] = model.hparam_s[k][0][1][1] = 2;
  }
  // Class 0 has everything, class 1 nothing.
  model.expect_c[0] = 2;
  model.expect_u[0][0][0] = 4;
  model.expect_u[0][0][1] = 3;
  model.expect_s[0][0][0][0] = 10;
  model.expect_s[0][0][0][1] = 5;
  model.expect_s[0][0][1][1] = 5;
  update_param();
  EXPECT_NEAR(model.param_u[1][0][0], -1.0L, 1e-18L);
  EXPECT_NEAR(model.param_u[1][0][1], 4.0L, 1e-18L);
  // Empty class: S = H / (alpha - d) with alpha = d + 1e-6.
  EXPECT_NEAR(model.param_s[1][0][0][0], 2 / 1e-6L, 1e-3L);
  // Class 0: mu = (U + tau m) / (N + tau).
  EXPECT_NEAR(model.param_u[0][0][0], (4 + 0.5L * -1) / 2.5L, 1e-18L);
  EXPECT_NEAR(model.param_u[0][0][1], (3 + 0.5L * 4) / 2.5L, 1e-18L);
  em_fixture::unload();
}

TEST(LogPrior, DirichletTermsMatchClosedForm) {
  em_fixture::load(3, 1, nullptr, "a\nb\nc\nd\n");
  const long double c[3] = {0.2L, 0.3L, 0.5L};
  for (int k = 0; k < 3; k++) {
    model.param_c[k] = c[k];
    for (int v = 0; v < 4; v++) model.param_w[k][0][v] = (v + 1) / 10.0L;
  }
  model.smooth.c = 0.5L;
  model.smooth.w[0] = 2;
  // log Dir(c; 1.5, 1.5, 1.5) + 3 log Dir(w; 3, 3, 3, 3), by std::lgamma.
  long double expect = std::lgamma(4.5) - 3 * std::lgamma(1.5);
  for (int k = 0; k < 3; k++) expect += 0.5L * logl(c[k]);
  for (int k = 0; k < 3; k++) {
    expect += std::lgamma(12.0) - 4 * std::lgamma(3.0);
    for (int v = 0; v < 4; v++) expect += 2 * logl((v + 1) / 10.0L);
  }
  EXPECT_NEAR(compute_log_prior(), expect, 1e-12L);
  // Without smoothing the class term vanishes and only the normalisers of
  // the attribute term remain (lngamma(4) - 4 lngamma(1) per class).
  model.smooth.c = 0;
  model.smooth.w[0] = 0;
  EXPECT_NEAR(compute_log_prior(), 3 * std::lgamma(4.0), 1e-12L);
  em_fixture::unload();
}

// A NaN or infinite score stops with the function's own message.
TEST(LogPrior, NonFiniteScoresStop) {
  struct Case {
    long double c0;        // class probability put into the model
    bool prior;            // which score is computed
    const char *message;
  };
  const Case table[] = {
      {-1, true, "Numerical error \\(compute_log_prior\\): Computed log-prior is not a number -- see the log file\n"},
      {0, true, "Numerical error \\(compute_log_prior\\): Computed log-prior is not finite -- see the log file\n"},
      {-1, false, "Numerical error \\(compute_loglike\\): Computed log-likelihood is not a number -- see the log file\n"},
      {0, false, "Numerical error \\(compute_loglike\\): Computed log-likelihood is not finite -- see the log file\n"},
  };
  em_fixture::load(2, 1, nullptr, "a\n");
  model.smooth.c = 1;
  for (const Case &tc : table) {
    model.param_c[0] = tc.c0;
    model.prob_incomp[0] = tc.c0;
    EXPECT_EXIT(tc.prior ? compute_log_prior() : compute_loglike(), ::testing::ExitedWithCode(1), tc.message);
  }
  em_fixture::unload();
}

// Model scores: the BIC parameter count and formula, and the Cheeseman-Stutz
// score of one class against exact marginal likelihoods.
TEST(Bic, FreeParameterCount) {
  // One discrete attribute with 3 values, one 2-d group, K = 4: 3 + 8 + 12.
  em_fixture::load(4, 3, "1-2", "a,0,1\nb,1,0\nc,2,2\n");
  EXPECT_EQ(count_free_params(), 23);
  em_fixture::unload();
}

TEST(Bic, ScoreIsLogLikelihoodMinusPenalty) {
  // Two discrete attributes (2 and 3 values), 3 + 2 + 5 = 10 cases, K = 2:
  // P = 1 + 2 + 4 = 7. Uniform value probabilities give P(x) = 1/6 for every case.
  em_fixture::load(2, 2, nullptr, "a,x,3\nb,y,2\na,z,5\n");
  model.param_c[0] = 0.3L;
  model.param_c[1] = 0.7L;
  for (int k = 0; k < 2; k++)
    for (int a = 0; a < 2; a++)
      for (int v = 0; v < cases.num_word[a]; v++) model.param_w[k][a][v] = 1.0L / cases.num_word[a];
  EXPECT_NEAR(compute_bic(), 10 * logl(1 / 6.0L) - 0.5L * 7 * logl(10.0L), 1e-14L);
  em_fixture::unload();
}

// With one class nothing is latent (L = C), so the score is the exact log
// marginal likelihood of the data.
TEST(CheesemanStutz, OneDiscreteClassIsTheDirichletMultinomialMarginal) {
  em_fixture::load(1, 2, nullptr, "a,x,3\nb,y,1\nc,y,2\na,y,1\n");
  model.smooth.c = 0.5L;
  model.smooth.w[0] = 0.25L;
  model.smooth.w[1] = 1.5L;
  model.param_c[0] = 1;
  const long double w0[3] = {4 / 7.0L, 1 / 7.0L, 2 / 7.0L}, w1[2] = {3 / 7.0L, 4 / 7.0L};
  for (int v = 0; v < 3; v++) model.param_w[0][0][v] = w0[v];
  for (int v = 0; v < 2; v++) model.param_w[0][1][v] = w1[v];
  auto dm = [](const std::vector<double> &n, double b) {
    double total = 0, r = 0;
    for (double x : n) total += x, r += std::lgamma(b + x) - std::lgamma(b);
    return r + std::lgamma(n.size() * b) - std::lgamma(total + n.size() * b);
  };
  EXPECT_NEAR(compute_cs(), dm({4, 1, 2}, 1.25) + dm({3, 4}, 2.5) + dm({7}, 1.5), 1e-12L);
  em_fixture::unload();
}

// The Normal-Wishart marginal of a 1-d group, checked by the chain rule: the
// product of the Student-t predictive densities of the cases taken in turn.
TEST(CheesemanStutz, OneGaussianClassIsTheNormalWishartMarginal) {
  const std::vector<long double> xs = {1.0L, 2.5L, 2.5L, -0.5L};
  em_fixture::load(1, 1, "0", "1\n2.5,2\n-0.5\n");
  long double kappa = 0.5L, nu = 3.0L, m = 0.7L, s = 2.0L;
  model.smooth.tau = kappa;
  settings.alpha_w = nu;
  model.hparam_u[0][0][0] = m;
  model.hparam_s[0][0][0][0] = s;
  model.param_c[0] = 1;
  model.param_u[0][0][0] = 1.1L;
  model.param_s[0][0][0][0] = 1.7L;
  ASSERT_EQ(refresh_precisions(), 0);
  long double expect = 0;
  for (long double x : xs) {
    long double scale2 = s * (kappa + 1) / (kappa * nu), z = (x - m) * (x - m) / (nu * scale2);
    expect += lgammal((nu + 1) / 2) - lgammal(nu / 2) - 0.5L * logl(nu * 3.14159265358979323846L * scale2) -
              (nu + 1) / 2 * log1pl(z);
    s += kappa / (kappa + 1) * (x - m) * (x - m);
    m = (kappa * m + x) / (kappa + 1);
    kappa += 1;
    nu += 1;
  }
  model.smooth.c = 1.0L;  // the class part of a single class is 0 for any constant
  EXPECT_NEAR(compute_cs(), expect, 1e-9L);
  em_fixture::unload();
}

// A score that is not a number stops the run.
TEST(CheesemanStutzDeathTest, NotANumberIsFatal) {
  em_fixture::load(2, 1, "0", "1\n2\n");
  model.smooth.c = model.smooth.tau = 1.0L;
  model.param_c[0] = 1;  // class 1 gets no case: its Gaussian marginal is 0/0
  for (int k = 0; k < 2; k++) model.param_s[k][0][0][0] = model.hparam_s[k][0][0][0] = 1;
  ASSERT_EQ(refresh_precisions(), 0);
  EXPECT_EXIT(compute_cs(), ::testing::ExitedWithCode(1),
              "^Numerical error \\(check_cs\\): Computed Cheeseman-Stutz score is not a number\n$");
  em_fixture::unload();
}

}  // namespace
