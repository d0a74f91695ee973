// Model scores: the BIC parameter count and formula, and the Cheeseman-Stutz
// score of one class against exact marginal likelihoods.
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "em_fixture.h"
#include "model/ic.h"

namespace {

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
  settings.smooth_c = 0.5L;
  settings.smooth_w[0] = 0.25L;
  settings.smooth_w[1] = 1.5L;
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
  settings.tau = kappa;
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
  settings.smooth_c = 1.0L;  // the class part of a single class is 0 for any constant
  EXPECT_NEAR(compute_cs(), expect, 1e-9L);
  em_fixture::unload();
}

// A score that is not a number stops the run.
TEST(CheesemanStutzDeathTest, NotANumberIsFatal) {
  em_fixture::load(2, 1, "0", "1\n2\n");
  settings.smooth_c = settings.tau = 1.0L;
  model.param_c[0] = 1;  // class 1 gets no case: its Gaussian marginal is 0/0
  for (int k = 0; k < 2; k++) model.param_s[k][0][0][0] = model.hparam_s[k][0][0][0] = 1;
  ASSERT_EQ(refresh_precisions(), 0);
  EXPECT_EXIT(compute_cs(), ::testing::ExitedWithCode(1),
              "^Numerical error \\(check_cs\\): Computed Cheeseman-Stutz score is not a number\n$");
  em_fixture::unload();
}

}  // namespace
