#include "model/wishart.h"

#include <gtest/gtest.h>

#include <cmath>

#include "pooled_values.h"

namespace {

// log of the multivariate gamma function, from the C library's lgamma. The
// densities below pin the normalising coefficient as well.
double log_multigamma(int d, double a) {
  double s = 0.25 * d * (d - 1) * std::log(M_PI);
  for (int j = 1; j <= d; j++) s += std::lgamma(a + 0.5 * (1 - j));
  return s;
}

using WishartTest = PooledTest;

TEST_F(WishartTest, OneDimensionalIsAScaledChiSquare) {
  // X / s follows a chi-square with nu degrees of freedom.
  const double x = 2.3, s = 0.8;
  for (double nu : {1.5, 3.0, 7.0}) {
    double want =
        (nu / 2 - 1) * std::log(x) - x / (2 * s) - (nu / 2) * std::log(2 * s) - std::lgamma(nu / 2);
    EXPECT_NEAR(static_cast<double>(lwishart(mat(1, 1, {x}), mat(1, 1, {s}), nu)), want, 1e-13);
  }
}

TEST_F(WishartTest, TwoAndFourDimensionsAgainstTheDensityFormula) {
  Matrix x = mat(2, 2, {3, 1, 1, 2});        // det 5
  Matrix s = mat(2, 2, {2, 0.5L, 0.5L, 1});  // det 1.75
  Matrix s_inv = mat(2, 2, {1 / 1.75L, -0.5L / 1.75L, -0.5L / 1.75L, 2 / 1.75L});
  const double nu = 4.5;
  // tr(S^-1 X) = (1*3 - 0.5*1 - 0.5*1 + 2*2) / 1.75 = 6 / 1.75
  double want = 0.5 * (nu - 3) * std::log(5.0) - 0.5 * (6 / 1.75) - nu * std::log(2.0) -
                0.5 * nu * std::log(1.75) - log_multigamma(2, nu / 2);
  EXPECT_NEAR(static_cast<double>(lwishart(x, s, nu)), want, 1e-13);
  EXPECT_NEAR(static_cast<double>(lwishart_det(x, s, s_inv, 5, 1.75L, nu)), want, 1e-13);

  // X = 2 I, S = I in 4 dimensions (Cholesky determinants):
  // log W = (nu - 5)/2 log 16 - 4 - 2 nu log 2 - log Gamma_4(nu/2)
  want = 0.5 * (6 - 5) * std::log(16.0) - 4 - 2 * 6 * std::log(2.0) - log_multigamma(4, 3);
  EXPECT_NEAR(static_cast<double>(lwishart(diag(4, 2), diag(4, 1), 6)), want, 1e-12);
}

}  // namespace
