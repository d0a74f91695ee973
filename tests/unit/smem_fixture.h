// A three-class mixed model for the split-and-merge tests: one discrete
// attribute (a, b) and one 2-d Gaussian, with occurrence counts, a missing
// discrete value, a partly and a wholly missing Gaussian. Parameters are set
// by hand; the test-side joint probabilities are computed from them directly.
#ifndef VESK_TESTS_SMEM_FIXTURE_H
#define VESK_TESTS_SMEM_FIXTURE_H

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

#include "em_fixture.h"
#include "smem/smem.h"

namespace smem_fixture {

const long double kPi = 3.14159265358979323846264338327950288L;

inline long double normal1(long double x, long double mu, long double var) {
  return expl(-0.5L * (x - mu) * (x - mu) / var) / sqrtl(2 * kPi * var);
}

inline long double normal2(const long double *x, const long double *mu, const long double s[2][2]) {
  long double d0 = x[0] - mu[0], d1 = x[1] - mu[1], det = s[0][0] * s[1][1] - s[0][1] * s[0][1];
  long double q = (s[1][1] * d0 * d0 - 2 * s[0][1] * d0 * d1 + s[0][0] * d1 * d1) / det;
  return expl(-0.5L * q) / (2 * kPi * sqrtl(det));
}

class MixedModel : public ::testing::Test {
 protected:
  static const int kK = 3, kE = 6;
  // value (-1 missing), x0, x1 (NAN missing), count
  const int val[kE] = {0, 1, 0, -1, 1, 0};
  const long double xs[kE][2] = {{0, 1}, {1, 0}, {2, 2}, {0.5L, 1.5L}, {3, NAN}, {NAN, NAN}};
  const int cnt[kE] = {2, 1, 1, 3, 1, 2};
  long double c[kK] = {0.5L, 0.3L, 0.2L};
  long double w[kK][2] = {{0.6L, 0.4L}, {0.3L, 0.7L}, {0.5L, 0.5L}};
  long double mu[kK][2] = {{0, 1}, {2, 1}, {1, 2}};
  long double s[kK][2][2] = {{{1, 0.3L}, {0.3L, 2}}, {{0.5L, 0.1L}, {0.1L, 1}}, {{2, -0.4L}, {-0.4L, 1}}};

  void SetUp() override {
    em_fixture::load(kK, 3, "1-2", "a,0,1,2\nb,1,0,1\na,2,2,1\n?,0.5,1.5,3\nb,3,?,1\na,?,?,2\n");
    install();
    alloc_jmerge();
    alloc_jsplit();
  }
  void TearDown() override {
    release_jsplit();
    release_jmerge();
    em_fixture::unload();
  }

  // Copies the hand parameters into the model.
  void install() {
    for (int k = 0; k < kK; k++) {
      model.param_c[k] = c[k];
      for (int v = 0; v < 2; v++) model.param_w[k][0][v] = w[k][v];
      for (int i = 0; i < 2; i++) {
        model.param_u[k][0][i] = mu[k][i];
        for (int j = 0; j < 2; j++) model.param_s[k][0][i][j] = s[k][i][j];
      }
    }
    ASSERT_EQ(refresh_precisions(), 0);
  }

  // P(x_e | k) by hand: observed discrete value, then the full or marginal
  // Gaussian of the observed components.
  long double density(int k, int e) const {
    long double p = val[e] >= 0 ? w[k][val[e]] : 1.0L;
    bool o0 = !std::isnan(xs[e][0]), o1 = !std::isnan(xs[e][1]);
    if (o0 && o1) p *= normal2(xs[e], mu[k], s[k]);
    else if (o0) p *= normal1(xs[e][0], mu[k][0], s[k][0][0]);
    else if (o1) p *= normal1(xs[e][1], mu[k][1], s[k][1][1]);
    return p;
  }

  long double posterior(int k, int e) const {
    long double sum = 0;
    for (int j = 0; j < kK; j++) sum += c[j] * density(j, e);
    return c[k] * density(k, e) / sum;
  }

  // The program's E-step on the installed parameters, with the class counts
  // handed to the criteria.
  void run_estep() {
    compute_complete_prob();
    compute_incomplete_prob();
    compute_conditional_prob();
    compute_expect();
    memcpy(smem.expect_c_sm, model.expect_c, sizeof(long double) * kK);
  }
};

}  // namespace smem_fixture

#endif
