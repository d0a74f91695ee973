// The MAP update of a Gaussian group for classes that have data, checked
// three ways: against the posterior mode written with centred scatter from
// the raw points, as the maximiser of the log posterior (likelihood of the
// weighted points plus the Normal-Wishart prior, both written out in the
// test), and, with a vanishing prior, against the maximum-likelihood update.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "em_fixture.h"
#include "gauss_reference.h"

namespace {

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

struct Mode {
  long double mu[2];
  Sym2 s;
};

long double weight(int k, int e) { return kCount[e] * (k == 0 ? kResp0[e] : 1 - kResp0[e]); }

// The posterior mode with the scatter taken about the new mean.
Mode direct_mode(int k, const Prior &p) {
  long double n = 0, sx[2] = {0, 0};
  for (int e = 0; e < 5; e++) {
    n += weight(k, e);
    for (int i = 0; i < 2; i++) sx[i] += weight(k, e) * kX[e][i];
  }
  Mode r;
  for (int i = 0; i < 2; i++) r.mu[i] = (sx[i] + p.tau * p.m[k][i]) / (n + p.tau);
  long double c[3] = {p.h.a, p.h.b, p.h.c};
  auto add = [&c, &r](long double w, const long double *x) {
    long double d0 = x[0] - r.mu[0], d1 = x[1] - r.mu[1];
    c[0] += w * d0 * d0;
    c[1] += w * d0 * d1;
    c[2] += w * d1 * d1;
  };
  for (int e = 0; e < 5; e++) add(weight(k, e), kX[e]);
  add(p.tau, p.m[k]);
  long double denom = n + p.alpha - 2;
  r.s = {c[0] / denom, c[1] / denom, c[2] / denom};
  return r;
}

// Weighted log-likelihood of the points plus the log Normal-Wishart prior:
// the mean normal about m with covariance S / tau, the precision Wishart with
// scale H^-1 and alpha degrees of freedom.
long double log_posterior(int k, const Prior &p, const long double mu[2], const Sym2 &s) {
  long double l = 0;
  for (int e = 0; e < 5; e++) l += weight(k, e) * gauss_ref::log_normal2(kX[e], mu, s);
  l += gauss_ref::log_normal2(mu, p.m[k], s.scaled(1 / p.tau));
  l += gauss_ref::log_wishart2(s.inverse(), p.h, p.alpha);
  return l;
}

class MapUpdate : public ::testing::Test {
 protected:
  void SetUp() override {
    em_fixture::load(2, 2, "0-1", kPoints);
    for (int e = 0; e < 5; e++) {
      model.prob_cond[0][e] = kResp0[e];
      model.prob_cond[1][e] = 1 - kResp0[e];
    }
    compute_expect();
  }
  void TearDown() override { em_fixture::unload(); }

  void run_map(const Prior &p) {
    settings.mode_smooth_gauss = 1;
    settings.tau = p.tau;
    settings.alpha_w = p.alpha;
    for (int k = 0; k < 2; k++) {
      for (int i = 0; i < 2; i++) model.hparam_u[k][0][i] = p.m[k][i];
      Matrix h = model.hparam_s[k][0];
      h[0][0] = p.h.a;
      h[0][1] = h[1][0] = p.h.b;
      h[1][1] = p.h.c;
    }
    update_param();
  }
};

const Prior kPrior = {0.5L, 4.5L, {{1.0L, -1.0L}, {-2.0L, 0.5L}}, {2.0L, 0.3L, 1.0L}};

TEST_F(MapUpdate, MatchesTheModeWithCentredScatter) {
  run_map(kPrior);
  for (int k = 0; k < 2; k++) {
    Mode want = direct_mode(k, kPrior);
    Matrix s = model.param_s[k][0];
    EXPECT_NEAR(model.param_u[k][0][0], want.mu[0], 1e-15L) << k;
    EXPECT_NEAR(model.param_u[k][0][1], want.mu[1], 1e-15L) << k;
    EXPECT_NEAR(s[0][0], want.s.a, 1e-15L) << k;
    EXPECT_NEAR(s[0][1], want.s.b, 1e-15L) << k;
    EXPECT_NEAR(s[1][0], want.s.b, 1e-15L) << k;
    EXPECT_NEAR(s[1][1], want.s.c, 1e-15L) << k;
    // Precision and determinant follow the new covariance.
    Sym2 p = want.s.inverse();
    EXPECT_NEAR(model.param_sdet[k][0], want.s.det(), 1e-15L) << k;
    EXPECT_NEAR(model.param_p[k][0][0][0], p.a, 1e-13L) << k;
    EXPECT_NEAR(model.param_p[k][0][0][1], p.b, 1e-13L) << k;
    EXPECT_NEAR(model.param_p[k][0][1][1], p.c, 1e-13L) << k;
  }
}

// Every small move of one mean component or one covariance entry away from
// the update lowers the log posterior.
TEST_F(MapUpdate, IsTheMaximumOfTheLogPosterior) {
  run_map(kPrior);
  const long double step = 1e-3L;
  for (int k = 0; k < 2; k++) {
    long double mu[2] = {model.param_u[k][0][0], model.param_u[k][0][1]};
    Matrix sm = model.param_s[k][0];
    Sym2 s = {sm[0][0], sm[0][1], sm[1][1]};
    long double best = log_posterior(k, kPrior, mu, s);
    for (int sign : {-1, 1}) {
      for (int i = 0; i < 2; i++) {
        long double moved[2] = {mu[0], mu[1]};
        moved[i] += sign * step;
        EXPECT_LT(log_posterior(k, kPrior, moved, s), best) << k << " mean " << i << " " << sign;
      }
      const Sym2 shifted[3] = {{s.a + sign * step, s.b, s.c}, {s.a, s.b + sign * step, s.c},
                               {s.a, s.b, s.c + sign * step}};
      for (const Sym2 &t : shifted) EXPECT_LT(log_posterior(k, kPrior, mu, t), best) << k << " " << sign;
    }
  }
}

// With tau = 0, H = 0 and alpha = d the prior vanishes and the MAP update is
// the maximum-likelihood one: weighted mean and weighted covariance.
TEST_F(MapUpdate, VanishingPriorGivesTheMaximumLikelihoodUpdate) {
  const Prior none = {0, 2, {{5, 5}, {5, 5}}, {0, 0, 0}};
  run_map(none);
  long double map[2][4];
  for (int k = 0; k < 2; k++) {
    Matrix s = model.param_s[k][0];
    long double row[4] = {model.param_u[k][0][0], s[0][0], s[0][1], s[1][1]};
    for (int i = 0; i < 4; i++) map[k][i] = row[i];
  }
  settings.mode_smooth_gauss = 0;
  update_param();
  for (int k = 0; k < 2; k++) {
    Mode ml = direct_mode(k, none);
    Matrix s = model.param_s[k][0];
    EXPECT_NEAR(map[k][0], model.param_u[k][0][0], 1e-15L);
    EXPECT_NEAR(map[k][1], s[0][0], 1e-15L);
    EXPECT_NEAR(map[k][2], s[0][1], 1e-15L);
    EXPECT_NEAR(map[k][3], s[1][1], 1e-15L);
    EXPECT_NEAR(s[0][1], ml.s.b, 1e-15L);
  }
}

}  // namespace
