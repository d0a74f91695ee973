// The annealed E-step on a table with a discrete attribute, a two- and a
// one-dimensional Gaussian group and missing values of every kind, against
// the joint log density l_k written out in the test: the tempered complete
// values are beta l_k (log scale) or exp(beta l_k) (plain scale), and the
// posteriors are the normalised exp(beta l_k).
#include <gtest/gtest.h>

#include <cmath>

#include "em_fixture.h"
#include "gauss_reference.h"

namespace {

using gauss_ref::Sym2;

// Column 0 discrete (a, b), columns 1-2 one group, column 3 another. Case 2
// lacks x1, case 3 lacks its discrete value, x2 and x3, case 5 lies far out
// so that its untempered probability falls below the 1e-60 floor.
const char kCases[] = "a,1.0,2.0,0.5\nb,NA,1.5,-1\n?,0.3,NA,NA\na,2,1,0.1\nb,-0.5,0.25,40\n";
const int kValue[5] = {0, 1, -1, 0, 1};
const long double kNA = NAN;
const long double kX[5][3] = {{1.0L, 2.0L, 0.5L}, {kNA, 1.5L, -1}, {0.3L, kNA, kNA}, {2, 1, 0.1L},
                              {-0.5L, 0.25L, 40}};

const long double kC[3] = {0.2L, 0.5L, 0.3L};
const long double kW[3][2] = {{0.25L, 0.75L}, {0.6L, 0.4L}, {0.9L, 0.1L}};
const long double kMu2[3][2] = {{0, 1}, {1.5L, 1.5L}, {-1, 0}};
const Sym2 kS2[3] = {{1, 0.5L, 2}, {0.5L, -0.1L, 0.3L}, {2, 0, 2}};
const long double kMu1[3] = {0, -0.5L, 1}, kVar1[3] = {1, 0.5L, 2};

// log P(k, x_e): absent discrete values and Gaussian components are left
// out; a half-observed pair contributes its one-dimensional marginal.
long double joint_log(int k, int e) {
  const long double *x = kX[e];
  long double l = logl(kC[k]);
  if (kValue[e] >= 0) l += logl(kW[k][kValue[e]]);
  bool has0 = !std::isnan(x[0]), has1 = !std::isnan(x[1]);
  if (has0 && has1) l += gauss_ref::log_normal2(x, kMu2[k], kS2[k]);
  else if (has0) l += gauss_ref::log_normal1(x[0], kMu2[k][0], kS2[k].a);
  else if (has1) l += gauss_ref::log_normal1(x[1], kMu2[k][1], kS2[k].c);
  if (!std::isnan(x[2])) l += gauss_ref::log_normal1(x[2], kMu1[k], kVar1[k]);
  return l;
}

TEST(AnnealedEStep, TemperedJointsAndPosteriorsOnBothScales) {
  em_fixture::load(3, 4, "1-2#3", kCases);
  for (int k = 0; k < 3; k++) {
    model.param_c[k] = kC[k];
    for (int v = 0; v < 2; v++) model.param_w[k][0][v] = kW[k][v];
    for (int i = 0; i < 2; i++) model.param_u[k][0][i] = kMu2[k][i];
    gauss_ref::store(model.param_s[k][0], kS2[k]);
    model.param_u[k][1][0] = kMu1[k];
    model.param_s[k][1][0][0] = kVar1[k];
  }
  ASSERT_EQ(refresh_precisions(), 0);
  for (long double beta : {1.0L, 0.37L, 0.01L}) {
    for (int log_scale : {1, 0}) {
      model.itemp = beta;
      settings.mode_log_scale = settings.mode_smooth_strict = log_scale;  // the log scale needs both
      compute_complete_prob_daem();
      compute_incomplete_prob();
      compute_conditional_prob();
      for (int e = 0; e < 5; e++) {
        long double l[3], mx = -HUGE_VALL, sum = 0;
        for (int k = 0; k < 3; k++) mx = fmaxl(mx, l[k] = beta * joint_log(k, e));
        for (int k = 0; k < 3; k++) sum += expl(l[k] - mx);
        long double log_px = mx + logl(sum);
        if (log_scale) EXPECT_NEAR(model.prob_incomp[e], log_px, 1e-12L) << e << " " << beta;
        else EXPECT_NEAR(model.prob_incomp[e], expl(log_px), 1e-12L * expl(log_px)) << e << " " << beta;
        bool floored = !log_scale && log_px <= logl(1e-60L);  // no posterior then
        for (int k = 0; k < 3; k++) {
          long double want = log_scale ? l[k] : expl(l[k]);
          EXPECT_NEAR(model.prob_comp[k][e], want, 1e-12L * (log_scale ? 1 : want)) << k << e << " " << beta;
          EXPECT_NEAR(model.prob_cond[k][e], floored ? 0 : expl(l[k] - log_px), 1e-13L) << k << e << " " << beta;
        }
      }
    }
  }
  // The far case: floored when untempered, lifted at beta = 0.01 (the last pass).
  EXPECT_LT(joint_log(0, 4), logl(1e-60L));
  EXPECT_GT(model.prob_cond[0][4] + model.prob_cond[1][4] + model.prob_cond[2][4], 0.99L);
  em_fixture::unload();
}

}  // namespace
