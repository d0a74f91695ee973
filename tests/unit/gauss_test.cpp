#include "model/gauss.h"

#include <gtest/gtest.h>

#include <cmath>

#include "pooled_values.h"

namespace {

const long double PI_REF = 3.14159265358979323846264338327950288L;
const long double LOG_2PI_REF = logl(2.0L * PI_REF);

long double normal_1d(long double x, long double mu, long double var) {
  return -0.5L * logl(2.0L * PI_REF * var) - (x - mu) * (x - mu) / (2 * var);
}

void expect_close(long double got, long double want, double tol = 1e-14) {
  EXPECT_NEAR(static_cast<double>(got), static_cast<double>(want), tol);
}

using GaussTest = PooledTest;

TEST_F(GaussTest, ClosedFormsOfOneTwoAndThreeDimensions) {
  Vector zero = vec({0});
  expect_close(lgauss(zero, zero, mat(1, 1, {1})), -0.5L * LOG_2PI_REF);

  // det = 36 - 1.44; inverse [9, -1.2; -1.2, 4] / det; x - mu = (1, -3).
  Matrix s2 = mat(2, 2, {4, 1.2L, 1.2L, 9});
  Vector x2 = vec({1.5L, -2}), mu2 = vec({0.5L, 1});
  long double det2 = 36 - 1.44L, q2 = (9 + 4 * 9 - 2 * 1.2L * -3) / det2;
  long double want2 = -0.5L * q2 - 0.5L * (logl(det2) + 2 * LOG_2PI_REF);
  expect_close(lgauss(x2, mu2, s2), want2);
  s2[1][0] = 1000;  // only the upper off-diagonal element is read
  expect_close(lgauss_bv(x2, mu2, s2), want2);
  expect_close(lgauss(x2, mu2, mat(2, 2, {4, 0, 0, 9})),
               normal_1d(1.5L, 0.5L, 4) + normal_1d(-2, 1, 9));

  // tridiag(-1, 2, -1): det 4, inverse [[3,2,1],[2,4,2],[1,2,3]] / 4;
  // x - mu = (1, 0, -1) gives a quadratic form of (3 + 3 - 2) / 4 = 1.
  Matrix s3 = mat(3, 3, {2, -1, 0, -1, 2, -1, 0, -1, 2});
  Matrix p3 = mat(3, 3, {0.75L, 0.5L, 0.25L, 0.5L, 1, 0.5L, 0.25L, 0.5L, 0.75L});
  Vector x3 = vec({2, 5, -3}), mu3 = vec({1, 5, -2});
  long double want3 = -0.5L - 0.5L * (logl(4) + 3 * LOG_2PI_REF);
  expect_close(lgauss(x3, mu3, s3), want3);
  expect_close(lgauss_prec(x3, mu3, s3, p3, 4), want3);
  expect_close(gauss_prec(x3, mu3, s3, p3, 4), expl(want3), 1e-16);
}

TEST_F(GaussTest, MarginalDensities) {
  Matrix s = mat(3, 3, {4, 1, 0.5L, 1, 3, -0.4L, 0.5L, -0.4L, 2});
  Vector x = vec({1, 2, -1}), mu = vec({0, 1.5L, 0.5L});
  const int all[3] = {1, 1, 1}, middle[3] = {0, 1, 0}, outer[3] = {1, 0, 1};
  EXPECT_EQ(lgauss_marginal(x, mu, s, all), lgauss(x, mu, s));
  expect_close(lgauss_marginal(x, mu, s, middle), normal_1d(2, 1.5L, 3));
  // components 0 and 2: covariance [[4, .5], [.5, 2]], det 7.75, x - mu = (1, -1.5)
  long double q = (2 * 1 + 4 * 2.25L - 2 * 0.5L * 1 * -1.5L) / 7.75L;
  expect_close(lgauss_marginal(x, mu, s, outer),
               -0.5L * q - 0.5L * (logl(7.75L) + 2 * LOG_2PI_REF));
  expect_close(gauss_marginal(x, mu, s, middle), expl(normal_1d(2, 1.5L, 3)), 1e-16);
}

TEST_F(GaussTest, ConditionalDensities) {
  // x1 | x0 ~ N(mu1 + 1.2/4 (x0 - mu0), 9 - 1.44/4)
  Matrix s2 = mat(2, 2, {4, 1.2L, 1.2L, 9});
  Vector x2 = vec({1.5L, -2}), mu2 = vec({0.5L, 1});
  const int first[2] = {1, 0};
  expect_close(lgauss_cond(x2, mu2, s2, first), normal_1d(-2, 1 + 0.3L, 9 - 0.36L));

  // Chain rule: marginal of the observed part plus conditional of the rest.
  Matrix s =
      mat(4, 4, {4, 1, 0.5L, 0.2L, 1, 3, -0.4L, 0.1L, 0.5L, -0.4L, 2, 0.3L, 0.2L, 0.1L, 0.3L, 5});
  Vector x = vec({1, 2, -1, 0.5L}), mu = vec({0, 1.5L, 0.5L, -1});
  const int patterns[3][4] = {{1, 0, 1, 0}, {0, 1, 1, 1}, {1, 0, 0, 0}};
  for (const auto &obs : patterns)
    expect_close(lgauss_marginal(x, mu, s, obs) + lgauss_cond(x, mu, s, obs), lgauss(x, mu, s),
                 1e-13);
}

TEST_F(GaussTest, StatisticsFormsSumTheWeightedDensities) {
  const long double w[3] = {2, 1, 0.5L};
  const long double pts[3][3] = {{1, 2, -1}, {0, 0.5L, 0.5L}, {-1, 1, 2}};
  const long double cov[3][3] = {{4, 1, 0.5L}, {1, 3, -0.4L}, {0.5L, -0.4L, 2}};
  for (int d : {1, 3}) {
    Vector sum = zeros(d), mu = zeros(d), x = zeros(d);
    Matrix q = mat(d, d), s = mat(d, d), p = mat(d, d);
    long double n = 0, want = 0;
    for (int i = 0; i < d; i++) {
      mu[i] = 0.2L + 0.4L * i;
      for (int j = 0; j < d; j++) s[i][j] = cov[i][j];
    }
    for (int k = 0; k < 3; k++) {
      n += w[k];
      for (int i = 0; i < d; i++) {
        x[i] = pts[k][i];
        sum[i] += w[k] * x[i];
        for (int j = 0; j < d; j++) q[i][j] += w[k] * pts[k][i] * pts[k][j];
      }
      want += w[k] * lgauss(x, mu, s);
    }
    long double det = invert_c(s, p);
    expect_close(lgauss_stat(n, sum, q, mu, s), want, 1e-13);
    expect_close(lgauss_stat_prec(n, sum, q, mu, s, p, det), want, 1e-13);
    if (d == 3) expect_close(lgauss_stat_mv_prec(n, sum, q, mu, p, det), want, 1e-13);
  }
}

TEST_F(GaussTest, BivariateStatisticsFormLeavesOutCrossTerms) {
  // Points (1, 2) and (-1, 0) with unit weights: n = 2, s = (0, 2),
  // Q = [[2, 2], [2, 4]]; mean (0, 1).
  Vector sum = vec({0, 2}), mu = vec({0, 1});
  Matrix q = mat(2, 2, {2, 2, 2, 4}), s = mat(2, 2, {2, 0.5L, 0.5L, 1}), p = mat(2, 2);
  // det 1.75, P = [[1, -0.5], [-0.5, 2]] / 1.75; diagonal terms only:
  // P00 (2 - 0 + 0) + P11 (4 - 4 + 2) = (2 + 4) / 1.75
  long double want = -0.5L * (6 / 1.75L) - 2 * (LOG_2PI_REF + 0.5L * logl(1.75L));
  expect_close(lgauss_stat(2, sum, q, mu, s), want);
  long double det = invert_c(s, p);
  expect_close(lgauss_stat_prec(2, sum, q, mu, s, p, det), want);
}

using GaussDeathTest = PooledTest;

TEST_F(GaussDeathTest, NumericalFailures) {
  const char *const not_a_number =
      "^Numerical error \\(check_gauss\\): Computed Gaussian p.d.f. is not a number\n$";
  const char *const not_finite =
      "^Numerical error \\(check_gauss\\): Computed Gaussian p.d.f. is not finite\n$";
  Vector zero1 = vec({0}), zero3 = vec({0, 0, 0});
  Matrix negative = mat(1, 1, {-1}), unit3 = diag(3, 1);
  EXPECT_EXIT(lgauss(zero1, zero1, negative), ::testing::ExitedWithCode(1), not_a_number);
  // The statistics forms check their results as well (here det 0).
  EXPECT_EXIT(lgauss_stat_prec(1, zero3, mat(3, 3), zero3, unit3, unit3, 0),
              ::testing::ExitedWithCode(1), not_finite);
  // det 1 but not positive definite
  EXPECT_EXIT(lgauss(zero3, zero3, mat(3, 3, {-1, 0, 0, 0, -1, 0, 0, 0, 1})),
              ::testing::ExitedWithCode(1),
              "^Numerical error \\(lgauss_mv\\): Failed to invert covariances\n$");
  Matrix s5 = diag(5, 1);
  s5[0][1] = s5[1][0] = 2;
  const int obs[5] = {1, 1, 1, 1, 0};
  EXPECT_EXIT(
      lgauss_cond(zeros(5), zeros(5), s5, obs), ::testing::ExitedWithCode(1),
      "^Numerical error \\(lgauss_cond\\): Failed to invert the covariances of the observed part$");
}

}  // namespace
