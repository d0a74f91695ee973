#include "model/gauss.h"

#include <gtest/gtest.h>

#include <cmath>
#include <initializer_list>

#include "base/allocate_matrix_aux.h"
#include "base/matrix.h"
#include "test_util.h"

namespace {

const long double LOG_2PI_REF = logl(2.0L * 3.14159265358979323846264338327950288L);

Matrix make_matrix(int rows, int cols, std::initializer_list<long double> values) {
  Matrix m = alloc_matrix(rows, cols);
  auto it = values.begin();
  for (int i = 0; i < rows; i++)
    for (int j = 0; j < cols; j++) m[i][j] = *it++;
  return m;
}

Vector make_vector(std::initializer_list<long double> values) {
  Vector v = alloc_vector(static_cast<int>(values.size()));
  int i = 0;
  for (long double x : values) v[i++] = x;
  return v;
}

long double normal_1d(long double x, long double mu, long double var) {
  return -0.5L * logl(2.0L * 3.14159265358979323846L * var) - (x - mu) * (x - mu) / (2 * var);
}

void expect_close(long double got, long double want, double tol = 1e-14) {
  EXPECT_NEAR(static_cast<double>(got), static_cast<double>(want), tol);
}

class GaussTest : public ::testing::Test {
 protected:
  void SetUp() override { setup_process_state(); }
};

TEST_F(GaussTest, OneDimensionalDensity) {
  Vector x = make_vector({3}), mu = make_vector({1}), zero = make_vector({0});
  Matrix s = make_matrix(1, 1, {4}), one = make_matrix(1, 1, {1});
  expect_close(lgauss(zero, zero, one), -0.5L * LOG_2PI_REF);
  // -1/2 log(8 pi) - (3 - 1)^2 / 8
  expect_close(lgauss(x, mu, s), -0.5L * logl(8 * 3.14159265358979323846L) - 0.5L);
  expect_close(lgauss_prec(x, mu, s, s, 4), lgauss(x, mu, s));
  expect_close(gauss(x, mu, s), expl(lgauss(x, mu, s)), 1e-16);
  for (Vector v : {x, mu, zero}) release_vector0(v);
  for (Matrix m : {s, one}) release_matrix0(m);
}

TEST_F(GaussTest, BivariateClosedFormAgainstTheGeneralFormula) {
  Vector x = make_vector({1.5L, -2}), mu = make_vector({0.5L, 1});
  Matrix s = make_matrix(2, 2, {4, 1.2L, 1.2L, 9});
  // det = 36 - 1.44; inverse = [9, -1.2; -1.2, 4] / det; d = (1, -3)
  long double det = 36 - 1.44L;
  long double q = (9 * 1 + 4 * 9 - 2 * 1.2L * 1 * -3) / det;
  long double want = -0.5L * q - 0.5L * (logl(det) + 2 * LOG_2PI_REF);
  expect_close(lgauss(x, mu, s), want);
  expect_close(lgauss_bv(x, mu, s), want);
  s[1][0] = 1000;  // only the upper off-diagonal element is read
  expect_close(lgauss_bv(x, mu, s), want);

  Matrix diag = make_matrix(2, 2, {4, 0, 0, 9});
  expect_close(lgauss(x, mu, diag), normal_1d(1.5L, 0.5L, 4) + normal_1d(-2, 1, 9));
  for (Vector v : {x, mu}) release_vector0(v);
  for (Matrix m : {s, diag}) release_matrix0(m);
}

TEST_F(GaussTest, ThreeDimensionalWithKnownInverse) {
  // tridiag(-1, 2, -1): det 4, inverse [[3,2,1],[2,4,2],[1,2,3]] / 4;
  // d = (1, 0, -1) gives d' S^-1 d = (3 + 3 - 2) / 4 = 1.
  Matrix s = make_matrix(3, 3, {2, -1, 0, -1, 2, -1, 0, -1, 2});
  Matrix p = make_matrix(3, 3, {0.75L, 0.5L, 0.25L, 0.5L, 1, 0.5L, 0.25L, 0.5L, 0.75L});
  Vector x = make_vector({2, 5, -3}), mu = make_vector({1, 5, -2});
  long double want = -0.5L - 0.5L * (logl(4) + 3 * LOG_2PI_REF);
  expect_close(lgauss(x, mu, s), want);
  expect_close(lgauss_mv(x, mu, s), want);
  expect_close(lgauss_prec(x, mu, s, p, 4), want);
  expect_close(gauss_prec(x, mu, s, p, 4), expl(want), 1e-16);
  for (Vector v : {x, mu}) release_vector0(v);
  for (Matrix m : {s, p}) release_matrix0(m);
}

TEST_F(GaussTest, PrecisionFormMatchesGeneralFormInHigherDimensions) {
  const int d = 40;  // beyond the stack scratch size as well
  Matrix s = alloc_clear_matrix(d, d), p = alloc_matrix(d, d);
  Vector x = alloc_vector(d), mu = alloc_vector(d);
  for (int i = 0; i < d; i++) {
    s[i][i] = 2 + 0.1L * i;
    if (i + 1 < d) s[i][i + 1] = s[i + 1][i] = 0.5L;
    x[i] = 0.3L * i;
    mu[i] = 0.25L * i - 1;
  }
  for (int n : {4, 5, 40}) {
    Matrix sn = alloc_matrix(n, n), pn = alloc_matrix(n, n);
    Vector xn = alloc_vector(n), mun = alloc_vector(n);
    for (int i = 0; i < n; i++) {
      xn[i] = x[i];
      mun[i] = mu[i];
      for (int j = 0; j < n; j++) sn[i][j] = s[i][j];
    }
    long double det = invert_c(sn, pn);
    EXPECT_EQ(lgauss_prec(xn, mun, sn, pn, det), lgauss(xn, mun, sn)) << n;
    for (Vector v : {xn, mun}) release_vector0(v);
    for (Matrix m : {sn, pn}) release_matrix0(m);
  }
  for (Vector v : {x, mu}) release_vector0(v);
  for (Matrix m : {s, p}) release_matrix0(m);
}

TEST_F(GaussTest, MarginalDensities) {
  Matrix s = make_matrix(3, 3, {4, 1, 0.5L, 1, 3, -0.4L, 0.5L, -0.4L, 2});
  Vector x = make_vector({1, 2, -1}), mu = make_vector({0, 1.5L, 0.5L});
  const int all[3] = {1, 1, 1}, middle[3] = {0, 1, 0}, outer[3] = {1, 0, 1};
  EXPECT_EQ(lgauss_marginal(x, mu, s, all), lgauss(x, mu, s));
  expect_close(lgauss_marginal(x, mu, s, middle), normal_1d(2, 1.5L, 3));
  // components 0 and 2: covariance [[4, .5], [.5, 2]], det 7.75, d = (1, -1.5)
  long double q = (2 * 1 + 4 * 2.25L - 2 * 0.5L * 1 * -1.5L) / 7.75L;
  expect_close(lgauss_marginal(x, mu, s, outer), -0.5L * q - 0.5L * (logl(7.75L) + 2 * LOG_2PI_REF));
  expect_close(gauss_marginal(x, mu, s, middle), expl(normal_1d(2, 1.5L, 3)), 1e-16);
  for (Vector v : {x, mu}) release_vector0(v);
  release_matrix0(s);
}

TEST_F(GaussTest, ConditionalDensities) {
  // 2-d: x1 | x0 ~ N(mu1 + 1.2/4 (x0 - mu0), 9 - 1.44/4)
  Matrix s2 = make_matrix(2, 2, {4, 1.2L, 1.2L, 9});
  Vector x2 = make_vector({1.5L, -2}), mu2 = make_vector({0.5L, 1});
  const int first[2] = {1, 0};
  expect_close(lgauss_cond(x2, mu2, s2, first), normal_1d(-2, 1 + 0.3L * 1, 9 - 0.36L));

  // 3-d tridiagonal, observing 0 and 2: x1 | x0, x2 has mean
  // mu1 - (x0 - mu0)/2 - (x2 - mu2)/2 and variance 2 - 1/2 - 1/2 = 1.
  Matrix s3 = make_matrix(3, 3, {2, -1, 0, -1, 2, -1, 0, -1, 2});
  Vector x3 = make_vector({2, 0.5L, -1}), mu3 = make_vector({1, 0, 0});
  const int outer[3] = {1, 0, 1};
  expect_close(lgauss_cond(x3, mu3, s3, outer), normal_1d(0.5L, -0.5L + 0.5L, 1));
  expect_close(gauss_cond(x3, mu3, s3, outer), expl(normal_1d(0.5L, 0, 1)), 1e-16);

  // Chain rule: marginal of the observed part plus conditional of the rest.
  Matrix s = make_matrix(4, 4, {4, 1, 0.5L, 0.2L, 1, 3, -0.4L, 0.1L, 0.5L, -0.4L, 2, 0.3L,
                                0.2L, 0.1L, 0.3L, 5});
  Vector x = make_vector({1, 2, -1, 0.5L}), mu = make_vector({0, 1.5L, 0.5L, -1});
  const int patterns[3][4] = {{1, 0, 1, 0}, {0, 1, 1, 1}, {1, 0, 0, 0}};
  for (const auto &obs : patterns)
    expect_close(lgauss_marginal(x, mu, s, obs) + lgauss_cond(x, mu, s, obs), lgauss(x, mu, s),
                 1e-13);
  for (Vector v : {x2, mu2, x3, mu3, x, mu}) release_vector0(v);
  for (Matrix m : {s2, s3, s}) release_matrix0(m);
}

TEST_F(GaussTest, StatisticsFormsSumTheWeightedDensities) {
  const long double w[3] = {2, 1, 0.5L};
  const long double pts[3][3] = {{1, 2, -1}, {0, 0.5L, 0.5L}, {-1, 1, 2}};
  Matrix s = make_matrix(3, 3, {4, 1, 0.5L, 1, 3, -0.4L, 0.5L, -0.4L, 2});
  Vector mu = make_vector({0.2L, 1, 0.3L});
  for (int d : {1, 3}) {
    Vector sum = alloc_clear_vector(d), muv = alloc_vector(d), x = alloc_vector(d);
    Matrix q = alloc_clear_matrix(d, d), sd = alloc_matrix(d, d), pd = alloc_matrix(d, d);
    long double n = 0, want = 0;
    for (int i = 0; i < d; i++) {
      muv[i] = mu[i];
      for (int j = 0; j < d; j++) sd[i][j] = s[i][j];
    }
    for (int k = 0; k < 3; k++) {
      for (int i = 0; i < d; i++) x[i] = pts[k][i];
      n += w[k];
      for (int i = 0; i < d; i++) {
        sum[i] += w[k] * x[i];
        for (int j = 0; j < d; j++) q[i][j] += w[k] * x[i] * x[j];
      }
      want += w[k] * lgauss(x, muv, sd);
    }
    long double det = invert_c(sd, pd);
    expect_close(lgauss_stat(n, sum, q, muv, sd), want, 1e-13);
    expect_close(lgauss_stat_prec(n, sum, q, muv, sd, pd, det), want, 1e-13);
    expect_close(gauss_stat(n, sum, q, muv, sd), expl(want), 1e-13);
    if (d == 3) expect_close(lgauss_stat_mv_prec(n, sum, q, muv, pd, det), want, 1e-13);
    for (Vector v : {sum, muv, x}) release_vector0(v);
    for (Matrix m : {q, sd, pd}) release_matrix0(m);
  }
  release_vector0(mu);
  release_matrix0(s);
}

TEST_F(GaussTest, BivariateStatisticsFormLeavesOutCrossTerms) {
  // Two points (1, 2) and (-1, 0), unit weights: n = 2, s = (0, 2),
  // Q = [[2, 2], [2, 4]]; mean (0, 1).
  Vector sum = make_vector({0, 2}), mu = make_vector({0, 1});
  Matrix q = make_matrix(2, 2, {2, 2, 2, 4});
  Matrix s = make_matrix(2, 2, {2, 0.5L, 0.5L, 1});
  // det 1.75; P = [[1, -0.5], [-0.5, 2]] / 1.75. Diagonal terms only:
  // P00 (2 - 0 + 0) + P11 (4 - 4 + 2) = (2 + 4) / 1.75
  long double want = -0.5L * (6 / 1.75L) - 2 * (LOG_2PI_REF + 0.5L * logl(1.75L));
  expect_close(lgauss_stat(2, sum, q, mu, s), want);
  Matrix p = alloc_matrix(2, 2);
  long double det = invert_c(s, p);
  expect_close(lgauss_stat_prec(2, sum, q, mu, s, p, det), want);
  // With a diagonal covariance the form is the exact log-likelihood.
  Matrix diag = make_matrix(2, 2, {2, 0, 0, 1});
  Vector a = make_vector({1, 2}), b = make_vector({-1, 0});
  expect_close(lgauss_stat(2, sum, q, mu, diag), lgauss(a, mu, diag) + lgauss(b, mu, diag));
  for (Vector v : {sum, mu, a, b}) release_vector0(v);
  for (Matrix m : {q, s, p, diag}) release_matrix0(m);
}

void density_of_negative_variance() {
  Vector x = make_vector({0}), mu = make_vector({0});
  Matrix s = make_matrix(1, 1, {-1});
  lgauss(x, mu, s);
}

void density_that_overflows() {
  Vector x = make_vector({1e4000L}), mu = make_vector({0});
  Matrix s = make_matrix(1, 1, {1});
  gauss(x, mu, s);
}

// det 1 but not positive definite
void density_of_indefinite_covariance() {
  Vector x = make_vector({0, 0, 0}), mu = make_vector({0, 0, 0});
  Matrix s = make_matrix(3, 3, {-1, 0, 0, 0, -1, 0, 0, 0, 1});
  lgauss(x, mu, s);
}

void conditional_on_indefinite_block() {
  Vector x = make_vector({0, 0, 0, 0, 0}), mu = make_vector({0, 0, 0, 0, 0});
  Matrix s = alloc_clear_matrix(5, 5);
  set_diag(s, 1);
  s[0][1] = s[1][0] = 2;
  const int obs[5] = {1, 1, 1, 1, 0};
  lgauss_cond(x, mu, s, obs);
}

TEST(GaussDeathTest, NumericalFailures) {
  setup_process_state();
  EXPECT_EXIT(density_of_negative_variance(), ::testing::ExitedWithCode(1),
              "^Numerical error \\(check_gauss\\): Computed Gaussian p.d.f. is not a number\n$");
  EXPECT_EXIT(density_that_overflows(), ::testing::ExitedWithCode(1),
              "^Numerical error \\(check_gauss\\): Computed Gaussian p.d.f. is not finite\n$");
  EXPECT_EXIT(density_of_indefinite_covariance(), ::testing::ExitedWithCode(1),
              "^Numerical error \\(lgauss_mv\\): Failed to invert covariances\n$");
  EXPECT_EXIT(
      conditional_on_indefinite_block(), ::testing::ExitedWithCode(1),
      "^Numerical error \\(lgauss_cond\\): Failed to invert the covariances of the observed part$");
}

}  // namespace
