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

struct GroupPrior {
  long double m1, h1;  // one-dimensional group: prior mean and variance
  long double m2[2];   // two-dimensional group
  Sym2 h2;
};

const GroupPrior kPrior = {0.25L, 1.5L, {1.0L, -0.5L}, {2.0L, 0.4L, 0.8L}};
const long double kMean1[2] = {0.1L, 1.2L}, kVar1[2] = {0.7L, 2.5L};
const long double kMean2[2][2] = {{0.9L, -0.2L}, {-1.5L, 2.0L}};
const Sym2 kCov2[2] = {{1.1L, 0.3L, 0.6L}, {0.5L, -0.2L, 3.0L}};

// Column 0 is a one-dimensional group, columns 1 and 2 a two-dimensional one.
class LogPriorGauss : public ::testing::Test {
 protected:
  void SetUp() override {
    em_fixture::load(2, 3, "0#1-2", "0,0,0\n1,2,3\n");
    for (int k = 0; k < 2; k++) {
      model.param_u[k][0][0] = kMean1[k];
      model.param_s[k][0][0][0] = kVar1[k];
      Matrix s = model.param_s[k][1];
      s[0][0] = kCov2[k].a;
      s[0][1] = s[1][0] = kCov2[k].b;
      s[1][1] = kCov2[k].c;
      for (int i = 0; i < 2; i++) model.param_u[k][1][i] = kMean2[k][i];
      model.hparam_u[k][0][0] = kPrior.m1;
      model.hparam_s[k][0][0][0] = kPrior.h1;
      model.hparam_p[k][0][0][0] = 1 / kPrior.h1;
      model.hparam_sdet[k][0] = kPrior.h1;
      Sym2 hp = kPrior.h2.inverse();
      Matrix h = model.hparam_s[k][1], p = model.hparam_p[k][1];
      h[0][0] = kPrior.h2.a;
      h[0][1] = h[1][0] = kPrior.h2.b;
      h[1][1] = kPrior.h2.c;
      p[0][0] = hp.a;
      p[0][1] = p[1][0] = hp.b;
      p[1][1] = hp.c;
      for (int i = 0; i < 2; i++) model.hparam_u[k][1][i] = kPrior.m2[i];
      model.hparam_sdet[k][1] = kPrior.h2.det();
    }
    ASSERT_EQ(refresh_precisions(), 0);
    settings.mode_smooth_gauss = 1;
    settings.smooth_c = 0;  // no class term
  }
  void TearDown() override { em_fixture::unload(); }
};

// alpha1 and alpha2 are the degrees of freedom of the two groups.
long double expected_prior(long double tau, long double alpha1, long double alpha2) {
  long double lp = 0;
  for (int k = 0; k < 2; k++) {
    lp += gauss_ref::log_normal1(kMean1[k], kPrior.m1, kVar1[k] / tau);
    lp += gauss_ref::log_wishart1(1 / kVar1[k], 1 / kPrior.h1, alpha1);
    lp += gauss_ref::log_normal2(kMean2[k], kPrior.m2, kCov2[k].scaled(1 / tau));
    lp += gauss_ref::log_wishart2(kCov2[k].inverse(), kPrior.h2, alpha2);
  }
  return lp;
}

TEST_F(LogPriorGauss, MatchesTheNormalWishartDensities) {
  settings.tau = 0.8L;
  settings.alpha_w = 3.5L;
  EXPECT_NEAR(compute_log_prior(), expected_prior(0.8L, 3.5L, 3.5L), 1e-12L);
  settings.tau = 4;
  settings.alpha_w = 7;
  EXPECT_NEAR(compute_log_prior(), expected_prior(4, 7, 7), 1e-12L);
}

// Without --alpha each group takes its dimension plus 1e-6.
TEST_F(LogPriorGauss, DefaultDegreesOfFreedomFollowTheDimension) {
  settings.tau = 1;
  settings.alpha_w = 0;
  EXPECT_NEAR(compute_log_prior(), expected_prior(1, 1 + 1e-6L, 2 + 1e-6L), 1e-10L);
}

// The Gaussian term is left out when the Gaussian priors are not in force.
TEST_F(LogPriorGauss, AbsentWithoutGaussianPriors) {
  settings.mode_smooth_gauss = 0;
  EXPECT_EQ(compute_log_prior(), 0.0L);
}

}  // namespace
