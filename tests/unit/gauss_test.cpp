// Gaussian and Wishart densities, the MAP update and the Normal-Wishart log prior.

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "em_fixture.h"
#include "gauss_reference.h"
#include "model/gauss.h"
#include "model/wishart.h"
#include "pooled_values.h"
#include "reference_estep.h"

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

// Prepared Gaussian densities for every dimension and every pattern of
// observed components against an independent Cholesky evaluation, and the
// faults of the forms.
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

// log of the multivariate gamma function, from the C library's lgamma. The
// densities below pin the normalising coefficient as well.
double log_multigamma(int d, double a) {
  double s = 0.25 * d * (d - 1) * std::log(M_PI);
  for (int j = 1; j <= d; j++) s += std::lgamma(a + 0.5 * (1 - j));
  return s;
}

using WishartTest = PooledTest;

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

// The Normal-Wishart part of the log prior, against the densities written
// out in the test: per class and group, the mean is normal about the prior
// mean with the class covariance divided by tau, and the precision is
// Wishart with scale H^-1 (the inverse of the prior covariance) and alpha
// degrees of freedom, the prior whose mode the MAP update takes.
using gauss_ref::Sym2;

const long double kM1 = 0.25L, kH1 = 1.5L;  // one-dimensional group: prior mean and variance
const long double kM2[2] = {1.0L, -0.5L};   // two-dimensional group
const Sym2 kH2 = {2.0L, 0.4L, 0.8L};
const long double kMean1[2] = {0.1L, 1.2L}, kVar1[2] = {0.7L, 2.5L};
const long double kMean2[2][2] = {{0.9L, -0.2L}, {-1.5L, 2.0L}};
const Sym2 kCov2[2] = {{1.1L, 0.3L, 0.6L}, {0.5L, -0.2L, 3.0L}};

// alpha1 and alpha2 are the degrees of freedom of the two groups.
long double expected_prior(long double tau, long double alpha1, long double alpha2) {
  long double lp = 0;
  for (int k = 0; k < 2; k++) {
    lp += gauss_ref::log_normal1(kMean1[k], kM1, kVar1[k] / tau);
    lp += gauss_ref::log_wishart1(1 / kVar1[k], 1 / kH1, alpha1);
    lp += gauss_ref::log_normal2(kMean2[k], kM2, kCov2[k].scaled(1 / tau));
    lp += gauss_ref::log_wishart2(kCov2[k].inverse(), kH2, alpha2);
  }
  return lp;
}

// Column 0 is a one-dimensional group, columns 1 and 2 a two-dimensional one.
TEST(LogPriorGauss, MatchesTheNormalWishartDensities) {
  em_fixture::load(2, 3, "0#1-2", "0,0,0\n1,2,3\n");
  for (int k = 0; k < 2; k++) {
    model.param_u[k][0][0] = kMean1[k];
    model.param_s[k][0][0][0] = kVar1[k];
    gauss_ref::store(model.param_s[k][1], kCov2[k]);
    model.hparam_u[k][0][0] = kM1;
    model.hparam_s[k][0][0][0] = model.hparam_sdet[k][0] = kH1;
    model.hparam_p[k][0][0][0] = 1 / kH1;
    gauss_ref::store(model.hparam_s[k][1], kH2);
    gauss_ref::store(model.hparam_p[k][1], kH2.inverse());
    model.hparam_sdet[k][1] = kH2.det();
    for (int i = 0; i < 2; i++) {
      model.param_u[k][1][i] = kMean2[k][i];
      model.hparam_u[k][1][i] = kM2[i];
    }
  }
  ASSERT_EQ(refresh_precisions(), 0);
  model.smooth.c = 0;  // no class term
  model.smooth.gauss = 1;
  // Without --alpha (0) each group takes its dimension plus 1e-6.
  const struct {
    long double tau, alpha, alpha1, alpha2, tol;
  } cases[] = {{0.8L, 3.5L, 3.5L, 3.5L, 1e-12L}, {4, 7, 7, 7, 1e-12L}, {1, 0, 1 + 1e-6L, 2 + 1e-6L, 1e-10L}};
  for (const auto &c : cases) {
    model.smooth.tau = c.tau;
    settings.alpha_w = c.alpha;
    EXPECT_NEAR(compute_log_prior(), expected_prior(c.tau, c.alpha1, c.alpha2), c.tol) << c.tau;
  }
  model.smooth.gauss = 0;  // the Gaussian priors not in force: no Gaussian term
  EXPECT_EQ(compute_log_prior(), 0.0L);
  em_fixture::unload();
}

// The MAP update of a Gaussian group for classes that have data, against the
// posterior mode written with centred scatter from the raw points (with a
// vanishing prior: the weighted mean and covariance), and as the maximiser
// of the log posterior (likelihood of the weighted points plus the
// Normal-Wishart prior, both written out in the test).
using gauss_ref::Sym2;

// Five points of a two-dimensional group, the third field a case count.
const char kPoints[] = "0.5,1.0,1\n1.5,-0.5,2\n-1.0,2.0,1\n2.0,0.5,1\n0.0,0.0,3\n";
const long double kX[5][2] = {{0.5L, 1.0L}, {1.5L, -0.5L}, {-1.0L, 2.0L}, {2.0L, 0.5L}, {0.0L, 0.0L}};
const long double kCount[5] = {1, 2, 1, 1, 3};
const long double kResp0[5] = {0.9L, 0.2L, 0.5L, 0.7L, 0.35L};  // class 0; class 1 has the rest

struct Prior {
  long double tau, alpha;
  long double m[2][2];  // per class
  Sym2 h;
};
const Prior kPrior = {0.5L, 4.5L, {{1.0L, -1.0L}, {-2.0L, 0.5L}}, {2.0L, 0.3L, 1.0L}};
const Prior kVanishing = {0, 2, {{5, 5}, {5, 5}}, {0, 0, 0}};  // tau = 0, H = 0, alpha = d

long double weight(int k, int e) { return kCount[e] * (k == 0 ? kResp0[e] : 1 - kResp0[e]); }

// The posterior mode with the scatter taken about the new mean.
Sym2 direct_mode(int k, const Prior &p, long double mu[2]) {
  long double n = 0, sx[2] = {0, 0};
  for (int e = 0; e < 5; e++) {
    n += weight(k, e);
    for (int i = 0; i < 2; i++) sx[i] += weight(k, e) * kX[e][i];
  }
  for (int i = 0; i < 2; i++) mu[i] = (sx[i] + p.tau * p.m[k][i]) / (n + p.tau);
  Sym2 c = p.h;
  auto add = [&c, mu](long double w, const long double *x) {
    long double d0 = x[0] - mu[0], d1 = x[1] - mu[1];
    c = {c.a + w * d0 * d0, c.b + w * d0 * d1, c.c + w * d1 * d1};
  };
  for (int e = 0; e < 5; e++) add(weight(k, e), kX[e]);
  add(p.tau, p.m[k]);
  return c.scaled(1 / (n + p.alpha - 2));
}

// The mean is normal about m with covariance S / tau, the precision Wishart
// with scale H^-1 and alpha degrees of freedom.
long double log_posterior(int k, const Prior &p, const long double mu[2], const Sym2 &s) {
  long double l = 0;
  for (int e = 0; e < 5; e++) l += weight(k, e) * gauss_ref::log_normal2(kX[e], mu, s);
  l += gauss_ref::log_normal2(mu, p.m[k], s.scaled(1 / p.tau));
  return l + gauss_ref::log_wishart2(s.inverse(), p.h, p.alpha);
}

// Mean and covariance, and the precision and determinant that follow them;
// with the proper prior, every small move of one mean component or one
// covariance entry lowers the log posterior.
TEST(MapUpdate, IsTheModeWithCentredScatterAndTheMaximum) {
  em_fixture::load(2, 2, "0-1", kPoints);
  for (int e = 0; e < 5; e++) {
    model.prob_cond[0][e] = kResp0[e];
    model.prob_cond[1][e] = 1 - kResp0[e];
  }
  compute_expect();
  model.smooth.gauss = 1;
  for (const Prior &prior : {kVanishing, kPrior}) {
    model.smooth.tau = prior.tau;
    settings.alpha_w = prior.alpha;
    for (int k = 0; k < 2; k++) {
      for (int i = 0; i < 2; i++) model.hparam_u[k][0][i] = prior.m[k][i];
      gauss_ref::store(model.hparam_s[k][0], prior.h);
    }
    update_param();
    for (int k = 0; k < 2; k++) {
      long double mu[2];
      Sym2 want = direct_mode(k, prior, mu), s = gauss_ref::load(model.param_s[k][0]);
      EXPECT_NEAR(model.param_u[k][0][0], mu[0], 1e-15L) << k << " " << prior.tau;
      EXPECT_NEAR(model.param_u[k][0][1], mu[1], 1e-15L) << k << " " << prior.tau;
      EXPECT_LT(gauss_ref::max_diff(s, want), 1e-15L) << k << " " << prior.tau;
      EXPECT_EQ(model.param_s[k][0][1][0], s.b);
      EXPECT_NEAR(model.param_sdet[k][0], want.det(), 1e-15L) << k;
      EXPECT_LT(gauss_ref::max_diff(gauss_ref::load(model.param_p[k][0]), want.inverse()), 1e-13L) << k;
    }
  }
  for (int k = 0; k < 2; k++) {
    long double mu[2] = {model.param_u[k][0][0], model.param_u[k][0][1]};
    Sym2 s = gauss_ref::load(model.param_s[k][0]);
    long double best = log_posterior(k, kPrior, mu, s);
    for (long double h : {-1e-3L, 1e-3L}) {
      long double moved[2][2] = {{mu[0] + h, mu[1]}, {mu[0], mu[1] + h}};
      for (const long double *m : moved) EXPECT_LT(log_posterior(k, kPrior, m, s), best) << k << " " << h;
      for (const Sym2 &t : {Sym2{s.a + h, s.b, s.c}, Sym2{s.a, s.b + h, s.c}, Sym2{s.a, s.b, s.c + h}})
        EXPECT_LT(log_posterior(k, kPrior, mu, t), best) << k << " " << h;
    }
  }
  em_fixture::unload();
}

}  // namespace
