// The plain (exponentiated) forms of the densities that no phase of a run
// uses yet: the conditional density of the missing components, the density
// of weighted statistics, and the Wishart density with given determinants,
// against the formulas written out in the test.
#include <gtest/gtest.h>

#include <cmath>

#include "base/allocate_matrix.h"
#include "model/gauss.h"
#include "model/wishart.h"
#include "gauss_reference.h"
#include "test_util.h"

namespace {

class GaussPlain : public ::testing::Test {
 protected:
  void SetUp() override { setup_process_state(); }
};

// x1 given x0 under a bivariate normal: mean mu1 + s01 / s00 (x0 - mu0),
// variance s11 - s01^2 / s00.
TEST_F(GaussPlain, ConditionalDensityOfTheMissingComponent) {
  Vector x = alloc_vector(2), mu = alloc_vector(2);
  Matrix s = alloc_matrix(2, 2);
  x[0] = 1.5L, x[1] = -0.25L;
  mu[0] = 0.5L, mu[1] = 1;
  s[0][0] = 2, s[0][1] = s[1][0] = 0.8L, s[1][1] = 1.5L;
  const int observed[2] = {1, 0};
  long double m = 1 + 0.8L / 2 * (1.5L - 0.5L), v = 1.5L - 0.8L * 0.8L / 2;
  EXPECT_NEAR(gauss_cond(x, mu, s, observed), expl(gauss_ref::log_normal1(-0.25L, m, v)), 1e-15L);
  EXPECT_NEAR(logl(gauss_cond(x, mu, s, observed)), lgauss_cond(x, mu, s, observed), 1e-14L);
  release_vector0(x);
  release_vector0(mu);
  release_matrix0(s);
}

// Three weighted points of a diagonal three-dimensional normal: the density
// of the statistics is the product of the weighted one-dimensional densities.
TEST_F(GaussPlain, DensityOfWeightedStatistics) {
  const long double pts[3][3] = {{0.1L, 1, -1}, {0.4L, 0.5L, 0}, {-0.2L, 1.5L, 0.5L}};
  const long double w[3] = {0.5L, 1, 0.25L}, mean[3] = {0.1L, 1, -0.5L}, var[3] = {0.5L, 2, 1};
  Vector sum = alloc_clear_vector(3), mu = alloc_vector(3);
  Matrix q = alloc_clear_matrix(3, 3), s = alloc_clear_matrix(3, 3), p = alloc_clear_matrix(3, 3);
  long double n = 0, want = 0, det = 1;
  for (int i = 0; i < 3; i++) {
    mu[i] = mean[i];
    s[i][i] = var[i];
    p[i][i] = 1 / var[i];
    det *= var[i];
  }
  for (int e = 0; e < 3; e++) {
    n += w[e];
    for (int i = 0; i < 3; i++) {
      sum[i] += w[e] * pts[e][i];
      for (int j = 0; j < 3; j++) q[i][j] += w[e] * pts[e][i] * pts[e][j];
      want += w[e] * gauss_ref::log_normal1(pts[e][i], mean[i], var[i]);
    }
  }
  EXPECT_NEAR(gauss_stat(n, sum, q, mu, s), expl(want), 1e-15L * expl(want));
  EXPECT_NEAR(gauss_stat_prec(n, sum, q, mu, s, p, det), expl(want), 1e-15L * expl(want));
  for (Vector v : {sum, mu}) release_vector0(v);
  for (Matrix m : {q, s, p}) release_matrix0(m);
}

// W(x; v, nu) in one dimension, and a 2x2 precision, from given determinants.
TEST_F(GaussPlain, WishartDensityWithGivenDeterminants) {
  Matrix x = alloc_matrix(1, 1), v = alloc_matrix(1, 1), v_inv = alloc_matrix(1, 1);
  x[0][0] = 0.8L, v[0][0] = 0.5L, v_inv[0][0] = 2;
  EXPECT_NEAR(wishart_det(x, v, v_inv, 0.8L, 0.5L, 3.5L), expl(gauss_ref::log_wishart1(0.8L, 0.5L, 3.5L)),
              1e-15L);
  gauss_ref::Sym2 x2 = {1.2L, 0.3L, 0.9L}, v2_inv = {2, -0.4L, 1};
  gauss_ref::Sym2 v2 = v2_inv.inverse();
  Matrix X = alloc_matrix(2, 2), V = alloc_matrix(2, 2), Vi = alloc_matrix(2, 2);
  const gauss_ref::Sym2 *src[3] = {&x2, &v2, &v2_inv};
  Matrix dst[3] = {X, V, Vi};
  for (int t = 0; t < 3; t++) {
    dst[t][0][0] = src[t]->a;
    dst[t][0][1] = dst[t][1][0] = src[t]->b;
    dst[t][1][1] = src[t]->c;
  }
  EXPECT_NEAR(wishart_det(X, V, Vi, x2.det(), v2.det(), 4), expl(gauss_ref::log_wishart2(x2, v2_inv, 4)), 1e-15L);
  for (Matrix m : {x, v, v_inv, X, V, Vi}) release_matrix0(m);
}

}  // namespace
