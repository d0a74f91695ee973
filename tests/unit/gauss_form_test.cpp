// Prepared Gaussian densities: the same bits as the formulas evaluated
// directly for every dimension and every pattern of observed components,
// close to an independent Cholesky evaluation, and the faults of the direct
// forms.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <vector>

#include "model/gauss.h"
#include "pooled_values.h"
#include "reference_estep.h"

namespace {

const long double kPi = 3.14159265358979323846264338327950288L;

bool same_bits(long double a, long double b) { return memcmp(&a, &b, 10) == 0; }

// log N(x; mu, S) through the Cholesky factor L: log det S = 2 sum log L_ii
// and the quadratic form is |L^-1 (x - mu)|^2.
long double cholesky_density(const std::vector<long double> &x, const std::vector<long double> &mu,
                             const std::vector<std::vector<long double>> &s) {
  size_t d = x.size();
  std::vector<std::vector<long double>> l(d, std::vector<long double>(d, 0));
  for (size_t j = 0; j < d; j++) {
    long double t = s[j][j];
    for (size_t k = 0; k < j; k++) t -= l[j][k] * l[j][k];
    l[j][j] = sqrtl(t);
    for (size_t i = j + 1; i < d; i++) {
      long double u = s[i][j];
      for (size_t k = 0; k < j; k++) u -= l[i][k] * l[j][k];
      l[i][j] = u / l[j][j];
    }
  }
  long double logdet = 0, q = 0;
  std::vector<long double> z(d);
  for (size_t i = 0; i < d; i++) {
    long double t = x[i] - mu[i];
    for (size_t k = 0; k < i; k++) t -= l[i][k] * z[k];
    z[i] = t / l[i][i];
    q += z[i] * z[i];
    logdet += 2 * logl(l[i][i]);
  }
  return -0.5L * (q + logdet + d * logl(2 * kPi));
}

class GaussFormTest : public PooledTest {
 protected:
  // A d-dimensional problem: S = A A' + I/2 with A from a fixed stream.
  void make(int d, unsigned seed) {
    unsigned long long st = seed;
    auto next = [&st] {
      st = st * 6364136223846793005ULL + 1442695040888963407ULL;
      return static_cast<long double>(st >> 11) / 9007199254740992.0L - 0.5L;
    };
    x = zeros(d);
    mu = zeros(d);
    s = mat(d, d);
    p = mat(d, d);
    std::vector<std::vector<long double>> a(d, std::vector<long double>(d));
    for (int i = 0; i < d; i++) {
      x[i] = 3 * next();
      mu[i] = next();
      for (int j = 0; j < d; j++) a[i][j] = next();
    }
    for (int i = 0; i < d; i++)
      for (int j = 0; j < d; j++) {
        long double t = i == j ? 0.5L : 0.0L;
        for (int k = 0; k < d; k++) t += a[i][k] * a[j][k];
        s[i][j] = t;
      }
    det = invert_c(s, p);
  }

  // The observed parts of x, mu and S as plain arrays for the Cholesky check.
  void observed_parts(const int *obs, std::vector<long double> *xo, std::vector<long double> *mo,
                      std::vector<std::vector<long double>> *so) {
    int d = vector_size(x);
    for (int i = 0; i < d; i++) {
      if (!obs[i]) continue;
      xo->push_back(x[i]);
      mo->push_back(mu[i]);
      so->emplace_back();
      for (int j = 0; j < d; j++)
        if (obs[j]) so->back().push_back(s[i][j]);
    }
  }

  Vector x, mu;
  Matrix s, p;
  long double det;
};

TEST_F(GaussFormTest, FullyObservedEveryDimension) {
  for (int d : {1, 2, 3, 4, 5, 6, 7, 8, 9, 40}) {
    make(d, 100 + d);
    GaussForm f;
    prepare_gauss_prec(&f, mu, s, p, det);
    long double got = lgauss_form(f, x);
    EXPECT_TRUE(same_bits(got, reference::lgauss_prec(x, mu, s, p, det, d))) << d;
    EXPECT_TRUE(same_bits(lgauss_prec(x, mu, s, p, det), got)) << d;
    std::vector<int> all(d, 1);
    std::vector<long double> xo, mo;
    std::vector<std::vector<long double>> so;
    observed_parts(all.data(), &xo, &mo, &so);
    EXPECT_NEAR(got, cholesky_density(xo, mo, so), 1e-15L * (1 + fabsl(got))) << d;
  }
}

TEST_F(GaussFormTest, EveryPatternOfObservedComponents) {
  for (int d : {2, 3, 4, 7}) {
    make(d, 200 + d);
    for (int mask = 1; mask < (1 << d); mask++) {
      std::vector<int> obs(d);
      for (int i = 0; i < d; i++) obs[i] = (mask >> i) & 1;
      GaussForm f;
      prepare_gauss_marginal(&f, mu, s, obs.data());
      long double got = 0;
      ASSERT_EQ(lgauss_form_checked(f, x, &got), GAUSS_OK);
      EXPECT_TRUE(same_bits(got, reference::lgauss_marginal(x, mu, s, obs.data()))) << d << " " << mask;
      EXPECT_TRUE(same_bits(lgauss_marginal(x, mu, s, obs.data()), got));
      std::vector<long double> xo, mo;
      std::vector<std::vector<long double>> so;
      observed_parts(obs.data(), &xo, &mo, &so);
      EXPECT_NEAR(got, cholesky_density(xo, mo, so), 1e-15L * (1 + fabsl(got))) << d << " " << mask;
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
  EXPECT_EXIT(lgauss_marginal(z, z, bad, three), ::testing::ExitedWithCode(1),
              "Numerical error \\(lgauss_mv\\): Failed to invert covariances");
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
