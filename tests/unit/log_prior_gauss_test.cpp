// The Normal-Wishart part of the log prior, against the densities written
// out in the test: per class and group, the mean is normal about the prior
// mean with the class covariance divided by tau, and the precision is
// Wishart with scale H^-1 (the inverse of the prior covariance) and alpha
// degrees of freedom, the prior whose mode the MAP update takes.
#include <gtest/gtest.h>

#include <cmath>

#include "em_fixture.h"
#include "gauss_reference.h"

namespace {

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
  settings.smooth_c = 0;  // no class term
  settings.mode_smooth_gauss = 1;
  // Without --alpha (0) each group takes its dimension plus 1e-6.
  const struct {
    long double tau, alpha, alpha1, alpha2, tol;
  } cases[] = {{0.8L, 3.5L, 3.5L, 3.5L, 1e-12L}, {4, 7, 7, 7, 1e-12L}, {1, 0, 1 + 1e-6L, 2 + 1e-6L, 1e-10L}};
  for (const auto &c : cases) {
    settings.tau = c.tau;
    settings.alpha_w = c.alpha;
    EXPECT_NEAR(compute_log_prior(), expected_prior(c.tau, c.alpha1, c.alpha2), c.tol) << c.tau;
  }
  settings.mode_smooth_gauss = 0;  // the Gaussian priors not in force: no Gaussian term
  EXPECT_EQ(compute_log_prior(), 0.0L);
  em_fixture::unload();
}

}  // namespace
