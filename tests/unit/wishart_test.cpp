#include "model/wishart.h"

#include <gtest/gtest.h>

#include <cmath>
#include <initializer_list>

#include "base/gamma_f.h"
#include "base/matrix.h"
#include "test_util.h"

namespace {

const double LOG_PI_REF = std::log(M_PI);

Matrix make_matrix(int rows, int cols, std::initializer_list<long double> values) {
  Matrix m = alloc_matrix(rows, cols);
  auto it = values.begin();
  for (int i = 0; i < rows; i++)
    for (int j = 0; j < cols; j++) m[i][j] = *it++;
  return m;
}

// log of the multivariate gamma function, from the C library's lgamma.
double log_multigamma(int d, double a) {
  double s = 0.25 * d * (d - 1) * LOG_PI_REF;
  for (int j = 1; j <= d; j++) s += std::lgamma(a + 0.5 * (1 - j));
  return s;
}

class WishartTest : public ::testing::Test {
 protected:
  void SetUp() override { setup_process_state(); }
};

TEST_F(WishartTest, CoefficientIsTheNormalisingConstant) {
  for (double nu : {1.0, 2.5, 3.000001, 10.0}) {
    EXPECT_NEAR(static_cast<double>(lwishart_coeff(1, nu)),
                static_cast<double>(-(0.5L * nu * logl(2.0L) + lngamma(nu / 2))), 1e-14)
        << nu;
    for (int d : {1, 2, 4}) {
      if (nu <= d - 1) continue;
      EXPECT_NEAR(static_cast<double>(lwishart_coeff(d, nu)),
                  -(0.5 * nu * d * std::log(2.0) + log_multigamma(d, nu / 2)), 1e-12)
          << d << " " << nu;
    }
  }
}

TEST_F(WishartTest, OneDimensionalIsAScaledChiSquare) {
  // X / s ~ chi-square with nu degrees of freedom.
  for (double nu : {1.5, 3.0, 7.0}) {
    const double x = 2.3, s = 0.8;
    Matrix mx = make_matrix(1, 1, {x}), ms = make_matrix(1, 1, {s});
    double want = (nu / 2 - 1) * std::log(x) - x / (2 * s) - (nu / 2) * std::log(2 * s) -
                  std::lgamma(nu / 2);
    EXPECT_NEAR(static_cast<double>(lwishart(mx, ms, nu)), want, 1e-13) << nu;
    EXPECT_NEAR(static_cast<double>(wishart(mx, ms, nu)), std::exp(want), 1e-13) << nu;
    release_matrix0(ms);
    release_matrix0(mx);
  }
}

TEST_F(WishartTest, TwoDimensionalAgainstTheDensityFormula) {
  Matrix x = make_matrix(2, 2, {3, 1, 1, 2});      // det 5
  Matrix s = make_matrix(2, 2, {2, 0.5L, 0.5L, 1});  // det 1.75
  Matrix s_inv = make_matrix(2, 2, {1 / 1.75L, -0.5L / 1.75L, -0.5L / 1.75L, 2 / 1.75L});
  const double nu = 4.5;
  // tr(S^-1 X) = (1*3 - 0.5*1 - 0.5*1 + 2*2) / 1.75 = 6 / 1.75
  double want = 0.5 * (nu - 3) * std::log(5.0) - 0.5 * (6 / 1.75) - nu * std::log(2.0) -
                0.5 * nu * std::log(1.75) - log_multigamma(2, nu / 2);
  EXPECT_NEAR(static_cast<double>(lwishart(x, s, nu)), want, 1e-13);
  EXPECT_NEAR(static_cast<double>(lwishart_det(x, s, s_inv, 5, 1.75L, nu)), want, 1e-13);
  EXPECT_NEAR(static_cast<double>(wishart_det(x, s, s_inv, 5, 1.75L, nu)), std::exp(want), 1e-15);
  for (Matrix m : {x, s, s_inv}) release_matrix0(m);
}

TEST_F(WishartTest, FourDimensionalUsesTheCholeskyDeterminants) {
  // X = 2 I, S = I: log W = (nu - 5)/2 log 16 - 4 - 2 nu log 2 - log Gamma_4(nu/2)
  Matrix x = alloc_clear_matrix(4, 4), s = alloc_clear_matrix(4, 4);
  set_diag(x, 2);
  set_diag(s, 1);
  const double nu = 6;
  double want = 0.5 * (nu - 5) * std::log(16.0) - 4 - 2 * nu * std::log(2.0) -
                log_multigamma(4, nu / 2);
  EXPECT_NEAR(static_cast<double>(lwishart(x, s, nu)), want, 1e-12);
  release_matrix0(s);
  release_matrix0(x);
}

}  // namespace
