// Model scores: BIC and the Cheeseman-Stutz approximation of the marginal
// likelihood.
#include "model/ic.h"

#include <cmath>

#include "base/gamma_f.h"
#include "base/matrix.h"
#include "base/misc.h"
#include "settings/settings.h"
#include "input/read_freq.h"
#include "model/allocate.h"
#include "model/em.h"
#include "model/gauss.h"
#include "model/wishart.h"
#include "model/report.h"

namespace {

const long double kLog2Pi = 1.8378770664093456L;

long double lng(long double x) { return lngamma(static_cast<double>(x)); }

// Stops on a NaN or infinite score after writing the parameters to the log.
void check_finite(long double x, const char *where, const char *nan_msg, const char *inf_msg) {
  if (!std::isnan(x) && !std::isinf(x)) return;
  model_report.param(settings.fp_log);
  die_numeric(where, std::isnan(x) ? nan_msg : inf_msg);
}

}  // namespace

// The counts are wide: K, the value counts and the group dimensions are ints,
// and their products need not fit one.
long long count_class_params(int k) { return k - 1LL; }

long long count_discrete_params(int k) {
  long long p = 0;
  for (int a = 0; a < settings.tuple_size_d; a++) p += (cases.num_word[a] - 1LL) * k;
  return p;
}

// Covariance entries only; the mean components are not counted.
long long count_gauss_params(int k) {
  long long p = 0;
  for (int g = 0; g < settings.gauss_size; g++) {
    long long d = settings.gauss_attr_size[g];
    p += (d * (d - 1) / 2 + d) * k;
  }
  return p;
}

long long count_free_params() {
  int k = model.num_class;
  return count_class_params(k) + count_discrete_params(k) + count_gauss_params(k);
}

long double compute_bic() {
  compute_complete_prob();
  compute_incomplete_prob();
  long double l = compute_loglike();
  long double p = static_cast<long double>(count_free_params());
  long double bic = l - 0.5L * p * logl(static_cast<long double>(cases.total_freq));
  check_finite(bic, "check_bic", "Computed BIC is not a number\n", "Computed BIC is not finite\n");
  return bic;
}

namespace {

// Dirichlet-multinomial marginal of the expected class counts.
long double marginal_class() {
  int nk = model.num_class;
  long double n = cases.total_freq, m = 0;
  if (settings.mode_read_hparam) {
    long double sum_h = 0, sum_hn = 0;
    for (int k = 0; k < nk; k++) {
      sum_h += model.hparam_c[k];
      sum_hn += model.hparam_c[k] + model.expect_c[k];
      m += lng(model.hparam_c[k] + model.expect_c[k]) - lng(model.hparam_c[k]);
    }
    return lng(sum_h) - lng(sum_hn) + m;
  }
  long double a = model.smooth.c + 1.0L;
  for (int k = 0; k < nk; k++) m += lng(a + model.expect_c[k]) - lng(a);
  return lng(nk * a) - lng(nk * a + n) + m;
}

long double marginal_nominal_one(int k, int a) {
  int nv = cases.num_word[a];
  long double nk = model.expect_c[k], t = 0;
  if (!settings.mode_read_hparam) {
    long double b = model.smooth.w[a] + 1.0L;
    for (int v = 0; v < nv; v++) t += lng(b + model.expect_w[k][a][v]);
    return lng(nv * b) - nv * lng(b) - lng(nk + nv * b) + t;
  }
  long double sum_h = 0;
  for (int v = 0; v < nv; v++) {
    long double h = model.hparam_w[k][a][v];
    sum_h += h;
    t += lng(h + model.expect_w[k][a][v]) - lng(h);
  }
  return lng(sum_h) - lng(nk + sum_h) + t;
}

}  // namespace

// Log marginal likelihood of the completed data of class k, group g under the
// Normal-Wishart prior.
long double compute_complete_marginal_loglike_gauss(int k, int g) {
  int d = settings.gauss_attr_size[g];
  long double n = model.expect_c[k], tau = get_tau(k), tau2 = tau + n;
  long double alpha = get_alpha_w(k, g, d);
  const long double *m = model.hparam_u[k][g], *u = model.expect_u[k][g];
  long double **s0 = model.hparam_s[k][g], **q = model.expect_s[k][g];
  Matrix s1 = alloc_matrix(d, d);
  for (int i = 0; i < d; i++)
    for (int j = i; j < d; j++)
      s1[i][j] = s0[i][j] + q[i][j] - u[i] * u[j] / n + (tau * n / tau2) * (m[i] - u[i] / n) * (m[j] - u[j] / n);
  copy_upper_to_lower(s1);
  long double det1 = determinant_c(s1), det0 = determinant_c(s0);
  release_matrix0(s1);
  return -kLog2Pi * n * d / 2.0L + (d / 2.0L) * (logl(tau) - logl(tau2)) + lwishart_coeff(d, alpha) -
         lwishart_coeff(d, alpha + n) + (alpha / 2.0L) * logl(det0) - ((alpha + n) / 2.0L) * logl(det1);
}

namespace {

long double marginal_loglike() {
  long double m = marginal_class();
  for (int k = 0; k < model.num_class; k++) {
    for (int a = 0; a < settings.tuple_size_d; a++) m += marginal_nominal_one(k, a);
    for (int g = 0; g < settings.gauss_size; g++) m += compute_complete_marginal_loglike_gauss(k, g);
  }
  return m;
}

// Expected complete-data log-likelihood at the current parameters.
long double expected_complete_loglike() {
  long double c = 0;
  for (int k = 0; k < model.num_class; k++) {
    c += model.expect_c[k] * logl(model.param_c[k]);
    for (int a = 0; a < settings.tuple_size_d; a++)
      for (int v = 0; v < cases.num_word[a]; v++)
        c += model.expect_w[k][a][v] * logl(model.param_w[k][a][v]);
    for (int g = 0; g < settings.gauss_size; g++)
      c += lgauss_stat_prec(model.expect_c[k], model.expect_u[k][g], model.expect_s[k][g],
                            model.param_u[k][g], model.param_s[k][g], model.param_p[k][g],
                            model.param_sdet[k][g]);
  }
  return c;
}

}  // namespace

long double compute_cs() {
  compute_complete_prob();
  compute_incomplete_prob();
  compute_conditional_prob();
  compute_expect();
  long double l = compute_loglike();
  long double cs = l + marginal_loglike() - expected_complete_loglike();
  check_finite(cs, "check_cs", "Computed Cheeseman-Stutz score is not a number\n",
               "Computed Cheeseman-Stutz score is not finite\n");
  return cs;
}
