// M-step edge cases and the log prior, against values worked out by hand.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "em_fixture.h"

namespace {

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
    settings.smooth_c = settings.smooth_w[0] = tc.file ? 0 : tc.smooth;
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
  settings.mode_smooth_gauss = 1;
  settings.tau = 0.5L;
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
  settings.smooth_c = 0.5L;
  settings.smooth_w[0] = 2;
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
  settings.smooth_c = 0;
  settings.smooth_w[0] = 0;
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
  settings.smooth_c = 1;
  for (const Case &tc : table) {
    model.param_c[0] = tc.c0;
    model.prob_incomp[0] = tc.c0;
    EXPECT_EXIT(tc.prior ? compute_log_prior() : compute_loglike(), ::testing::ExitedWithCode(1), tc.message);
  }
  em_fixture::unload();
}

}  // namespace
