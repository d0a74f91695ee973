// The MAP update of a Gaussian group for classes that have data, against the
// posterior mode written with centred scatter from the raw points (with a
// vanishing prior: the weighted mean and covariance), and as the maximiser
// of the log posterior (likelihood of the weighted points plus the
// Normal-Wishart prior, both written out in the test).
#include <gtest/gtest.h>

#include <cmath>

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
  settings.mode_smooth_gauss = 1;
  for (const Prior &prior : {kVanishing, kPrior}) {
    settings.tau = prior.tau;
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
