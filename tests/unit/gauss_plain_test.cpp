// The plain (exponentiated) forms of the densities that no phase of a run
// uses yet, against the formulas written out in the test: the conditional
// density of the missing components, the density of weighted statistics, and
// the Wishart density with given determinants.
#include <gtest/gtest.h>

#include <cmath>

#include "gauss_reference.h"
#include "model/gauss.h"
#include "model/wishart.h"
#include "pooled_values.h"

namespace {

using GaussPlain = PooledTest;

TEST_F(GaussPlain, ConditionalStatisticsAndWishartDensities) {
  // x1 given x0 under a bivariate normal: mean mu1 + s01 / s00 (x0 - mu0),
  // variance s11 - s01^2 / s00.
  const int observed[2] = {1, 0};
  long double m = 1 + 0.8L / 2 * (1.5L - 0.5L), v = 1.5L - 0.8L * 0.8L / 2;
  EXPECT_NEAR(gauss_cond(vec({1.5L, -0.25L}), vec({0.5L, 1}), mat(2, 2, {2, 0.8L, 0.8L, 1.5L}), observed),
              expl(gauss_ref::log_normal1(-0.25L, m, v)), 1e-15L);

  // Weights 2 and 0.5 on the points 1.5 and -1 of N(0.5, 2): the weighted
  // product of their densities.
  long double want = 2 * gauss_ref::log_normal1(1.5L, 0.5L, 2) + 0.5L * gauss_ref::log_normal1(-1, 0.5L, 2);
  Vector sum = vec({2 * 1.5L - 0.5L}), mu = vec({0.5L});
  Matrix q = mat(1, 1, {2 * 2.25L + 0.5L}), s = mat(1, 1, {2}), p = mat(1, 1, {0.5L});
  EXPECT_NEAR(gauss_stat(2.5L, sum, q, mu, s), expl(want), 1e-15L * expl(want));
  EXPECT_NEAR(gauss_stat_prec(2.5L, sum, q, mu, s, p, 2), expl(want), 1e-15L * expl(want));

  // W(x; v, nu) of a 2x2 precision.
  gauss_ref::Sym2 x = {1.2L, 0.3L, 0.9L}, v_inv = {2, -0.4L, 1}, vs = v_inv.inverse();
  auto sym = [this](const gauss_ref::Sym2 &a) { return mat(2, 2, {a.a, a.b, a.b, a.c}); };
  EXPECT_NEAR(wishart_det(sym(x), sym(vs), sym(v_inv), x.det(), vs.det(), 4),
              expl(gauss_ref::log_wishart2(x, v_inv, 4)), 1e-15L);
}

}  // namespace
