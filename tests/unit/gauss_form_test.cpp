// Prepared Gaussian densities for every dimension and every pattern of
// observed components against an independent Cholesky evaluation, and the
// faults of the forms.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "model/gauss.h"
#include "pooled_values.h"
#include "reference_estep.h"

namespace {

// log N(x_o; mu_o, S_oo) over the observed components o through the Cholesky
// factor L of S_oo: log det = 2 sum log L_ii, the quadratic form |L^-1 (x_o - mu_o)|^2.
long double cholesky_density(const long double *x, const long double *mu, long double *const *s,
                             const std::vector<int> &observed) {
  std::vector<int> o;
  for (size_t i = 0; i < observed.size(); i++)
    if (observed[i]) o.push_back(static_cast<int>(i));
  size_t d = o.size();
  std::vector<std::vector<long double>> l(d, std::vector<long double>(d, 0));
  long double logdet = 0, q = 0;
  std::vector<long double> z(d);
  for (size_t j = 0; j < d; j++) {
    long double t = s[o[j]][o[j]];
    for (size_t k = 0; k < j; k++) t -= l[j][k] * l[j][k];
    l[j][j] = sqrtl(t);
    for (size_t i = j + 1; i < d; i++) {
      long double u = s[o[i]][o[j]];
      for (size_t k = 0; k < j; k++) u -= l[i][k] * l[j][k];
      l[i][j] = u / l[j][j];
    }
    long double v = x[o[j]] - mu[o[j]];
    for (size_t k = 0; k < j; k++) v -= l[j][k] * z[k];
    z[j] = v / l[j][j];
    q += z[j] * z[j];
    logdet += 2 * logl(l[j][j]);
  }
  return -0.5L * (q + logdet + d * logl(2 * 3.14159265358979323846264338327950288L));
}

using GaussFormTest = PooledTest;

TEST_F(GaussFormTest, EveryDimensionAndPatternOfObservedComponents) {
  for (int d : {1, 2, 3, 4, 5, 6, 7, 8, 9, 40}) {
    // S = A A' + I/2 with A from a fixed stream.
    reference::Lcg r{100ULL + d};
    Vector x = zeros(d), mu = zeros(d);
    Matrix s = mat(d, d), p = mat(d, d), a = mat(d, d);
    for (int i = 0; i < d; i++) {
      x[i] = 3 * (r.next() - 0.5L);
      mu[i] = r.next() - 0.5L;
      for (int j = 0; j < d; j++) a[i][j] = r.next() - 0.5L;
    }
    for (int i = 0; i < d; i++)
      for (int j = 0; j < d; j++) {
        s[i][j] = i == j ? 0.5L : 0.0L;
        for (int k = 0; k < d; k++) s[i][j] += a[i][k] * a[j][k];
      }
    long double det = invert_c(s, p);
    GaussForm f;
    prepare_gauss_prec(&f, mu, s, p, det);
    long double got = lgauss_form(f, x), want = cholesky_density(x, mu, s, std::vector<int>(d, 1));
    EXPECT_NEAR(got, want, 1e-15L * (1 + fabsl(want))) << d;
    // Every pattern up to 7 dimensions (the first one complete), beyond only the complete one.
    int patterns = d <= 7 ? (1 << d) - 1 : 1;
    for (int m = 0; m < patterns; m++) {
      std::vector<int> obs(d, 1);
      for (int i = 0; i < d && m > 0; i++) obs[i] = (((1 << d) - 1 - m) >> i) & 1;
      prepare_gauss_marginal(&f, mu, s, obs.data());
      ASSERT_EQ(lgauss_form_checked(f, x, &got), GAUSS_OK);
      want = cholesky_density(x, mu, s, obs);
      EXPECT_NEAR(got, want, 1e-15L * (1 + fabsl(want))) << d << " " << m;
    }
  }
}

TEST_F(GaussFormTest, Faults) {
  // Observed block [[1, 2, 0], [2, 1, 0], [0, 0, 1]]: a negative Cholesky
  // pivot, although its closed-form inverse exists.
  Matrix bad = mat(4, 4, {1, 2, 0, 0, 2, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1});
  Vector z = zeros(4);
  const int three[4] = {1, 1, 1, 0};
  GaussForm f;
  prepare_gauss_marginal(&f, z, bad, three);
  long double r = 0;
  EXPECT_EQ(lgauss_form_checked(f, z, &r), GAUSS_SINGULAR);
  // A negative variance gives not-a-number; a far point under a tiny one
  // overflows the quadratic term.
  Vector one = vec({0}), far = vec({1e10L});
  prepare_gauss_prec(&f, one, mat(1, 1, {-1}), nullptr, 0);
  EXPECT_EQ(lgauss_form_checked(f, one, &r), GAUSS_NAN);
  prepare_gauss_prec(&f, one, mat(1, 1, {1e-4930L}), nullptr, 0);
  EXPECT_EQ(lgauss_form_checked(f, far, &r), GAUSS_INF);
  EXPECT_EQ(lgauss_form_checked(f, one, &r), GAUSS_OK);
}

}  // namespace
