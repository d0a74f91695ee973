// E-step on tiny hand-made case tables, checked against values worked out
// independently in the test.
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "base/matrix.h"
#include "em_fixture.h"

namespace {

const long double kPi = 3.14159265358979323846264338327950288L;

long double normal_pdf(long double x, long double mu, long double var) {
  return expl(-0.5L * (x - mu) * (x - mu) / var) / sqrtl(2 * kPi * var);
}

// Two classes, one discrete attribute (values a, b) and one 1-d Gaussian.
class TinyMixed : public ::testing::Test {
 protected:
  void SetUp() override {
    em_fixture::load(2, 2, "1", "a,0,2\nb,1,1\na,3,1\n");
    long double c[2] = {0.6L, 0.4L}, w[2][2] = {{0.7L, 0.3L}, {0.2L, 0.8L}}, mu[2] = {0, 2}, var[2] = {1, 4};
    for (int k = 0; k < 2; k++) {
      model.param_c[k] = c[k];
      model.param_w[k][0][0] = w[k][0];
      model.param_w[k][0][1] = w[k][1];
      model.param_u[k][0][0] = mu[k];
      model.param_s[k][0][0][0] = var[k];
    }
    ASSERT_EQ(refresh_precisions(), 0);
    // Hand values: joint P(k, x) = c_k w_k(v) N(x; mu_k, var_k).
    for (int k = 0; k < 2; k++)
      for (int e = 0; e < 3; e++) joint[k][e] = c[k] * w[k][v[e]] * normal_pdf(x[e], mu[k], var[k]);
  }
  void TearDown() override { em_fixture::unload(); }
  const int n[3] = {2, 1, 1}, v[3] = {0, 1, 0};
  const long double x[3] = {0, 1, 3};
  long double joint[2][3];
};

// P(x), P(k | x), the log-likelihood and the expectations of class 0 against
// the hand joint raised to beta, on both scales. The log scale needs strict
// smoothing as well as the option; annealing with beta = 1 reproduces the
// untempered values exactly.
TEST_F(TinyMixed, EStepOnBothScalesAndTemperatures) {
  struct Case {
    int option, strict;
    long double beta;
  };
  const Case table[] = {{0, 0, 1}, {0, 0, 0.5L}, {1, 1, 1}, {1, 1, 0.5L}, {1, 0, 1}};
  for (const Case &tc : table) {
    settings.mode_log_scale = tc.option;
    settings.mode_smooth_strict = tc.strict;
    bool log_scale = tc.option && tc.strict;
    compute_complete_prob();
    long double untempered[2][3];
    for (int k = 0; k < 2; k++)
      for (int e = 0; e < 3; e++) untempered[k][e] = model.prob_comp[k][e];
    model.itemp = tc.beta;
    compute_complete_prob_daem();
    for (int k = 0; k < 2 && tc.beta == 1; k++)
      for (int e = 0; e < 3; e++) EXPECT_EQ(model.prob_comp[k][e], untempered[k][e]) << tc.option << tc.strict;
    compute_incomplete_prob();
    compute_conditional_prob();
    compute_expect();
    long double ll = 0, nk = 0, ew1 = 0, u = 0, q = 0;
    for (int e = 0; e < 3; e++) {
      long double a = powl(joint[0][e], tc.beta), b = powl(joint[1][e], tc.beta), r = a / (a + b);
      EXPECT_NEAR(model.prob_incomp[e], log_scale ? logl(a + b) : a + b, 1e-14L) << tc.option << tc.strict;
      EXPECT_NEAR(model.prob_cond[0][e], r, 1e-14L) << tc.option << tc.strict << " " << tc.beta;
      ll += n[e] * logl(a + b);
      nk += n[e] * r;
      ew1 += v[e] == 1 ? n[e] * r : 0;
      u += n[e] * r * x[e];
      q += n[e] * r * x[e] * x[e];
    }
    EXPECT_NEAR(compute_loglike(), ll, 1e-13L) << tc.option << tc.strict;
    EXPECT_NEAR(model.expect_c[0], nk, 1e-14L);
    EXPECT_NEAR(model.expect_w[0][0][1], ew1, 1e-14L);
    EXPECT_NEAR(model.expect_u[0][0][0], u, 1e-14L);
    EXPECT_NEAR(model.expect_s[0][0][0][0], q, 1e-14L);
  }
}

// The floor of 1e-60: an incomplete probability at or below it gives no
// posterior (and nothing to the expected counts), one just above it does.
TEST_F(TinyMixed, TinyIncompleteProbabilityGivesNoPosterior) {
  const struct {
    long double px;
    bool posterior;
  } table[] = {{1e-61L, false}, {1e-60L, false}, {nextafterl(1e-60L, 1), true}, {1e-52L, true}};
  for (const auto &row : table) {
    compute_complete_prob();
    model.prob_comp[0][1] = row.px;
    model.prob_comp[1][1] = 0;
    compute_incomplete_prob();
    EXPECT_EQ(model.prob_incomp[1], row.px);
    compute_conditional_prob();
    EXPECT_EQ(model.prob_cond[0][1], row.posterior ? 1.0L : 0.0L) << static_cast<double>(row.px);
    EXPECT_EQ(model.prob_cond[1][1], 0.0L);
    compute_expect();
    if (!row.posterior) {
      EXPECT_EQ(model.expect_w[0][0][1] + model.expect_w[1][0][1], 0.0L);
    }
  }
}

TEST(EStepMissing, WhollyMissingCaseGetsClassPrior) {
  em_fixture::load(2, 3, "1-2", "a,0,1\n?,?,?,3\nb,2,-1\n");
  model.param_c[0] = 0.25L;
  model.param_c[1] = 0.75L;
  for (int k = 0; k < 2; k++) {
    model.param_w[k][0][0] = model.param_w[k][0][1] = 0.5L;
    model.param_u[k][0][0] = k;
    model.param_s[k][0][0][0] = model.param_s[k][0][1][1] = 1.0L;
  }
  ASSERT_EQ(refresh_precisions(), 0);
  compute_complete_prob();
  compute_incomplete_prob();
  compute_conditional_prob();
  EXPECT_NEAR(model.prob_comp[0][1], 0.25L, 1e-18L);
  EXPECT_NEAR(model.prob_cond[1][1], 0.75L, 1e-18L);
  // Only the missing case contributes: weight 3 P(1) = 2.25 times the class
  // mean (1, 0) and mu mu' + S = [[2, 0], [0, 1]].
  for (int k = 0; k < 2; k++) model.prob_cond[k][0] = model.prob_cond[k][2] = 0;
  compute_expect_gauss();
  EXPECT_NEAR(model.expect_u[1][0][0], 2.25L, 1e-17L);
  EXPECT_NEAR(model.expect_u[1][0][1], 0.0L, 1e-17L);
  EXPECT_NEAR(model.expect_s[1][0][0][0], 4.5L, 1e-17L);
  EXPECT_NEAR(model.expect_s[1][0][0][1], 0.0L, 1e-17L);
  EXPECT_NEAR(model.expect_s[1][0][1][1], 2.25L, 1e-17L);
  em_fixture::unload();
}

// Imputation of missing Gaussian components by their conditional moments.
// d = 2: mean (1, 2), S = [[2, 0.5], [0.5, 1]]; d = 3: mean 0,
// S = [[2, 0, 0.5], [0, 1, 0], [0.5, 0, 1]].
struct ImputeCase {
  int d;
  std::string x;
  std::vector<long double> mean_hat;      // expected first moment
  std::vector<long double> second_upper;  // expected raw second moment, upper triangle by rows
};

TEST(EStepMissing, ImputesConditionalMoments) {
  const std::vector<ImputeCase> table = {
      // scalar form: x1 = 2 + (3 - 1) 0.5 / 2, var = 1 - 0.25 / 2.
      {2, "3,?", {3, 2.5L}, {9, 7.5L, 6.25L + 0.875L}},
      // one missing: x2 = 0.5 / 2 * 3, var = 1 - 0.25 / 2.
      {3, "3,1,?", {3, 1, 0.75L}, {9, 3, 2.25L, 1, 0.75L, 0.5625L + 0.875L}},
      // two missing: x1 = 0, x2 = 0.75, block [[1, 0], [0, 0.875]].
      {3, "3,?,?", {3, 0, 0.75L}, {9, 0, 2.25L, 1, 0, 0.5625L + 0.875L}},
  };
  const long double s2[2][2] = {{2, 0.5L}, {0.5L, 1}}, s3[3][3] = {{2, 0, 0.5L}, {0, 1, 0}, {0.5L, 0, 1}};
  for (const ImputeCase &tc : table) {
    int d = tc.d;
    em_fixture::load(1, d, "-", tc.x + "\n");
    model.param_c[0] = 1;
    for (int i = 0; i < d; i++) {
      model.param_u[0][0][i] = d == 2 ? i + 1 : 0;
      for (int j = 0; j < d; j++) model.param_s[0][0][i][j] = d == 2 ? s2[i][j] : s3[i][j];
    }
    // A flag left set by an earlier failed inversion must not stop either
    // step: the closed forms used here never clear it themselves.
    matrix_err.err_inv = 1;
    ASSERT_EQ(refresh_precisions(), 0);
    matrix_err.err_inv = 1;
    model.prob_cond[0][0] = 1;
    compute_expect_gauss();
    for (int i = 0, t = 0; i < d; i++) {
      EXPECT_NEAR(model.expect_u[0][0][i], tc.mean_hat[i], 1e-15L) << tc.x << " " << i;
      for (int j = i; j < d; j++, t++)
        EXPECT_NEAR(model.expect_s[0][0][i][j], tc.second_upper[t], 1e-15L) << tc.x << " " << i << j;
    }
    em_fixture::unload();
  }
}

// A singular observed block (1x1 of the scalar form, 2x2 of the general one)
// stops the imputation instead of spreading infinities.
TEST(EStepMissing, SingularObservedBlockStops) {
  for (const std::string x : {"1,?", "1,2,?"}) {
    int d = x == "1,?" ? 2 : 3;
    em_fixture::load(1, d, "-", x + "\n");
    Matrix s = model.param_s[0][0];
    s[d - 1][d - 1] = 1;
    if (d == 3) s[0][0] = s[0][1] = s[1][0] = s[1][1] = 1;
    model.prob_cond[0][0] = 1;
    EXPECT_EXIT(compute_expect_gauss(), ::testing::ExitedWithCode(1),
                "Numerical error \\(compute_expect_gauss0\\): Failed to invert covariances\n") << d;
    em_fixture::unload();
  }
}

}  // namespace
